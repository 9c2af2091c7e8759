// Area membership: one inside/outside flag per area id, which is also the
// alertID of the rule it guards. An id without an entry counts as inside.
// The service knows no geometry: the flags come over the bus, from the
// fence state record 6689, the fence event 6795 and the "AREALINE" reply.
//
// Fence state record (message 6689), little-endian:
// | Offset | Width | Field                                    |
// |--------|-------|------------------------------------------|
// | 0      | u8    | bit 0: 1 inside, 0 outside; rest unread  |
// | 1      | 3     | not read                                 |
// | 4      | u32   | area id                                  |
// | 8      | rest  | not read                                 |
// Accepted payload length: 3352 to 3864 bytes.
//
// Fence event (message 6795), JSON: "SOURCE" 100, "EVENT" (1 inside, any
// other integer outside), "ID".
#include "AlertZelManage.h"
#include "ByteOrder.h"
#include "MessageHead.h"
#include "RulesInternal.h"

namespace {

const uint32_t kFenceMinPayload = 3352;
const uint32_t kFenceMaxPayload = 3864;
const size_t kFenceFlag = 0;
const size_t kFenceAreaId = 4;
const uint8_t kFenceInsideBit = 0x01;
const unsigned int kPlatformSource = 100;

}  // namespace

bool zel::setAreaFlag(std::map<uint32_t, bool>& areas, uint32_t id, bool inside) {
    std::pair<std::map<uint32_t, bool>::iterator, bool> placed =
        areas.insert(std::make_pair(id, inside));
    if (!placed.second) {
        placed.first->second = inside;
        return false;
    }
    return areas.size() > kAreaSoftLimit;
}

bool zel::addAreaIfAbsent(std::map<uint32_t, bool>& areas, uint32_t id) {
    bool inserted = areas.insert(std::make_pair(id, false)).second;
    return inserted && areas.size() > kAreaSoftLimit;
}

bool CAlertZelManage::checkIsInArea(unsigned int alertID) {
    std::map<uint32_t, bool>::const_iterator it = m_IsInGPSAreaMap.find(alertID);
    return it == m_IsInGPSAreaMap.end() || it->second;
}

void CAlertZelManage::getAreaID(Json::Value& root, std::string& key) {
    if (!zel::hasArray(root, key.c_str())) {
        ZEL_LOG(3, "getAreaID  add error !\n");
        return;
    }
    const Json::Value& areas = static_cast<const Json::Value&>(root)[key];
    for (const Json::Value& area : areas) {
        unsigned int id = 0;
        if (!GetJsonID(area, id)) continue;
        if (zel::addAreaIfAbsent(m_IsInGPSAreaMap, id))
            ZEL_LOG(3, "=====m_IsInGPSAreaMap[%d] is too large !======\n",
                    static_cast<int>(m_IsInGPSAreaMap.size()));
    }
}

void CAlertZelManage::OnUpdateFenceInfo(const char* msg, int len) {
    if (holdIfBusy(&CAlertZelManage::OnUpdateFenceInfo, msg, len)) return;
    BusyScope busy(*this);
    ZEL_LOG(3, "=======OnUpdateFenceInfo======!\n");
    if (msg == nullptr || len < zel::kHeadSize) {
        ZEL_LOG(3, "fence info length error \n");
        return;
    }
    uint32_t payload = zel::judgedPayload(msg, len, kFenceMinPayload, kFenceMaxPayload);
    if (payload < kFenceMinPayload) {
        ZEL_LOG(3, "data length failed msgerror=%d\n", static_cast<int>(payload));
        return;
    }
    if (payload > kFenceMaxPayload) {
        ZEL_LOG(3, "data length over mem = %d\n", static_cast<int>(payload));
        return;
    }
    const char* body = msg + zel::kHeadSize;
    bool inside = (zel::getU8(body, kFenceFlag) & kFenceInsideBit) != 0;
    uint32_t id = zel::getLe32(body, kFenceAreaId);
    ZEL_LOG(3, "=======OnUpdateFenceInfo ID[%d][%d]======!\n", static_cast<int>(id),
            inside ? 1 : 0);
    if (zel::setAreaFlag(m_IsInGPSAreaMap, id, inside))
        ZEL_LOG(3, "==========m_IsInGPSAreaMap is too large !============\n");
}

void CAlertZelManage::OnUpdateFenceEvent(const char* msg, int len) {
    if (holdIfBusy(&CAlertZelManage::OnUpdateFenceEvent, msg, len)) return;
    BusyScope busy(*this);
    try {
        if (msg == nullptr || len < zel::kHeadSize) {
            ZEL_LOG(3, "OnUpdateFenceEvent length error \n");
            return;
        }
        uint32_t payload = zel::receivedPayload(msg, len);
        if (payload == 0) {
            ZEL_LOG(3, "OnUpdateFenceEvent failed msgerror=%d\n", static_cast<int>(payload));
            return;
        }
        Json::Value root;
        if (!zel::parsePayload(msg, payload, root)) {
            ZEL_LOG(3, "OnUpdateAreaInfo parse fail !\n");
            return;
        }
        unsigned int source = 0;
        if (!GetJsonSource(root, source)) {
            ZEL_LOG(3, "OnPlatformUpdateArea no source !\n");
            return;
        }
        if (source != kPlatformSource) {
            ZEL_LOG(3, "OnPlatformUpdateArea source[%d] != %d !\n", static_cast<int>(source),
                    static_cast<int>(kPlatformSource));
            return;
        }
        const Json::Value& croot = root;
        if (!croot.isMember("EVENT") || !croot["EVENT"].isInt()) {
            ZEL_LOG(3, "OnPlatformUpdateArea no event !\n");
            return;
        }
        unsigned int id = 0;
        if (!GetJsonID(root, id)) {
            ZEL_LOG(3, "OnPlatformUpdateArea no ID !\n");
            return;
        }
        bool inside = croot["EVENT"].asInt() == 1;
        ZEL_LOG(3, "=======OnUpdateFenceInfo ID[%d][%d]======!\n", static_cast<int>(id),
                inside ? 1 : 0);
        if (zel::setAreaFlag(m_IsInGPSAreaMap, id, inside))
            ZEL_LOG(3, "==========m_IsInGPSAreaMap is too large !============\n");
    } catch (const std::exception& e) {
        ZEL_LOG(3, "OnUpdateFenceEvent dropped a message: %s\n", e.what());
    }
}
