#include "Backtest.h"

#include <dirent.h>
#include <errno.h>
#include <math.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <sstream>

#include "BacktestReport.h"
#include "CommandLine.h"
#include "DriveRun.h"
#include "RuleFile.h"
#include "Scenario.h"

namespace zelauthor {

namespace {

struct Options {
    std::string rules, old, table, clock, json, csv;
    std::vector<std::string> drives;
    int jobs = 0;
    double flap = 10;
};

bool endsWith(const std::string& s, const char* tail) {
    size_t n = strlen(tail);
    return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

// The drives named: files as given, folders as the .log and .scn files in
// them, by name.
bool expandDrives(const std::vector<std::string>& names, std::vector<std::string>& out,
                  std::string& error) {
    for (const std::string& name : names) {
        struct stat st;
        if (stat(name.c_str(), &st) != 0) {
            error = name + ": " + cli::errorText(errno);
            return false;
        }
        if (!S_ISDIR(st.st_mode)) {
            out.push_back(name);
            continue;
        }
        DIR* d = opendir(name.c_str());
        if (d == nullptr) {
            error = name + ": " + cli::errorText(errno);
            return false;
        }
        std::vector<std::string> found;
        while (dirent* e = readdir(d)) {
            std::string f = e->d_name;
            if (f[0] != '.' && (endsWith(f, ".log") || endsWith(f, ".scn")))
                found.push_back(std::string(name).append(endsWith(name, "/") ? "" : "/").append(f));
        }
        closedir(d);
        std::sort(found.begin(), found.end());
        if (found.empty()) {
            error = name + ": no .log or .scn file in it";
            return false;
        }
        out.insert(out.end(), found.begin(), found.end());
    }
    return true;
}

// One rule set over one drive; the drive's alerts and the rules that read.
bool runOne(const std::string& rulesText, const int clock[6], const zelscenario::Step* table,
            const std::string& drive, std::vector<DriveAlert>& alerts, std::set<uint32_t>& read,
            double& seconds, std::string& error) {
    DriveRun run(rulesText, clock);
    if (table) run.play(*table);
    double last = 0;
    if (endsWith(drive, ".scn")) {
        std::vector<zelscenario::Step> steps;
        if (!zelscenario::loadScenario(drive, steps, error)) return false;
        for (const zelscenario::Step& s : steps) {
            run.play(s);
            last = std::max(last, s.at);
        }
    } else if (playCanLog(drive, run, last, error) != kClean) {
        return false;
    }
    run.runUntil(last + kTailSeconds);
    seconds = run.now();
    for (const Episode& e : run.episodes())
        alerts.push_back(DriveAlert{e.id, e.rose, e.ended, e.heldSince});
    read = run.rulesRead();
    return true;
}

// What a worker sends back for drive `index`: a line per item, tab-separated.
void sendResult(FILE* out, size_t index, const DriveResult& r) {
    if (!r.error.empty()) {
        std::string e = r.error;
        std::replace(e.begin(), e.end(), '\n', ' ');
        fprintf(out, "E\t%zu\t%s\n", index, e.c_str());
        return;
    }
    for (int set = 0; set < 2; ++set) {
        for (const DriveAlert& a : set ? r.old : r.alerts)
            fprintf(out, "A\t%zu\t%d\t%u\t%.17g\t%.17g\t%.17g\n", index, set, a.alert, a.began,
                    a.ended, a.since);
        for (uint32_t id : set ? r.oldRead : r.read) fprintf(out, "R\t%zu\t%d\t%u\n", index, set, id);
    }
    fprintf(out, "D\t%zu\t%.17g\n", index, r.seconds);
    fflush(out);
}

void receiveLine(const std::string& line, std::vector<DriveResult>& results, size_t& done) {
    std::istringstream in(line);
    char kind = 0;
    size_t index = 0;
    in >> kind >> index;
    if (!in || index >= results.size()) return;
    DriveResult& r = results[index];
    int set = 0;
    if (kind == 'E') {
        in.get();
        std::getline(in, r.error);
        ++done;
    } else if (kind == 'A') {
        DriveAlert a;
        in >> set >> a.alert >> a.began >> a.ended >> a.since;
        (set ? r.old : r.alerts).push_back(a);
    } else if (kind == 'R') {
        uint32_t id = 0;
        in >> set >> id;
        (set ? r.oldRead : r.read).insert(id);
    } else if (kind == 'D') {
        in >> r.seconds;
        ++done;
    }
}

void worker(int tasks, FILE* out, const Options& o, const std::vector<std::string>& drives,
            const std::string& rules, const std::string& old, const int clock[6],
            const zelscenario::Step* table) {
    uint32_t index = 0;
    while (read(tasks, &index, sizeof index) == sizeof index) {
        DriveResult r;
        std::string error;
        if (!runOne(rules, clock, table, drives[index], r.alerts, r.read, r.seconds, error) ||
            (!o.old.empty() &&
             !runOne(old, clock, table, drives[index], r.old, r.oldRead, r.seconds, error)))
            r.error = error;
        sendResult(out, index, r);
    }
}

bool parseArgs(int argc, char** argv, Options& o, std::string& error) {
    for (int i = 0; i < argc; ++i) {
        std::string a = argv[i];
        bool value = a == "--j1939" || a == "--jobs" || a == "--flap" || a == "--json" ||
                     a == "--csv" || a == "--diff" || a == "--clock";
        if (value && i + 1 >= argc) {
            error = a + " needs a value";
            return false;
        }
        if (!value && !a.empty() && a[0] == '-') {
            error = "unknown option " + a;
            return false;
        }
        if (!value) {
            if (o.rules.empty()) o.rules = a;
            else o.drives.push_back(a);
            continue;
        }
        std::string v = argv[++i];
        char* end = nullptr;
        if (a == "--j1939") o.table = v;
        else if (a == "--json") o.json = v;
        else if (a == "--csv") o.csv = v;
        else if (a == "--diff") o.old = v;
        else if (a == "--clock") o.clock = v;
        else if (a == "--jobs") {
            long n = strtol(v.c_str(), &end, 10);
            if (end == v.c_str() || *end || n < 1 || n > 256) {
                error = "--jobs " + v + ": expected a number of workers, 1 to 256";
                return false;
            }
            o.jobs = static_cast<int>(n);
        } else {
            o.flap = strtod(v.c_str(), &end);
            if (end == v.c_str() || *end || !(o.flap >= 0)) {
                error = "--flap " + v + ": expected seconds";
                return false;
            }
        }
    }
    if (o.rules.empty() || o.drives.empty()) {
        error = "a rule set and at least one drive are needed";
        return false;
    }
    return true;
}

const char* const kUsage =
    "usage: zel-author backtest RULES.json DRIVE... [--j1939 TABLE] [--jobs N]\n"
    "                           [--flap SECONDS] [--json FILE] [--csv FILE]\n"
    "                           [--diff OLD_RULES.json] [--clock [YYYY/MM/DD ]HH:MM:SS]\n"
    "\n"
    "Runs the rule set over each drive (a candump log, a scenario .scn, or a\n"
    "folder of them) on the service's own code, in N worker processes (default:\n"
    "every core), and reports per rule the drives with an alert, the alerts,\n"
    "their total and longest time, the flaps (alerts shorter than --flap, default\n"
    "10 s) and the rules that never got a reading, and per drive its alerts.\n"
    "--json and --csv write the same for other programs; --diff reports what\n"
    "changes from the old rule set: alerts that appear, vanish, begin earlier\n"
    "or later.\n"
    "\n"
    "exit status: 0 done; 2 an argument, the rule set or a drive unusable.\n";

}  // namespace

void backtestUsage(FILE* out) { fputs(kUsage, out); }

int backtestMain(int argc, char** argv) {
    for (int i = 0; i < argc; ++i)
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            fputs(kUsage, stdout);
            return 0;
        }
    Options o;
    std::string error;
    std::vector<std::string> drives;
    if (!parseArgs(argc, argv, o, error)) {
        fprintf(stderr, "zel-author backtest: %s (see zel-author backtest --help)\n",
                error.c_str());
        return 2;
    }
    RuleFile rules;
    RuleFile old;
    int clock[6] = {2026, 3, 5, 12, 0, 0};
    zelscenario::Step table;
    if (loadRuleFile(o.rules, rules, error) != kClean ||
        (!o.old.empty() && loadRuleFile(o.old, old, error) != kClean) ||
        (!o.table.empty() && loadTableStep(o.table, table, error) != kClean) ||
        !expandDrives(o.drives, drives, error)) {
        fprintf(stderr, "zel-author backtest: %s\n", error.c_str());
        return 2;
    }
    if (!o.clock.empty() && !parseDeviceClock(o.clock, clock)) {
        fprintf(stderr, "zel-author backtest: --clock %s: expected HH:MM:SS or "
                        "YYYY/MM/DD HH:MM:SS\n", o.clock.c_str());
        return 2;
    }
    if (o.jobs == 0) o.jobs = static_cast<int>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    int jobs = static_cast<int>(std::min<size_t>(o.jobs, drives.size()));

