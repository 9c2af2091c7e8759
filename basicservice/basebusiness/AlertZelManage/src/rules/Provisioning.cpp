// Rule provisioning: requests for the rule set and the area state, and the
// platform's add, delete, delete-all and replace commands.
//
// | Id    | Direction | JSON                                                  |
// |-------|-----------|-------------------------------------------------------|
// | 6796  | out       | {"CMD":8,"SOURCE":100}: the whole rule set            |
// | 6796  | out       | {"CMD":11,"SOURCE":100}: the current area state       |
// | 39564 | in        | "DUMMY100" and the four area arrays, or "AREALINE"    |
// | 6796  | in        | "SOURCE" 100 and "CMD" 1 add, 3 delete, 4 delete all, |
// |       |           | 5 cover, with "DUMMY", "DUMMYIDS" and area arrays     |
//
// Both handlers may be dispatched inside a storage wait, under a walk or a
// stop. They are then held and applied, in arrival order, when the outermost
// walk or stop has ended; while they run they hold a BusyScope themselves, so
// a rule message that arrives inside their own stops waits behind them.
// No exception leaves a handler: JSON of an unexpected shape reads as absent,
// and whatever jsoncpp might still throw is caught at the handler's edge and
// logged.
#include <stdlib.h>
#include <time.h>

#include <string>

#include "AlertZelManage.h"
#include "MessageHead.h"
#include "MessageIds.h"
#include "RulesInternal.h"

namespace {

const unsigned int kPlatformSource = 100;
const unsigned int kCmdAdd = 1;
const unsigned int kCmdDelete = 3;
const unsigned int kCmdDeleteAll = 4;
const unsigned int kCmdCover = 5;
const unsigned int kCmdRuleSet = 8;
const unsigned int kCmdAreaState = 11;
const long kParaRequestGap = 19;  // a new request once the gap exceeds this

// The text of a request: {"CMD":cmd,"SOURCE":100} as the fast writer gives it,
// with its closing newline.
std::string requestText(unsigned int cmd) {
    Json::Value request;
    request["CMD"] = cmd;
    request["SOURCE"] = kPlatformSource;
    Json::FastWriter writer;
    return writer.write(request);
}

}  // namespace

bool zel::parsePayload(const char* msg, uint32_t payload, Json::Value& root) {
    const char* begin = msg + kHeadSize;
    try {
        Json::Reader reader;
        return reader.parse(begin, begin + payload, root, true);
    } catch (const std::exception&) {
        root = Json::Value();
        return false;
    }
}

bool zel::hasArray(const Json::Value& root, const char* key) {
    return root.isObject() && root.isMember(key) && root[key].isArray();
}

void zel::removeOneRule(CAlertZelManage& service, unsigned int alertID, const char* func) {
    service.StopOneAlarm(alertID);
    service.m_IsInGPSAreaMap.erase(alertID);
    for (std::list<ZelAlertPara_t>::iterator it = service.m_ParaList.begin();
         it != service.m_ParaList.end(); ++it) {
        if (it->alertID != alertID) continue;
        it->triggers.clear();
        service.m_ParaList.erase(it);
        ZEL_LOG_AS(func, 3, "deleteZelAlertID alertID[%d] \n", static_cast<int>(alertID));
        break;
    }
}

void CAlertZelManage::GetZelAlertPara() {
    long now = time(nullptr);
    if (labs(now - static_cast<long>(m_LastParaRequest)) <= kParaRequestGap) return;
    m_LastParaRequest = static_cast<int32_t>(now);
    std::string text = requestText(kCmdRuleSet);
    int length = static_cast<int>(text.size());
    ZEL_LOG(3, "send GetZelAlertPara message json result : %s length :%d \n ", text.c_str(),
            length);
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgPlatformRule, 1, text.data(), length, 0);
}

void CAlertZelManage::GetZelAlertEfenceInfo() {
    std::string text = requestText(kCmdAreaState);
    int length = static_cast<int>(text.size());
    ZEL_LOG(3, "send GetZelAlertEfenceInfo message json result : %s length :%d \n ", text.c_str(),
            length);
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgPlatformRule, 1, text.data(), length, 0);
}

