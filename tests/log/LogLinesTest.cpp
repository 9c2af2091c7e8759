// Every line of the storage dialogue, the replies and the state query,
// exactly: level, printing operation and text, in one table of steps run in
// order on one service with a scripted storage behind it.
#include "ScriptedStorage.h"

using harness::Bytes;

namespace {

class LogLines : public logtest::LogFixture {};

TEST_F(LogLines, EveryStepOfTheDialoguePrintsExactlyItsLines) {
    CAlertZelManage& s = svc();
    const Common::_datetime_ start = harness::dateTime(26, 3, 5, 12, 0, 1);
    auto reply = [&](unsigned int id, uint32_t claimed, const Bytes& payload) {
        h.injectClaiming(id, claimed, payload);
        h.cycle();
    };
    runSteps({
        {"write", [&] { s.writeAlertZelLog(7, 0, start); },
         {{2, "writeAlertZelLog", "=========write Zel alert log ID[7]...\n"},
         {2, "OnReturnWriteResult", "write Zel alert log result = 0 \n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[144]...\n"}}},
        {"write refused", [&] { storage.writeResult = -3; s.writeAlertZelLog(8, 0, start); },
         {{2, "writeAlertZelLog", "=========write Zel alert log ID[8]...\n"},
         {2, "OnReturnWriteResult", "write Zel alert log result = -3 \n"},
         {2, "writeAlertZelLog", "=========write Zel alert fail ID[8]...\n"}}},
        {"write unanswered", [&] { storage.writeReplyDelayUs = -1; s.writeAlertZelLog(8, 0, start); },
         {{2, "writeAlertZelLog", "=========write Zel alert log ID[8]...\n"},
         {2, "writeAlertZelLog", "=========write Zel alert fail ID[8]...\n"}}},
        {"size unanswered", [&] {
             storage.writeReplyDelayUs = 0;
             storage.writeResult = 0;
             storage.sizeReplyDelayUs = -1;
             s.writeAlertZelLog(9, 0, start);
             storage.sizeReplyDelayUs = 0;
         },
         {{2, "writeAlertZelLog", "=========write Zel alert log ID[9]...\n"},
         {2, "OnReturnWriteResult", "write Zel alert log result = 0 \n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[0]...\n"},
         {2, "writeAlertZelLog", "=========GetZelAlertLogSize() fail ID[9]...\n"}}},
        {"patch", [&] { s.modifyAlertZelLog(7, start, false); },
         {{2, "GetZelAlertLogSize", "=========write Zel alert log size[204]...\n"},
         {2, "modifyAlertZelLog", "=========modify Zel alert log ID[7]...\n"}}},
        {"patch without entry", [&] { s.modifyAlertZelLog(8, start, true); },
         {{2, "GetZelAlertLogSize", "=========write Zel alert log size[204]...\n"},
         {2, "modifyAlertZelLog", "=========modify Zel alert fail ID[8]...\n"}}},
        {"write reply of a wrong length", [&] { reply(39429, 9, Bytes(9, 0)); },
         {{3, "OnReturnWriteResult", "write file failed msgerror length=9, sourceid = 0x4d session = 0x8\n"}}},
        {"write reply cut short", [&] { reply(39429, 8, Bytes(7, 0)); },
         {{3, "OnReturnWriteResult", "write file failed msgerror length=7, sourceid = 0x4d session = 0x9\n"}}},
        {"write reply without a head", [&] { s.OnReturnWriteResult(nullptr, 0); },
         {{3, "OnReturnWriteResult", "write file length error \n"}}},
        {"size reply of a wrong length", [&] { reply(39439, 17, Bytes(17, 0)); },
         {{3, "OnReturnAlarmLogSize", "file info failed msgerror=17\n"}}},
        {"size reply without a head", [&] { s.OnReturnAlarmLogSize(nullptr, 0); },
         {{3, "OnReturnAlarmLogSize", "file info length error \n"}}},
        {"storage announcement without a head", [&] { s.OnCheckStoragePlugin(nullptr, 3); },
         {{3, "OnCheckStoragePlugin", "update StorageState length error \n"}}},
        {"state query", [&] { h.inject(3216, Bytes()); h.cycle(); },
         {{3, "OnGetZelAlertState", "=======OnGetZelAlertState======!\n"}}},
        {"state query without a head", [&] { s.OnGetZelAlertState(nullptr, 0); },
         {{3, "OnGetZelAlertState", "=======OnGetZelAlertState======!\n"},
         {3, "OnGetZelAlertState", "OnGetZelAlertState length error \n"}}},
    }, {"ThreadFuncImpl"});
}

}  // namespace