    // The drives' numbers wait in one pipe; each worker takes the next.
    int tasks[2];
    if (drives.size() * 4 > 65536 || pipe(tasks) != 0) {
        fprintf(stderr, "zel-author backtest: too many drives for one run (%zu)\n", drives.size());
        return 2;
    }
    for (uint32_t i = 0; i < drives.size(); ++i)
        if (write(tasks[1], &i, sizeof i) != sizeof i) return 2;
    close(tasks[1]);
    std::string rulesText = wholeSetText(rules);
    std::string oldText = o.old.empty() ? "" : wholeSetText(old);
    std::vector<pid_t> pids;
    std::vector<int> from;
    fflush(nullptr);
    for (int k = 0; k < jobs; ++k) {
        int p[2];
        if (pipe(p) != 0) return 2;
        pid_t pid = fork();
        if (pid == 0) {
            close(p[0]);
            for (int f : from) close(f);
            FILE* out = fdopen(p[1], "w");
            worker(tasks[0], out, o, drives, rulesText, oldText, clock,
                   o.table.empty() ? nullptr : &table);
            fclose(out);
            _exit(0);
        }
        close(p[1]);
        if (pid < 0) return 2;
        pids.push_back(pid);
        from.push_back(p[0]);
    }
    close(tasks[0]);

