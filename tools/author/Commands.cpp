#include "Commands.h"

#include <string.h>

namespace zelauthor {

int usageError(const char* sub, const std::string& what) {
    fprintf(stderr, "zel-author %s: %s (see zel-author %s --help)\n", sub, what.c_str(), sub);
    return kExitUsage;
}

bool wantsHelp(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) return true;
    return false;
}

bool optionValue(int argc, char** argv, int& i, std::string& value, std::string& error) {
    if (i + 1 >= argc) {
        error = std::string(argv[i]) + " needs a value";
        return false;
    }
    value = argv[++i];
    return true;
}

}  // namespace zelauthor
