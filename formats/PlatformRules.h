// The fleet platform's side of rule provisioning, without the bus: rule set
// files, pushed command files, the fence messages, and the rule set and area
// state that the platform holds and serves. zel-platform puts this on the
// bus; the tests use it directly.
//
// Rule set file: a JSON object with a "DUMMY100" array of rules and the area
// arrays "CIRCLE100", "LINE100", "POLY100" and "RECT100" (a missing area array
// counts as empty). An area element may carry "INSIDE": true, for this
// platform only: the vehicle starts inside that area.
//
// Command file (CMD 1, 3, 5): a JSON object in the command form, "DUMMY" and
// the area arrays "CIRCLE", "LINE", "POLY", "RECT" (CMD 1 and 5), or
// "DUMMYIDS" (CMD 3). "SOURCE" and "CMD" are set by the platform.
//
// Not thread-safe; all of it runs on the caller's thread.
#ifndef ZELFORMATS_PLATFORMRULES_H
#define ZELFORMATS_PLATFORMRULES_H

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include <json/json.h>

namespace platformpeer {

const unsigned int kSource = 100;
const unsigned int kCmdAdd = 1, kCmdDelete = 3, kCmdDeleteAll = 4, kCmdCover = 5;
const unsigned int kCmdRuleSet = 8, kCmdAreaState = 11;
// The bus carries at most this many payload bytes in one message.
const size_t kMaxPayload = size_t{128} * 1024;
// Fence state record (message 6689): u8 bit 0 inside at 0, u32 area id at 4.
const size_t kFenceStateSize = 3352;

// Reads a whole file. On failure `error` names the file and the reason.
bool readFile(const std::string& path, std::string& text, std::string& error);
// Why a text is not JSON: the reader's first error, where it stands (a byte
// offset into the text, -1 when the reader gave none), and all its errors as
// the reader lists them; or, when the reader threw, what it threw.
struct JsonError {
    std::string first;
    ptrdiff_t offset = -1;
    std::string listed;
    std::string thrown;
};
// The one JSON reader of rule sets, command files and the platform's JSON
// messages, with the service's own settings (comments allowed): a text that
// reads here is one the service can parse. Values keep their offsets.
bool readJson(const std::string& text, Json::Value& out, JsonError& why);
// readJson with one message: `error` names `name` and lists the JSON errors.
bool parseJson(const std::string& name, const std::string& text, Json::Value& out,
               std::string& error);

// Reads and checks a rule set file; the area arrays it lacks are added empty.
bool loadRuleSet(const std::string& path, Json::Value& set, std::string& error);
// Checks a parsed rule set as loadRuleSet does.
bool checkRuleSet(const std::string& name, Json::Value& set, std::string& error);

// The message of command `cmd` from the text of a command file (`name` for
// messages; for CMD 4 the text may be empty). Refuses a command the service
// would refuse for its shape: CMD 1 and 5 need "DUMMY", CMD 3 "DUMMYIDS".
bool makeCommand(unsigned int cmd, const std::string& name, const std::string& text,
                 Json::Value& msg, std::string& error);

// {"SOURCE":100,"EVENT":event,"ID":id}, the fence event (message 6795).
std::string fenceEventText(uint32_t id, int event);
// The fence state record (message 6689).
std::vector<uint8_t> fenceStateRecord(uint32_t id, bool inside);
// JSON as sent on the bus: the fast writer's text.
std::string toText(const Json::Value& v);

// The rule set the platform serves (reply to CMD 8) and the area state it
// reports (reply to CMD 11). Commands that it sees go to the rule set as the
// service applies them, so a service that asks again gets what it holds.
class PlatformState {
public:
    explicit PlatformState(Json::Value ruleSet);

    std::string ruleSetText() const { return toText(m_set); }
    // {"AREALINE":[{"ID":id},...]}: the areas the vehicle is inside, by id.
    std::string areaLineText() const;
    void setInside(uint32_t id, bool inside) { m_inside[id] = inside; }
    // Applies command 1, 3, 4 or 5 to the rule set. False, with `what` saying
    // why, for anything else; otherwise `what` tells what changed.
    bool apply(const Json::Value& msg, std::string& what);
    const Json::Value& ruleSet() const { return m_set; }

private:
    void removeId(uint32_t id);
    void appendAreas(const Json::Value& msg);

    Json::Value m_set;
    std::map<uint32_t, bool> m_inside;
};

}  // namespace platformpeer

#endif  // ZELFORMATS_PLATFORMRULES_H
