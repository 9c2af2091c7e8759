// zel-logdump: prints an alert log file that zel-storage wrote, one line per
// frame: its offset, alert id, start, end and duration. A frame that was
// never patched has no end yet ("-"). A damaged file is refused as a whole,
// with the number of bytes that could not be read.
//
// Usage: zel-logdump FILE
// Exit status: 0 printed, 1 damaged or unreadable, 2 usage.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "AlertLogFile.h"

namespace {

void printUsage(FILE* out) {
    fprintf(out,
            "usage: zel-logdump FILE\n"
            "  Prints one line per frame of an alert log: offset, alert id, start, end,\n"
            "  duration. Refuses a damaged file and says how many bytes it could not read.\n"
            "example: zel-logdump /tmp/zel-logs/zel-19-20260305.log\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || argv[1][0] == '-') {
        bool asked = argc == 2 && (!strcmp(argv[1], "-h") || !strcmp(argv[1], "--help"));
        printUsage(asked ? stdout : stderr);
        return asked ? 0 : 2;
    }
    const char* path = argv[1];
    std::vector<uint8_t> bytes;
    std::string why;
    if (!zelstore::readLogFile(path, bytes, why)) {
        fprintf(stderr, "zel-logdump: cannot read %s: %s\n", path, why.c_str());
        return 1;
    }
    zelstore::LogScan scan = zelstore::scanLog(bytes.data(), bytes.size());
    if (!scan.whole()) {
        fprintf(stderr,
                "zel-logdump: %s is damaged: %llu of %zu bytes could not be read (%s)\n", path,
                static_cast<unsigned long long>(scan.unreadable), bytes.size(),
                scan.problem.c_str());
        return 1;
    }
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
    return 0;
}
