// Motion detection per camera channel, judged against the camera settings.
//
// Channels 0..V-1 are video inputs, V..V+D-1 digital channels, with V and D
// asked of the platform on each message. A motion message's state for a
// channel counts only when the channel's settings row agrees with it; a
// channel that doesn't count keeps its flag and its validity bit.
#include <string.h>

#include "AlertZelManage.h"
#include "MessageIds.h"
#include "SignalInput.h"
#include "SignalRecords.h"

namespace {

const uint32_t kEventMotion1 = 18;

// A platform count outside 0..16 is held to the 16 channels there is room for.
int clampChannels(int n, int room) {
    if (n < 0) return 0;
    return n > room ? room : n;
}

}  // namespace

void CAlertZelManage::OnUpdateMDVideo(const char* msg, int len) {
    ZEL_LOG(3, "=======OnUpdateMDVideo======!\n");
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "update md state length error \n");
        return;
    }
    if (!in.carriesExactly(MdStateMsg_t::kSize)) {
        ZEL_LOG(3, "update md state failed msgerror=%d\n", static_cast<int>(in.claimed));
        return;
    }
    memcpy(m_MdRecord, in.payload, MdStateMsg_t::kSize);
    const uint8_t* rec = in.payload;
    const int room = MdStateMsg_t::kChannels;
    int video = clampChannels(Q7X_GetVichnNum(), room);
    int last = video + clampChannels(Q7X_GetDigitalchnNum(), room - video);

    for (int i = 0; i < video; ++i) {
        if (IpcSetting_t::chnKind(m_IpcSetting, i) != IpcSetting_t::kVideoInput ||
            MdStateMsg_t::mdTag(rec, i) != 0)
            continue;
        m_MdState[i] = MdStateMsg_t::mdStatus(rec, i) == 1 ? 1 : 0;
        setEventValid(kEventMotion1 + i);
        ZEL_LOG(2, "OnUpdateMDVideo::1index[%d] MdStatus[%d]\n", i, m_MdState[i]);
    }
    for (int i = video; i < last; ++i) {
        if (IpcSetting_t::chnKind(m_IpcSetting, i) == IpcSetting_t::kDigital &&
            MdStateMsg_t::mdTag(rec, i) == IpcSetting_t::chnTag(m_IpcSetting, i)) {
            m_MdState[i] = MdStateMsg_t::mdStatus(rec, i) == 1 ? 1 : 0;
            setEventValid(kEventMotion1 + i);
            ZEL_LOG(2, "OnUpdateMDVideo::2index[%d] MdStatus[%d]\n", i, m_MdState[i]);
        }
        ZEL_LOG(2, "[%d]MD\n\n", m_MdState[i]);
    }
}

void CAlertZelManage::OnUpdataIPCSetting(const char* msg, int len) {
    ZEL_LOG(3, "=======OnUpdataIPCSetting======!\n");
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "ipc param length error \n");
        return;
    }
    if (!in.carriesExactly(IpcSetting_t::kSize)) {
        ZEL_LOG(3, "ipc param failed msgerror=%d\n", static_cast<int>(in.claimed));
        return;
    }
    memcpy(m_IpcSetting, in.payload, IpcSetting_t::kSize);
    // Ask for the motion state under the new settings; the answer (34057)
    // comes in a later wait. Sent after every block, changed or not.
    Common::Q7X_MSGSendMessage(m_pMsgManage, 0, zel::kMsgMdStateRequest, 1, nullptr, 0, 0);
}
