// Every line that rule provisioning and the area messages print, exactly:
// level, printing operation and text, for each accepted and each refused
// message, in one table. The rows run in order on one service.
#include <set>

#include "RulesFixture.h"

using harness::Bytes;
using harness::Line;
using harness::textBytes;

namespace {

struct Row {
    const char* what;
    unsigned int id;
    Bytes payload;
    std::vector<Line> lines;
    int32_t claimed = -1;  // >= 0: the head claims this many payload bytes
};

Bytes fence(uint32_t id, uint8_t flag, size_t length = 3352) {
    return rulestest::fenceState(id, flag, length);
}

using RuleLines = rulestest::RulesTest;

const std::set<std::string> kPassOperations = {"ThreadFuncImpl", "CheckAlarm", "GetZelAlertPara",
                                               "upDateTrigger", "upDateEvent"};

TEST_F(RuleLines, EveryRuleAndAreaMessagePrintsExactlyItsLines) {
    const Row applied[] = {
        {"whole set", 39564, textBytes(
             "{\"DUMMY100\":[{\"ID\":7,\"ATLEAST\":5,\"SPEED\":{\"GT\":60.0},"
             "\"STARTIME\":\"2026/03/05 08:00:00\",\"ENDTIME\":\"2026/03/05 18:00\"},"
             "{\"ID\":8,\"IN1\":{\"EQ\":1.0},\"IN2\":{\"GT\":1}}],"
             "\"CIRCLE100\":[{\"ID\":7},{\"NAME\":\"x\"}]}"),
         {{3, "OnUpdateAreaInfo", "=======OnUpdateAreaInfo======!\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==Start=== !\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==End=== !\n"},
         {3, "dealJsonGetPara", "dealJsonGetPara \n"},
         {3, "stringToDateTime", "==stringToDateTime,errcode[15]...\n"},
         {3, "dealJsonGetPara", "GetJsonAtleast fail !\n"},
         {3, "dealJsonGetPara", "EventName[1] not GT LT EQ \n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "GetZelAlertEfenceInfo", "send GetZelAlertEfenceInfo message json result : {\"CMD\":11,\"SOURCE\":100}\n length :24 \n "}}},
        {"arealine", 39564, textBytes("{\"AREALINE\":[{\"ID\":7},{\"X\":1}]}"),
         {{3, "OnUpdateAreaInfo", "=======OnUpdateAreaInfo======!\n"},
         {3, "OnUpdateAreaInfo", "OnUpdateAreaInfo  has  AREALINE  !\n"},
         {3, "OnUpdateAreaInfo", "=======OnUpdateFenceInfo ID[7][1]======!\n"}}},
        {"add", 6796, textBytes("{\"SOURCE\":100,\"CMD\":1,\"DUMMY\":[{\"ID\":9,\"ATLEAST\":1,"
                                "\"GPS\":{\"EQ\":3.0}}],\"RECT\":[{\"ID\":9}]}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 1,\n\t\"DUMMY\" : \n\t[\n\t\t{\n\t\t\t\"ATLEAST\" : 1,\n\t\t\t\"GPS\" : \n\t\t\t{\n\t\t\t\t\"EQ\" : 3.0\n\t\t\t},\n\t\t\t\"ID\" : 9\n\t\t}\n\t],\n\t\"RECT\" : \n\t[\n\t\t{\n\t\t\t\"ID\" : 9\n\t\t}\n\t],\n\t\"SOURCE\" : 100\n}\n"},
         {3, "addZelAlertID", "======addZelAlertID==Start=== !\n"},
         {3, "addZelAlertID", "add one alert id = [9] \n"},
         {3, "printfOneZelAlertPara", "===========================================\n"},
         {3, "printfOneZelAlertPara", "alertID\t \t[9]\n"},
         {3, "printfOneZelAlertPara", "startTime\t[20000000][00:00:00]\n"},
         {3, "printfOneZelAlertPara", "endTime\t\t[20000000][00:00:00]\n"},
         {3, "printfOneZelAlertPara", "atLeast\t\t[1]\n"},
         {3, "printfOneZelAlertPara", "Trigger \t[12][GPS][2][3.00000000]->Event,Type,Value \n"},
         {3, "printfOneZelAlertPara", "===========================================\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "addZelAlertID", "======addZelAlertID==End== !\n"},
         {3, "GetZelAlertEfenceInfo", "send GetZelAlertEfenceInfo message json result : {\"CMD\":11,\"SOURCE\":100}\n length :24 \n "}}},
        {"cover", 6796, textBytes("{\"SOURCE\":100,\"CMD\":5,\"DUMMY\":[{\"ID\":9,"
                                  "\"SPEED\":{\"LT\":5.0}}]}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 5,\n\t\"DUMMY\" : \n\t[\n\t\t{\n\t\t\t\"ID\" : 9,\n\t\t\t\"SPEED\" : \n\t\t\t{\n\t\t\t\t\"LT\" : 5.0\n\t\t\t}\n\t\t}\n\t],\n\t\"SOURCE\" : 100\n}\n"},
         {3, "coverZelAlertID", "======coverZelAlertID==Start=== !\n"},
         {3, "StopOneAlarm", "======StopOneAlarm[9]==Start=== !\n"},
         {3, "StopOneAlarm", "======StopOneAlarm[9]==End=== !\n"},
         {3, "coverZelAlertID", "deleteZelAlertID alertID[9] \n"},
         {3, "coverZelAlertID", "GetJsonAtleast fail !\n"},
         {3, "coverZelAlertID", "cover one alert id = [9] \n"},
         {3, "printfOneZelAlertPara", "===========================================\n"},
         {3, "printfOneZelAlertPara", "alertID\t \t[9]\n"},
         {3, "printfOneZelAlertPara", "startTime\t[20000000][00:00:00]\n"},
         {3, "printfOneZelAlertPara", "endTime\t\t[20000000][00:00:00]\n"},
         {3, "printfOneZelAlertPara", "atLeast\t\t[0]\n"},
         {3, "printfOneZelAlertPara", "Trigger \t[14][SPEED][1][5.00000000]->Event,Type,Value \n"},
         {3, "printfOneZelAlertPara", "===========================================\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "getAreaID", "getAreaID  add error !\n"},
         {3, "coverZelAlertID", "======coverZelAlertID==End== !\n"},
         {3, "GetZelAlertEfenceInfo", "send GetZelAlertEfenceInfo message json result : {\"CMD\":11,\"SOURCE\":100}\n length :24 \n "}}},
        {"delete", 6796, textBytes("{\"SOURCE\":100,\"CMD\":3,\"DUMMYIDS\":[{\"ID\":8},{}]}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 3,\n\t\"DUMMYIDS\" : \n\t[\n\t\t{\n\t\t\t\"ID\" : 8\n\t\t},\n\t\t{}\n\t],\n\t\"SOURCE\" : 100\n}\n"},
         {3, "deleteZelAlertID", "======deleteZelAlertID==Start== !\n"},
         {3, "StopOneAlarm", "======StopOneAlarm[8]==Start=== !\n"},
         {3, "StopOneAlarm", "======StopOneAlarm[8]==End=== !\n"},
         {3, "deleteZelAlertID", "deleteZelAlertID alertID[8] \n"},
         {3, "deleteZelAlertID", "delete one alert id = [8] \n"},
         {3, "deleteZelAlertID", "======deleteZelAlertID==End== !\n"},
         {3, "GetZelAlertEfenceInfo", "send GetZelAlertEfenceInfo message json result : {\"CMD\":11,\"SOURCE\":100}\n length :24 \n "}}},
        {"delete all", 6796, textBytes("{\"SOURCE\":100,\"CMD\":4}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 4,\n\t\"SOURCE\" : 100\n}\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==Start=== !\n"},
         {3, "StopAllAlarm", "======StopAllAlarm==End=== !\n"},
         {3, "OnPlatformUpdateArea", "======delete all alert===== !\n"},
         {3, "GetZelAlertEfenceInfo", "send GetZelAlertEfenceInfo message json result : {\"CMD\":11,\"SOURCE\":100}\n length :24 \n "}}},
        {"fence inside", 6689, fence(7, 3),
         {{3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo======!\n"},
         {3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo ID[7][1]======!\n"}}},
        {"fence outside, longest", 6689, fence(7, 2, 3864),
         {{3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo======!\n"},
         {3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo ID[7][0]======!\n"}}},
        {"fence event inside", 6795, textBytes("{\"SOURCE\":100,\"EVENT\":1,\"ID\":12}"),
         {{3, "OnUpdateFenceEvent", "=======OnUpdateFenceInfo ID[12][1]======!\n"}}},
        {"fence event outside", 6795, textBytes("{\"SOURCE\":100,\"EVENT\":-1,\"ID\":12}"),
         {{3, "OnUpdateFenceEvent", "=======OnUpdateFenceInfo ID[12][0]======!\n"}}},
    };
    // Each of these changes nothing and asks nothing.
    const Row refused[] = {
        {"reply with neither array", 39564, textBytes("{\"DUMMY100\":{}}"),
         {{3, "OnUpdateAreaInfo", "=======OnUpdateAreaInfo======!\n"},
         {3, "OnUpdateAreaInfo", "OnUpdateAreaInfo  no DUMMY100 or not Array !\n"}}},
        {"reply not json", 39564, textBytes("{\"DUMMY100\":["),
         {{3, "OnUpdateAreaInfo", "=======OnUpdateAreaInfo======!\n"},
         {3, "OnUpdateAreaInfo", "OnUpdateAreaInfo parse fail !\n"}}},
        {"reply empty", 39564, Bytes(),
         {{3, "OnUpdateAreaInfo", "=======OnUpdateAreaInfo======!\n"},
         {3, "OnUpdateAreaInfo", "OnUpdateAreaInfo failed msg length[0]\n"}}},
        {"unknown command", 6796, textBytes("{\"SOURCE\":100,\"CMD\":2}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 2,\n\t\"SOURCE\" : 100\n}\n"},
         {3, "OnPlatformUpdateArea", "OnPlatformUpdateArea cmd[2] != 1,3,4,5 !\n"}}},
        {"no source", 6796, textBytes("{\"CMD\":4}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 4\n}\n"},
         {3, "OnPlatformUpdateArea", "OnPlatformUpdateArea no source !\n"}}},
        {"other source", 6796, textBytes("{\"SOURCE\":99,\"CMD\":4}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 4,\n\t\"SOURCE\" : 99\n}\n"},
         {3, "OnPlatformUpdateArea", "OnPlatformUpdateArea source[99] != 100 !\n"}}},
        {"command as text", 6796, textBytes("{\"SOURCE\":100,\"CMD\":\"4\"}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : \"4\",\n\t\"SOURCE\" : 100\n}\n"},
         {3, "OnPlatformUpdateArea", "OnPlatformUpdateArea no cmd !\n"}}},
        {"add without rules", 6796, textBytes("{\"SOURCE\":100,\"CMD\":1}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 1,\n\t\"SOURCE\" : 100\n}\n"},
         {3, "OnPlatformUpdateArea", "OnUpdateAreaInfo  add error !\n"}}},
        {"cover without rules", 6796, textBytes("{\"SOURCE\":100,\"CMD\":5}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 5,\n\t\"SOURCE\" : 100\n}\n"},
         {3, "OnPlatformUpdateArea", "OnUpdateAreaInfo  add error !\n"}}},
        {"delete, ids no array", 6796, textBytes("{\"SOURCE\":100,\"CMD\":3,\"DUMMYIDS\":{\"ID\":9}}"),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {4, "OnPlatformUpdateArea", "OnPlatformUpdateArea get :\r{\n\t\"CMD\" : 3,\n\t\"DUMMYIDS\" : \n\t{\n\t\t\"ID\" : 9\n\t},\n\t\"SOURCE\" : 100\n}\n"},
         {3, "OnPlatformUpdateArea", "OnUpdateAreaInfo  del error !\n"}}},
        {"push nested too deep", 6796, textBytes(std::string(3000, '[') + std::string(3000, ']')),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {3, "OnPlatformUpdateArea", "OnPlatformUpdateArea parse fail !\n"}}},
        {"push empty", 6796, Bytes(),
         {{3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
         {3, "OnPlatformUpdateArea", "OnPlatformUpdateArea failed msg length[0]\n"}}},
        {"fence too short", 6689, fence(7, 1, 3351),
         {{3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo======!\n"},
         {3, "OnUpdateFenceInfo", "data length failed msgerror=3351\n"}}},
        {"fence too long", 6689, fence(7, 1, 3865),
         {{3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo======!\n"},
         {3, "OnUpdateFenceInfo", "data length over mem = 3865\n"}}},
        {"fence claims too much", 6689, fence(7, 1, 3400),
         {{3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo======!\n"},
         {3, "OnUpdateFenceInfo", "data length over mem = 4000\n"}}, 4000},
        {"fence cut short", 6689, fence(7, 1, 100),
         {{3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo======!\n"},
         {3, "OnUpdateFenceInfo", "data length failed msgerror=100\n"}}, 3352},
        {"fence event real", 6795, textBytes("{\"SOURCE\":100,\"EVENT\":1.5,\"ID\":12}"),
         {{3, "OnUpdateFenceEvent", "OnPlatformUpdateArea no event !\n"}}},
        {"fence event no id", 6795, textBytes("{\"SOURCE\":100,\"EVENT\":1}"),
         {{3, "OnUpdateFenceEvent", "OnPlatformUpdateArea no ID !\n"}}},
        {"fence event other source", 6795, textBytes("{\"SOURCE\":7,\"EVENT\":1,\"ID\":1}"),
         {{3, "OnUpdateFenceEvent", "OnPlatformUpdateArea source[7] != 100 !\n"}}},
        {"fence event no source", 6795, textBytes("{\"EVENT\":1,\"ID\":1}"),
         {{3, "OnUpdateFenceEvent", "OnPlatformUpdateArea no source !\n"}}},
        {"fence event not json", 6795, textBytes("]"),
         {{3, "OnUpdateFenceEvent", "OnUpdateAreaInfo parse fail !\n"}}},
        {"fence event empty", 6795, Bytes(),
         {{3, "OnUpdateFenceEvent", "OnUpdateFenceEvent failed msgerror=0\n"}}},
    };
    auto run = [&](const Row& r) {
        SCOPED_TRACE(r.what);
        if (r.claimed >= 0)
            h.injectClaiming(r.id, static_cast<uint32_t>(r.claimed), r.payload);
        else
            h.inject(r.id, r.payload);
        h.cycle();
        // The cycle's own lines, those of the alert pass among them, are not the
        // handler's.
        expectLines(r.lines, kPassOperations);
    };
    for (const Row& r : applied) run(r);
    rules().push_back(harness::makeRule(9, 0));
    areas()[9] = true;
    const std::vector<uint32_t> ids = ruleIds();
    const std::map<uint32_t, bool> flags = areas();
    for (const Row& r : refused) {
        svc().m_bParaReady = 0;
        h.clearSent();
        run(r);
        EXPECT_EQ(ruleIds(), ids);
        EXPECT_EQ(areas(), flags);
        EXPECT_EQ(svc().m_bParaReady, 0);
        // Not ready, the pass may ask for the whole set; nothing else goes out.
        for (const std::string& t : requests()) EXPECT_EQ(t, "{\"CMD\":8,\"SOURCE\":100}\n");
    }
    // Messages without a whole head, handed over directly: none, and 15 bytes.
    CAlertZelManage& s = svc();
    const char fifteen[15] = {};
    for (const char* msg : {static_cast<const char*>(nullptr), fifteen}) {
        int len = msg ? 15 : 0;
        s.OnUpdateAreaInfo(msg, len);
        s.OnPlatformUpdateArea(msg, len);
        s.OnUpdateFenceInfo(msg, len);
        s.OnUpdateFenceEvent(msg, len);
        expectLines({{3, "OnUpdateAreaInfo", "=======OnUpdateAreaInfo======!\n"},
                     {3, "OnUpdateAreaInfo", "OnUpdateAreaInfo length error \n"},
                     {3, "OnPlatformUpdateArea", "=======OnPlatformUpdateArea======!\n"},
                     {3, "OnPlatformUpdateArea", "OnPlatformUpdateArea length error \n"},
                     {3, "OnUpdateFenceInfo", "=======OnUpdateFenceInfo======!\n"},
                     {3, "OnUpdateFenceInfo", "fence info length error \n"},
                     {3, "OnUpdateFenceEvent", "OnUpdateFenceEvent length error \n"}});
    }
}

// The dump of the whole state, on standard output; no path of the service
// calls it.
TEST_F(RuleLines, DumpPrintsEveryRuleAndAreaOnStandardOutput) {
    const std::string stars = "***********************ZelAlertPara**********************\n";
    const std::string equals = "===========================================\n";
    testing::internal::CaptureStdout();
    svc().printfZelAlertPara();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              stars + "***************************no  Para**********************\n" + stars);
    ZelAlertPara_t rule = harness::makeRule(7, 5, {{14, GT, 60.5}, {98, EQ, 1.0}, {103, LT, 0}});
    rule.startTime = harness::dateTime(26, 3, 5, 8, 0, 9);
    rules().push_back(rule);
    areas()[7] = true;
    areas()[3] = false;
    testing::internal::CaptureStdout();
    svc().printfZelAlertPara();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              stars + equals + "alertID\t \t[7]\n" + "startTime\t[20260305][08:00:09]\n" +
                  "endTime\t\t[20000000][00:00:00]\n" + "atLeast\t\t[5]\n" +
                  "Trigger \t[14][SPEED][0][60.50000000]->Event,Type,Value \n" +
                  "Trigger \t[98][ALPR_status][2][1.00000000]->Event,Type,Value \n" +
                  "Trigger \t[103][?][1][0.00000000]->Event,Type,Value \n" + equals +
                  "AreaID = [3],state = [0]\n" + "AreaID = [7],state = [1]\n" + stars);
    EXPECT_TRUE(printed().empty());
}

}  // namespace