void CAlertZelManage::OnUpdateAreaInfo(const char* msg, int len) {
    if (holdIfBusy(&CAlertZelManage::OnUpdateAreaInfo, msg, len)) return;
    BusyScope busy(*this);
    try {
        ZEL_LOG(3, "=======OnUpdateAreaInfo======!\n");
        if (msg == nullptr || len < zel::kHeadSize) {
            ZEL_LOG(3, "OnUpdateAreaInfo length error \n");
            return;
        }
        // Only the bytes really received count, whatever the head claims.
        uint32_t payload = zel::receivedPayload(msg, len);
        if (payload == 0) {
            ZEL_LOG(3, "OnUpdateAreaInfo failed msg length[%d]\n", static_cast<int>(payload));
            return;
        }
        Json::Value root;
        if (!zel::parsePayload(msg, payload, root)) {
            ZEL_LOG(3, "OnUpdateAreaInfo parse fail !\n");
            return;
        }
        if (zel::hasArray(root, "AREALINE")) {
            ZEL_LOG(3, "OnUpdateAreaInfo  has  AREALINE  !\n");
            // "AREALINE" only ever sets flags: an id it doesn't list keeps its own.
            const Json::Value& inside = static_cast<const Json::Value&>(root)["AREALINE"];
            for (const Json::Value& area : inside) {
                unsigned int id = 0;
                if (!GetJsonID(area, id)) continue;
                ZEL_LOG(3, "=======OnUpdateFenceInfo ID[%d][%d]======!\n", static_cast<int>(id),
                        1);
                if (zel::setAreaFlag(m_IsInGPSAreaMap, id, true))
                    ZEL_LOG(3, "=====m_IsInGPSAreaMap[%d] is too large !=======\n",
                            static_cast<int>(m_IsInGPSAreaMap.size()));
            }
            return;
        }
        if (zel::hasArray(root, "DUMMY100")) {
            StopAllAlarm();
            clearParaList();
            m_IsInGPSAreaMap.clear();
            dealJsonGetPara(root);
            m_bParaReady = 1;
            GetZelAlertEfenceInfo();
            return;
        }
        ZEL_LOG(3, "OnUpdateAreaInfo  no DUMMY100 or not Array !\n");
    } catch (const std::exception& e) {
        ZEL_LOG(3, "OnUpdateAreaInfo dropped a message: %s\n", e.what());
    }
}

void CAlertZelManage::OnPlatformUpdateArea(const char* msg, int len) {
    if (holdIfBusy(&CAlertZelManage::OnPlatformUpdateArea, msg, len)) return;
    BusyScope busy(*this);
    try {
        ZEL_LOG(3, "=======OnPlatformUpdateArea======!\n");
        if (msg == nullptr || len < zel::kHeadSize) {
            ZEL_LOG(3, "OnPlatformUpdateArea length error \n");
            return;
        }
        uint32_t payload = zel::receivedPayload(msg, len);
        if (payload == 0) {
            ZEL_LOG(3, "OnPlatformUpdateArea failed msg length[%d]\n", static_cast<int>(payload));
            return;
        }
        Json::Value root;
        if (!zel::parsePayload(msg, payload, root)) {
            ZEL_LOG(3, "OnPlatformUpdateArea parse fail !\n");
            return;
        }
        ZEL_LOG(4, "OnPlatformUpdateArea get :\r%s", root.toStyledString().c_str());

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
        unsigned int cmd = 0;
        if (!GetJsonCmd(root, cmd)) {
            ZEL_LOG(3, "OnPlatformUpdateArea no cmd !\n");
            return;
        }
        switch (cmd) {
        case kCmdAdd:
            if (!zel::hasArray(root, "DUMMY")) {
                ZEL_LOG(3, "OnUpdateAreaInfo  add error !\n");
                return;
            }
            addZelAlertID(root);
            break;
        case kCmdDelete:
            if (!zel::hasArray(root, "DUMMYIDS")) {
                ZEL_LOG(3, "OnUpdateAreaInfo  del error !\n");
                return;
            }
            deleteZelAlertID(root);
            break;
        case kCmdDeleteAll:
            StopAllAlarm();
            clearParaList();
            m_IsInGPSAreaMap.clear();
            ZEL_LOG(3, "======delete all alert===== !\n");
            break;
        case kCmdCover:
            if (!zel::hasArray(root, "DUMMY")) {
                ZEL_LOG(3, "OnUpdateAreaInfo  add error !\n");
                return;
            }
            coverZelAlertID(root);
            break;
        default:
            ZEL_LOG(3, "OnPlatformUpdateArea cmd[%d] != 1,3,4,5 !\n", static_cast<int>(cmd));
            return;
        }
        m_bParaReady = 1;
        GetZelAlertEfenceInfo();
    } catch (const std::exception& e) {
        ZEL_LOG(3, "OnPlatformUpdateArea dropped a message: %s\n", e.what());
    }
}

void CAlertZelManage::deleteZelAlertID(Json::Value& root) {
    ZEL_LOG(3, "======deleteZelAlertID==Start== !\n");
    const Json::Value& ids = static_cast<const Json::Value&>(root)["DUMMYIDS"];
    for (Json::ArrayIndex i = 0; ids.isArray() && i < ids.size(); ++i) {
        unsigned int id = 0;
        if (!GetJsonID(ids[i], id)) continue;
        zel::removeOneRule(*this, id, __FUNCTION__);
        ZEL_LOG(3, "delete one alert id = [%d] \n", static_cast<int>(id));
    }
    ZEL_LOG(3, "======deleteZelAlertID==End== !\n");
}
