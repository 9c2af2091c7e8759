// Every signal handler's opening: a null or short message, a payload length
// its record doesn't have, and a head that claims more than arrived are each
// refused with the handler's own line and change nothing.
#include "SignalMessages.h"

using harness::Bytes;

namespace {

// reply: the id of the answer to the start request, or 0; payloadFormat's %d
// is the head's length.
using S = CAlertZelManage;
const struct { unsigned int id, reply; S::Handler handler; uint32_t size; bool acceptsLonger;
               const char *lengthLine, *payloadFormat; } kOpenings[] = {
    {1031, 33800, &S::OnUpdateIOState, 4, false, "update io state length error \n",
     "update io state failed msgerror=%d\n"},
    {1176, 0, &S::OnUpdatePanicKeyState, 4, false, "OnUpdatePanicKeyState length error \n",
     "uOnUpdatePanicKeyState failed msgerror=%d\n"},
    {1071, 0, &S::OnUpdateAccData, 40, false, "update acc data length error \n",
     "update acc data failed msgerror=%d\n"},
    {1073, 0, &S::OnUpdateGPSInfo, 52, true, "update station length error \n",
     "update gps failed msgerror=%d\n"},
    {6777, 0, &S::OnUpdateSpeedInfo, 12, false, "record param length error \n",
     "record param failed msgerror=%d\n"},
    {1081, 0, &S::OnUpdataVehicleInfo, 64, false, "[MTMAN]-vehicle length error \n",
     "[MTMAN]-vehicle failed msgerror=%d\n"},
    {8963, 0, &S::onGetAlprEvent, 16, false, "onGetAlprEvent length error \n",
     "onGetAlprEvent length= %d \n"},
    {1288, 34057, &S::OnUpdateMDVideo, 48, false, "update md state length error \n",
     "update md state failed msgerror=%d\n"},
    {320, 33087, &S::OnUpdataIPCSetting, 3208, false, "ipc param length error \n",
     "ipc param failed msgerror=%d\n"},
    {476, 33243, &S::onGetJ1939param, 6048, false, "onGetJ1939param length error \n",
     "onGetJ1939param length= %d \n"},
};

class Refusal : public harness::ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        sig::primeEverySignal(h);
        ASSERT_TRUE(svc().isEventValid(34) && svc().isEventValid(102) && svc().m_MdState[2] == 1);
        h.clearSent();
        h.clearLines();
    }
};

TEST_F(Refusal, EveryHandlerRefusesBadOpeningsWithItsLineAndChangesNothing) {
    for (const auto& o : kOpenings)
        for (unsigned int id : {o.id, o.reply}) {
            if (id == 0) continue;
            SCOPED_TRACE(id);
            h.clearLines();
            Bytes before = sig::snapshot(svc());
            // Null or shorter than a head: the length line, before any byte is read.
            (svc().*o.handler)(nullptr, 64);
            Bytes fifteen(15, 0xFF);
            (svc().*o.handler)(reinterpret_cast<const char*>(fifteen.data()), 15);
            EXPECT_EQ(h.countLines(o.lengthLine), 2);
            // Lengths the record doesn't have, every byte received; a head that
            // claims more than arrived. {claimed, received}:
            std::vector<std::pair<uint32_t, uint32_t>> bad = {
                {0, 0}, {o.size - 1, o.size - 1}, {o.size, o.size - 1},
                o.acceptsLonger ? std::make_pair(o.size + 8, o.size)
                                : std::make_pair(o.size + 1, o.size + 1)};
            for (auto [claimed, received] : bad) {
                h.injectClaiming(id, claimed, Bytes(received, 0x11));
                h.cycle();
                EXPECT_EQ(h.countLines(harness::fmt(o.payloadFormat, int(claimed))), 1) << claimed;
            }
            EXPECT_EQ(sig::snapshot(svc()), before);
            EXPECT_TRUE(h.sentWithId(1289).empty());  // a refused camera block asks nothing
        }
}

TEST_F(Refusal, ShortCanFrameMarksJ1939EventsValidAndDecodesNothing) {
    CAlertZelManage& s = svc();
    s.m_EventValid[1] = s.m_EventValid[2] = s.m_EventValid[3] = 0;
    Bytes before = sig::snapshot(s);
    // 43 bytes in all, one short of the data field's end; its group has a row.
    Bytes cut = sig::canFrame(0x18FEEE00, 0x10);
    cut.pop_back();
    h.injectClaiming(1089, 28, cut);
    h.cycle();
    EXPECT_TRUE(h.hasLine("msg len is invalid(43)\n"));
    s.onGetZelCanData(nullptr, 100);
    EXPECT_TRUE(h.hasLine("msg len is invalid(100)\n"));
    for (uint32_t e = 33; e <= 98; ++e) EXPECT_EQ(s.isEventValid(e), e >= 34 && e <= 97) << e;
    // Apart from the validity bits, nothing moved.
    s.m_EventValid[1] = s.m_EventValid[2] = s.m_EventValid[3] = 0;
    EXPECT_EQ(sig::snapshot(s), before);
}

}  // namespace
