// A rule set file as a rule author writes it, read with line numbers.
//
// Three forms are taken:
//   - the whole set, as the platform answers a rule request:
//     {"DUMMY100": [rules], "CIRCLE100": [...], "LINE100": [...],
//      "POLY100": [...], "RECT100": [...]} (area arrays optional);
//   - a pushed command: {"DUMMY": [rules], "CIRCLE": [...], ...};
//   - a bare array of rules.
// All three come out as the whole-set form, which is what replay sends.
// The file and its JSON are read by the rule sets' readers (readFile and
// readJson of formats/PlatformRules.h), as zel-platform and zelctl read them.
#ifndef ZELAUTHOR_RULEFILE_H
#define ZELAUTHOR_RULEFILE_H

#include <string>
#include <vector>

#include <json/json.h>

#include "Findings.h"

namespace zelauthor {

extern const char* const kSetAreaKeys[4];      // CIRCLE100 .. RECT100
extern const char* const kCommandAreaKeys[4];  // CIRCLE .. RECT

struct RuleFile {
    std::string path;
    std::string text;
    Json::Value root;      // as written
    Json::Value wholeSet;  // whole-set form; its rules are copies of root's
    bool commandForm = false;
    bool bareArray = false;

    // The rules and area arrays as written (members of root).
    const Json::Value& rules() const;
    // Line (from 1) where a value of root begins; 0 when unknown.
    int lineOf(const Json::Value& v) const;
    int lineOfOffset(ptrdiff_t offset) const;
    // "path:line".
    std::string at(const Json::Value& v) const;

    // Offsets where each line begins, built on the first lookup, so that a
    // lookup costs a binary search, not a count through the text.
    mutable std::vector<size_t> lineStarts;
};

// Reads and parses `path`. On failure (unreadable, not JSON, not a rule set)
// returns kUnreadable with `error` saying what and where.
Status loadRuleFile(const std::string& path, RuleFile& out, std::string& error);

// The whole-set text that replay delivers.
std::string wholeSetText(const RuleFile& file);

}  // namespace zelauthor

#endif  // ZELAUTHOR_RULEFILE_H
