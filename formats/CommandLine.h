// How every program of the project talks to the person who runs it, so that
// they all say it the same way:
//   --help (or -h)   the usage on standard output, exit 0
//   --version        "PROGRAM VERSION" on standard output, exit 0
//   a wrong call     one line on standard error and a hint to --help, exit 2
//   a job not done   one line on standard error, exit 1
// VERSION is the project's version, given to this library at build time.
#ifndef ZELFORMATS_COMMANDLINE_H
#define ZELFORMATS_COMMANDLINE_H

#include <stdio.h>

#include <string>

namespace cli {

const int kDone = 0;
const int kFailed = 1;
const int kUsageError = 2;

// The project's version, e.g. "1.0.0".
const char* version();

// True when `arg` asks for help: "-h" or "--help".
bool isHelp(const char* arg);

// Answers "--help", "-h" or "--version" standing alone behind the program's
// name: prints the usage or the version on standard output, sets `status` to
// 0 and returns true. Returns false for any other call.
bool answersAsk(int argc, char** argv, const char* program, const char* usage, int& status);

// "PROGRAM: what" and "Try 'PROGRAM --help' for more." on standard error
// (for "PROGRAM SUB": "Try 'PROGRAM help SUB' for more."); returns 2.
int usageError(const std::string& program, const std::string& what);

// "PROGRAM: what" on standard error; returns 1.
int fail(const std::string& program, const std::string& what);

// The text of an errno value, the same as strerror's, but safe beside other
// threads (strerror may share one buffer among them).
std::string errorText(int err);

}  // namespace cli

#endif