    std::vector<DriveResult> results(drives.size());
    for (size_t i = 0; i < drives.size(); ++i) results[i].file = drives[i];
    std::vector<std::string> partial(from.size());
    size_t done = 0;
    size_t open = from.size();
    bool progress = isatty(2);
    while (open > 0) {
        std::vector<pollfd> fds;
        fds.reserve(from.size());
        for (int f : from) fds.push_back(pollfd{f, POLLIN, 0});
        if (poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR) break;
        for (size_t k = 0; k < fds.size(); ++k) {
            if (from[k] < 0 || !(fds[k].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            char buf[65536];
            ssize_t n = read(from[k], buf, sizeof buf);
            if (n <= 0) {
                close(from[k]);
                from[k] = -1;
                --open;
                continue;
            }
            partial[k].append(buf, static_cast<size_t>(n));
            size_t eol;
            while ((eol = partial[k].find('\n')) != std::string::npos) {
                receiveLine(partial[k].substr(0, eol), results, done);
                partial[k].erase(0, eol + 1);
            }
            if (progress)
                fprintf(stderr, "\rbacktest: %zu of %zu drives, %d job%s", done, drives.size(),
                        jobs, jobs == 1 ? "" : "s");
        }
    }
    if (progress) fprintf(stderr, "\n");
    bool workerFailed = false;
    for (pid_t pid : pids) {
        int status = 0;
        waitpid(pid, &status, 0);
        workerFailed = workerFailed || !WIFEXITED(status) || WEXITSTATUS(status) != 0;
    }
    int status = 0;
    for (DriveResult& r : results) {
        if (r.error.empty() && (done < drives.size() || workerFailed) && r.seconds == 0 &&
            r.alerts.empty())
            r.error = "the worker stopped before this drive was done";
        if (!r.error.empty()) {
            fprintf(stderr, "zel-author backtest: %s\n", r.error.c_str());
            status = 2;
        }
    }
    Report report = makeReport(results, rules, o.flap, !o.old.empty());
    printReport(stdout, report);
    if ((!o.json.empty() && !writeJsonReport(o.json, report, error)) ||
        (!o.csv.empty() && !writeCsvReport(o.csv, report, error))) {
        fprintf(stderr, "zel-author backtest: %s\n", error.c_str());
        return 2;
    }
    return status;
}

}  // namespace zelauthor
