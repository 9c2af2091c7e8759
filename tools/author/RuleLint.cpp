// Lint of a rule set: the file as a whole, each rule's keys and id, and the
// areas; triggers and windows are in TriggerLint.cpp and WindowLint.cpp.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>

#include "Harness.h"
#include "Lint.h"
#include "MessageIds.h"
#include "PlatformRules.h"
#include "RuleLintInternal.h"
#include "ScanInts.h"

namespace zelauthor {

std::string format(const char* fmt, ...) {
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof buf, fmt, ap);
    va_end(ap);
    return buf;
}

std::string jsonText(const Json::Value& v) {
    Json::FastWriter writer;
    std::string text = writer.write(v);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

std::string number(double v) {
    std::string text = format("%.10g", v);
    if (text.find_first_of(".eEn") == std::string::npos) text += ".0";
    return text;
}

namespace {

const char* const kRuleKeys[] = {"ID", "STARTIME", "ENDTIME", "ATLEAST"};

bool isKnownRuleKey(const std::string& key) {
    for (const char* k : kRuleKeys)
        if (key == k) return true;
    return std::any_of(std::begin(EVENT_NAME), std::end(EVENT_NAME),
                       [&key](const std::string& e) { return key == e; });
}

std::string upper(std::string s) {
    for (char& c : s) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return s;
}

size_t distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t next = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = row[j];
            row[j] = next;
        }
    }
    return row[b.size()];
}

// The id of an element of a rule or area array as the service reads it.
bool idOf(CAlertZelManage& service, const Json::Value& v, unsigned int& id) {
    return v.isObject() && service.GetJsonID(v, id);
}

// What the service's parser made of `rules` (objects only), delivered as one
// whole set: one entry for each rule it keeps, those with a usable id, in
// their order. The rules go in chunks, so that the copy stays small.
void parseChunk(harness::Harness& h, const std::vector<const Json::Value*>& rules,
                std::vector<ZelAlertPara_t>& parsed) {
    Json::Value set(Json::objectValue);
    Json::Value& list = set["DUMMY100"] = Json::Value(Json::arrayValue);
    for (const Json::Value* rule : rules) list.append(*rule);
    h.service().m_ParaList.clear();
    h.clearLines();
    h.deliver(zel::kMsgPlatformRuleReply, harness::textBytes(jsonText(set)));
    h.clearSent();
    parsed.assign(h.service().m_ParaList.begin(), h.service().m_ParaList.end());
}

void lintSetKeys(const RuleFile& file, Findings& out) {
    if (file.bareArray) return;
    const Json::Value& root = file.root;
    const char* const* own = file.commandForm ? kCommandAreaKeys : kSetAreaKeys;
    const char* const* other = file.commandForm ? kSetAreaKeys : kCommandAreaKeys;
    for (const std::string& key : root.getMemberNames()) {
        std::string at = file.at(root[key]);
        bool known = key == (file.commandForm ? "DUMMY" : "DUMMY100") ||
                     (file.commandForm && (key == "CMD" || key == "SOURCE"));
        for (int i = 0; i < 4; ++i) {
            if (key == own[i]) {
                known = true;
                if (!root[key].isArray())
                    addFinding(out, "SET", "not-an-array",
                               format("\"%s\" is not an array (%s); the service ignores it",
                                      key.c_str(), at.c_str()),
                               "write a list of objects with an \"ID\", or []");
            }
            if (key == other[i]) {
                known = true;
                addFinding(out, "SET", "area-key-form",
                           format("\"%s\" (%s) is the key of %s; in this file the service reads "
                                  "\"%s\", so these areas are ignored",
                                  key.c_str(), at.c_str(),
                                  file.commandForm ? "a whole rule set" : "a pushed command",
                                  own[i]),
                           format("rename it \"%s\"", own[i]));
            }
        }
        if (!known) {
            std::string hint = suggestKey(key);
            addFinding(out, "SET", "unknown-key",
                       format("unknown key \"%s\" (%s); the service ignores it", key.c_str(),
                              at.c_str()),
                       hint.empty() ? "remove it" : hint);
        }
    }
}

// Keys written twice in one object: the reader keeps the last silently.
void lintDuplicateKeys(const RuleFile& file, Findings& out) {
    Json::CharReaderBuilder builder;
    builder["rejectDupKeys"] = true;
    builder["allowComments"] = true;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value ignored;
    std::string errors;
    const char* begin = file.text.data();
    if (reader->parse(begin, begin + file.text.size(), &ignored, &errors)) return;
    size_t at = errors.find("Duplicate key");
    if (at == std::string::npos) return;
    int place[2] = {0, 0};  // line, column
    scanInts(errors.c_str(), "* Line %d, Column %d", place);
    const int line = place[0];
    std::string what = errors.substr(at);
    what.resize(std::min(what.size(), what.find('\n')));
    addFinding(out, "SET", "duplicate-key",
               format("%s:%d: %s in one object; only the last one counts", file.path.c_str(),
                      line, what.c_str()),
               "merge the two into one key");
}

