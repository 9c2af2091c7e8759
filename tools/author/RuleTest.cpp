#include "RuleTest.h"

#include <errno.h>
#include <math.h>
#include <string.h>

#include <chrono>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <json/json.h>

#include "CommandLine.h"
#include "DriveRun.h"
#include "PlatformRules.h"
#include "RuleFile.h"
#include "Scenario.h"

namespace zelauthor {

namespace {

const double kDefaultWithin = 1.0;
const double kDefaultTail = 10.0;

struct Expectation {
    uint32_t alert;
    double began;
    bool checkEnded = false;
    double ended = -1;  // below 0: still running
    bool checkSince = false;
    double since = 0;
    double within = kDefaultWithin;
};

// What a case is made of, with its files resolved.
struct Case {
    std::string name, rules, table, clock, scenario, can;
    std::vector<std::string> steps;
    bool hasSteps = false;
    double until = -1;
    std::vector<Expectation> expect;
    std::set<uint32_t> never;
};

std::string folderOf(const std::string& path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string resolve(const std::string& dir, const std::string& name) {
    if (name.empty() || name[0] == '/' || dir.empty()) return name;
    return dir + "/" + name;
}

std::string seconds(double s) {
    if (s < 0) return "still running";
    char buf[32];
    snprintf(buf, sizeof buf, "%.1f s", s);
    return buf;
}

bool onlyKeys(const Json::Value& v, const std::set<std::string>& keys, const std::string& where,
              std::string& error) {
    for (const std::string& k : v.getMemberNames()) {
        if (keys.count(k)) continue;
        error = std::string(where).append(": unknown key \"").append(k).append("\"");
        return false;
    }
    return true;
}

bool readExpectation(const Json::Value& v, const std::string& where, Expectation& e,
                     std::string& error) {
    if (!v.isObject()) {
        error = where + ": an expectation is an object such as {\"alert\": 7, \"began\": 8}";
        return false;
    }
    if (!onlyKeys(v, {"alert", "began", "ended", "since", "within"}, where, error)) return false;
    if (!v["alert"].isUInt() || !v["began"].isNumeric()) {
        error = where + ": \"alert\" (an id) and \"began\" (seconds) are needed";
        return false;
    }
    e.alert = v["alert"].asUInt();
    e.began = v["began"].asDouble();
    if (v.isMember("ended")) {
        e.checkEnded = true;
        if (v["ended"].isNumeric()) e.ended = v["ended"].asDouble();
        else if (!v["ended"].isNull()) {
            error = where + ": \"ended\" is seconds or null (still running)";
            return false;
        }
    }
    if (v.isMember("since")) {
        e.checkSince = true;
        if (!v["since"].isNumeric()) {
            error = where + ": \"since\" is seconds";
            return false;
        }
        e.since = v["since"].asDouble();
    }
    if (v.isMember("within")) {
        if (!v["within"].isNumeric() || v["within"].asDouble() < 0) {
            error = where + ": \"within\" is seconds, 0 or more";
            return false;
        }
        e.within = v["within"].asDouble();
    }
    if (e.began < 0 || (e.checkEnded && e.ended >= 0 && e.ended < e.began)) {
        error = where + ": \"began\" is 0 or more and \"ended\" no earlier";
        return false;
    }
    return true;
}

// A string member, resolved against `dir`; the default when absent.
bool pathMember(const Json::Value& v, const char* key, const std::string& dir,
                const std::string& where, std::string& out, std::string& error) {
    if (!v.isMember(key)) return true;
    if (!v[key].isString()) {
        error = where + ": \"" + key + "\" is a file name";
        return false;
    }
    out = resolve(dir, v[key].asString());
    return true;
}

bool readCase(const Json::Value& v, const std::string& dir, const Case& defaults,
              const std::string& where, Case& c, std::string& error) {
    c = defaults;
    if (!v.isObject()) {
        error = where + ": a case is an object";
        return false;
    }
    if (!onlyKeys(v, {"name", "rules", "j1939", "clock", "steps", "scenario", "can", "until",
                      "expect", "never"},
                  where, error))
        return false;
    if (!v["name"].isString() || v["name"].asString().empty()) {
        error = where + ": \"name\" is needed";
        return false;
    }
    c.name = v["name"].asString();
    std::string at = where + " (" + c.name + ")";
    if (!pathMember(v, "rules", dir, at, c.rules, error) ||
        !pathMember(v, "j1939", dir, at, c.table, error) ||
        !pathMember(v, "scenario", dir, at, c.scenario, error) ||
        !pathMember(v, "can", dir, at, c.can, error))
        return false;
    if (v.isMember("clock")) {
        if (!v["clock"].isString()) {
            error = at + ": \"clock\" is text such as \"2026/11/23 19:00:00\"";
            return false;
        }
        c.clock = v["clock"].asString();
    }
    if (v.isMember("steps")) {
        c.hasSteps = true;
        if (!v["steps"].isArray()) {
            error = at + ": \"steps\" is an array of scenario lines";
            return false;
        }
        for (const Json::Value& s : v["steps"]) {
            if (!s.isString()) {
                error = at + ": each step is a scenario line such as \"3 speed 70 mph\"";
                return false;
            }
            c.steps.push_back(s.asString());
        }
    }
    int inputs = (c.hasSteps ? 1 : 0) + (c.scenario.empty() ? 0 : 1) + (c.can.empty() ? 0 : 1);
    if (inputs != 1) {
        error = at + ": one of \"steps\", \"scenario\" and \"can\" is needed";
        return false;
    }
    if (c.rules.empty()) {
        error = at + ": no \"rules\", for the case or the file";
        return false;
    }
    if (v.isMember("until")) {
        if (!v["until"].isNumeric() || v["until"].asDouble() < 0) {
            error = at + ": \"until\" is seconds";
            return false;
        }
        c.until = v["until"].asDouble();
    }
    const Json::Value& expect = v["expect"];
    if (!expect.isNull() && !expect.isArray()) {
        error = at + ": \"expect\" is an array";
        return false;
    }
    for (Json::ArrayIndex i = 0; i < expect.size(); ++i) {
        Expectation e;
        if (!readExpectation(expect[i], at + " expect[" + std::to_string(i) + "]", e, error))
            return false;
        c.expect.push_back(e);
    }
    const Json::Value& never = v["never"];
    if (!never.isNull() && !never.isArray()) {
        error = at + ": \"never\" is an array of alert ids";
        return false;
    }
    for (const Json::Value& id : never) {
        if (!id.isUInt()) {
            error = at + ": \"never\" is an array of alert ids";
            return false;
        }
        c.never.insert(id.asUInt());
    }
    return true;
}

// Runs the case's drive; kClean with its episodes, or why it could not run.
Status runDrive(const Case& c, const std::string& dir, std::vector<Episode>& episodes,
                std::string& error) {
    RuleFile rules;
    Status s = loadRuleFile(c.rules, rules, error);
    if (s != kClean) return s;
    int clock[6] = {2026, 3, 5, 12, 0, 0};
    if (!c.clock.empty() && !parseDeviceClock(c.clock, clock)) {
        error = "clock " + c.clock + ": expected HH:MM:SS or YYYY/MM/DD HH:MM:SS";
        return kFound;
    }
    std::vector<zelscenario::Step> steps;
    if (!c.table.empty()) {
        zelscenario::Step table;
        s = loadTableStep(c.table, table, error);
        if (s != kClean) return s;
        steps.push_back(table);
    }
    std::vector<zelscenario::Step> played;
    if (c.hasSteps) {
        std::string text;
        for (const std::string& line : c.steps) text += line + "\n";
        std::istringstream in(text);
        if (!zelscenario::parseScenario(in, "steps", dir, played, error)) return kFound;
    } else if (!c.scenario.empty()) {
        if (!zelscenario::loadScenario(c.scenario, played, error)) return kFound;
    }
    steps.insert(steps.end(), played.begin(), played.end());
    DriveRun run(wholeSetText(rules), clock);
    double last = 0;
    for (const zelscenario::Step& step : steps) {
        run.play(step);
        last = std::max(last, step.at);
    }
    if (!c.can.empty()) {
        s = playCanLog(c.can, run, last, error);
        if (s != kClean) return s;
    }
    run.runUntil(c.until >= 0 ? c.until : last + kDefaultTail);
    episodes = run.episodes();
    return kClean;
}

void judge(const Case& c, const std::vector<Episode>& episodes, CaseResult& r) {
    std::map<uint32_t, std::vector<Episode>> seen;
    for (const Episode& e : episodes) seen[e.id].push_back(e);
    std::map<uint32_t, std::vector<bool>> used;
    for (const auto& entry : seen) used[entry.first].assign(entry.second.size(), false);
    std::set<uint32_t> expected;
    char buf[256];
    for (const Expectation& x : c.expect) {
        expected.insert(x.alert);
        const std::vector<Episode>& list = seen[x.alert];
        std::vector<bool>& taken = used[x.alert];
        taken.resize(list.size(), false);
        size_t k = 0;
        while (k < list.size() && (taken[k] || fabs(list[k].rose - x.began) > x.within)) ++k;
        if (k == list.size()) {
            std::string began;
            for (const Episode& e : list) began += (began.empty() ? "" : ", ") + seconds(e.rose);
            snprintf(buf, sizeof buf, "alert %u: expected to begin at %.1f s (within %.1f s); %s",
                     x.alert, x.began, x.within,
                     began.empty() ? "it never began" : ("it began at " + began).c_str());
            r.failures.emplace_back(buf);
            continue;
        }
        taken[k] = true;
        const Episode& e = list[k];
        bool endOk = x.ended < 0 ? e.ended < 0 : e.ended >= 0 && fabs(e.ended - x.ended) <= x.within;
        if (x.checkEnded && !endOk) {
            snprintf(buf, sizeof buf, "alert %u (began %.1f s): expected to end %s%s; ended %s",
                     x.alert, e.rose, x.ended < 0 ? "" : "at ", seconds(x.ended).c_str(),
                     e.ended < 0 ? "never (still running)" : ("at " + seconds(e.ended)).c_str());
            r.failures.emplace_back(buf);
        }
        if (x.checkSince && fabs(e.heldSince - x.since) > x.within) {
            snprintf(buf, sizeof buf,
                     "alert %u (began %.1f s): expected its record to say since %.1f s; it says %.1f s",
                     x.alert, e.rose, x.since, e.heldSince);
            r.failures.emplace_back(buf);
        }
    }
    for (uint32_t id : expected) {
        const std::vector<Episode>& list = seen[id];
        for (size_t k = 0; k < list.size(); ++k) {
            if (used[id][k]) continue;
            snprintf(buf, sizeof buf, "alert %u: began at %.1f s, not expected", id, list[k].rose);
            r.failures.emplace_back(buf);
        }
    }
    for (uint32_t id : c.never) {
        for (const Episode& e : seen[id]) {
            snprintf(buf, sizeof buf, "alert %u: must never begin; it began at %.1f s", id, e.rose);
            r.failures.emplace_back(buf);
        }
    }
    r.passed = r.failures.empty();
}

std::string xmlEscape(const std::string& s) {
    std::string out;
    for (char ch : s) {
        switch (ch) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += ch;
        }
    }
    return out;
}

}  // namespace

Status runTestFile(const std::string& path, std::vector<CaseResult>& out, std::string& error) {
    Json::Value root;
    std::string text;
    if (!platformpeer::readFile(path, text, error)) return kUnreadable;
    if (!platformpeer::parseJson(path, text, root, error)) return kUnreadable;
    if (!root.isObject() || !root["cases"].isArray() || root["cases"].empty()) {
        error = path + ": expected an object with a non-empty \"cases\" array";
        return kUnreadable;
    }
    if (!onlyKeys(root, {"rules", "j1939", "clock", "cases"}, path, error)) return kUnreadable;
    std::string dir = folderOf(path);
    Case defaults;
    if (!pathMember(root, "rules", dir, path, defaults.rules, error) ||
        !pathMember(root, "j1939", dir, path, defaults.table, error))
        return kUnreadable;
    if (root.isMember("clock")) {
        if (!root["clock"].isString()) {
            error = path + ": \"clock\" is text such as \"2026/11/23 19:00:00\"";
            return kUnreadable;
        }
        defaults.clock = root["clock"].asString();
    }
    // Every case is read before any runs: a file with a broken case runs none.
    std::vector<Case> cases;
    for (Json::ArrayIndex i = 0; i < root["cases"].size(); ++i) {
        Case c;
        std::string where = path + ": case " + std::to_string(i + 1);
        if (!readCase(root["cases"][i], dir, defaults, where, c, error)) return kUnreadable;
        cases.push_back(c);
    }
    for (const Case& c : cases) {
        CaseResult r;
        r.file = path;
        r.name = c.name;
        auto start = std::chrono::steady_clock::now();
        std::vector<Episode> episodes;
        if (runDrive(c, dir, episodes, error) != kClean) {
            error =
                std::string(path).append(": case \"").append(c.name).append("\": ").append(error);
            return kUnreadable;
        }
        judge(c, episodes, r);
        r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        out.push_back(r);
    }
    return kClean;
}

bool writeJunit(const std::string& path, const std::vector<CaseResult>& results,
                std::string& error) {
    std::map<std::string, std::vector<const CaseResult*>> suites;
    size_t failures = 0;
    for (const CaseResult& r : results) {
        suites[r.file].push_back(&r);
        failures += r.passed ? 0 : 1;
    }
    std::ostringstream x;
    x << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      << "<testsuites name=\"zel-author test\" tests=\"" << results.size() << "\" failures=\""
      << failures << "\">\n";
    for (const auto& suite : suites) {
        size_t failed = 0;
        double time = 0;
        for (const CaseResult* r : suite.second) {
            failed += r->passed ? 0 : 1;
            time += r->seconds;
        }
        x << "  <testsuite name=\"" << xmlEscape(suite.first) << "\" tests=\""
          << suite.second.size() << "\" failures=\"" << failed << "\" errors=\"0\" time=\""
          << time << "\">\n";
        for (const CaseResult* r : suite.second) {
            x << "    <testcase classname=\"" << xmlEscape(suite.first) << "\" name=\""
              << xmlEscape(r->name) << "\" time=\"" << r->seconds << "\"";
            if (r->passed) {
                x << "/>\n";
                continue;
            }
            x << ">\n      <failure message=\"" << xmlEscape(r->failures.front()) << "\">";
            for (const std::string& f : r->failures) x << xmlEscape(f) << "\n";
            x << "</failure>\n    </testcase>\n";
        }
        x << "  </testsuite>\n";
    }
    x << "</testsuites>\n";
    std::ofstream out(path, std::ios::binary);
    out << x.str();
    out.close();
    if (!out) {
        error = path + ": " + cli::errorText(errno);
        return false;
    }
    return true;
}

void testUsage(FILE* out) {
    fprintf(out, "usage: zel-author test TESTS.json... [--junit REPORT.xml]\n"
            "\n"
            "Runs each case of each test file through the service's own code and\n"
            "checks the alerts it raises against the case's expectations. One line\n"
            "per case; a failure lists what was expected against what was seen.\n"
            "--junit writes a JUnit XML report.\n"
            "\n"
            "exit status: 0 every case passed; 1 a case failed; 2 a file is unusable.\n");
}

int testMain(int argc, char** argv) {
    std::vector<std::string> files;
    std::string junit;
    for (int i = 0; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--help" || a == "-h") {
            testUsage(stdout);
            return 0;
        }
        if (a == "--junit") {
            if (i + 1 >= argc) {
                fprintf(stderr, "zel-author test: --junit needs a file name\n");
                return 2;
            }
            junit = argv[++i];
        } else if (!a.empty() && a[0] == '-') {
            fprintf(stderr, "zel-author test: unknown option %s (see zel-author test --help)\n",
                    a.c_str());
            return 2;
        } else {
            files.push_back(a);
        }
    }
    if (files.empty()) {
        fprintf(stderr, "zel-author test: no test file given (see zel-author test --help)\n");
        return 2;
    }
    std::vector<CaseResult> results;
    for (const std::string& f : files) {
        std::string error;
        if (runTestFile(f, results, error) != kClean) {
            fprintf(stderr, "zel-author test: %s\n", error.c_str());
            return 2;
        }
    }
    size_t failed = 0;
    for (const CaseResult& r : results) {
        printf("%s  %s: %s\n", r.passed ? "pass" : "FAIL", r.file.c_str(), r.name.c_str());
        for (const std::string& f : r.failures) printf("      %s\n", f.c_str());
        failed += r.passed ? 0 : 1;
    }
    printf("%zu case%s, %zu failed\n", results.size(), results.size() == 1 ? "" : "s", failed);
    if (!junit.empty()) {
        std::string error;
        if (!writeJunit(junit, results, error)) {
            fprintf(stderr, "zel-author test: %s\n", error.c_str());
            return 2;
        }
    }
    return failed ? 1 : 0;
}

}  // namespace zelauthor
