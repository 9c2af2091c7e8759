// Lint of a rule's daily window: each bound through the service's own
// date-time parser, then the two bounds together as the alert pass reads
// them (time of day only, both ends included, no wrap past midnight, and a
// bound of all zeros meaning no window at all).
#include <stdio.h>
#include <string.h>

#include "RuleLintInternal.h"
#include "ScanInts.h"

namespace zelauthor {

namespace {

// The parser's refusal codes, as a rule author would put them.
const char* refusal(int code) {
    switch (code) {
        case 1: return "the text must be 11 to 19 characters long";
        case 2: return "the text must begin with a digit";
        case 3: return "the year must be 0 (no date) or 2001..2099";
        case 4: return "there is no '/' after the year";
        case 5: return "the month is above 12";
        case 6: return "there is no second '/'";
        case 7: return "the month has more than 2 digits";
        case 8: return "the day is above 31";
        case 9: return "there is no blank between the date and the time";
        case 10: return "the day has more than 2 digits";
        case 11: return "the hour must begin with a digit";
        case 12: return "there is no ':' after the hour";
        case 13: return "the hour is above 23";
        case 14: return "the hour has more than 2 digits";
        case 15: return "there is no second ':'";
        case 16: return "the minute is above 59";
        case 17: return "the minute has more than 2 digits";
        case 19: return "the second is above 59";
        case 20: return "more than 2 characters follow the second ':'";
        case 21: return "year 0 (no date) needs month 0";
        case 22: return "a year needs a month";
        case 23: return "month 0 needs day 0";
        case 24: return "a month needs a day";
        default: return "refused";
    }
}

enum BoundState { kAbsent, kIgnored, kRefused, kZero, kSet };

struct Bound {
    const char* key;
    BoundState state = kAbsent;
    std::string text;
    Common::_datetime_ dt;
    long seconds() const { return dt.hour * 3600L + dt.minute * 60L + dt.second; }
    std::string clock() const { return format("%02d:%02d:%02d", dt.hour, dt.minute, dt.second); }
};

bool allZero(const Common::_datetime_& dt) {
    return dt.year == 0 && dt.month == 0 && dt.day == 0 && dt.hour == 0 && dt.minute == 0 &&
           dt.second == 0;
}

// One bound through the service, as its parser hands it over: at most 31
// characters of the text.
void readBound(RuleCheck& c, const Json::Value& rule, const std::string& where, Bound& b) {
    memset(&b.dt, 0, sizeof b.dt);
    if (!rule.isMember(b.key) || rule[b.key].empty()) return;
    const Json::Value& v = rule[b.key];
    std::string at = c.file.at(v);
    if (!v.isString()) {
        b.state = kIgnored;
        addFinding(c.out, where, "window-not-text",
                   format("\"%s\": %s (%s) is not a text; the service ignores it", b.key,
                          jsonText(v).c_str(), at.c_str()),
                   format("write \"%s\": \"0/0/0 HH:MM:SS\"", b.key));
        return;
    }
    b.text = v.asString();
    char buffer[32];
    memset(buffer, 0, sizeof buffer);
    strncpy(buffer, b.text.c_str(), sizeof buffer - 1);
    c.h.clearLines();
    c.service.stringToDateTime(buffer, b.dt);
    int code = 0;
    for (const harness::DebugLine& l : c.h.lines())
        if (scanInts(l.text.c_str(), "==stringToDateTime,errcode[%d]", &code) == 1) break;
    if (code != 0) {
        b.state = kRefused;
        addFinding(c.out, where, "datetime-refused",
                   format("%s \"%s\" (%s) is refused by the service with code %d: %s; the rule "
                          "goes in without this bound",
                          b.key, b.text.c_str(), at.c_str(), code, refusal(code)),
                   "write year/month/day hour:minute:second, such as \"0/0/0 18:30:00\"");
        return;
    }
    b.state = allZero(b.dt) ? kZero : kSet;
    if (b.dt.year != 0) {
        addFinding(c.out, where, "window-date",
                   format("%s \"%s\" (%s) has a date, which the service ignores: the window "
                          "repeats every day",
                          b.key, b.text.c_str(), at.c_str()),
                   format("write \"0/0/0 %s\"", b.clock().c_str()));
    }
}

}  // namespace

void lintWindow(RuleCheck& c, const Json::Value& rule, const std::string& where) {
    Bound start;
    Bound end;
    start.key = "STARTIME";
    end.key = "ENDTIME";
    readBound(c, rule, where, start);
    readBound(c, rule, where, end);

    if (start.state == kSet && end.state == kSet) {
        if (start.seconds() > end.seconds()) {
            addFinding(c.out, where, "window-never",
                       format("the window %s to %s (%s) starts later in the day than it "
                              "ends, so it is never open (windows don't wrap past midnight)",
                              start.clock().c_str(), end.clock().c_str(),
                              c.file.at(rule["STARTIME"]).c_str()),
                       format("split it into two rules with their own ids: %s to 23:59:59, "
                              "and 00:00:01 to %s",
                              start.clock().c_str(), end.clock().c_str()));
        }
        return;
    }
    const Bound* set = start.state == kSet ? &start : end.state == kSet ? &end : nullptr;
    if (set == nullptr) return;
    const Bound& other = set == &start ? end : start;
    std::string why = other.state == kZero
                          ? format("%s \"%s\" is all zero, which means no bound", other.key,
                                   other.text.c_str())
                          : format("there is no usable %s", other.key);
    addFinding(c.out, where, "window-ignored",
               format("only %s %s (%s) counts as a bound (%s), and a window needs both, so the "
                      "rule holds all day",
                      set->key, set->clock().c_str(), c.file.at(rule[set->key]).c_str(),
                      why.c_str()),
               "give both bounds; midnight is 00:00:01 as a start and 23:59:59 as an end");
}

}  // namespace zelauthor