void lintAreas(RuleCheck& c, const std::set<unsigned int>& ids) {
    const Json::Value& root = c.file.root;
    if (c.file.bareArray) return;
    const char* const* keys = c.file.commandForm ? kCommandAreaKeys : kSetAreaKeys;
    for (int k = 0; k < 4; ++k) {
        const Json::Value& areas = root[keys[k]];
        if (!areas.isArray()) continue;
        for (Json::ArrayIndex i = 0; i < areas.size(); ++i) {
            unsigned int id = 0;
            if (!idOf(c.service, areas[i], id)) {
                addFinding(c.out, "SET", "area-without-id",
                           format("%s[%u] (%s) has no usable \"ID\"; the service skips it",
                                  keys[k], i, c.file.at(areas[i]).c_str()),
                           "an area is bound to the rule of the same id: give it that id");
                continue;
            }
            if (ids.count(id)) continue;
            addFinding(c.out, format("RULE %u", id), "area-without-rule",
                       format("%s names area %u (%s), and no rule has id %u", keys[k], id,
                              c.file.at(areas[i]).c_str(), id),
                       "an area guards the rule of the same id; check the id, or drop the area");
        }
    }
}

// The whole set, or the pushed command, as the platform puts it on the bus:
// one message, which carries at most platformpeer::kMaxPayload bytes.
void lintSize(const RuleFile& file, Findings& out) {
    size_t size = 0;
    const char* as = "the rule set the platform sends the service";
    if (file.commandForm) {
        Json::Value msg = file.root;
        msg["SOURCE"] = platformpeer::kSource;
        msg["CMD"] = platformpeer::kCmdAdd;
        size = platformpeer::toText(msg).size();
        as = "the command the platform sends";
    } else {
        size = platformpeer::toText(file.wholeSet).size();
    }
    if (size <= platformpeer::kMaxPayload) return;
    addFinding(out, "SET", "too-big",
               format("%s is %zu bytes, more than the %zu of one bus message: zelctl rules "
                      "push and the platform refuse it, and the service never gets it",
                      as, size, platformpeer::kMaxPayload),
               "the whole set reaches the service in one message: drop rules, or shorten "
               "them (no spaces, no keys the service ignores)");
}

}  // namespace

std::string suggestKey(const std::string& key) {
    std::string up = upper(key);
    for (const char* k : kRuleKeys)
        if (up == k) return format("keys are case-sensitive: write \"%s\"", k);
    for (const std::string& e : EVENT_NAME)
        if (up == upper(e))
            return format("event names are case-sensitive: write \"%s\"", e.c_str());
    if (up == "STARTTIME" || up == "START_TIME" || up == "START")
        return "the window's start is spelled \"STARTIME\" (one T)";
    if (up == "END_TIME" || up == "END") return "the window's end is \"ENDTIME\"";
    if (up.compare(0, 5, "J1939") == 0) {
        std::string digits;
        for (size_t i = 5; i < up.size(); ++i)
            if (isdigit(static_cast<unsigned char>(up[i]))) digits += up[i];
        // At most three digits: the number always fits.
        const int row = digits.empty() || digits.size() > 3
                            ? 999
                            : static_cast<int>(strtol(digits.c_str(), nullptr, 10));
        if (row > 63) return "J1939 events run from J19390 to J193963 (table rows 0..63)";
        return format("J1939 events are J1939 and the row with nothing between: \"J1939%d\"",
                      row);
    }
    if (up.compare(0, 6, "MOTION") == 0)
        return "motion events run from MOTION1 to MOTION16 (channels count from 1)";
    if (up.compare(0, 2, "IN") == 0 && up.size() <= 4 &&
        isdigit(static_cast<unsigned char>(up[up.size() - 1])))
        return "inputs run from IN1 to IN8";
    std::string best;
    size_t bestDistance = 3;
    auto consider = [&](const std::string& k) {
        size_t d = distance(up, upper(k));
        if (d < bestDistance) {
            bestDistance = d;
            best = k;
        }
    };
    for (const char* k : kRuleKeys) consider(k);
    for (const std::string& e : EVENT_NAME) consider(e);
    for (const char* k : kSetAreaKeys) consider(k);
    consider("DUMMY100");
    if (!best.empty()) return format("did you mean \"%s\"?", best.c_str());
    return std::string();
}

