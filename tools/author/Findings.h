// What lint reports: one finding per line, "WHERE: SEVERITY: what — advice".
//
// WHERE names what a rule author looks up: "RULE 7" (a rule by its id, or
// "RULE DUMMY100[3]" for one without a usable id), "SET" (the file as a
// whole), "TABLE row 5" (a row of the J1939 table, which feeds event J19395)
// or "CAN pgn 65265" (a group number seen in a CAN log).
//
// SEVERITY says what the finding costs:
//   error    the service does something other than what is written: a rule
//            or row is dropped, a trigger reads differently or never holds;
//   warning  it does what is written, and that is likely not what is meant;
//   note     worth knowing, and no rule is affected (a CAN group that feeds
//            a row no rule reads).
#ifndef ZELAUTHOR_FINDINGS_H
#define ZELAUTHOR_FINDINGS_H

#include <stdio.h>

#include <string>
#include <vector>

namespace zelauthor {

enum Severity { kNote = 0, kWarning = 1, kError = 2 };

const char* severityName(Severity s);
// The severity of a finding of `kind`; kinds not listed are warnings.
Severity severityOf(const std::string& kind);

struct Finding {
    std::string where;
    std::string kind;    // a short fixed tag, e.g. "integer-threshold"
    std::string what;
    std::string advice;
    Severity severity;
};

typedef std::vector<Finding> Findings;

inline void addFinding(Findings& out, const std::string& where, const char* kind,
                       const std::string& what, const std::string& advice) {
    out.push_back(Finding{where, kind, what, advice, severityOf(kind)});
}

inline void printFinding(FILE* out, const Finding& f) {
    fprintf(out, "%s: %s: %s \xE2\x80\x94 %s\n", f.where.c_str(), severityName(f.severity),
            f.what.c_str(), f.advice.c_str());
}

// Findings as one JSON document: {"findings": [{"where", "severity", "kind",
// "what", "advice"}...], "errors": n, "warnings": n, "notes": n}.
std::string findingsJson(const Findings& findings);

// How the library's calls end. The program maps them to its exit statuses
// (0 done, 1 findings at or above the chosen severity, 2 usage or unusable
// input).
enum Status {
    kClean = 0,       // nothing found (lint) or the run completed (replay)
    kFound = 1,       // findings
    kUnreadable = 2,  // an input could not be read, or was refused (the error says where)
};

}  // namespace zelauthor

#endif  // ZELAUTHOR_FINDINGS_H
