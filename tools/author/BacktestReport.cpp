#include "BacktestReport.h"

#include <errno.h>
#include <math.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>

#include <json/json.h>

#include "CommandLine.h"

namespace zelauthor {

namespace {

// A time as reported: to the millisecond, so that the text of the same run
// is the same everywhere.
double ms(double s) { return round(s * 1000) / 1000; }

// Pairs each alert of `now` with the old one of its rule nearest in time.
void diffDrive(const DriveResult& d, std::vector<Change>& out) {
    std::map<uint32_t, std::vector<double>> before;
    std::map<uint32_t, std::vector<double>> after;
    for (const DriveAlert& a : d.old) before[a.alert].push_back(a.began);
    for (const DriveAlert& a : d.alerts) after[a.alert].push_back(a.began);
    std::set<uint32_t> ids;
    for (const auto& e : before) ids.insert(e.first);
    for (const auto& e : after) ids.insert(e.first);
    for (uint32_t id : ids) {
        std::vector<double>& o = before[id];
        const std::vector<double>& n = after[id];
        std::vector<bool> used(o.size(), false);
        for (double at : n) {
            size_t best = o.size();
            for (size_t k = 0; k < o.size(); ++k)
                if (!used[k] && (best == o.size() || fabs(o[k] - at) < fabs(o[best] - at))) best = k;
            if (best == o.size()) {
                out.push_back(Change{d.file, id, "appears", -1, at});
                continue;
            }
            used[best] = true;
            if (ms(at) != ms(o[best]))
                out.push_back(Change{d.file, id, at < o[best] ? "earlier" : "later", o[best], at});
        }
        for (size_t k = 0; k < o.size(); ++k)
            if (!used[k]) out.push_back(Change{d.file, id, "vanishes", o[k], -1});
    }
}

}  // namespace

double alertSeconds(const DriveAlert& a, double driveSeconds) {
    return (a.ended >= 0 ? a.ended : driveSeconds) - a.began;
}

Report makeReport(const std::vector<DriveResult>& drives, const RuleFile& rules, double flap,
                  bool diff) {
    Report r;
    r.drives = drives;
    r.flap = flap;
    r.diff = diff;
    std::map<uint32_t, size_t> at;
    for (const Json::Value& rule : rules.wholeSet["DUMMY100"]) {
        if (!rule.isObject() || !rule["ID"].isUInt() || at.count(rule["ID"].asUInt())) continue;
        at[rule["ID"].asUInt()] = r.rules.size();
        RuleSummary s;
        s.alert = rule["ID"].asUInt();
        r.rules.push_back(s);
    }
    std::set<uint32_t> read;
    for (const DriveResult& d : drives) {
        read.insert(d.read.begin(), d.read.end());
        std::set<uint32_t> raised;
        for (const DriveAlert& a : d.alerts) {
            if (!at.count(a.alert)) {
                at[a.alert] = r.rules.size();
                r.rules.emplace_back();
                r.rules.back().alert = a.alert;
            }
            RuleSummary& s = r.rules[at[a.alert]];
            double t = alertSeconds(a, d.seconds);
            s.count++;
            s.seconds += t;
            s.longest = std::max(s.longest, t);
            if (a.ended >= 0 && t < flap) s.flaps++;
            if (raised.insert(a.alert).second) s.drives++;
        }
        if (diff) diffDrive(d, r.changes);
    }
    for (const RuleSummary& s : r.rules)
        if (!read.count(s.alert)) r.unread.push_back(s.alert);
    return r;
}

void printReport(FILE* f, const Report& r) {
    fprintf(f, "backtest: %zu drive%s\n\nper rule:\n  %8s %7s %7s %10s %10s %6s\n",
            r.drives.size(), r.drives.size() == 1 ? "" : "s", "alert", "drives", "alerts",
            "seconds", "longest", "flaps");
    for (const RuleSummary& s : r.rules)
        fprintf(f, "  %8u %7zu %7zu %10.1f %10.1f %6zu\n", s.alert, s.drives, s.count, s.seconds,
                s.longest, s.flaps);
    if (!r.unread.empty()) {
        fprintf(f, "never got a reading:");
        for (uint32_t id : r.unread) fprintf(f, " %u", id);
        fprintf(f, "\n");
    }
    fprintf(f, "\nper drive (seconds from its start):\n");
    for (const DriveResult& d : r.drives) {
        fprintf(f, "  %s: %s\n", d.file.c_str(),
                !d.error.empty() ? "not run" : d.alerts.empty() ? "no alert" : "");
        for (const DriveAlert& a : d.alerts) {
            if (a.ended >= 0)
                fprintf(f, "    alert %u  began %.1f  ended %.1f  since %.1f\n", a.alert, a.began,
                        a.ended, a.since);
            else
                fprintf(f, "    alert %u  began %.1f  still running  since %.1f\n", a.alert,
                        a.began, a.since);
        }
    }
    if (!r.diff) return;
    fprintf(f, "\nchanges from the old rule set:\n");
    if (r.changes.empty()) fprintf(f, "  none\n");
    for (const Change& c : r.changes) {
        if (c.change == "appears")
            fprintf(f, "  %s: alert %u appears at %.1f\n", c.file.c_str(), c.alert, c.newAt);
        else if (c.change == "vanishes")
            fprintf(f, "  %s: alert %u at %.1f vanishes\n", c.file.c_str(), c.alert, c.oldAt);
        else
            fprintf(f, "  %s: alert %u begins %s, at %.1f instead of %.1f\n", c.file.c_str(),
                    c.alert, c.change.c_str(), c.newAt, c.oldAt);
    }
}

bool writeJsonReport(const std::string& path, const Report& r, std::string& error) {
    Json::Value root(Json::objectValue);
    root["drives"] = Json::Value(Json::arrayValue);
    for (const DriveResult& d : r.drives) {
        Json::Value drive(Json::objectValue);
        drive["file"] = d.file;
        drive["alerts"] = Json::Value(Json::arrayValue);
        for (const DriveAlert& a : d.alerts) {
            Json::Value v(Json::objectValue);
            v["alert"] = a.alert;
            v["began"] = ms(a.began);
            v["ended"] = a.ended >= 0 ? Json::Value(ms(a.ended)) : Json::Value();
            v["since"] = ms(a.since);
            drive["alerts"].append(v);
        }
        if (!d.error.empty()) drive["error"] = d.error;
        root["drives"].append(drive);
    }
    root["rules"] = Json::Value(Json::arrayValue);
    for (const RuleSummary& s : r.rules) {
        Json::Value v(Json::objectValue);
        v["alert"] = s.alert;
        v["drives"] = static_cast<Json::UInt64>(s.drives);
        v["count"] = static_cast<Json::UInt64>(s.count);
        v["seconds"] = ms(s.seconds);
        v["longest"] = ms(s.longest);
        v["flaps"] = static_cast<Json::UInt64>(s.flaps);
        root["rules"].append(v);
    }
    root["unread"] = Json::Value(Json::arrayValue);
    for (uint32_t id : r.unread) root["unread"].append(id);
    if (r.diff) {
        root["changes"] = Json::Value(Json::arrayValue);
        for (const Change& c : r.changes) {
            Json::Value v(Json::objectValue);
            v["file"] = c.file;
            v["alert"] = c.alert;
            v["change"] = c.change;
            v["old"] = c.oldAt >= 0 ? Json::Value(ms(c.oldAt)) : Json::Value();
            v["new"] = c.newAt >= 0 ? Json::Value(ms(c.newAt)) : Json::Value();
            root["changes"].append(v);
        }
    }
    std::ofstream out(path, std::ios::binary);
    out << Json::StyledWriter().write(root);
    out.close();
    if (!out) error = path + ": " + cli::errorText(errno);
    return static_cast<bool>(out);
}

bool writeCsvReport(const std::string& path, const Report& r, std::string& error) {
    std::ofstream out(path, std::ios::binary);
    out << "file,alert,began,ended,since,seconds\n";
    char buf[128];
    for (const DriveResult& d : r.drives) {
        for (const DriveAlert& a : d.alerts) {
            snprintf(buf, sizeof buf, ",%u,%.3f,%s,%.3f,%.3f\n", a.alert, a.began,
                     a.ended >= 0 ? std::to_string(ms(a.ended)).c_str() : "", a.since,
                     alertSeconds(a, d.seconds));
            std::string file = d.file;
            if (file.find_first_of(",\"") != std::string::npos) {
                std::string q = "\"";
                for (char ch : file) q += ch == '"' ? std::string("\"\"") : std::string(1, ch);
                file = q + "\"";
            }
            out << file << buf;
        }
    }
    out.close();
    if (!out) error = path + ": " + cli::errorText(errno);
    return static_cast<bool>(out);
}

}  // namespace zelauthor
