#include "CommandLine.h"

#include <string.h>

namespace cli {

const char* version() { return AZ_VERSION; }

bool isHelp(const char* arg) { return !strcmp(arg, "-h") || !strcmp(arg, "--help"); }

bool answersAsk(int argc, char** argv, const char* program, const char* usage, int& status) {
    if (argc != 2) return false;
    if (isHelp(argv[1])) {
        fputs(usage, stdout);
    } else if (!strcmp(argv[1], "--version")) {
        printf("%s %s\n", program, version());
    } else {
        return false;
    }
    status = kDone;
    return true;
}

int usageError(const std::string& program, const std::string& what) {
    // "zelctl rules" is helped by "zelctl help rules".
    const size_t space = program.find(' ');
    const std::string ask = space == std::string::npos
                                ? program + " --help"
                                : program.substr(0, space) + " help" + program.substr(space);
    fprintf(stderr, "%s: %s\nTry '%s' for more.\n", program.c_str(), what.c_str(), ask.c_str());
    return kUsageError;
}

int fail(const std::string& program, const std::string& what) {
    fprintf(stderr, "%s: %s\n", program.c_str(), what.c_str());
    return kFailed;
}

std::string errorText(int err) {
    char buffer[128];
    // The GNU strerror_r: returns the text, in `buffer` or a constant.
    return strerror_r(err, buffer, sizeof buffer);
}

}  // namespace cli
