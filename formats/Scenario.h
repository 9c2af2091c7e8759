// Scenarios: a readable timed list of signals, turned into the bus messages
// the alert service takes. Shared by the signal player, zelctl send and the
// replay tool, so that a scenario means the same bytes everywhere.
//
// A scenario is a text file with one step per line:
//
//     AT SIGNAL ARGS...          # a comment runs to the end of the line
//
// AT is seconds from the start (decimals allowed) and never decreases from
// one line to the next. A '#' that begins a word starts a comment (one inside
// a word, as in a CAN frame, does not). Blank lines are skipped. The signals:
//
//   speed V kmh|mph               6777, V whole units
//   input N on|off                1031, input N (1..16) of the running word
//   input word 0xHHHH             1031, the whole word
//   panic press|release           1176
//   accel X Y Z                   1071, each 0 .. 127.99 (units of the rule)
//   gps STATE                     1073, STATE 0..255
//   vehicle KEY=VALUE...          1081, keys systemp, hdtemp, volt,
//                                 ignition=on|off; a given hdtemp comes with
//                                 a disk status of "usable"
//   alpr KEY=VALUE...             8963, keys status, l1, l2, l3, l4 (0..255)
//   motion CH on|off              1288, channel CH (1..16) of the running
//                                 motion state
//   camera CH video|digital TAG   320, row CH of the running settings block
//   can ID#HEXDATA                1089, one CAN frame (3 or 8 hex digit id)
//   cantrace FILE [xSPEED]        1089 for each frame of a candump log (-l or
//                                 -ta form), at AT plus the frame's offset
//                                 from the log's first frame, / SPEED
//   j1939table FILE.csv           476, the J1939 table built from the CSV
//   fence ID in|out               6795, the fence event of area ID
//
// "Running" state (input word, motion state, settings block) starts at zero
// and carries from one step to the next in file order. A motion entry of a
// channel that the running settings block makes digital carries that row's
// tag, so that the service counts it; every other entry carries tag 0.
// Relative file names resolve against the scenario file's folder.
//
// Not thread-safe; a ScenarioBuilder belongs to one caller.
#ifndef ZELFORMATS_SCENARIO_H
#define ZELFORMATS_SCENARIO_H

#include <stdint.h>

#include <istream>
#include <string>
#include <vector>

namespace zelscenario {

// One message to send: `payload` under message id `id`, `at` seconds from
// the start. `line` is the scenario line that made it.
struct Step {
    double at;
    unsigned id;
    std::vector<uint8_t> payload;
    int line;
};

// Turns signals into steps, keeping the running state between calls.
class ScenarioBuilder {
public:
    // baseDir: folder that relative file names resolve against ("" = the
    // working folder).
    explicit ScenarioBuilder(std::string baseDir);

    // Appends the messages of one signal (words[0] is its name) at `at`,
    // tagged with `line`. On a refusal returns false with `error` saying
    // what is wrong (without a file or line), and leaves `out` and the
    // running state as they were.
    bool add(double at, const std::vector<std::string>& words, int line, std::vector<Step>& out,
             std::string& error);

private:
    bool addInput(double at, const std::vector<std::string>& w, int line,
                  std::vector<Step>& out, std::string& error);
    bool addMotion(double at, const std::vector<std::string>& w, int line,
                   std::vector<Step>& out, std::string& error);
    bool addCamera(double at, const std::vector<std::string>& w, int line,
                   std::vector<Step>& out, std::string& error);
    bool addCanTrace(double at, const std::vector<std::string>& w, int line,
                     std::vector<Step>& out, std::string& error);
    bool addTable(double at, const std::vector<std::string>& w, int line,
                  std::vector<Step>& out, std::string& error);
    std::string resolve(const std::string& name) const;

    std::string m_baseDir;
    uint32_t m_inputWord = 0;
    uint8_t m_motion[16];
    std::vector<uint8_t> m_camera;
};

// Reads a whole scenario from `in`. `name` prefixes errors, which have the
// form "NAME:LINE: what". Steps come out ordered by time; steps of equal
// time keep their file order. On failure `steps` is left empty.
bool parseScenario(std::istream& in, const std::string& name, const std::string& baseDir,
                   std::vector<Step>& steps, std::string& error);

// Reads the scenario file at `path`; relative names inside resolve against
// its folder.
bool loadScenario(const std::string& path, std::vector<Step>& steps, std::string& error);

// One signal without a time, as typed on a command line: its messages at
// time 0, from a zero running state.
bool parseSignal(const std::vector<std::string>& words, const std::string& baseDir,
                 std::vector<Step>& steps, std::string& error);

// The list of signals and their arguments, for usage texts.
const char* signalSyntax();

// Splits a line into words at blanks and tabs, up to a word that begins
// with '#'.
std::vector<std::string> splitWords(const std::string& line);

}  // namespace zelscenario

#endif  // ZELFORMATS_SCENARIO_H
