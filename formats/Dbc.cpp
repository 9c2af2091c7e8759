#include "Dbc.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <cmath>
#include <map>
#include <set>
#include <sstream>

namespace zelj1939 {

namespace {

const uint32_t kExtendedFlag = 0x80000000u;
const uint32_t kIdMask = 0x1fffffffu;
const uint32_t kNoMessage = 0xc0000000u;  // holds the signals of no message
const uint32_t kMaxStandard = 0x7ff;

// A cursor over one statement.
struct Cursor {
    const std::string& s;
    size_t i;

    explicit Cursor(const std::string& text, size_t from = 0) : s(text), i(from) {}
    void blank() {
        while (i < s.size() && (s[i] == ' ' || s[i] == '\t' || s[i] == '\r' || s[i] == '\n')) ++i;
    }
    bool at(char c) {
        blank();
        return i < s.size() && s[i] == c;
    }
    bool take(char c) {
        if (!at(c)) return false;
        ++i;
        return true;
    }
    bool word(std::string& out) {
        blank();
        size_t b = i;
        while (i < s.size() && (isalnum(static_cast<unsigned char>(s[i])) || s[i] == '_')) ++i;
        out = s.substr(b, i - b);
        return !out.empty();
    }
    bool whole(unsigned long long& out) {
        std::string w;
        size_t b = i;
        if (!word(w) || !parseWhole(w, out)) {
            i = b;
            return false;
        }
        return true;
    }
    bool real(double& out) {
        blank();
        if (i >= s.size() || !(isdigit(static_cast<unsigned char>(s[i])) || s[i] == '-' ||
                               s[i] == '+' || s[i] == '.'))
            return false;
        const char* start = s.c_str() + i;
        char* end = nullptr;
        errno = 0;
        out = strtod(start, &end);
        if (end == start || errno != 0 || !std::isfinite(out)) return false;
        i += static_cast<size_t>(end - start);
        return true;
    }
    // A "..." string; \" and \\ stand for themselves.
    bool text(std::string& out) {
        if (!take('"')) return false;
        out.clear();
        for (; i < s.size(); ++i) {
            if (s[i] == '\\' && i + 1 < s.size()) out += s[++i];
            else if (s[i] == '"') {
                ++i;
                return true;
            } else out += s[i];
        }
        return false;
    }
};

std::string lineError(int line, const std::string& what) {
    std::ostringstream out;
    out << "line " << line << ": " << what;
    return out.str();
}

// From `from` in `text` to just behind the ';' that ends the statement,
// outside strings; npos when there is none.
size_t statementEnd(const std::string& text, size_t from) {
    bool quoted = false;
    for (size_t i = from; i < text.size(); ++i) {
        if (quoted && text[i] == '\\') ++i;
        else if (text[i] == '"') quoted = !quoted;
        else if (!quoted && text[i] == ';') return i + 1;
    }
    return std::string::npos;
}

bool parseSignal(const std::string& text, size_t from, int line, DbcSignal& sig,
                 std::string& error) {
    Cursor c(text, from);
    unsigned long long start = 0;
    unsigned long long length = 0;
    double lo = 0;
    double hi = 0;
    if (!c.word(sig.name)) {
        error = lineError(line, "SG_ without a signal name");
        return false;
    }
    if (!c.at(':') && !c.word(sig.mux)) {
        error = lineError(line, "SG_ " + sig.name + ": expected ':'");
        return false;
    }
    if (!c.take(':') || !c.whole(start) || !c.take('|') || !c.whole(length) || !c.take('@') ||
        c.i + 1 >= text.size()) {
        error = lineError(line, "SG_ " + sig.name + ": expected ': START|LENGTH@ORDER'");
        return false;
    }
    char order = text[c.i];
    char sign = text[c.i + 1];
    c.i += 2;
    if ((order != '0' && order != '1') || (sign != '+' && sign != '-')) {
        error = lineError(line, "SG_ " + sig.name + ": byte order and sign are @0 or @1, + or -");
        return false;
    }
    if (!c.take('(') || !c.real(sig.factor) || !c.take(',') || !c.real(sig.offset) ||
        !c.take(')') || !c.take('[') || !c.real(lo) || !c.take('|') || !c.real(hi) ||
        !c.take(']') || !c.text(sig.unit)) {
        error = lineError(line, "SG_ " + sig.name +
                                    ": expected (FACTOR,OFFSET) [MIN|MAX] \"UNIT\" after the bits");
        return false;
    }
    if (start > 511 || length > 512) {
        error = lineError(line, "SG_ " + sig.name + ": start bit or length out of range");
        return false;
    }
    sig.start = static_cast<int>(start);
    sig.length = static_cast<int>(length);
    sig.intel = order == '1';
    sig.isSigned = sign == '-';
    sig.line = line;
    return true;
}

bool isDbcKeyword(const std::string& w) {
    static const std::set<std::string> keys = {
        "VERSION", "NS_", "BS_", "BU_", "BO_", "SG_", "CM_", "BA_DEF_", "BA_", "BA_DEF_DEF_",
        "VAL_", "VAL_TABLE_", "SIG_VALTYPE_", "BO_TX_BU_", "EV_", "SIG_GROUP_"};
    return keys.count(w) > 0;
}

std::string firstWord(const std::string& s, size_t& end) {
    size_t b = s.find_first_not_of(" \t\r");
    if (b == std::string::npos) {
        end = s.size();
        return std::string();
    }
    end = b;
    while (end < s.size() && (isalnum(static_cast<unsigned char>(s[end])) || s[end] == '_')) ++end;
    return s.substr(b, end - b);
}

std::string shortest(double v) {
    char buf[40];
    for (int precision = 1; precision <= 17; ++precision) {
        snprintf(buf, sizeof buf, "%.*g", precision, v);
        if (strtod(buf, nullptr) == v) break;
    }
    return buf;
}

std::string csvField(const std::string& s) {
    if (s.find_first_of(",\"\n\r") == std::string::npos && s == s.c_str()) return s;  // NOLINT(readability-redundant-string-cstr): no NUL inside
    std::string out = "\"";
    for (char ch : s) {
        if (ch == '"') out += "\"\"";
        else if (ch == '\n' || ch == '\r') out += ' ';
        else out += ch;
    }
    return out + "\"";
}

}  // namespace

bool looksLikeDbc(const std::string& text) {
    size_t at = 0;
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) at = 3;
    size_t end = 0;
    return isDbcKeyword(firstWord(text.substr(at, 64), end));
}

