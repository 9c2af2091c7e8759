// zel-author lint: what a rule author would otherwise learn in the field.
//
// Rules are checked against the service's own code: each rule goes through
// the service's JSON parser and date-time parser in the in-process harness,
// and what the service made of it is compared with what was written. The
// J1939 table and a CAN log, when given, are checked against the way the
// service matches and decodes frames.
//
// Runs a harness of its own: not while another harness is alive.
#ifndef ZELAUTHOR_LINT_H
#define ZELAUTHOR_LINT_H

#include <string>
#include <vector>

#include "Findings.h"
#include "RuleFile.h"
#include "TableLint.h"

namespace zelauthor {

struct LintArgs {
    std::string rules;
    std::string table;  // optional
    std::string can;    // optional; needs the table
};

// Lints every input. Returns kClean or kFound with `out` filled, or
// kUnreadable for an input that could not be used, with `error` saying what
// and where.
Status runLint(const LintArgs& args, Findings& out, std::string& error);

// The checks of the rules alone; `table` may be null. Collects the GT
// triggers on J1939 events in `uses`.
void lintRules(const RuleFile& file, const J1939Table* table, Findings& out,
               std::vector<RowUse>& uses);

}  // namespace zelauthor

#endif  // ZELAUTHOR_LINT_H
