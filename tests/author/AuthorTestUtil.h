// Paths and small helpers shared by the zel-author tests.
#ifndef ALERTZEL_TEST_AUTHORTESTUTIL_H
#define ALERTZEL_TEST_AUTHORTESTUTIL_H

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace authortest {

const std::string kData = AZ_AUTHOR_DATA_DIR;
const std::string kExamples = AZ_EXAMPLES_DIR;
const std::string kTraces = AZ_J1939_DATA_DIR;

inline bool exists(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

inline std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The test program's scratch folder under gtest's temporary directory,
// removed with everything in it when the program exits.
inline const std::string& scratchDir() {
    static const struct Scratch {
        Scratch() {
            std::string tmpl = ::testing::TempDir() + "authorXXXXXX";
            if (mkdtemp(tmpl.data()) == nullptr) {
                perror(tmpl.c_str());  // no folder to write the tests' files in
                abort();
            }
            path = tmpl;
        }
        ~Scratch() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
        std::string path;
    } scratch;
    return scratch.path;
}

// A file `name` in a fresh folder of the scratch folder.
inline std::string writeTemp(const std::string& name, const std::string& content) {
    static int folders = 0;
    const std::string dir = scratchDir() + "/" + std::to_string(++folders);
    std::filesystem::create_directory(dir);
    std::string path = dir + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

// Runs zel-author with `args`; its stdout and stderr in `output`. The exit
// status, or -1 when it did not exit.
inline int runAuthor(const std::string& args, std::string& output) {
    std::string command = std::string(ZEL_AUTHOR_BIN) + " " + args + " 2>&1";
    // Through the shell, for its redirection: running the program under test is the point.
    FILE* p = popen(command.c_str(), "r");  // NOLINT(cert-env33-c)
    if (p == nullptr) return -1;
    output.clear();
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) output.append(buf, n);
    int status = pclose(p);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace authortest

#define SKIP_WITHOUT_TRACE(path)                                                          \
    if (!authortest::exists(path))                                                        \
    GTEST_SKIP() << "truck trace " << (path) << " not found; these tests read the real " \
                 << "traces from the shared data folder beside the repository"

#endif  // ALERTZEL_TEST_AUTHORTESTUTIL_H
