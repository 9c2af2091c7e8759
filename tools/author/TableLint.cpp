#include "TableLint.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "CommandLine.h"
#include "PlatformRules.h"
#include "ScanInts.h"
#include "SignalRecords.h"
#include "SignalTable.h"

namespace zelauthor {

namespace {

std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* format, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, format);
    vsnprintf(buf, sizeof buf, format, ap);
    va_end(ap);
    return buf;
}

// The CSV through the table's one reader, ranges unchecked: a row the service
// would skip is kept, to be reported. Its "line N: what" errors name the file.
Status loadCsv(const std::string& path, std::istream& in, J1939Table& out, std::string& error) {
    std::vector<zelj1939::SignalRow> rows;
    if (!zelj1939::parseSignalTable(in, rows, error, zelj1939::kSyntaxOnly)) {
        if (error.compare(0, 5, "line ") == 0) error = path + ":" + error.substr(5);
        else error = path + ": " + error;
        return kUnreadable;
    }
    for (const zelj1939::SignalRow& r : rows) {
        TableRow row;
        row.name = r.name;
        row.line = r.line;
        row.id = static_cast<uint32_t>(out.rows.size());
        row.pgn = r.pgn;
        row.startbyte = r.startbyte;
        row.startbit = r.startbit;
        row.length = r.length;
        row.resolution = r.resolution;
        row.offset = r.offset;
        out.rows.push_back(row);
    }
    return kClean;
}

Status loadBinary(const std::string& data, J1939Table& out) {
    out.binary = true;
    const uint8_t* table = reinterpret_cast<const uint8_t*>(data.data());
    for (int r = 0; r < J1939Param_t::kRowCount; ++r) {
        J1939Param_t p = J1939Param_t::read(table, r);
        TableRow row;
        row.id = p.id;
        row.length = p.length;
        row.pgn = p.pgn;
        row.startbyte = p.startbyte;
        row.startbit = p.startbit;
        row.resolution = p.resolution;
        row.offset = p.offset;
        out.rows.push_back(row);
    }
    return kClean;
}

std::string rowName(const J1939Table& table, size_t r) {
    const TableRow& row = table.rows[r];
    return row.name.empty() ? fmt("row %zu", r) : fmt("row %zu (%s)", r, row.name.c_str());
}

}  // namespace

std::string TableRow::label() const {
    return name.empty() ? std::string() : fmt(" (%s, line %d)", name.c_str(), line);
}

int J1939Table::rowFedBy(uint32_t pgn) const {
    for (size_t r = 0; r < rows.size() && r < 64; ++r)
        if (rows[r].counts() && static_cast<uint32_t>(rows[r].pgn) == pgn) return static_cast<int>(r);
    return -1;
}

Status loadTable(const std::string& path, J1939Table& out, std::string& error) {
    out = J1939Table();
    out.path = path;
    std::string data;
    if (!platformpeer::readFile(path, data, error)) return kUnreadable;
    if (zelj1939::isTablePayload(data)) return loadBinary(data, out);
    std::istringstream text(data);
    Status s = loadCsv(path, text, out, error);
    if (s != kClean) return s;
    std::istringstream again(data);
    std::vector<zelj1939::SignalRow> rows;
    if (!zelj1939::parseSignalTable(again, rows, out.refused)) {
        if (out.refused.empty()) out.refused = "refused";
    } else {
        out.refused.clear();
    }
    return kClean;
}

Status loadCanLog(const std::string& path, std::vector<zelj1939::CanFrame>& frames,
                  std::string& error) {
    frames.clear();
    std::ifstream in(path);
    if (!in) {
        error = path + ": " + cli::errorText(errno);
        return kUnreadable;
    }
    errno = 0;
    bool read = zelj1939::readCandumpLog(in, path, frames, error);
    if (in.bad()) {
        error = path + ": " + cli::errorText(errno != 0 ? errno : EIO);
        return kUnreadable;
    }
    return read ? kClean : kUnreadable;
}

double decodeRow(const TableRow& row, uint64_t data, uint64_t& raw) {
    uint64_t shift = row.startbit + 8ull * row.startbyte;
    uint64_t mask = row.length >= 64 ? ~0ull : (1ull << static_cast<uint32_t>(row.length)) - 1;
    raw = shift >= 64 ? 0 : (data >> shift) & mask;
    return std::fma(static_cast<double>(raw), row.resolution, row.offset);
}

