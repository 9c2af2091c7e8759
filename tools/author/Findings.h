// What lint reports: one finding per line, "WHERE: what — advice".
//
// WHERE names what a rule author looks up: "RULE 7" (a rule by its id, or
// "RULE DUMMY100[3]" for one without a usable id), "SET" (the file as a
// whole), "TABLE row 5" (a row of the J1939 table, which feeds event J19395)
// or "CAN pgn 65265" (a group number seen in a CAN log).
#ifndef ZELAUTHOR_FINDINGS_H
#define ZELAUTHOR_FINDINGS_H

#include <stdio.h>

#include <string>
#include <vector>

namespace zelauthor {

struct Finding {
    std::string where;
    std::string kind;    // a short fixed tag, e.g. "integer-threshold"; not printed
    std::string what;
    std::string advice;
};

typedef std::vector<Finding> Findings;

inline void addFinding(Findings& out, const std::string& where, const char* kind,
                       const std::string& what, const std::string& advice) {
    out.push_back(Finding{where, kind, what, advice});
}

inline void printFinding(FILE* out, const Finding& f) {
    fprintf(out, "%s: %s \xE2\x80\x94 %s\n", f.where.c_str(), f.what.c_str(), f.advice.c_str());
}

// Exit status of both subcommands.
enum Status {
    kClean = 0,       // nothing found (lint) or the run completed (replay)
    kFound = 1,       // findings, or an input refused with a message
    kUnreadable = 2,  // a file could not be opened or read
};

}  // namespace zelauthor

#endif  // ZELAUTHOR_FINDINGS_H
