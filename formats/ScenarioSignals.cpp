#include "ScenarioSignals.h"

#include <errno.h>
#include <stdlib.h>

#include <cmath>
#include <map>

#include "ByteOrder.h"
#include "Candump.h"
#include "MessageIds.h"
#include "SignalRecords.h"
#include "SignalTable.h"

namespace zelscenario::detail {

bool parseWhole(const std::string& text, unsigned long long lo, unsigned long long hi,
                unsigned long long& out) {
    unsigned long long v = 0;
    if (!zelj1939::parseWhole(text, v) || v < lo || v > hi) return false;
    out = v;
    return true;
}

bool parseReal(const std::string& text, double& out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    double v = strtod(text.c_str(), &end);
    if (errno != 0 || end == text.c_str() || *end != '\0' || !std::isfinite(v)) return false;
    out = v;
    return true;
}

std::string notA(const std::string& what, const std::string& text, const std::string& kind) {
    return what + ": '" + text + "' is not " + kind;
}

namespace {

typedef std::vector<std::string> Words;

bool wrongCount(const Words& w, size_t n, const char* form, std::string& error) {
    if (w.size() == n) return false;
    error = w[0] + " takes " + form;
    return true;
}

bool encodeSpeed(const Words& w, std::vector<uint8_t>& p, std::string& error) {
    if (wrongCount(w, 3, "a value and a unit: speed 70 kmh", error)) return false;
    unsigned long long v = 0;
    if (!parseWhole(w[1], 0, 0xffffffffULL, v)) {
        error = notA("speed", w[1], "a whole number of 0..4294967295");
        return false;
    }
    if (w[2] != "kmh" && w[2] != "mph") {
        error = notA("speed", w[2], "a unit (kmh or mph)");
        return false;
    }
    p.assign(SpeedInfoMsg_t::kSize, 0);
    zel::putU8(p.data(), SpeedInfoMsg_t::kSpeedUnit, w[2] == "mph" ? 1 : 0);
    zel::putLe32(p.data(), SpeedInfoMsg_t::kCurSpeed, static_cast<uint32_t>(v));
    return true;
}

bool encodePanic(const Words& w, std::vector<uint8_t>& p, std::string& error) {
    if (wrongCount(w, 2, "press or release", error)) return false;
    if (w[1] != "press" && w[1] != "release") {
        error = notA("panic", w[1], "press or release");
        return false;
    }
    // The key state codes: 0x31 pressed, 0x32 released; the flag makes the
    // record count.
    p.assign(PanicKeyMsg_t::kSize, 0);
    zel::putU8(p.data(), PanicKeyMsg_t::kKeyState, w[1] == "press" ? 0x31 : 0x32);
    zel::putU8(p.data(), PanicKeyMsg_t::kKeyFlags, PanicKeyMsg_t::kFlagCounts);
    return true;
}

bool encodeAccel(const Words& w, std::vector<uint8_t>& p, std::string& error) {
    if (wrongCount(w, 4, "three values: accel X Y Z", error)) return false;
    const size_t at[3] = {AccDataMsg_t::kAccX, AccDataMsg_t::kAccY, AccDataMsg_t::kAccZ};
    p.assign(AccDataMsg_t::kSize, 0);
    for (int i = 0; i < 3; ++i) {
        double v = 0;
        // The fine form: bit 15 set, the value in 1/256 units in bits 0..14.
        long scaled = parseReal(w[1 + i], v) && v >= 0 ? std::lround(v * 256.0) : -1;
        if (scaled < 0 || scaled > 0x7fff) {
            error = notA("accel", w[1 + i], "a number of 0 .. 127.99");
            p.clear();
            return false;
        }
        zel::putLe16(p.data(), at[i], static_cast<uint16_t>(0x8000 | scaled));
    }
    return true;
}

bool encodeGps(const Words& w, std::vector<uint8_t>& p, std::string& error) {
    if (wrongCount(w, 2, "a state: gps 1", error)) return false;
    unsigned long long v = 0;
    if (!parseWhole(w[1], 0, 255, v)) {
        error = notA("gps", w[1], "a state of 0..255");
        return false;
    }
    p.assign(GpsInfoMsg_t::kSize, 0);
    zel::putU8(p.data(), GpsInfoMsg_t::kGpsState, static_cast<uint8_t>(v));
    return true;
}

// KEY=VALUE words behind the signal's name, each key once.
bool splitPairs(const Words& w, std::map<std::string, std::string>& pairs, std::string& error) {
    if (w.size() < 2) {
        error = w[0] + " takes KEY=VALUE pairs";
        return false;
    }
    for (size_t i = 1; i < w.size(); ++i) {
        size_t eq = w[i].find('=');
        if (eq == std::string::npos || eq == 0) {
            error = notA(w[0], w[i], "KEY=VALUE");
            return false;
        }
        if (!pairs.insert(std::make_pair(w[i].substr(0, eq), w[i].substr(eq + 1))).second) {
            error = w[0] + ": " + w[i].substr(0, eq) + " is given twice";
            return false;
        }
    }
    return true;
}

// Hundredths of `text`, within lo..hi; whole part and hundredths share the
// sign, as the vehicle record adds them.
bool hundredths(const std::string& key, const std::string& text, long lo, long hi, long& out,
                std::string& error) {
    double v = 0;
    if (!parseReal(text, v) || std::lround(v * 100.0) < lo || std::lround(v * 100.0) > hi) {
        error = notA("vehicle " + key, text, "a number of " + std::to_string(lo / 100) + " .. " +
                                                 std::to_string(hi / 100) + ".99");
        return false;
    }
    out = std::lround(v * 100.0);
    return true;
}

bool encodeVehicle(const Words& w, std::vector<uint8_t>& p, std::string& error) {
    typedef VehicleInfoMsg_t V;
    std::map<std::string, std::string> pairs;
    if (!splitPairs(w, pairs, error)) return false;
    std::vector<uint8_t> r(V::kSize, 0);
    uint32_t vehicleMask = 0;
    uint32_t statusMask = 0;
    uint16_t tempMask = 0;
    uint8_t status = 0;
    for (const auto& kv : pairs) {
        long h = 0;
        if (kv.first == "systemp" || kv.first == "hdtemp") {
            if (!hundredths(kv.first, kv.second, -32700, 32700, h, error)) return false;
            bool sys = kv.first == "systemp";
            zel::putLe16(r.data(), sys ? V::kSysTempInt : V::kDiskTempInt,
                         static_cast<uint16_t>(static_cast<int16_t>(h / 100)));
            zel::putLe16(r.data(), sys ? V::kSysTempDec : V::kDiskTempDec,
                         static_cast<uint16_t>(static_cast<int16_t>(h % 100)));
            vehicleMask |= V::kHasTemps;
            tempMask |= sys ? V::kSysTempPresent : V::kDiskTempPresent;
            if (!sys) {
                // Disk status present, both status bits clear: usable.
                vehicleMask |= V::kHasStatus;
                statusMask |= V::kDiskStatusPresent;
            }
        } else if (kv.first == "volt") {
            if (!hundredths(kv.first, kv.second, 0, 25599, h, error)) return false;
            zel::putU8(r.data(), V::kVoltInt, static_cast<uint8_t>(h / 100));
            zel::putU8(r.data(), V::kVoltDec, static_cast<uint8_t>(h % 100));
            vehicleMask |= V::kHasVolt;
            zel::putLe32(r.data(), V::kVoltMask, V::kVoltPresent);
        } else if (kv.first == "ignition") {
            if (kv.second != "on" && kv.second != "off") {
                error = notA("vehicle ignition", kv.second, "on or off");
                return false;
            }
            vehicleMask |= V::kHasStatus;
            statusMask |= V::kIgnitionPresent;
            if (kv.second == "on") status |= V::kIgnitionOn;
        } else {
            error = "vehicle: unknown key '" + kv.first + "' (systemp, hdtemp, volt, ignition)";
            return false;
        }
    }
    zel::putLe32(r.data(), V::kVehicleMask, vehicleMask);
    zel::putLe16(r.data(), V::kTempMask, tempMask);
    zel::putLe32(r.data(), V::kStatusMask, statusMask);
    zel::putU8(r.data(), V::kStatus, status);
    p.swap(r);
    return true;
}

bool encodeAlpr(const Words& w, std::vector<uint8_t>& p, std::string& error) {
    static const char* const kKeys[AlprEventMsg_t::kValueCount] = {"status", "l1", "l2", "l3",
                                                                    "l4"};
    std::map<std::string, std::string> pairs;
    if (!splitPairs(w, pairs, error)) return false;
    std::vector<uint8_t> r(AlprEventMsg_t::kSize, 0);
    uint8_t mask = 0;
    for (const auto& kv : pairs) {
        int i = 0;
        while (i < AlprEventMsg_t::kValueCount && kv.first != kKeys[i]) ++i;
        if (i == AlprEventMsg_t::kValueCount) {
            error = "alpr: unknown key '" + kv.first + "' (status, l1, l2, l3, l4)";
            return false;
        }
        unsigned long long v = 0;
        if (!parseWhole(kv.second, 0, 255, v)) {
            error = notA("alpr " + kv.first, kv.second, "a value of 0..255");
            return false;
        }
        mask = static_cast<uint8_t>(mask | (1u << i));
        zel::putU8(r.data(), AlprEventMsg_t::kValues + i, static_cast<uint8_t>(v));
    }
    zel::putU8(r.data(), AlprEventMsg_t::kAlprMask, mask);
    p.swap(r);
    return true;
}

bool encodeCan(const Words& w, std::vector<uint8_t>& p, std::string& error) {
    if (wrongCount(w, 2, "one frame: can 18FEF100#FF3417FCFF6800CF", error)) return false;
    zelj1939::CanFrame frame;
    if (!zelj1939::parseCandumpLine("(0) can0 " + w[1], frame)) {
        error = notA("can", w[1], "a frame ID#HEXDATA (3 or 8 hex digit id, up to 8 bytes)");
        return false;
    }
    p = zelj1939::canFramePayload(frame);
    return true;
}

bool encodeFence(const Words& w, std::vector<uint8_t>& p, std::string& error) {
    if (wrongCount(w, 3, "an area and in or out: fence 7 in", error)) return false;
    unsigned long long id = 0;
    if (!parseWhole(w[1], 0, 0xffffffffULL, id)) {
        error = notA("fence", w[1], "an area id of 0..4294967295");
        return false;
    }
    if (w[2] != "in" && w[2] != "out") {
        error = notA("fence", w[2], "in or out");
        return false;
    }
    std::string text = "{\"SOURCE\":100,\"EVENT\":" + std::string(w[2] == "in" ? "1" : "0") +
                       ",\"ID\":" + std::to_string(id) + "}";
    p.assign(text.begin(), text.end());
    return true;
}

}  // namespace

bool encodeStateless(const std::vector<std::string>& words, unsigned& id,
                     std::vector<uint8_t>& payload, bool& known, std::string& error) {
    typedef bool (*Encoder)(const Words&, std::vector<uint8_t>&, std::string&);
    struct Entry {
        const char* name;
        unsigned id;
        Encoder encode;
    };
    static const Entry kSignals[] = {
        {"speed", zel::kMsgSpeedInfo, encodeSpeed},  {"panic", zel::kMsgPanicKey, encodePanic},
        {"accel", zel::kMsgAccData, encodeAccel},    {"gps", zel::kMsgGpsInfo, encodeGps},
        {"vehicle", zel::kMsgVehicleInfo, encodeVehicle},
        {"alpr", zel::kMsgAlprEvent, encodeAlpr},    {"can", zel::kMsgCanFrame, encodeCan},
        {"fence", zel::kMsgFenceEvent, encodeFence},
    };
    known = false;
    for (const Entry& e : kSignals) {
        if (words[0] != e.name) continue;
        known = true;
        id = e.id;
        return e.encode(words, payload, error);
    }
    return false;
}

}  // namespace zelscenario::detail