const char* specialValue(uint64_t raw, int32_t length) {
    if (length < 2) return nullptr;
    if (length >= 8) {
        uint32_t low = static_cast<uint32_t>(std::min(length, 64)) - 8;
        uint64_t top = raw >> low;
        if (top == 0xFF) return "not available";
        if (top == 0xFE) return "error";
        if (top >= 0xFB) return "reserved";
        return nullptr;
    }
    uint64_t ones = (1ull << length) - 1;
    if (raw == ones) return "not available";
    if (raw == ones - 1) return "error";
    return nullptr;
}

void lintTable(const J1939Table& table, Findings& out) {
    const bool csv = !table.binary;
    if (!table.refused.empty()) {
        int line = 0;
        scanInts(table.refused.c_str(), "line %d", &line);
        std::string where = "TABLE";
        for (size_t r = 0; r < table.rows.size(); ++r)
            if (table.rows[r].line == line) where = fmt("TABLE row %zu", r);
        std::string at = table.refused.compare(0, 5, "line ") == 0
                             ? table.path + ":" + table.refused.substr(5)
                             : table.path + ": " + table.refused;
        addFinding(out, where, "table-refused",
                   "zel-j1939-table, zelctl table, replay and the player refuse this table: " +
                       at,
                   "they read a table whole or not at all: fix this line");
    }
    for (size_t r = 0; r < table.rows.size(); ++r) {
        const TableRow& row = table.rows[r];
        std::string where = fmt("TABLE row %zu", r);
        std::string label = row.label();
        if (r >= 64) {
            addFinding(out, where, "beyond-64",
                       "the table holds rows 0..63; this row" + label + " is left out",
                       "drop a row you need less; events stop at J193963");
            continue;
        }
        if (table.binary && row.id == 0 && row.length == 0 && row.pgn == 0) continue;  // empty
        if (!row.counts()) {
            std::string why = row.id >= 64   ? fmt("its id %u is 64 or more", row.id)
                              : row.length == 0 ? std::string("its length is 0")
                                                : std::string("its group number is 0");
            addFinding(out, where, "row-not-counting",
                       fmt("the service skips this row%s: %s, so J1939%zu never gets a value",
                           label.c_str(), why.c_str(), r),
                       csv ? "give it a group number and a length of 1..64 bits "
                             "(zel-j1939-table refuses the row as it is)"
                           : "a row counts only with an id below 64, a length and a group "
                             "number");
            continue;
        }
        if (row.pgn > 0xffff) {
            addFinding(out, where, "wide-group",
                       fmt("group %llu%s is wider than the 16 bits the service matches "
                           "(bits 8..23 of the identifier): no frame ever feeds J1939%zu",
                           static_cast<unsigned long long>(row.pgn), label.c_str(), r),
                       "write the group number without priority or data page bits");
            continue;
        }
        int first = table.rowFedBy(static_cast<uint32_t>(row.pgn));
        if (first >= 0 && static_cast<size_t>(first) < r) {
            addFinding(out, where, "shared-group",
                       fmt("this row%s shares group %llu with %s; a frame feeds only the "
                           "first row of its group, so J1939%zu never gets a value",
                           label.c_str(), static_cast<unsigned long long>(row.pgn),
                           rowName(table, static_cast<size_t>(first)).c_str(), r),
                       "the service follows one signal per group number: keep the one that "
                       "matters, above the other, and drop this row");
        }
        uint32_t pf = static_cast<uint32_t>(row.pgn >> 8) & 0xff;
        if (pf < 240) {
            uint32_t da = static_cast<uint32_t>(row.pgn) & 0xff;
            addFinding(out, where, "destination-specific",
                       fmt("group %llu = 0x%04llX%s is destination-specific (PF 0x%02X, below "
                           "0xF0): the service takes the destination address as part of the "
                           "group number, so this row sees only frames sent to 0x%02X",
                           static_cast<unsigned long long>(row.pgn),
                           static_cast<unsigned long long>(row.pgn), label.c_str(), pf, da),
                       fmt("put the destination of the frames you want in the low byte "
                           "(e.g. 0x%02X%02X for frames to 0x%02X, 0x%02XFF for broadcasts); "
                           "frames to other addresses are not seen",
                           pf, 0x17, 0x17, pf));
        }
        uint64_t end = row.startbit + 8ull * row.startbyte + static_cast<uint64_t>(row.length);
        if (row.length < 0 || end > 64) {
            addFinding(out, where, "outside-data",
                       fmt("the signal%s runs from bit %u to bit %lld, past the 64 bits of "
                           "the data field, whose missing bits read as 0",
                           label.c_str(), row.startbit + 8 * row.startbyte,
                           static_cast<long long>(end)),
                       "check startbyte (counted from 0), startbit and length");
        }
    }
}

