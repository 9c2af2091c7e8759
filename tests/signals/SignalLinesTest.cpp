// Every line the signal handlers print, exactly: level, printing operation
// and text, for each accepted and each refused message, in one table. The
// rows run in order on one service, so a row sees what the rows above left.
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
        {"io wrong length", 1031, Bytes(5, 0),
         {{3, "OnUpdateIOState", "=======OnUpdateIOState======!\n"},
          {3, "OnUpdateIOState", "update io state failed msgerror=5\n"}}},
        {"io cut short", 1031, Bytes(3, 0),
         {{3, "OnUpdateIOState", "=======OnUpdateIOState======!\n"},
          {3, "OnUpdateIOState", "update io state failed msgerror=4\n"}}, 4},
        {"panic key", 1176, sig::panicKey(0x31, 1),
         {{3, "OnUpdatePanicKeyState", "=======OnUpdatePanicKeyState======!\n"}}},
        {"panic key without its flag", 1176, sig::panicKey(0x32, 0),
         {{3, "OnUpdatePanicKeyState", "=======OnUpdatePanicKeyState======!\n"}}},
        {"panic key wrong length", 1176, Bytes(3, 0),
         {{3, "OnUpdatePanicKeyState", "=======OnUpdatePanicKeyState======!\n"},
         {3, "OnUpdatePanicKeyState", "uOnUpdatePanicKeyState failed msgerror=3\n"}}},
        {"accelerometer", 1071, sig::accData(0x0180, 0x8180, 0x7fff),
         {{3, "OnUpdateAccData", "=======OnUpdateAccData======!\n"}}},
        {"accelerometer wrong length", 1071, Bytes(41, 0),
         {{3, "OnUpdateAccData", "=======OnUpdateAccData======!\n"},
         {3, "OnUpdateAccData", "update acc data failed msgerror=41\n"}}},
        {"gps longer record", 1073, sig::gpsInfo(3, 60),
         {{3, "OnUpdateGPSInfo", "=======OnUpdateGPSInfo======!\n"}}},
        {"gps too short", 1073, Bytes(51, 0),
         {{3, "OnUpdateGPSInfo", "=======OnUpdateGPSInfo======!\n"},
         {3, "OnUpdateGPSInfo", "update gps failed msgerror=51\n"}}},
        {"speed km/h", 6777, sig::speedInfo(0, 100),
         {{3, "OnUpdateSpeedInfo", "==uiSpeedUnit =0 uiCurSpeed =100 \n"}}},
        {"speed mph", 6777, sig::speedInfo(1, 55),
         {{3, "OnUpdateSpeedInfo", "==uiSpeedUnit =1 uiCurSpeed =55 \n"}}},
        {"speed wrong length", 6777, Bytes(11, 0),
         {{3, "OnUpdateSpeedInfo", "record param failed msgerror=11\n"}}},
        {"vehicle", 1081, sig::vehicleInfo(0xB, 3, 40, 5, 35, 0, 1, 12, 3, 9, 0), {}},
        {"vehicle without values", 1081, sig::vehicleInfo(0), {}},
        {"vehicle wrong length", 1081, Bytes(63, 0),
         {{3, "OnUpdataVehicleInfo", "[MTMAN]-vehicle failed msgerror=63\n"}}},
        {"plate reader", 8963, sig::alprEvent(0x1f, {1, 2, 3, 4, 5}),
         {{3, "onGetAlprEvent", "=======onGetAlprEvent======!\n"}}},
        {"plate reader wrong length", 8963, Bytes(17, 0),
         {{3, "onGetAlprEvent", "=======onGetAlprEvent======!\n"},
         {3, "onGetAlprEvent", "onGetAlprEvent length= 17 \n"}}},
        {"camera settings", 320, sig::ipcSetting({0, 0, 1, 1}, {0, 0, 7, 7}),
         {{3, "OnUpdataIPCSetting", "=======OnUpdataIPCSetting======!\n"}}},
        {"camera settings wrong length", 320, Bytes(3207, 0),
         {{3, "OnUpdataIPCSetting", "=======OnUpdataIPCSetting======!\n"},
         {3, "OnUpdataIPCSetting", "ipc param failed msgerror=3207\n"}}},
        {"motion", 1288, sig::mdState({0, 0, 7, 7}, {1, 0, 1, 0}),
         {{3, "OnUpdateMDVideo", "=======OnUpdateMDVideo======!\n"},
         {2, "OnUpdateMDVideo", "OnUpdateMDVideo::1index[0] MdStatus[1]\n"},
         {2, "OnUpdateMDVideo", "OnUpdateMDVideo::1index[1] MdStatus[0]\n"},
         {2, "OnUpdateMDVideo", "OnUpdateMDVideo::2index[2] MdStatus[1]\n"},
         {2, "OnUpdateMDVideo", "[1]MD\n\n"},
         {2, "OnUpdateMDVideo", "OnUpdateMDVideo::2index[3] MdStatus[0]\n"},
         {2, "OnUpdateMDVideo", "[0]MD\n\n"}}},
        {"motion wrong length", 1288, Bytes(47, 0),
         {{3, "OnUpdateMDVideo", "=======OnUpdateMDVideo======!\n"},
         {3, "OnUpdateMDVideo", "update md state failed msgerror=47\n"}}},
        {"j1939 table", 476, sig::j1939Table({{5, 8, 65262, 0, 0, 1.0, -40.0}}),
         {{3, "onGetJ1939param", "=======onGetJ1939param======!\n"},
         {3, "onGetJ1939param", "J1939 parameter:\n"},
         {3, "onGetJ1939param", "[0]:id=5,pgn=65262,source=0,startbyte=0,startbit=0,length=8,max=0,offset=-40.00000000,resolution=1.00000000\n"}}},
        {"j1939 table wrong length", 476, Bytes(6047, 0),
         {{3, "onGetJ1939param", "=======onGetJ1939param======!\n"},
         {3, "onGetJ1939param", "onGetJ1939param length= 6047 \n"}}},
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

}  // namespace
