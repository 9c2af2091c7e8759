#include "SignalTable.h"

#include <errno.h>
#include <stdlib.h>

#include <cmath>
#include <iterator>
#include <sstream>

#include "CommandLine.h"
#include "Dbc.h"
#include "SignalRecords.h"

namespace zelj1939 {

namespace {

const char* const kColumns[] = {"name",   "pgn",        "startbyte", "startbit",
                                "length", "resolution", "offset"};
const size_t kRequiredColumns = sizeof kColumns / sizeof kColumns[0];
const size_t kUnitColumn = kRequiredColumns;

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return std::string();
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

std::string lineError(int line, const std::string& what) {
    std::ostringstream out;
    out << "line " << line << ": " << what;
    return out.str();
}

bool parseReal(const std::string& text, double& out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    out = strtod(text.c_str(), &end);
    return errno == 0 && *end == '\0' && std::isfinite(out);
}

// Reads field `column` of `fields` as a whole number in lo..hi.
bool wholeField(const std::vector<std::string>& fields, size_t column, unsigned long long lo,
                unsigned long long hi, int line, unsigned long long& out, std::string& error) {
    const std::string& text = fields[column];
    if (!parseWhole(text, out)) {
        error = lineError(line, std::string(kColumns[column]) + ": '" + text +
                                    "' is not a whole number");
        return false;
    }
    if (out < lo || out > hi) {
        std::ostringstream what;
        what << kColumns[column] << " " << out << " is outside " << lo << ".." << hi;
        error = lineError(line, what.str());
        return false;
    }
    return true;
}

bool realField(const std::vector<std::string>& fields, size_t column, int line, double& out,
               std::string& error) {
    if (parseReal(fields[column], out)) return true;
    error = lineError(line, std::string(kColumns[column]) + ": '" + fields[column] +
                                "' is not a number");
    return false;
}

bool parseRow(const std::vector<std::string>& fields, int line, RowCheck check,
              SignalRow& row, std::string& error) {
    const bool ranges = check == kServiceRanges;
    if (fields.size() < kRequiredColumns) {
        std::ostringstream what;
        what << "expected at least " << kRequiredColumns << " columns, found " << fields.size();
        error = lineError(line, what.str());
        return false;
    }
    row.name = fields[0];
    row.line = line;
    if (ranges && row.name.empty()) {
        error = lineError(line, "name is empty");
        return false;
    }
    unsigned long long v = 0;
    if (!wholeField(fields, 1, ranges ? 1 : 0, ranges ? 0xffff : ~0ull, line, v, error)) {
        if (parseWhole(fields[1], v) && v > 0xffff)
            error += " (the service matches bits 8..23 of a frame's identifier)";
        return false;
    }
    row.pgn = v;
    // Without the ranges, a field still has to fit the table's 32-bit word.
    if (!wholeField(fields, 2, 0, ranges ? 7 : 0xffffffffu, line, v, error)) return false;
    row.startbyte = static_cast<uint32_t>(v);
    if (!wholeField(fields, 3, 0, ranges ? 7 : 0xffffffffu, line, v, error)) return false;
    row.startbit = static_cast<uint32_t>(v);
    if (!wholeField(fields, 4, ranges ? 1 : 0, ranges ? 64 : 0x7fffffff, line, v, error))
        return false;
    row.length = static_cast<int32_t>(v);
    uint64_t end = row.startbit + 8ull * row.startbyte + static_cast<uint64_t>(row.length);
    if (ranges && end > 64) {
        std::ostringstream what;
        what << "the signal ends at bit " << end << ", past the 64 bits of the data field";
        error = lineError(line, what.str());
        return false;
    }
    if (!realField(fields, 5, line, row.resolution, error)) return false;
    if (!realField(fields, 6, line, row.offset, error)) return false;
    row.unit = fields.size() > kUnitColumn ? fields[kUnitColumn] : std::string();
    return true;
}

bool isHeader(const std::vector<std::string>& fields) {
    if (fields.size() < kRequiredColumns) return false;
    for (size_t i = 0; i < kRequiredColumns; ++i)
        if (fields[i] != kColumns[i]) return false;
    return true;
}

}  // namespace

bool splitCsvLine(const std::string& line, std::vector<std::string>& fields) {
    fields.clear();
    std::string field;
    bool quoted = false;      // inside "..."
    bool wasQuoted = false;   // this field had quotes: keep its spaces
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (quoted) {
            if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
                field += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                field += c;
            }
        } else if (c == '"' && trim(field).empty()) {
            field.clear();
            quoted = true;
            wasQuoted = true;
        } else if (c == ',') {
            fields.push_back(wasQuoted ? field : trim(field));
            field.clear();
            wasQuoted = false;
        } else if (!wasQuoted) {
            field += c;
        }
    }
    if (quoted) return false;
    fields.push_back(wasQuoted ? field : trim(field));
    return true;
}