bool parseDbc(const std::string& text, std::vector<DbcSignal>& out, std::string& error) {
    out.clear();
    std::map<std::pair<uint32_t, std::string>, std::string> comments;
    std::map<std::pair<uint32_t, std::string>, int> valueTypes;
    bool inMessage = false;
    bool inNamespace = false;
    uint32_t messageId = 0;
    std::string messageName;
    size_t pos = 0;
    int line = 0;
    while (pos < text.size()) {
        size_t eol = text.find('\n', pos);
        if (eol == std::string::npos) eol = text.size();
        std::string current = text.substr(pos, eol - pos);
        ++line;
        size_t wordEnd = 0;
        std::string key = firstWord(current, wordEnd);
        bool indented = !current.empty() && (current[0] == ' ' || current[0] == '\t');
        if (key.empty() && current.find_first_not_of(" \t\r") == std::string::npos) {
            pos = eol + 1;
            continue;
        }
        if (inNamespace && indented) {  // the keyword list of NS_
            pos = eol + 1;
            continue;
        }
        inNamespace = false;
        if (key == "VERSION" || key == "BS_" || key == "BU_" || key == "NS_") {
            inNamespace = key == "NS_";
            inMessage = false;
        } else if (key == "BO_") {
            Cursor c(current, wordEnd);
            unsigned long long id = 0;
            if (!c.whole(id) || id > 0xffffffffull || !c.word(messageName) || !c.take(':')) {
                error = lineError(line, "expected BO_ ID NAME: DLC SENDER");
                return false;
            }
            messageId = static_cast<uint32_t>(id);
            inMessage = true;
        } else if (key == "SG_") {
            if (!inMessage) {
                error = lineError(line, "SG_ outside a message (BO_)");
                return false;
            }
            DbcSignal sig;
            if (!parseSignal(current, wordEnd, line, sig, error)) return false;
            sig.id = messageId;
            sig.message = messageName;
            out.push_back(sig);
        } else if (key.empty()) {
            error = lineError(line, "expected a DBC keyword such as BO_ or SG_");
            return false;
        } else {
            // A statement up to its ';', over as many lines as its strings take.
            size_t end = statementEnd(text, pos + wordEnd);
            if (end == std::string::npos) {
                error = lineError(line, key + " without the ';' that ends it");
                return false;
            }
            std::string statement = text.substr(pos, end - pos);
            Cursor c(statement, wordEnd);
            std::string kind;
            std::string name;
            std::string note;
            unsigned long long id = 0;
            if (key == "CM_" && c.word(kind) && kind == "SG_" && c.whole(id) && c.word(name) &&
                c.text(note))
                comments[std::make_pair(static_cast<uint32_t>(id), name)] = note;
            double type = 0;
            if (key == "SIG_VALTYPE_" && c.whole(id) && c.word(name) && c.take(':') &&
                c.real(type))
                valueTypes[std::make_pair(static_cast<uint32_t>(id), name)] = static_cast<int>(type);
            for (size_t i = pos; i < end; ++i) line += text[i] == '\n';
            eol = text.find('\n', end);
            if (eol == std::string::npos) eol = text.size();
            if (text.find_first_not_of(" \t\r", end) < eol) {
                error = lineError(line, "text after the ';' of " + key);
                return false;
            }
            inMessage = false;
        }
        pos = eol + 1;
    }
    for (DbcSignal& s : out) {
        auto key = std::make_pair(s.id, s.name);
        if (comments.count(key)) s.comment = comments[key];
        if (valueTypes.count(key)) s.valueType = valueTypes[key];
    }
    return true;
}

