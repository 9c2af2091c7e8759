// Inside lint: the state one rule's checks share.
#ifndef ZELAUTHOR_RULELINTINTERNAL_H
#define ZELAUTHOR_RULELINTINTERNAL_H

#include <string>
#include <vector>

#include "AlertZelManage.h"
#include "Findings.h"
#include "Harness.h"
#include "RuleFile.h"
#include "TableLint.h"

namespace zelauthor {

struct RuleCheck {
    const RuleFile& file;
    harness::Harness& h;        // started; its lines are those of the latest step
    CAlertZelManage& service;   // h's service
    const J1939Table* table;    // may be null
    Findings& out;
    std::vector<RowUse>& uses;
};

// The event members of one rule and the triggers the service made of them.
void lintTriggers(RuleCheck& c, const Json::Value& rule, const ZelAlertPara_t& parsed,
                  const std::string& where);
// STARTIME and ENDTIME of one rule.
void lintWindow(RuleCheck& c, const Json::Value& rule, const std::string& where);

// A known key close to `key`, as advice ("did you mean ..."), or "".
std::string suggestKey(const std::string& key);
// A JSON value as written, on one line.
std::string jsonText(const Json::Value& v);
// A threshold as a rule author writes it: 60.0, 0.45.
std::string number(double v);
std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace zelauthor

#endif  // ZELAUTHOR_RULELINTINTERNAL_H
