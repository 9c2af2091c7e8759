#include "Candump.h"

#include <stdlib.h>
#include <string.h>

#include <sstream>

#include "SignalRecords.h"

namespace zelj1939 {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool parseId(const std::string& text, CanFrame& frame) {
    if (text.size() != 3 && text.size() != 8) return false;
    uint32_t id = 0;
    for (char c : text) {
        int d = hexDigit(c);
        if (d < 0) return false;
        id = (id << 4) | static_cast<uint32_t>(d);
    }
    frame.extended = text.size() == 8;
    if (frame.extended ? id > 0x1fffffffu : id > 0x7ffu) return false;
    frame.id = id;
    return true;
}

bool parseByte(const char* p, uint8_t& out) {
    int hi = hexDigit(p[0]);
    int lo = hexDigit(p[1]);
    if (hi < 0 || lo < 0) return false;
    out = static_cast<uint8_t>(hi << 4 | lo);
    return true;
}

// "(seconds)" into frame.time.
bool parseTime(const std::string& token, CanFrame& frame) {
    if (token.size() < 3 || token[0] != '(' || token[token.size() - 1] != ')') return false;
    std::string inner = token.substr(1, token.size() - 2);
    char* end = nullptr;
    frame.time = strtod(inner.c_str(), &end);
    return end != inner.c_str() && *end == '\0';
}

// ID#DATA, data as pairs of hex digits, at most 8 bytes.
bool parseCompact(const std::string& token, CanFrame& frame) {
    size_t hash = token.find('#');
    if (hash == std::string::npos || !parseId(token.substr(0, hash), frame)) return false;
    std::string data = token.substr(hash + 1);
    // "##" marks a CAN FD frame, "R" a remote frame.
    if (data.size() % 2 != 0 || data.size() > 16) return false;
    frame.dlc = static_cast<uint8_t>(data.size() / 2);
    for (size_t i = 0; i < frame.dlc; ++i)
        if (!parseByte(data.c_str() + 2 * i, frame.data[i])) return false;
    return true;
}

// ID [n] B0 B1 ... from the stream that has read the interface.
bool parseSpaced(std::istringstream& in, const std::string& idToken, CanFrame& frame) {
    if (!parseId(idToken, frame)) return false;
    std::string dlcToken;
    if (!(in >> dlcToken) || dlcToken.size() != 3 || dlcToken[0] != '[' || dlcToken[2] != ']')
        return false;
    int dlc = dlcToken[1] - '0';
    if (dlc < 0 || dlc > 8) return false;
    frame.dlc = static_cast<uint8_t>(dlc);
    for (int i = 0; i < dlc; ++i) {
        std::string byteToken;
        if (!(in >> byteToken) || byteToken.size() != 2 ||
            !parseByte(byteToken.c_str(), frame.data[i]))
            return false;
    }
    return true;
}

}  // namespace

uint64_t CanFrame::dataLe() const { return zel::getLe64(data, 0); }

bool parseCandumpLine(const std::string& line, CanFrame& frame) {
    CanFrame f;
    f.time = 0;
    f.id = 0;
    f.extended = false;
    f.dlc = 0;
    memset(f.data, 0, sizeof f.data);

    std::istringstream in(line);
    std::string timeToken;
    std::string frameToken;
    if (!(in >> timeToken >> f.iface >> frameToken) || !parseTime(timeToken, f)) return false;
    bool ok = frameToken.find('#') != std::string::npos ? parseCompact(frameToken, f)
                                                        : parseSpaced(in, frameToken, f);
    if (!ok) return false;
    frame = f;
    return true;
}

bool readCandumpLog(std::istream& in, const std::string& name, std::vector<CanFrame>& frames,
                    std::string& error) {
    frames.clear();
    std::string text;
    for (int n = 1; std::getline(in, text); ++n) {
        if (text.find_first_not_of(" \t\r") == std::string::npos) continue;
        CanFrame frame;
        if (!parseCandumpLine(text, frame)) {
            error = name + ":" + std::to_string(n) +
                    ": not a classic CAN frame of candump -l or -ta";
            return false;
        }
        frames.push_back(frame);
    }
    if (frames.empty()) {
        error = name + " holds no frame";
        return false;
    }
    return true;
}

std::vector<uint8_t> canFramePayload(const CanFrame& frame) {
    std::vector<uint8_t> payload(CanFrameMsg_t::kSize, 0);
    zel::putLe32(payload.data(), CanFrameMsg_t::kCanId, frame.id);
    zel::putLe64(payload.data(), CanFrameMsg_t::kCanData, frame.dataLe());
    return payload;
}

}  // namespace zelj1939
