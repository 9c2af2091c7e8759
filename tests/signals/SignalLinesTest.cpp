// Every line the signal handlers print, exactly: level, printing operation
// and text, for each accepted message in one table whose rows run in order on
// one service, so a row sees what the rows above left; then every handler's
// opening: a null or short message, a payload length its record doesn't have
// and a head that claims more than arrived are each refused with the
// handler's own lines and change nothing.
#include "SignalMessages.h"

using harness::Bytes;
using harness::Line;

namespace {

struct Row {
    const char* what;
    unsigned int id;
    Bytes payload;
    std::vector<Line> lines;
    int32_t claimed = -1;  // >= 0: the head claims this many payload bytes
};

Bytes inputWord(uint32_t w) { return harness::le32(w); }

std::vector<Line> ioLines(const char* change, uint32_t word) {
    std::vector<Line> l = {{3, "OnUpdateIOState", "=======OnUpdateIOState======!\n"}};
    if (*change) l.push_back({3, "OnUpdateIOState", change});
    for (int i = 0; i < 16; ++i)
        l.push_back({4, "OnUpdateIOState", harness::fmt("OnUpdateIO[%d] = %d \n", i,
                                                         int((word >> i) & 1))});
    return l;
}

// Storage up and rules received, none standing: a cycle prints nothing of
// its own but the watchdog's line.
class SignalLines : public harness::ReadyServiceTest {};

TEST_F(SignalLines, EveryHandlerPrintsExactlyItsLines) {
    h.setChannels(2, 2);
    const Row rows[] = {
        {"io first word 0", 1031, inputWord(0), ioLines("", 0)},
        {"io change", 1031, inputWord(0x8005),
         ioLines("m_IOlState change from[0x0] to [0x8005]\n", 0x8005)},
        {"io same word", 1031, inputWord(0x8005), ioLines("", 0x8005)},
        {"panic key", 1176, sig::panicKey(0x31, 1),
         {{3, "OnUpdatePanicKeyState", "=======OnUpdatePanicKeyState======!\n"}}},
        {"panic key without its flag", 1176, sig::panicKey(0x32, 0),
         {{3, "OnUpdatePanicKeyState", "=======OnUpdatePanicKeyState======!\n"}}},
        {"accelerometer", 1071, sig::accData(0x0180, 0x8180, 0x7fff),
         {{3, "OnUpdateAccData", "=======OnUpdateAccData======!\n"}}},
        {"gps longer record", 1073, sig::gpsInfo(3, 60),
         {{3, "OnUpdateGPSInfo", "=======OnUpdateGPSInfo======!\n"}}},
        {"speed km/h", 6777, sig::speedInfo(0, 100),
         {{3, "OnUpdateSpeedInfo", "==uiSpeedUnit =0 uiCurSpeed =100 \n"}}},
        {"speed mph", 6777, sig::speedInfo(1, 55),
         {{3, "OnUpdateSpeedInfo", "==uiSpeedUnit =1 uiCurSpeed =55 \n"}}},
        {"vehicle", 1081, sig::vehicleInfo(0xB, 3, 40, 5, 35, 0, 1, 12, 3, 9, 0), {}},
        {"vehicle without values", 1081, sig::vehicleInfo(0), {}},
        {"plate reader", 8963, sig::alprEvent(0x1f, {1, 2, 3, 4, 5}),
         {{3, "onGetAlprEvent", "=======onGetAlprEvent======!\n"}}},
        {"camera settings", 320, sig::ipcSetting({0, 0, 1, 1}, {0, 0, 7, 7}),
         {{3, "OnUpdataIPCSetting", "=======OnUpdataIPCSetting======!\n"}}},
        {"motion", 1288, sig::mdState({0, 0, 7, 7}, {1, 0, 1, 0}),
         {{3, "OnUpdateMDVideo", "=======OnUpdateMDVideo======!\n"},
         {2, "OnUpdateMDVideo", "OnUpdateMDVideo::1index[0] MdStatus[1]\n"},
         {2, "OnUpdateMDVideo", "OnUpdateMDVideo::1index[1] MdStatus[0]\n"},
         {2, "OnUpdateMDVideo", "OnUpdateMDVideo::2index[2] MdStatus[1]\n"},
         {2, "OnUpdateMDVideo", "[1]MD\n\n"},
         {2, "OnUpdateMDVideo", "OnUpdateMDVideo::2index[3] MdStatus[0]\n"},
         {2, "OnUpdateMDVideo", "[0]MD\n\n"}}},
        {"j1939 table", 476, sig::j1939Table({{5, 8, 65262, 0, 0, 1.0, -40.0}}),
         {{3, "onGetJ1939param", "=======onGetJ1939param======!\n"},
         {3, "onGetJ1939param", "J1939 parameter:\n"},
         {3, "onGetJ1939param", "[0]:id=5,pgn=65262,source=0,startbyte=0,startbit=0,length=8,max=0,offset=-40.00000000,resolution=1.00000000\n"}}},
        {"can frame decoded", 1089, sig::canFrame(0x18FEEE00, 0x84),
         {{3, "onGetZelCanData", "J1939_5:92.00000000 \n"}}},
        {"can frame of no row", 1089, sig::canFrame(0x18FEF100, 0x84), {}},
        {"can frame cut short", 1089, Bytes(27, 0),
         {{3, "onGetZelCanData", "msg len is invalid(43)\n"}}, 28},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.what);
        if (r.claimed >= 0)
            h.injectClaiming(r.id, static_cast<uint32_t>(r.claimed), r.payload);
        else
            h.inject(r.id, r.payload);
        h.cycle();
        expectLines(r.lines, {"ThreadFuncImpl"});
    }
}

