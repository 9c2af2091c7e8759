// zelctl log: alert log files as the storage peer keeps them, decoded with
// its own file library.
#include <dirent.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "AlertLogFile.h"
#include "CommandLine.h"
#include "Zelctl.h"

namespace zelctl {

namespace {

const char kUsage[] =
    "usage: zelctl log FILE|DIR\n"
    "  Decodes an alert log file that zel-storage wrote, or every log file in a\n"
    "  folder: one line per frame with its offset, alert id, start, end and how\n"
    "  long it ran. A frame never patched has no end (\"-\"). A damaged file is\n"
    "  refused with the number of bytes that could not be read.\n"
    "examples:\n"
    "  zelctl log /tmp/zel-logs/zel-19-20260305.log\n"
    "  zelctl log /tmp/zel-logs\n";

bool printLog(const std::string& path) {
    std::vector<uint8_t> bytes;
    std::string why;
    if (!zelstore::readLogFile(path, bytes, why)) {
        refuse("log", path + ": cannot read: " + why);
        return false;
    }
    zelstore::LogScan scan = zelstore::scanLog(bytes.data(), bytes.size());
    const zelstore::Day& d = scan.head.day;
    if (scan.headOk)
        printf("%s: log type %u of %04d-%02d-%02d, %zu frame%s\n", path.c_str(),
               scan.head.logType, d.year, d.month, d.day, scan.frames.size(),
               scan.frames.size() == 1 ? "" : "s");
    for (const zelstore::FrameInfo& f : scan.frames) {
        std::string ran = "running";
        long long seconds = 0;
        if (f.patched() && zelstore::stampSeconds(f.start, f.end, seconds))
            ran = std::to_string(seconds) + " s";
        printf("  offset %-6llu alert %-6u start %s  end %-19s  %s\n",
               static_cast<unsigned long long>(f.offset), f.alertID,
               zelstore::stampText(f.start).c_str(), zelstore::stampText(f.end).c_str(),
               ran.c_str());
    }
    if (scan.whole()) return true;
    fflush(stdout);
    refuse("log", "warning: " + zelstore::damageText(path, scan, bytes.size()));
    return false;
}

// The log files of a folder, by name (and so by log type and day).
bool logsIn(const std::string& dir, std::vector<std::string>& files) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return false;
    while (struct dirent* e = readdir(d)) {
        std::string name = e->d_name;
        if (name.compare(0, 4, "zel-") == 0 && name.size() > 4 &&
            name.compare(name.size() - 4, 4, ".log") == 0)
            files.push_back(std::string(dir).append("/").append(name));
    }
    closedir(d);
    std::sort(files.begin(), files.end());
    return true;
}

}  // namespace

int runLog(int argc, char** argv) {
    if (asksHelp(argc, argv)) return usage(kUsage);
    if (argc != 2) return wrongCall("log", argc < 2 ? "no FILE or DIR" : "one FILE or DIR only");
    const std::string path = argv[1];
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return refuse("log", path + ": " + cli::errorText(errno));
    if (!S_ISDIR(st.st_mode)) return printLog(path) ? 0 : 1;
    std::vector<std::string> files;
    if (!logsIn(path, files)) return refuse("log", path + ": " + cli::errorText(errno));
    if (files.empty()) return refuse("log", path + ": no alert log (zel-*.log) in this folder");
    bool ok = true;
    for (const std::string& f : files) ok = printLog(f) && ok;
    return ok ? 0 : 1;
}

}  // namespace zelctl