namespace {

struct SourceStats {
    int frames = 0;
    int special = 0;
    double lo = HUGE_VAL, hi = -HUGE_VAL;
};

// A reading as a person reads it: 23.2, 14.05, 438977895.
std::string reading(double v) {
    return fabs(v) >= 1e6 ? fmt("%.0f", v) : fmt("%.6g", v);
}

// A threshold as a rule writes it: 100.0.
std::string threshold(double v) {
    std::string text = fmt("%.10g", v);
    if (text.find_first_of(".eEn") == std::string::npos) text += ".0";
    return text;
}

// "0x00: 1200 frames, 0..88.2; 0x31: 40 frames, J1939 codes only".
std::string describeSources(const std::map<uint32_t, SourceStats>& sources) {
    std::string text;
    for (const auto& entry : sources) {
        const SourceStats& s = entry.second;
        if (!text.empty()) text += "; ";
        text += fmt("0x%02X: %d frame%s, ", entry.first, s.frames, s.frames == 1 ? "" : "s");
        if (s.frames == s.special)
            text += "J1939 codes only";
        else if (s.lo == s.hi)
            text += reading(s.lo);
        else
            text += reading(s.lo) + ".." + reading(s.hi);
    }
    return text;
}

}  // namespace

void lintCan(const J1939Table& table, const std::vector<zelj1939::CanFrame>& frames,
             const std::vector<RowUse>& uses, Findings& out) {
    // Frames by the group number the service would take from them.
    std::map<uint32_t, std::vector<const zelj1939::CanFrame*>> byGroup;
    for (const zelj1939::CanFrame& f : frames) byGroup[(f.id >> 8) & 0xffff].push_back(&f);

    for (size_t r = 0; r < table.rows.size() && r < 64; ++r) {
        const TableRow& row = table.rows[r];
        if (!row.counts() || row.pgn > 0xffff) continue;
        uint32_t pgn = static_cast<uint32_t>(row.pgn);
        if (table.rowFedBy(pgn) != static_cast<int>(r)) continue;
        auto group = byGroup.find(pgn);
        if (group == byGroup.end()) continue;
        std::string where = fmt("CAN pgn %u", pgn);
        std::string target = rowName(table, r) + fmt(", event J1939%zu", r);

        std::map<uint32_t, SourceStats> sources;
        // Special codes by kind: count, a raw example and its decoded value.
        std::map<std::string, std::pair<int, std::pair<uint64_t, double>>> specials;
        for (const zelj1939::CanFrame* f : group->second) {
            uint64_t raw = 0;
            double v = decodeRow(row, f->dataLe(), raw);
            SourceStats& s = sources[f->id & 0xff];
            ++s.frames;
            const char* kind = specialValue(raw, row.length);
            if (kind != nullptr) {
                ++s.special;
                auto& k = specials[kind];
                if (k.first++ == 0 || v > k.second.second) k.second = std::make_pair(raw, v);
                continue;
            }
            s.lo = std::min(s.lo, v);
            s.hi = std::max(s.hi, v);
        }
        bool used = false;
        for (const RowUse& use : uses) used = used || use.row == r;
        if (sources.size() > 1) {
            addFinding(out, where, "several-sources",
                       fmt("%zu source addresses send this group, and all feed %s: ",
                           sources.size(), target.c_str()) +
                           describeSources(sources),
                       "the service doesn't match the source address, so the row's value "
                       "alternates between senders; make sure they agree, or don't build a "
                       "rule on this row");
            if (!used) out.back().severity = kNote;
        }
        for (const RowUse& use : uses) {
            if (use.row != r || !use.gt) continue;
            for (const auto& entry : specials) {
                double v = entry.second.second.second;
                if (!(v > use.threshold)) continue;
                addFinding(
                    out, where, "not-available",
                    fmt("%d of %zu frames carry J1939's \"%s\" code in %s (raw 0x%llX, read as "
                        "%s), which passes GT %s of %s",
                        entry.second.first, group->second.size(), entry.first.c_str(),
                        target.c_str(), static_cast<unsigned long long>(entry.second.second.first),
                        reading(v).c_str(), threshold(use.threshold).c_str(), use.rule.c_str()),
                    "the service decodes these codes like readings, so the rule would fire on a "
                    "missing value; expect false alerts from such a sender, or follow a signal "
                    "it reports");
            }
        }
    }
}

}  // namespace zelauthor
