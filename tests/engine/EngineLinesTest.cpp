// Every line of the alert pass, the trigger family, the stops, the rollover
// and the worker cycle, exactly: level, printing operation and text, in one
// table of steps run in order on one service with a scripted storage.
#include "ScriptedStorage.h"

namespace {

class EngineLines : public logtest::LogFixture {};

TEST_F(EngineLines, EveryStepOfTheEnginePrintsExactlyItsLines) {
    CAlertZelManage& s = svc();
    const Common::_datetime_ start = harness::dateTime(26, 3, 5, 12, 0, 0);
    addRule(7, 0);
    ZelAlertPara_t& windowed = addRule(8, 0, {{13, GT, 0.5}});
    windowed.startTime = harness::dateTime(0, 0, 0, 1, 0, 0);
    windowed.endTime = harness::dateTime(0, 0, 0, 2, 0, 0);
    s.m_IsInGPSAreaMap[7] = false;
    runSteps({
        {"pass before storage", [&] { s.m_bStorageReady = 0; s.CheckAlarm(); s.m_bStorageReady = 1; },
         {{4, "CheckAlarm", "Zel Alert storage plugin have not run success...\n"}}},
        {"pass before rules", [&] { s.m_bParaReady = 0; s.CheckAlarm(); s.m_bParaReady = 1; },
         {{4, "CheckAlarm", "Zel Alert get para ...\n"}}},
        {"outside the area, outside the window", [&] { s.CheckAlarm(); },
         {{3, "CheckAlarm", "alertID[7]: checkIsInArea fail !\n"},
         {3, "CheckAlarm", "alertID[8]: checkTime fail !\n"}}},
        {"no value", [&] { s.m_IsInGPSAreaMap[7] = true; s.CheckAlarm(); },
         {{3, "upDateTrigger", "Event[14][SPEED] the value is Invalid !\n"},
         {3, "CheckAlarm", "alertID[7]: EventMark == 0x00 !\n"},
         {3, "CheckAlarm", "alertID[8]: checkTime fail !\n"}}},
        {"rises", [&] { speed(70); s.CheckAlarm(); },
         {{3, "upDateEvent", "checkAlert Event[SPEED]==value[70.000000]==opt[0]==param[60.000000]==result[1] \n"},
         {3, "CheckAlarm", "alertID[7] time[1772712000] all event happen !\n"},
         {3, "CheckAlarm", "alertID[7] time[1772712000] new alert !\n"},
         {3, "CheckAlarm", "alertID[8]: checkTime fail !\n"},
         {3, "CheckAlarm", "==add==alertID[7]==[120000]==\n"},
         {2, "writeAlertZelLog", "=========write Zel alert log ID[7]...\n"},
         {2, "OnReturnWriteResult", "write Zel alert log result = 0 \n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[144]...\n"}}},
        {"patched on the tick", [&] { h.advance(5); s.CheckAlarm(); },
         {{3, "CheckAlarm", "alertID[8]: checkTime fail !\n"},
         {3, "CheckAlarm", "==modify==== alertID[000007]==event[00000000]======\n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[144]...\n"},
         {2, "modifyAlertZelLog", "=========modify Zel alert log ID[7]...\n"}}},
        {"falls", [&] { speed(50); s.CheckAlarm(); },
         {{3, "upDateEvent", "checkAlert Event[SPEED]==value[50.000000]==opt[0]==param[60.000000]==result[0] \n"},
         {3, "CheckAlarm", "alertID[7]: EventMark == 0x00 !\n"},
         {3, "CheckAlarm", "alertID[8]: checkTime fail !\n"},
         {3, "CheckAlarm", "==delete==alertID[7]==[120005]==\n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[144]...\n"},
         {2, "modifyAlertZelLog", "=========modify Zel alert log ID[7]...\n"}}},
        {"event beyond the catalogue", [&] { trigger(103, GT, 1.0); },
         {{3, "upDateTrigger", "update EventList  invalid Event =103\n"}}},
        {"panic code unknown", [&] { s.setEventValid(8); trigger(8, GT, 1.0); },
         {{3, "checkAlertPanicKey", "value[0] is error !"}}},
        {"comparison type unknown", [&] { trigger(14, static_cast<eTriggerType>(3), 1.0); },
         {{3, "checkValue", "checkValue invalid type =3\n"}}},
        {"one stopped", [&] { speed(70); s.CheckAlarm(); s.StopOneAlarm(7); },
         {{3, "upDateEvent", "checkAlert Event[SPEED]==value[70.000000]==opt[0]==param[60.000000]==result[1] \n"},
         {3, "CheckAlarm", "alertID[7] time[1772712005] all event happen !\n"},
         {3, "CheckAlarm", "alertID[7] time[1772712005] new alert !\n"},
         {3, "CheckAlarm", "alertID[8]: checkTime fail !\n"},
         {3, "CheckAlarm", "==add==alertID[7]==[120005]==\n"},
         {2, "writeAlertZelLog", "=========write Zel alert log ID[7]...\n"},
         {2, "OnReturnWriteResult", "write Zel alert log result = 0 \n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[204]...\n"},
         {3, "StopOneAlarm", "======StopOneAlarm[7]==Start=== !\n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[204]...\n"},
         {2, "modifyAlertZelLog", "=========modify Zel alert log ID[7]...\n"},
         {3, "StopOneAlarm", "======StopOneAlarm[7]==End=== !\n"}}},
        {"all stopped", [&] { s.CheckAlarm(); s.StopAllAlarm(); },
         {{3, "CheckAlarm", "alertID[7] time[1772712005] new alert !\n"},
         {3, "CheckAlarm", "alertID[8]: checkTime fail !\n"},
         {3, "CheckAlarm", "==add==alertID[7]==[120005]==\n"},
         {2, "writeAlertZelLog", "=========write Zel alert log ID[7]...\n"},
         {2, "OnReturnWriteResult", "write Zel alert log result = 0 \n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[264]...\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==Start=== !\n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[264]...\n"},
         {2, "modifyAlertZelLog", "=========modify Zel alert log ID[7]...\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==End=== !\n"}}},
        {"stops before storage", [&] {
             s.m_bStorageReady = 0;
             s.StopAllAlarm();
             s.StopOneAlarm(7);
             s.m_bStorageReady = 1;
         },
         {{3, "StopAllAlarm", "======StopAllAlarm==Start=== !\n"},
         {3, "StopAllAlarm", "Zel Alert storage plugin have not run success...\n"},
         {3, "StopOneAlarm", "======StopOneAlarm[7]==Start=== !\n"},
         {3, "StopOneAlarm", "Zel Alert storage plugin have not run success...\n"}}},
        {"cancel from outside", [&] { EXPECT_EQ(s.LocalCancelAlarm(start), 0); },
         {{3, "StopAllAlarm", "======StopAllAlarm==Start=== !\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==End=== !\n"}}},
        {"rollover", [&] { s.CheckAlarm(); h.advance(86400); s.HandleAlarmCrossDay(); },
         {{3, "CheckAlarm", "alertID[7] time[1772712005] new alert !\n"},
         {3, "CheckAlarm", "alertID[8]: checkTime fail !\n"},
         {3, "CheckAlarm", "==add==alertID[7]==[120005]==\n"},
         {2, "writeAlertZelLog", "=========write Zel alert log ID[7]...\n"},
         {2, "OnReturnWriteResult", "write Zel alert log result = 0 \n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[324]...\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==Start=== !\n"},
         {2, "GetZelAlertLogSize", "=========write Zel alert log size[0]...\n"},
         {2, "modifyAlertZelLog", "=========modify Zel alert log ID[7]...\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==End=== !\n"}}},
        {"watchdog", [&] { s.m_ParaList.clear(); h.runFor(10); },
         {{2, "OnReturnWriteResult", "write Zel alert log result = 0 \n"},
         {3, "ThreadFuncImpl", "alertZelManage watch dog !\n"},
         {3, "ThreadFuncImpl", "alertZelManage watch dog !\n"}}},
    });
}

}  // namespace