// reply: the id of the answer to the start request, or 0; func: the printing
// operation, which opens with its banner when `banner`; payloadFormat's %d is
// the head's length.
using S = CAlertZelManage;
const struct { unsigned int id, reply; S::Handler handler; uint32_t size; bool acceptsLonger;
               const char* func; bool banner; const char *lengthLine, *payloadFormat; } kOpenings[] = {
    {1031, 33800, &S::OnUpdateIOState, 4, false, "OnUpdateIOState", true,
     "update io state length error \n", "update io state failed msgerror=%d\n"},
    {1176, 0, &S::OnUpdatePanicKeyState, 4, false, "OnUpdatePanicKeyState", true,
     "OnUpdatePanicKeyState length error \n", "uOnUpdatePanicKeyState failed msgerror=%d\n"},
    {1071, 0, &S::OnUpdateAccData, 40, false, "OnUpdateAccData", true,
     "update acc data length error \n", "update acc data failed msgerror=%d\n"},
    {1073, 0, &S::OnUpdateGPSInfo, 52, true, "OnUpdateGPSInfo", true,
     "update station length error \n", "update gps failed msgerror=%d\n"},
    {6777, 0, &S::OnUpdateSpeedInfo, 12, false, "OnUpdateSpeedInfo", false,
     "record param length error \n", "record param failed msgerror=%d\n"},
    {1081, 0, &S::OnUpdataVehicleInfo, 64, false, "OnUpdataVehicleInfo", false,
     "[MTMAN]-vehicle length error \n", "[MTMAN]-vehicle failed msgerror=%d\n"},
    {8963, 0, &S::onGetAlprEvent, 16, false, "onGetAlprEvent", true,
     "onGetAlprEvent length error \n", "onGetAlprEvent length= %d \n"},
    {1288, 34057, &S::OnUpdateMDVideo, 48, false, "OnUpdateMDVideo", true,
     "update md state length error \n", "update md state failed msgerror=%d\n"},
    {320, 33087, &S::OnUpdataIPCSetting, 3208, false, "OnUpdataIPCSetting", true,
     "ipc param length error \n", "ipc param failed msgerror=%d\n"},
    {476, 33243, &S::onGetJ1939param, 6048, false, "onGetJ1939param", true,
     "onGetJ1939param length error \n", "onGetJ1939param length= %d \n"},
};

TEST_F(SignalLines, EveryHandlerRefusesBadOpeningsWithItsLinesAndChangesNothing) {
    sig::primeEverySignal(h);
    ASSERT_TRUE(svc().isEventValid(34) && svc().isEventValid(102) && svc().m_MdState[2] == 1);
    h.clearSent();
    h.clearLines();
    for (const auto& o : kOpenings)
        for (unsigned int id : {o.id, o.reply}) {
            if (id == 0) continue;
            SCOPED_TRACE(id);
            Bytes before = sig::snapshot(svc());
            std::vector<Line> banner;
            if (o.banner) banner.push_back({3, o.func, harness::fmt("=======%s======!\n", o.func)});
            // Null or shorter than a head: the length line, before any byte is read.
            (svc().*o.handler)(nullptr, 64);
            Bytes fifteen(15, 0xFF);
            (svc().*o.handler)(reinterpret_cast<const char*>(fifteen.data()), 15);
            std::vector<Line> once = banner;
            once.push_back({3, o.func, o.lengthLine});
            std::vector<Line> twice = once;
            twice.insert(twice.end(), once.begin(), once.end());
            expectLines(twice);
            // Lengths the record doesn't have, every byte received; a head that
            // claims more than arrived. {claimed, received}:
            std::vector<std::pair<uint32_t, uint32_t>> bad = {
                {0, 0}, {o.size - 1, o.size - 1}, {o.size, o.size - 1},
                o.acceptsLonger ? std::make_pair(o.size + 8, o.size)
                                : std::make_pair(o.size + 1, o.size + 1)};
            for (auto [claimed, received] : bad) {
                SCOPED_TRACE(claimed);
                h.injectClaiming(id, claimed, Bytes(received, 0x11));
                h.cycle();
                std::vector<Line> lines = banner;
                lines.push_back({3, o.func, harness::fmt(o.payloadFormat, int(claimed))});
                expectLines(lines, {"ThreadFuncImpl"});
            }
            EXPECT_EQ(sig::snapshot(svc()), before);
            EXPECT_TRUE(h.sentWithId(1289).empty());  // a refused camera block asks nothing
        }
}

TEST_F(SignalLines, ShortCanFrameMarksJ1939EventsValidAndDecodesNothing) {
    CAlertZelManage& s = svc();
    sig::primeEverySignal(h);
    h.clearLines();
    s.m_EventValid[1] = s.m_EventValid[2] = s.m_EventValid[3] = 0;
    Bytes before = sig::snapshot(s);
    s.onGetZelCanData(nullptr, 100);
    expectLines({{3, "onGetZelCanData", "msg len is invalid(100)\n"}});
    // 43 bytes in all, one short of the data field's end; its group has a row.
    Bytes cut = sig::canFrame(0x18FEEE00, 0x10);
    cut.pop_back();
    h.injectClaiming(1089, 28, cut);
    h.cycle();
    for (uint32_t e = 33; e <= 98; ++e) EXPECT_EQ(s.isEventValid(e), e >= 34 && e <= 97) << e;
    // Apart from the validity bits, nothing moved.
    s.m_EventValid[1] = s.m_EventValid[2] = s.m_EventValid[3] = 0;
    EXPECT_EQ(sig::snapshot(s), before);
}

}  // namespace