void lintRules(const RuleFile& file, const J1939Table* table, Findings& out,
               std::vector<RowUse>& uses) {
    harness::Harness h;
    h.start();
    RuleCheck c{file, h, h.service(), table, out, uses};

    lintSetKeys(file, out);
    lintDuplicateKeys(file, out);

    const Json::Value& rules = file.rules();
    const char* arrayKey = file.commandForm ? "DUMMY" : "DUMMY100";
    std::map<unsigned int, int> firstLine;  // id -> line of its first rule
    std::set<unsigned int> ids;
    const Json::ArrayIndex kChunk = 1024;
    std::vector<const Json::Value*> chunk;
    std::vector<ZelAlertPara_t> parsedChunk;
    size_t parsedNext = 0;  // the entry of m_ParaList the next kept rule has
    for (Json::ArrayIndex i = 0; i < rules.size(); ++i) {
        if (i % kChunk == 0) {
            chunk.clear();
            for (Json::ArrayIndex j = i; j < rules.size() && j < i + kChunk; ++j)
                if (rules[j].isObject()) chunk.push_back(&rules[j]);
            parseChunk(h, chunk, parsedChunk);
            parsedNext = 0;
        }
        const Json::Value& rule = rules[i];
        std::string at = file.at(rule);
        std::string index = format("RULE %s[%u]", arrayKey, i);
        if (!rule.isObject()) {
            addFinding(out, index, "not-a-rule",
                       format("%s is not an object (%s); the service skips it",
                              jsonText(rule).c_str(), at.c_str()),
                       "a rule is an object: {\"ID\": 7, \"SPEED\": {\"GT\": 60.0}}");
            continue;
        }
        unsigned int id = 0;
        if (!c.service.GetJsonID(rule, id)) {
            std::string written = rule.isMember("ID") ? "\"ID\" " + jsonText(rule["ID"]) +
                                                            " is not a whole number from 0"
                                                      : std::string("no \"ID\"");
            addFinding(out, index, "no-id",
                       format("%s (%s); the service drops the rule", written.c_str(), at.c_str()),
                       "give it \"ID\": a whole number, such as 7");
            continue;
        }
        std::string where = format("RULE %u", id);
        ids.insert(id);
        auto first = firstLine.find(id);
        if (first != firstLine.end()) {
            addFinding(out, where, "duplicate-id",
                       format("a second rule of id %u (%s; the first is at line %d)", id,
                              at.c_str(), first->second),
                       "both run and their alerts can't be told apart, and a delete or cover "
                       "of the id reaches only the first: give each rule its own id");
        } else {
            firstLine[id] = file.lineOf(rule);
        }
        for (const std::string& key : rule.getMemberNames()) {
            if (isKnownRuleKey(key)) continue;
            std::string hint = suggestKey(key);
            addFinding(out, where, "unknown-key",
                       format("unknown key \"%s\" (%s); the service ignores it", key.c_str(),
                              file.at(rule[key]).c_str()),
                       hint.empty() ? "remove it" : hint);
        }
        unsigned int atLeast = 0;
        if (rule.isMember("ATLEAST") && !c.service.GetJsonAtleast(rule, atLeast)) {
            addFinding(out, where, "bad-atleast",
                       format("\"ATLEAST\": %s (%s) is not a whole number of seconds; the "
                              "service takes 0, so the alert rises on the first pass",
                              jsonText(rule["ATLEAST"]).c_str(),
                              file.at(rule["ATLEAST"]).c_str()),
                       "write whole seconds, such as \"ATLEAST\": 5");
        }

        if (parsedNext >= parsedChunk.size() || parsedChunk[parsedNext].alertID != id) continue;
        const ZelAlertPara_t& parsed = parsedChunk[parsedNext++];
        lintTriggers(c, rule, parsed, where);
        if (parsed.triggers.empty()) {
            addFinding(out, where, "no-triggers",
                       format("no triggers (%s): the rule is on whenever its window and area "
                              "allow",
                              at.c_str()),
                       "add a trigger, unless an alert for the whole window is meant");
        }
        lintWindow(c, rule, where);
    }
    lintAreas(c, ids);
    h.stop();
}

Status runLint(const LintArgs& args, Findings& out, std::string& error) {
    out.clear();
    RuleFile file;
    Status s = loadRuleFile(args.rules, file, error);
    if (s != kClean) return s;
    J1939Table table;
    if (!args.table.empty()) {
        s = loadTable(args.table, table, error);
        if (s != kClean) return s;
    }
    std::vector<zelj1939::CanFrame> frames;
    if (!args.can.empty()) {
        if (args.table.empty()) {
            error = args.can + ": a CAN log is checked against a J1939 table: add --j1939";
            return kUnreadable;
        }
        s = loadCanLog(args.can, frames, error);
        if (s != kClean) return s;
    }
    std::vector<RowUse> uses;
    lintRules(file, args.table.empty() ? nullptr : &table, out, uses);
    lintSize(file, out);
    if (!args.table.empty()) lintTable(table, out);
    if (!frames.empty()) lintCan(table, frames, uses, out);
    return out.empty() ? kClean : kFound;
}

}  // namespace zelauthor
