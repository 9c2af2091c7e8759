#include "Scenario.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

#include "ByteOrder.h"
#include "Candump.h"
#include "MessageIds.h"
#include "ScenarioSignals.h"
#include "SignalRecords.h"
#include "SignalTable.h"

namespace zelscenario {

using detail::notA;
using detail::parseReal;
using detail::parseWhole;

namespace {

typedef std::vector<std::string> Words;

const int kChannels = MdStateMsg_t::kChannels;

bool channelOf(const std::string& signal, const std::string& text, int& ch, std::string& error) {
    unsigned long long v = 0;
    if (!parseWhole(text, 1, kChannels, v)) {
        error = notA(signal, text, "a channel of 1..16");
        return false;
    }
    ch = static_cast<int>(v) - 1;
    return true;
}

bool onOff(const std::string& signal, const std::string& text, bool& on, std::string& error) {
    if (text != "on" && text != "off") {
        error = notA(signal, text, "on or off");
        return false;
    }
    on = text == "on";
    return true;
}

Step makeStep(double at, unsigned id, std::vector<uint8_t> payload, int line) {
    Step s;
    s.at = at;
    s.id = id;
    s.payload.swap(payload);
    s.line = line;
    return s;
}

std::string folderOf(const std::string& path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return std::string();
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

}  // namespace

std::vector<std::string> splitWords(const std::string& line) {
    // A '#' inside a word belongs to it, as in a CAN frame 18FEF100#FF34.
    std::vector<std::string> words;
    std::istringstream in(line);
    std::string w;
    while (in >> w && w[0] != '#') words.push_back(w);
    return words;
}

ScenarioBuilder::ScenarioBuilder(std::string baseDir)
    : m_baseDir(std::move(baseDir)), m_camera(IpcSetting_t::kSize, 0) {
    memset(m_motion, 0, sizeof m_motion);
}

std::string ScenarioBuilder::resolve(const std::string& name) const {
    if (name.empty() || name[0] == '/' || m_baseDir.empty()) return name;
    return m_baseDir + "/" + name;
}

bool ScenarioBuilder::add(double at, const std::vector<std::string>& words, int line,
                          std::vector<Step>& out, std::string& error) {
    if (words.empty()) {
        error = "no signal";
        return false;
    }
    const std::string& name = words[0];
    if (name == "input") return addInput(at, words, line, out, error);
    if (name == "motion") return addMotion(at, words, line, out, error);
    if (name == "camera") return addCamera(at, words, line, out, error);
    if (name == "cantrace") return addCanTrace(at, words, line, out, error);
    if (name == "j1939table") return addTable(at, words, line, out, error);
    unsigned id = 0;
    std::vector<uint8_t> payload;
    bool known = false;
    if (!detail::encodeStateless(words, id, payload, known, error)) {
        if (!known)
            error = "unknown signal '" + name +
                    "' (speed, input, panic, accel, gps, vehicle, alpr, motion, camera, can, "
                    "cantrace, j1939table, fence)";
        return false;
    }
    out.push_back(makeStep(at, id, payload, line));
    return true;
}

bool ScenarioBuilder::addInput(double at, const Words& w, int line, std::vector<Step>& out,
                               std::string& error) {
    if (w.size() != 3) {
        error = "input takes a number and on or off (input 3 on), or input word 0xHHHH";
        return false;
    }
    uint32_t word = m_inputWord;
    if (w[1] == "word") {
        unsigned long long v = 0;
        if (!parseWhole(w[2], 0, 0xffffffffULL, v)) {
            error = notA("input word", w[2], "a word of 0..0xFFFFFFFF");
            return false;
        }
        word = static_cast<uint32_t>(v);
    } else {
        int n = 0;
        bool on = false;
        if (!channelOf("input", w[1], n, error)) {
            error = notA("input", w[1], "an input of 1..16 or 'word'");
            return false;
        }
        if (!onOff("input", w[2], on, error)) return false;
        word = on ? (word | (1u << n)) : (word & ~(1u << n));
    }
    std::vector<uint8_t> p(IoStateMsg_t::kSize, 0);
    zel::putLe32(p.data(), IoStateMsg_t::kIoState, word);
    m_inputWord = word;
    out.push_back(makeStep(at, zel::kMsgIoState, p, line));
    return true;
}

bool ScenarioBuilder::addMotion(double at, const Words& w, int line, std::vector<Step>& out,
                                std::string& error) {
    int ch = 0;
    bool on = false;
    if (w.size() != 3) {
        error = "motion takes a channel and on or off: motion 2 on";
        return false;
    }
    if (!channelOf("motion", w[1], ch, error) || !onOff("motion", w[2], on, error)) return false;
    m_motion[ch] = on ? 1 : 0;
    std::vector<uint8_t> p(MdStateMsg_t::kSize, 0);
    for (int i = 0; i < kChannels; ++i) {
        bool digital = IpcSetting_t::chnKind(m_camera.data(), i) == IpcSetting_t::kDigital;
        p[MdStateMsg_t::kMdTag + i] = digital ? IpcSetting_t::chnTag(m_camera.data(), i) : 0;
        p[MdStateMsg_t::kMdStatus + i] = m_motion[i];
    }
    out.push_back(makeStep(at, zel::kMsgMdState, p, line));
    return true;
}

bool ScenarioBuilder::addCamera(double at, const Words& w, int line, std::vector<Step>& out,
                                std::string& error) {
    int ch = 0;
    unsigned long long tag = 0;
    if (w.size() != 4) {
        error = "camera takes a channel, video or digital, and a tag: camera 5 digital 3";
        return false;
    }
    if (!channelOf("camera", w[1], ch, error)) return false;
    if (w[2] != "video" && w[2] != "digital") {
        error = notA("camera", w[2], "video or digital");
        return false;
    }
    if (!parseWhole(w[3], 0, 255, tag)) {
        error = notA("camera", w[3], "a tag of 0..255");
        return false;
    }
    const size_t row = IpcSetting_t::kRows + IpcSetting_t::kRowSize * ch;
    m_camera[row + IpcSetting_t::kChnKind] =
        w[2] == "digital" ? IpcSetting_t::kDigital : IpcSetting_t::kVideoInput;
    m_camera[row + IpcSetting_t::kChnTag] = static_cast<uint8_t>(tag);
    out.push_back(makeStep(at, zel::kMsgIpcSetting, m_camera, line));
    return true;
}

bool ScenarioBuilder::addCanTrace(double at, const Words& w, int line, std::vector<Step>& out,
                                  std::string& error) {
    if (w.size() != 2 && w.size() != 3) {
        error = "cantrace takes a candump log and an optional speed: cantrace drive.log x4";
        return false;
    }
    double speed = 1.0;
    if (w.size() == 3 && (w[2].size() < 2 || w[2][0] != 'x' || !parseReal(w[2].substr(1), speed) ||
                          speed <= 0)) {
        error = notA("cantrace", w[2], "a speed such as x2 or x0.5");
        return false;
    }
    const std::string path = resolve(w[1]);
    std::ifstream in(path.c_str());
    if (!in) {
        error = "cantrace: cannot read " + path + ": " + std::generic_category().message(errno);
        return false;
    }
    std::vector<zelj1939::CanFrame> frames;
    if (!zelj1939::readCandumpLog(in, path, frames, error)) {
        error = "cantrace: " + error;
        return false;
    }
    const double first = frames.front().time;
    for (const zelj1939::CanFrame& frame : frames) {
        // A log of several interfaces may step back a little; never before AT.
        double offset = std::max(0.0, frame.time - first) / speed;
        out.push_back(makeStep(at + offset, zel::kMsgCanFrame,
                               zelj1939::canFramePayload(frame), line));
    }
    return true;
}

bool ScenarioBuilder::addTable(double at, const Words& w, int line, std::vector<Step>& out,
                               std::string& error) {
    if (w.size() != 2) {
        error = "j1939table takes one CSV file: j1939table signals.csv";
        return false;
    }
    const std::string path = resolve(w[1]);
    std::ifstream in(path.c_str());
    if (!in) {
        error = "j1939table: cannot read " + path + ": " + std::generic_category().message(errno);
        return false;
    }
    std::vector<zelj1939::SignalRow> rows;
    std::string why;
    if (!zelj1939::parseSignalTable(in, rows, why)) {
        error = "j1939table: " + path + ": " + why;
        return false;
    }
    out.push_back(makeStep(at, zel::kMsgJ1939Param, zelj1939::buildTablePayload(rows), line));
    return true;
}

bool parseScenario(std::istream& in, const std::string& name, const std::string& baseDir,
                   std::vector<Step>& steps, std::string& error) {
    steps.clear();
    ScenarioBuilder builder(baseDir);
    std::vector<Step> out;
    std::string text;
    double last = 0;
    for (int line = 1; std::getline(in, text); ++line) {
        Words words = splitWords(text);
        if (words.empty()) continue;
        const std::string where = name + ":" + std::to_string(line) + ": ";
        double at = 0;
        if (!parseReal(words[0], at) || at < 0) {
            error = where + "'" + words[0] + "' is not a time in seconds (AT SIGNAL ARGS...)";
            return false;
        }
        if (at < last) {
            error = where + "time " + words[0] + " is before the line above";
            return false;
        }
        last = at;
        words.erase(words.begin());
        std::string why;
        if (!builder.add(at, words, line, out, why)) {
            error = where + why;
            return false;
        }
    }
    // Trace frames reach past later lines; equal times keep file order.
    std::stable_sort(out.begin(), out.end(),
                     [](const Step& a, const Step& b) { return a.at < b.at; });
    steps.swap(out);
    return true;
}

bool loadScenario(const std::string& path, std::vector<Step>& steps, std::string& error) {
    std::ifstream in(path.c_str());
    if (!in) {
        steps.clear();
        error = path + ": cannot read: " + std::generic_category().message(errno);
        return false;
    }
    return parseScenario(in, path, folderOf(path), steps, error);
}

bool parseSignal(const std::vector<std::string>& words, const std::string& baseDir,
                 std::vector<Step>& steps, std::string& error) {
    steps.clear();
    ScenarioBuilder builder(baseDir);
    return builder.add(0, words, 0, steps, error);
}

const char* signalSyntax() {
    return "  speed V kmh|mph               speed, whole units (6777)\n"
           "  input N on|off                digital input N of 1..16 (1031)\n"
           "  input word 0xHHHH             the whole input word (1031)\n"
           "  panic press|release           panic key (1176)\n"
           "  accel X Y Z                   accelerometer, each 0 .. 127.99 (1071)\n"
           "  gps STATE                     GPS state 0..255 (1073)\n"
           "  vehicle KEY=VALUE...          systemp=, hdtemp=, volt=, ignition=on|off (1081)\n"
           "  alpr KEY=VALUE...             status=, l1= .. l4=, each 0..255 (8963)\n"
           "  motion CH on|off              motion on camera channel 1..16 (1288)\n"
           "  camera CH video|digital TAG   camera settings of a channel (320)\n"
           "  can ID#HEXDATA                one CAN frame (1089)\n"
           "  cantrace FILE [xSPEED]        every frame of a candump log (1089)\n"
           "  j1939table FILE.csv           J1939 signal table (476)\n"
           "  fence ID in|out               fence event of an area (6795)\n";
}

}  // namespace zelscenario
