// Lint of a rule's event members: the comparison written against the trigger
// the service's parser made of it, and thresholds that can never (or always)
// hold for the event's values.
#include <set>

#include "RuleLintInternal.h"

namespace zelauthor {

namespace {

const char* const kComparisons[3] = {"GT", "LT", "EQ"};

const uint32_t kPanic = 8;
const uint32_t kIgnition = 13;
const uint32_t kFirstJ1939 = 34;
const uint32_t kLastJ1939 = 97;

// Events that read 0.0 or 1.0 once they have a value.
bool isOnOff(uint32_t e) { return e <= kPanic || e == kIgnition || (e >= 18 && e <= 33); }
// Measured values, in fractions: speed, accelerometer, temperatures, voltage.
bool isMeasured(uint32_t e) { return (e >= 9 && e <= 11) || (e >= 14 && e <= 17); }

const char* onWord(uint32_t e) {
    if (e == kPanic) return "pressed";
    if (e >= 18) return "motion";
    return "on";
}

void lintOnOff(RuleCheck& c, const std::string& where, const std::string& at,
               const sInputTrigger& t) {
    const char* name = EVENT_NAME[t.Event].c_str();
    bool never = false;
    bool always = false;
    switch (t.Type) {
        case GT: never = t.Value >= 1.0; always = t.Value < 0.0; break;
        case LT: never = t.Value <= 0.0; always = t.Value > 1.0; break;
        case EQ: never = t.Value != 0.0 && t.Value != 1.0; break;
    }
    if (!never && !always) return;
    addFinding(c.out, where, never ? "never-true" : "always-true",
               format("%s %s %s (%s) is %s: %s reads 0.0 or 1.0", name, kComparisons[t.Type],
                      number(t.Value).c_str(), at.c_str(),
                      never ? "never true" : "true whatever the signal", name),
               format("write %s EQ 1.0 for %s, EQ 0.0 for off", name, onWord(t.Event)));
}

void lintJ1939(RuleCheck& c, const std::string& where, const std::string& at,
               const sInputTrigger& t) {
    uint32_t row = t.Event - kFirstJ1939;
    const char* name = EVENT_NAME[t.Event].c_str();
    c.uses.push_back(RowUse{row, t.Value, "rule " + where.substr(5), t.Type == GT});
    if (c.table == nullptr) return;
    const J1939Table& table = *c.table;
    std::string problem;
    if (row >= table.rows.size() || (table.binary && !table.rows[row].counts() &&
                                     table.rows[row].pgn == 0 && table.rows[row].length == 0)) {
        problem = format("%s reads table row %u, which %s doesn't fill", name, row,
                         table.path.c_str());
    } else if (!table.rows[row].counts() || table.rows[row].pgn > 0xffff) {
        problem = format("%s reads table row %u, which the service never feeds (see TABLE row %u)",
                         name, row, row);
    } else {
        int fed = table.rowFedBy(static_cast<uint32_t>(table.rows[row].pgn));
        if (fed == static_cast<int>(row)) return;
        problem = format("%s reads table row %u, whose group %llu goes to row %d first", name,
                         row, static_cast<unsigned long long>(table.rows[row].pgn), fed);
    }
    addFinding(c.out, where, "j1939-row-unfed",
               problem + " (" + at + "): the trigger is never true",
               "row n of the table is event J1939n, counted from 0: check the event's number "
               "against the table");
}

void lintComparisonKeys(RuleCheck& c, const Json::Value& event, const std::string& name,
                        const std::string& where) {
    for (const std::string& key : event.getMemberNames()) {
        if (key == "GT" || key == "LT" || key == "EQ") continue;
        std::string up = key;
        for (char& ch : up) ch = static_cast<char>(toupper(static_cast<unsigned char>(ch)));
        std::string advice =
            up == "GT" || up == "LT" || up == "EQ"
                ? format("comparisons are upper case: \"%s\"", up.c_str())
            : up == "GE" || up == "LE" || up == "GTE" || up == "LTE" || up == "NE"
                ? std::string("the comparisons are GT, LT (both exclude the threshold) and EQ")
                : std::string("use GT, LT or EQ");
        addFinding(c.out, where, "unknown-key",
                   format("\"%s\" in %s (%s) is not a comparison; the service ignores it",
                          key.c_str(), name.c_str(), c.file.at(event[key]).c_str()),
                   advice);
    }
}

}  // namespace

void lintTriggers(RuleCheck& c, const Json::Value& rule, const ZelAlertPara_t& parsed,
                  const std::string& where) {
    for (uint32_t k = 0; k < static_cast<uint32_t>(kEventCount); ++k) {
        const std::string& name = EVENT_NAME[k];
        if (!rule.isMember(name)) continue;
        const Json::Value& event = rule[name];
        std::string at = c.file.at(event);
        if (event.empty()) {
            addFinding(c.out, where, "empty-event",
                       format("\"%s\": %s (%s) is empty and gives no trigger", name.c_str(),
                              jsonText(event).c_str(), at.c_str()),
                       "give it a comparison, such as {\"GT\": 60.0}, or remove it");
            continue;
        }
        const sInputTrigger* t = nullptr;
        for (const sInputTrigger& each : parsed.triggers)
            if (each.Event == k) t = &each;
        if (t == nullptr) continue;
        // The service's accessors, in its order: none usable, and it takes GT 0.0.
        double ignored = 0;
        bool defaulted = !c.service.GetJsonGT(event, ignored) &&
                         !c.service.GetJsonLT(event, ignored) &&
                         !c.service.GetJsonEQ(event, ignored);
        std::string taken =
            defaulted ? format("the trigger reads as GT 0.0 (the service logs \"EventName[%u] "
                               "not GT LT EQ\")",
                               k)
                      : format("%s %s decides instead", kComparisons[t->Type],
                               number(t->Value).c_str());
        if (!event.isObject()) {
            std::string example = event.isNumeric() ? number(event.asDouble()) : "60.0";
            addFinding(c.out, where, "not-a-comparison",
                       format("\"%s\": %s (%s) is not an object with a comparison; %s",
                              name.c_str(), jsonText(event).c_str(), at.c_str(), taken.c_str()),
                       format("write \"%s\": {\"GT\": %s}", name.c_str(), example.c_str()));
            continue;
        }
        int written = 0;
        int usable = 0;
        std::string usableText;
        for (const char* key : kComparisons) {
            if (!event.isMember(key)) continue;
            ++written;
            const Json::Value& v = event[key];
            std::string vat = c.file.at(v);
            if (v.type() == Json::realValue) {
                usableText += (usable++ ? " and " : "") + std::string(key) + " " +
                              number(v.asDouble());
            } else if (v.isIntegral()) {
                addFinding(c.out, where, "integer-threshold",
                           format("%s \"%s\": %s (%s) is a whole number, which the service "
                                  "doesn't take as a threshold; %s",
                                  name.c_str(), key, jsonText(v).c_str(), vat.c_str(),
                                  taken.c_str()),
                           format("write %s", number(v.asDouble()).c_str()));
            } else {
                addFinding(c.out, where, "not-a-number",
                           format("%s \"%s\": %s (%s) is not a number; %s", name.c_str(), key,
                                  jsonText(v).c_str(), vat.c_str(), taken.c_str()),
                           "write a number without quotes, with a decimal point: 60.0");
            }
        }
        if (written == 0) {
            std::string found;
            for (const std::string& key : event.getMemberNames())
                found += (found.empty() ? " (it has \"" : ", \"") + key + "\"";
            if (!found.empty()) found += ")";
            addFinding(c.out, where, "no-comparison",
                       format("%s (%s) has no \"GT\", \"LT\" or \"EQ\"%s; %s", name.c_str(),
                              at.c_str(), found.c_str(), taken.c_str()),
                       "a comparison is GT, LT or EQ, upper case, with a real number: "
                       "{\"GT\": 60.0}");
        } else {
            lintComparisonKeys(c, event, name, where);
        }
        if (usable > 1) {
            addFinding(c.out, where, "several-comparisons",
                       format("%s (%s) has %s; only %s %s counts (GT, then LT, then EQ)",
                              name.c_str(), at.c_str(), usableText.c_str(),
                              kComparisons[t->Type], number(t->Value).c_str()),
                       "one comparison per event: a band between two values can't be "
                       "written in one rule");
        }
        if (defaulted) continue;
        if (isOnOff(k)) lintOnOff(c, where, at, *t);
        if (isMeasured(k) && t->Type == EQ && t->Value != 0.0) {
            addFinding(c.out, where, "exact-equal",
                       format("%s EQ %s (%s) holds only at exactly that value, which a "
                              "measured %s seldom has",
                              name.c_str(), number(t->Value).c_str(), at.c_str(), name.c_str()),
                       "compare with GT or LT");
        }
        if (k >= kFirstJ1939 && k <= kLastJ1939) lintJ1939(c, where, at, *t);
    }
}

}  // namespace zelauthor