void dbcRows(const std::vector<DbcSignal>& signals, const std::vector<std::string>& pick,
             bool cap, std::vector<SignalRow>& rows, std::vector<std::string>& comments,
             std::vector<LeftOut>& left) {
    rows.clear();
    comments.clear();
    left.clear();
    std::set<std::string> picked(pick.begin(), pick.end());
    std::set<std::string> found;
    for (const DbcSignal& s : signals) {
        if (!picked.empty() && !picked.count(s.name)) continue;
        found.insert(s.name);
        uint32_t raw = s.id & kIdMask;
        bool extended = (s.id & kExtendedFlag) != 0 || s.id > kMaxStandard;
        uint32_t pgn = (raw >> 8) & 0xffff;
        std::string why;
        if (s.mux.size() > 1 && s.mux[0] == 'm') why = "multiplexed (" + s.mux + ")";
        else if (!s.intel) why = "Motorola (big-endian) byte order";
        else if (s.isSigned) why = "signed values";
        else if (s.valueType != 0) why = "a floating-point value";
        else if (s.id == kNoMessage) why = "in no message";
        else if (!extended) why = "a standard 11-bit identifier";
        else if ((raw >> 24) & 1) why = "a group of data page 1; the table matches bits 8..23";
        else if (pgn == 0) why = "group number 0";
        else if (s.length < 1 || s.length > 64 || s.start + s.length > 64)
            why = "bits beyond the 8 data bytes";
        else if (cap && rows.size() == kMaxSignals)
            why = "the table holds 64 signals (choose them with --pick)";
        if (!why.empty()) {
            left.push_back(LeftOut{s.name, why});
            continue;
        }
        SignalRow r;
        r.name = s.name;
        r.pgn = pgn;
        r.startbyte = static_cast<uint32_t>(s.start / 8);
        r.startbit = static_cast<uint32_t>(s.start % 8);
        r.length = s.length;
        r.resolution = s.factor;
        r.offset = s.offset;
        r.unit = s.unit;
        r.line = s.line;
        rows.push_back(r);
        comments.push_back(s.comment);
    }
    for (const std::string& name : pick)
        if (!found.count(name)) left.push_back(LeftOut{name, "not in the DBC"});
}

std::string tableCsv(const std::vector<SignalRow>& rows, const std::vector<std::string>& comments) {
    std::ostringstream out;
    out << "name,pgn,startbyte,startbit,length,resolution,offset,unit,comment\n";
    for (size_t n = 0; n < rows.size(); ++n) {
        const SignalRow& r = rows[n];
        out << csvField(r.name) << ',' << r.pgn << ',' << r.startbyte << ',' << r.startbit << ','
            << r.length << ',' << shortest(r.resolution) << ',' << shortest(r.offset) << ','
            << csvField(r.unit) << ',' << csvField(n < comments.size() ? comments[n] : "")
            << '\n';
    }
    return out.str();
}

}  // namespace zelj1939
