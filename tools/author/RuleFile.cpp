#include "RuleFile.h"

#include <algorithm>

#include "PlatformRules.h"

namespace zelauthor {

const char* const kSetAreaKeys[4] = {"CIRCLE100", "LINE100", "POLY100", "RECT100"};
const char* const kCommandAreaKeys[4] = {"CIRCLE", "LINE", "POLY", "RECT"};

const Json::Value& RuleFile::rules() const {
    static const Json::Value kNone(Json::arrayValue);
    if (bareArray) return root;
    const char* key = commandForm ? "DUMMY" : "DUMMY100";
    return root.isObject() && root[key].isArray() ? root[key] : kNone;
}

int RuleFile::lineOfOffset(ptrdiff_t offset) const {
    if (offset < 0 || static_cast<size_t>(offset) > text.size()) return 0;
    if (lineStarts.empty()) {
        lineStarts.push_back(0);
        for (size_t i = 0; i < text.size(); ++i)
            if (text[i] == '\n') lineStarts.push_back(i + 1);
    }
    // The line is the number of line starts at or before the offset.
    return static_cast<int>(std::upper_bound(lineStarts.begin(), lineStarts.end(),
                                             static_cast<size_t>(offset)) -
                            lineStarts.begin());
}

int RuleFile::lineOf(const Json::Value& v) const { return lineOfOffset(v.getOffsetStart()); }

std::string RuleFile::at(const Json::Value& v) const {
    return path + ":" + std::to_string(lineOf(v));
}

Status loadRuleFile(const std::string& path, RuleFile& out, std::string& error) {
    out = RuleFile();
    out.path = path;
    if (!platformpeer::readFile(path, out.text, error)) return kUnreadable;

    platformpeer::JsonError why;
    if (!platformpeer::readJson(out.text, out.root, why)) {
        if (!why.thrown.empty())
            error = path + ": not valid JSON: " + why.thrown;
        else if (why.offset >= 0)
            error = path + ":" + std::to_string(out.lineOfOffset(why.offset)) + ": " + why.first;
        else
            error = path + ": not valid JSON";
        return kUnreadable;
    }

    // Read through a const reference: operator[] on a mutable value would
    // add the members it looks for.
    const Json::Value& root = out.root;
    Json::Value& set = out.wholeSet;
    set = Json::Value(Json::objectValue);
    if (root.isArray()) {
        out.bareArray = true;
        set["DUMMY100"] = root;
    } else if (root.isObject() && root["DUMMY100"].isArray()) {
        set["DUMMY100"] = root["DUMMY100"];
        for (const char* key : kSetAreaKeys)
            if (root[key].isArray()) set[key] = root[key];
    } else if (root.isObject() && root["DUMMY"].isArray()) {
        out.commandForm = true;
        set["DUMMY100"] = root["DUMMY"];
        for (int i = 0; i < 4; ++i)
            if (root[kCommandAreaKeys[i]].isArray()) set[kSetAreaKeys[i]] = root[kCommandAreaKeys[i]];
    } else {
        error = path + ":" + std::to_string(out.lineOf(out.root)) +
                ": a rule set is an object with a \"DUMMY100\" array (or a pushed "
                "command's \"DUMMY\" array), or an array of rules";
        return kUnreadable;
    }
    for (const char* key : kSetAreaKeys)
        if (!set.isMember(key)) set[key] = Json::Value(Json::arrayValue);
    return kClean;
}

std::string wholeSetText(const RuleFile& file) {
    Json::FastWriter writer;
    return writer.write(file.wholeSet);
}

}  // namespace zelauthor
