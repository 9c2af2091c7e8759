#include "Findings.h"

#include <json/json.h>

namespace zelauthor {

namespace {

// Kinds whose rule, row or trigger the service takes differently from what
// is written.
const char* const kErrors[] = {
    "not-a-rule",        "no-id",          "integer-threshold", "not-a-comparison",
    "no-comparison",     "not-a-number",   "empty-event",       "never-true",
    "always-true",       "j1939-row-unfed", "datetime-refused", "window-not-text",
    "window-never",      "bad-atleast",    "not-an-array",      "area-key-form",
    "area-without-id",   "row-not-counting", "wide-group",      "outside-data",
    "table-refused",     "beyond-64",
};

}  // namespace

const char* severityName(Severity s) {
    return s == kError ? "error" : s == kWarning ? "warning" : "note";
}

Severity severityOf(const std::string& kind) {
    for (const char* k : kErrors)
        if (kind == k) return kError;
    return kWarning;
}

std::string findingsJson(const Findings& findings) {
    Json::Value root(Json::objectValue);
    root["findings"] = Json::Value(Json::arrayValue);
    int counts[3] = {0, 0, 0};
    for (const Finding& f : findings) {
        Json::Value v(Json::objectValue);
        v["where"] = f.where;
        v["severity"] = severityName(f.severity);
        v["kind"] = f.kind;
        v["what"] = f.what;
        v["advice"] = f.advice;
        root["findings"].append(v);
        ++counts[f.severity];
    }
    root["errors"] = counts[kError];
    root["warnings"] = counts[kWarning];
    root["notes"] = counts[kNote];
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    return Json::writeString(builder, root) + "\n";
}

}  // namespace zelauthor