bool parseWhole(const std::string& text, unsigned long long& out) {
    if (text.empty() || text[0] == '-' || text[0] == '+') return false;
    int base = 10;
    const char* start = text.c_str();
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        start += 2;
    }
    char* end = nullptr;
    errno = 0;
    out = strtoull(start, &end, base);
    return errno == 0 && end != start && *end == '\0';
}

// A DBC read as a table: the signals it can hold, in order; with the service's
// ranges, no more than the table's rows.
static bool parseDbcTable(const std::string& data, std::vector<SignalRow>& rows, std::string& error,
                   RowCheck check) {
    std::vector<DbcSignal> signals;
    if (!parseDbc(data, signals, error)) return false;
    std::vector<std::string> comments;
    std::vector<LeftOut> left;
    dbcRows(signals, std::vector<std::string>(), check == kServiceRanges, rows, comments, left);
    if (rows.empty()) {
        error = "no signal of the DBC fits the table";
        if (!left.empty()) error += " (" + left.front().name + ": " + left.front().reason + ")";
        return false;
    }
    return true;
}

bool parseSignalTable(std::istream& whole, std::vector<SignalRow>& rows, std::string& error,
                      RowCheck check) {
    rows.clear();
    // istream::read turns a failing file buffer (a folder, an I/O error) into
    // badbit; reading through istreambuf_iterator would let it throw.
    std::string data;
    char buf[4096];
    errno = 0;
    while (whole.read(buf, sizeof buf) || whole.gcount() > 0) data.append(buf, whole.gcount());
    if (whole.bad()) {
        error = cli::errorText(errno != 0 ? errno : EIO);
        return false;
    }
    if (looksLikeDbc(data)) return parseDbcTable(data, rows, error, check);
    std::istringstream in(data);
    std::string text;
    std::vector<std::string> fields;
    int line = 0;
    bool haveHeader = false;
    while (std::getline(in, text)) {
        ++line;
        if (line == 1 && text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
        if (!text.empty() && text[text.size() - 1] == '\r') text.erase(text.size() - 1);
        std::string bare = trim(text);
        if (bare.empty() || bare[0] == '#') continue;
        if (!splitCsvLine(text, fields)) {
            error = lineError(line, "unterminated quote");
            return false;
        }
        if (!haveHeader) {
            if (!isHeader(fields)) {
                error = lineError(line,
                                  "the header must begin with "
                                  "name,pgn,startbyte,startbit,length,resolution,offset");
                return false;
            }
            haveHeader = true;
            continue;
        }
        if (check == kServiceRanges && rows.size() == kMaxSignals) {
            error = lineError(line, "more than 64 signals; the table holds 64");
            return false;
        }
        SignalRow row;
        if (!parseRow(fields, line, check, row, error)) return false;
        rows.push_back(row);
    }
    if (!haveHeader) {
        error = lineError(line + 1, "no header line");
        return false;
    }
    return true;
}

bool isTablePayload(const std::string& data) {
    return data.size() == J1939Param_t::kTableSize && data.compare(0, 5, "name,") != 0;
}

std::vector<uint8_t> buildTablePayload(const std::vector<SignalRow>& rows) {
    typedef J1939Param_t P;
    std::vector<uint8_t> payload(P::kTableSize, 0);
    for (size_t n = 0; n < rows.size() && n < kMaxSignals; ++n) {
        const SignalRow& r = rows[n];
        uint8_t* p = payload.data() + P::kRowSize * n;
        zel::putLe32(p, P::kId, static_cast<uint32_t>(n));
        zel::putLe32(p, P::kLength, static_cast<uint32_t>(r.length));
        zel::putLe32(p, P::kMax, 0);
        zel::putLe32(p, P::kPgn, static_cast<uint32_t>(r.pgn));
        zel::putLe32(p, P::kSource, kAnySource);
        zel::putLe32(p, P::kStartBit, r.startbit);
        zel::putLe32(p, P::kStartByte, r.startbyte);
        zel::putLeDouble(p, P::kOffset, r.offset);
        zel::putLeDouble(p, P::kResolution, r.resolution);
    }
    return payload;
}

}  // namespace zelj1939
