// zel-logdump: prints an alert log file that zel-storage wrote, one line per
// frame: its offset, alert id, start, end and duration. A frame that was
// never patched has no end yet ("-"). Of a damaged file (a power cut tears
// its last frame) every whole frame is printed, then a warning that names
// what could not be read.
//
// Usage: zel-logdump FILE
// Exit status: 0 printed, 1 damaged or unreadable, 2 usage.
#include <stdio.h>

#include <string>
#include <vector>

#include "AlertLogFile.h"
#include "CommandLine.h"

namespace {

const char kProgram[] = "zel-logdump";

const char kUsage[] =
    "usage: zel-logdump FILE\n"
    "  Prints one line per frame of an alert log: offset, alert id, start, end,\n"
    "  duration. Of a damaged file it prints every whole frame, then a warning\n"
    "  with the bytes it could not read and where they are.\n"
    "  Exit status: 0 printed, 1 damaged or unreadable, 2 a wrong call.\n"
    "example: zel-logdump /tmp/zel-logs/zel-19-20260305.log\n";

}  // namespace

int main(int argc, char** argv) {
    int status = 0;
    if (cli::answersAsk(argc, argv, kProgram, kUsage, status)) return status;
    if (argc != 2) return cli::usageError(kProgram, argc < 2 ? "no FILE" : "one FILE only");
    if (argv[1][0] == '-') return cli::usageError(kProgram, std::string("unknown option ") + argv[1]);
    const char* path = argv[1];
    std::vector<uint8_t> bytes;
    std::string why;
    if (!zelstore::readLogFile(path, bytes, why))
        return cli::fail(kProgram, std::string("cannot read ") + path + ": " + why);
    zelstore::LogScan scan = zelstore::scanLog(bytes.data(), bytes.size());
    for (const zelstore::FrameInfo& f : scan.frames) {
        std::string duration = "-";
        long long seconds = 0;
        if (f.patched() && zelstore::stampSeconds(f.start, f.end, seconds))
            duration = std::to_string(seconds) + " s";
        printf("offset %-6llu alert %-6u start %s  end %-19s  duration %s\n",
               static_cast<unsigned long long>(f.offset), f.alertID,
               zelstore::stampText(f.start).c_str(), zelstore::stampText(f.end).c_str(),
               duration.c_str());
    }
    if (scan.whole()) return 0;
    fflush(stdout);
    return cli::fail(kProgram, "warning: " + zelstore::damageText(path, scan, bytes.size()));
}
