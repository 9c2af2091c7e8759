// zelctl lint and zelctl replay: the rule author's tools live in their own
// program, zel-author, in zelctl's folder; zelctl hands the call over.
#include <errno.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "CommandLine.h"
#include "Zelctl.h"

namespace zelctl {

namespace {

// The folder of the running program; empty when it can't be told.
std::string ownFolder() {
    char path[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0) return std::string();
    path[n] = '\0';
    std::string p(path);
    return p.substr(0, p.rfind('/'));
}

}  // namespace

int runAuthor(int argc, char** argv) {
    const std::string folder = ownFolder();
    const std::string author = folder + "/zel-author";
    if (folder.empty() || access(author.c_str(), X_OK) != 0)
        return refuse(argv[0], "needs zel-author beside zelctl, and " + author +
                                   " is missing (build the target zel-author)");
    std::vector<char*> args;
    std::string name = "zel-author";
    args.push_back(name.data());
    for (int i = 0; i < argc; ++i) args.push_back(argv[i]);
    args.push_back(nullptr);
    execv(author.c_str(), args.data());
    return refuse(argv[0], "cannot run " + author + ": " + cli::errorText(errno));
}

}  // namespace zelctl
