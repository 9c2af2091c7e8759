#include "PlatformRules.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <utility>

#include "CommandLine.h"

namespace platformpeer {

namespace {

const char* const kSetAreas[4] = {"CIRCLE100", "LINE100", "POLY100", "RECT100"};
const char* const kCommandAreas[4] = {"CIRCLE", "LINE", "POLY", "RECT"};

// The id of a rule or area element; false for anything without a usable one.
bool idOf(const Json::Value& v, uint32_t& id) {
    if (!v.isObject() || !v.isMember("ID")) return false;
    const Json::Value& member = v["ID"];
    if (!member.isUInt()) return false;
    id = member.asUInt();
    return true;
}

bool needArray(const std::string& name, const Json::Value& v, const char* key, bool required,
               std::string& error) {
    if (!v.isMember(key)) {
        if (!required) return true;
        error = name + ": no \"" + key + "\" array";
        return false;
    }
    if (v[key].isArray()) return true;
    error = name + ": \"" + key + "\" is not an array";
    return false;
}

}  // namespace

bool readFile(const std::string& path, std::string& text, std::string& error) {
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        error = path + ": " + cli::errorText(errno);
        return false;
    }
    text.clear();
    char buf[4096];
    size_t n;
    errno = 0;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, n);
    // A folder opens but does not read; its errno says why ("Is a directory").
    bool ok = !ferror(f);
    if (!ok) error = path + ": " + cli::errorText(errno != 0 ? errno : EIO);
    fclose(f);
    return ok;
}

bool readJson(const std::string& text, Json::Value& out, JsonError& why) {
    why = JsonError();
    try {
        Json::Reader reader;
        if (reader.parse(text.data(), text.data() + text.size(), out, true)) return true;
        std::vector<Json::Reader::StructuredError> errors = reader.getStructuredErrors();
        if (!errors.empty()) {
            why.first = errors[0].message;
            why.offset = errors[0].offset_start;
        }
        why.listed = reader.getFormattedErrorMessages();
    } catch (const std::exception& e) {
        why.thrown = e.what();
    }
    return false;
}

bool parseJson(const std::string& name, const std::string& text, Json::Value& out,
               std::string& error) {
    JsonError why;
    if (readJson(text, out, why)) return true;
    if (!why.thrown.empty()) {
        error = name + ": not valid JSON: " + why.thrown;
        return false;
    }
    error = name + ": not valid JSON:\n" + why.listed;
    while (!error.empty() && error.back() == '\n') error.pop_back();
    return false;
}

bool checkRuleSet(const std::string& name, Json::Value& set, std::string& error) {
    if (!set.isObject()) {
        error = name + ": a rule set is a JSON object with a \"DUMMY100\" array";
        return false;
    }
    if (!needArray(name, set, "DUMMY100", true, error)) return false;
    for (const char* key : kSetAreas) {
        if (!needArray(name, set, key, false, error)) return false;
        if (!set.isMember(key)) set[key] = Json::Value(Json::arrayValue);
    }
    if (toText(set).size() > kMaxPayload) {
        error = name + ": the rule set exceeds the bus's " + std::to_string(kMaxPayload) +
                " bytes per message";
        return false;
    }
    return true;
}

bool loadRuleSet(const std::string& path, Json::Value& set, std::string& error) {
    std::string text;
    return readFile(path, text, error) && parseJson(path, text, set, error) &&
           checkRuleSet(path, set, error);
}

bool makeCommand(unsigned int cmd, const std::string& name, const std::string& text,
                 Json::Value& msg, std::string& error) {
    msg = Json::Value(Json::objectValue);
    if (!(cmd == kCmdDeleteAll && text.empty()) && !parseJson(name, text, msg, error))
        return false;
    if (!msg.isObject()) {
        error = name + ": a command is a JSON object";
        return false;
    }
    if ((cmd == kCmdAdd || cmd == kCmdCover) && !needArray(name, msg, "DUMMY", true, error))
        return false;
    if (cmd == kCmdDelete && !needArray(name, msg, "DUMMYIDS", true, error)) return false;
    msg["SOURCE"] = kSource;
    msg["CMD"] = cmd;
    if (toText(msg).size() > kMaxPayload) {
        error = name + ": the command exceeds the bus's " + std::to_string(kMaxPayload) +
                " bytes per message";
        return false;
    }
    return true;
}

