// Every signal handler's opening: a null or short message, a payload length
// its record doesn't have, and a head that claims more than arrived are each
// refused with the handler's own line and change nothing.
#include "SignalMessages.h"

using harness::Bytes;

namespace {

struct Opening {
    unsigned int id, reply;  // reply: the id of the answer to the start request, or 0
    CAlertZelManage::Handler handler;
    uint32_t size;
    bool acceptsLonger;
    const char* lengthLine;
    const char* payloadFormat;  // one %d: the head's length
    const char* entryLine;      // "" when the handler has none
};

const Opening kOpenings[] = {
    {1031, 33800, &CAlertZelManage::OnUpdateIOState, 4, false, "update io state length error \n",
     "update io state failed msgerror=%d\n", "=======OnUpdateIOState======!\n"},
    {1176, 0, &CAlertZelManage::OnUpdatePanicKeyState, 4, false,
     "OnUpdatePanicKeyState length error \n", "uOnUpdatePanicKeyState failed msgerror=%d\n",
     "=======OnUpdatePanicKeyState======!\n"},
    {1071, 0, &CAlertZelManage::OnUpdateAccData, 40, false, "update acc data length error \n",
     "update acc data failed msgerror=%d\n", "=======OnUpdateAccData======!\n"},
    {1073, 0, &CAlertZelManage::OnUpdateGPSInfo, 52, true, "update station length error \n",
     "update gps failed msgerror=%d\n", "=======OnUpdateGPSInfo======!\n"},
    {6777, 0, &CAlertZelManage::OnUpdateSpeedInfo, 12, false, "record param length error \n",
     "record param failed msgerror=%d\n", ""},
    {1081, 0, &CAlertZelManage::OnUpdataVehicleInfo, 64, false, "[MTMAN]-vehicle length error \n",
     "[MTMAN]-vehicle failed msgerror=%d\n", ""},
    {8963, 0, &CAlertZelManage::onGetAlprEvent, 16, false, "onGetAlprEvent length error \n",
     "onGetAlprEvent length= %d \n", "=======onGetAlprEvent======!\n"},
    {1288, 34057, &CAlertZelManage::OnUpdateMDVideo, 48, false, "update md state length error \n",
     "update md state failed msgerror=%d\n", "=======OnUpdateMDVideo======!\n"},
    {320, 33087, &CAlertZelManage::OnUpdataIPCSetting, 3208, false, "ipc param length error \n",
     "ipc param failed msgerror=%d\n", "=======OnUpdataIPCSetting======!\n"},
    {476, 33243, &CAlertZelManage::onGetJ1939param, 6048, false,
     "onGetJ1939param length error \n", "onGetJ1939param length= %d \n",
     "=======onGetJ1939param======!\n"},
};

class Refusal : public harness::ServiceTest {
protected:
    void SetUp() override {
        up(false, false);
        sig::primeEverySignal(h);
        CAlertZelManage& s = svc();
        double j1939 = 0;
        ASSERT_TRUE(s.m_J1939Value.find(0, j1939));
        ASSERT_EQ(j1939, 92.0);
        ASSERT_TRUE(s.isEventValid(17) && s.isEventValid(13) && s.isEventValid(102));
        ASSERT_TRUE(s.isEventValid(15) && s.isEventValid(20) && s.m_MdState[2] == 1);
        h.clearSent();
        h.clearLines();
    }
};

TEST_F(Refusal, EveryHandlerRefusesBadOpeningsWithItsLineAndChangesNothing) {
    for (const Opening& o : kOpenings)
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
            // Lengths the record doesn't have, every byte received; then heads
            // that claim more than arrived.
            std::vector<uint32_t> wrong = {0, o.size - 1};
            if (!o.acceptsLonger) wrong.push_back(o.size + 1);
            for (uint32_t n : wrong) send(id, Bytes(n, 0x11));
            std::vector<uint32_t> cut = {o.size};
            if (o.acceptsLonger) cut.push_back(o.size + 8);
            for (uint32_t n : cut) {
                h.injectClaiming(id, n, Bytes(n == o.size ? n - 1 : o.size, 0x22));
                h.cycle();
            }
            for (uint32_t n : wrong) cut.push_back(n);
            for (uint32_t n : cut)
                EXPECT_EQ(h.countLines(harness::fmt(o.payloadFormat, static_cast<int>(n))), 1) << n;
            if (*o.entryLine) {
                EXPECT_GE(h.countLines(o.entryLine), 2 + static_cast<int>(wrong.size()));
            }
            EXPECT_EQ(sig::snapshot(svc()), before);
            // A refused camera block asks for no motion state.
            EXPECT_TRUE(h.sentWithId(1289).empty());
        }
}

TEST_F(Refusal, HeadLengthAboveItsMaskIsReadMasked) {
    // Bits 23..31 of the length word are not part of the length.
    h.injectClaiming(6777, 0x80000000u | 12, sig::speedInfo(1, 33));
    h.cycle();
    EXPECT_EQ(svc().m_Speed, 33.0);
    h.injectClaiming(6777, 0x00800000u | 13, Bytes(13, 0));
    h.cycle();
    EXPECT_TRUE(h.hasLine("record param failed msgerror=13\n"));
    EXPECT_EQ(svc().m_Speed, 33.0);
}

TEST_F(Refusal, ShortCanFrameMarksJ1939EventsValidAndDecodesNothing) {
    CAlertZelManage& s = svc();
    s.m_EventValid[1] = s.m_EventValid[2] = s.m_EventValid[3] = 0;
    Bytes before = sig::snapshot(s);
    h.injectClaiming(1089, 28, Bytes(27, 0xFF));  // 43 bytes in all
    h.cycle();
    EXPECT_TRUE(h.hasLine("msg len is invalid(43)\n"));
    s.onGetZelCanData(nullptr, 100);
    EXPECT_TRUE(h.hasLine("msg len is invalid(100)\n"));
    for (uint32_t e = 34; e <= 97; ++e) EXPECT_TRUE(s.isEventValid(e)) << e;
    EXPECT_FALSE(s.isEventValid(33));
    EXPECT_FALSE(s.isEventValid(98));
    // Apart from the validity bits, nothing moved.
    s.m_EventValid[1] = s.m_EventValid[2] = s.m_EventValid[3] = 0;
    EXPECT_EQ(sig::snapshot(s), before);
}

}  // namespace
