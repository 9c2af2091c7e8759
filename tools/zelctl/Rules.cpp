// zelctl rules push: a rule file as a platform command on 6796, built by the
// platform peer's own library so that it is the message zel-platform sends.
#include <stdlib.h>
#include <string.h>

#include "Common.h"
#include "MessageIds.h"
#include "PlatformRules.h"
#include "Zelctl.h"

namespace zelctl {

namespace {

const char kUsage[] =
    "usage: zelctl rules push CMD [FILE]\n"
    "  Pushes rules to the service as the platform does (6796):\n"
    "    1  add the rules of FILE          4  delete all rules (no FILE)\n"
    "    3  delete the rules FILE names    5  cover (replace) the rules of FILE\n"
    "  FILE is a command ({\"DUMMY\":[rules], \"CIRCLE\":[...], ...} or\n"
    "  {\"DUMMYIDS\":[{\"ID\":7}]}) or a whole rule set ({\"DUMMY100\":[rules], ...}),\n"
    "  whose rules (CMD 1, 5) or ids (CMD 3) are taken.\n"
    "examples:\n"
    "  zelctl rules push 1 examples/rules/speeding.json\n"
    "  zelctl rules push 3 examples/rules/speeding.json    (deletes rule 7)\n"
    "  zelctl rules push 4\n";

const char* const kAreas[4] = {"CIRCLE", "LINE", "POLY", "RECT"};

// A whole rule set in the command form of `cmd`; other texts stay as they are.
std::string commandText(unsigned cmd, const Json::Value& v, const std::string& text) {
    if (!v.isObject() || !v["DUMMY100"].isArray() || v.isMember("DUMMY") ||
        v.isMember("DUMMYIDS"))
        return text;
    Json::Value out(Json::objectValue);
    if (cmd == platformpeer::kCmdDelete) {
        out["DUMMYIDS"] = Json::Value(Json::arrayValue);
        for (const Json::Value& rule : v["DUMMY100"])
            if (rule.isObject() && rule.isMember("ID")) {
                Json::Value id(Json::objectValue);
                id["ID"] = rule["ID"];
                out["DUMMYIDS"].append(id);
            }
        return platformpeer::toText(out);
    }
    out["DUMMY"] = v["DUMMY100"];
    for (const char* area : kAreas) {
        const std::string setKey = std::string(area) + "100";
        if (v.isMember(setKey)) out[area] = v[setKey];
    }
    return platformpeer::toText(out);
}

}  // namespace

int runRules(int argc, char** argv) {
    if (asksHelp(argc, argv)) return usage(kUsage);
    if (argc < 2 || strcmp(argv[1], "push") != 0)
        return wrongCall("rules", argc < 2 ? std::string("no action (push)")
                                           : std::string("unknown action '") + argv[1] + "'");
    if (argc < 3) return wrongCall("rules", "push needs CMD");
    if (argc > 4) return wrongCall("rules", "push takes CMD and one FILE");
    char* end = nullptr;
    const unsigned long cmd = strtoul(argv[2], &end, 10);
    if (*end != '\0' || (cmd != 1 && cmd != 3 && cmd != 4 && cmd != 5))
        return wrongCall("rules", std::string("push: '") + argv[2] + "' is not CMD 1, 3, 4 or 5");
    if (argc == 3 && cmd != platformpeer::kCmdDeleteAll)
        return wrongCall("rules", "push " + std::to_string(cmd) + " needs a FILE");
    std::string name = argc == 4 ? argv[3] : "";
    std::string text;
    std::string error;
    if (argc == 4) {
        Json::Value parsed;
        if (!platformpeer::readFile(name, text, error) ||
            !platformpeer::parseJson(name, text, parsed, error))
            return refuse("rules", error);
        text = commandText(static_cast<unsigned>(cmd), parsed, text);
    }
    Json::Value msg;
    if (!platformpeer::makeCommand(static_cast<unsigned>(cmd), name, text, msg, error))
        return refuse("rules", error);
    const std::string out = platformpeer::toText(msg);
    if (!brokerThere("rules")) return 1;
    void* bus = openBus();
    if (Common::Q7X_MSGSendMessage(bus, 0, zel::kMsgPlatformRule, 0, out.data(),
                                   static_cast<int>(out.size()), 0) != 0)
        return refuse("rules", "could not send the command (6796) to the broker");
    printf("pushed CMD %lu%s%s (message 6796, %zu bytes)\n", cmd, name.empty() ? "" : " from ",
           name.c_str(), out.size());
    return 0;
}

}  // namespace zelctl