std::string fenceEventText(uint32_t id, int event) {
    Json::Value v;
    v["SOURCE"] = kSource;
    v["EVENT"] = event;
    v["ID"] = id;
    return toText(v);
}

std::vector<uint8_t> fenceStateRecord(uint32_t id, bool inside) {
    std::vector<uint8_t> b(kFenceStateSize, 0);
    b[0] = inside ? 1 : 0;
    for (int i = 0; i < 4; ++i) b[4 + i] = static_cast<uint8_t>(id >> (8 * i));
    return b;
}

std::string toText(const Json::Value& v) { return Json::FastWriter().write(v); }

PlatformState::PlatformState(Json::Value ruleSet) : m_set(std::move(ruleSet)) {
    for (const char* key : kSetAreas) {
        const Json::Value& areas = m_set[key];
        for (const Json::Value& area : areas) {
            uint32_t id = 0;
            if (idOf(area, id) && area["INSIDE"].isBool() && area["INSIDE"].asBool())
                m_inside[id] = true;
        }
    }
}

std::string PlatformState::areaLineText() const {
    Json::Value v;
    Json::Value& inside = v["AREALINE"] = Json::Value(Json::arrayValue);
    for (const auto& area : m_inside) {
        if (!area.second) continue;
        Json::Value e;
        e["ID"] = area.first;
        inside.append(e);
    }
    return toText(v);
}

void PlatformState::removeId(uint32_t id) {
    Json::Value& rules = m_set["DUMMY100"];
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        uint32_t ruleId = 0;
        if (!idOf(rules[i], ruleId) || ruleId != id) continue;
        Json::Value removed;
        rules.removeIndex(i, &removed);
        break;
    }
    for (const char* key : kSetAreas) {
        Json::Value kept(Json::arrayValue);
        for (const Json::Value& area : m_set[key]) {
            uint32_t areaId = 0;
            if (!idOf(area, areaId) || areaId != id) kept.append(area);
        }
        m_set[key] = kept;
    }
}

void PlatformState::appendAreas(const Json::Value& msg) {
    for (int k = 0; k < 4; ++k)
        if (msg.isMember(kCommandAreas[k]) && msg[kCommandAreas[k]].isArray())
            for (const Json::Value& area : msg[kCommandAreas[k]]) m_set[kSetAreas[k]].append(area);
}

bool PlatformState::apply(const Json::Value& msg, std::string& what) {
    if (!msg.isObject() || !msg["CMD"].isUInt() || !msg["SOURCE"].isUInt() ||
        msg["SOURCE"].asUInt() != kSource) {
        what = "not a platform command";
        return false;
    }
    unsigned int cmd = msg["CMD"].asUInt();
    if (cmd != kCmdAdd && cmd != kCmdDelete && cmd != kCmdDeleteAll && cmd != kCmdCover) {
        what = "CMD " + std::to_string(cmd) + " is not one of 1, 3, 4, 5";
        return false;
    }
    Json::Value& rules = m_set["DUMMY100"];
    const Json::Value& given = msg[cmd == kCmdDelete ? "DUMMYIDS" : "DUMMY"];
    if (cmd != kCmdDeleteAll && !given.isArray()) {
        what = "CMD " + std::to_string(cmd) + " without its array";
        return false;
    }
    switch (cmd) {
    case kCmdAdd:
        for (const Json::Value& rule : given) rules.append(rule);
        appendAreas(msg);
        break;
    case kCmdDelete:
        for (const Json::Value& e : given) {
            uint32_t id = 0;
            if (idOf(e, id)) removeId(id);
        }
        break;
    case kCmdDeleteAll:
        rules = Json::Value(Json::arrayValue);
        for (const char* key : kSetAreas) m_set[key] = Json::Value(Json::arrayValue);
        break;
    case kCmdCover:
        for (const Json::Value& rule : given) {
            uint32_t id = 0;
            if (!idOf(rule, id)) continue;
            removeId(id);
            rules.append(rule);
        }
        appendAreas(msg);
        break;
    }
    what = "CMD " + std::to_string(cmd) + " applied: " + std::to_string(rules.size()) +
           " rules held";
    return true;
}

}  // namespace platformpeer
