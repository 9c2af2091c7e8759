// Rule and area messages that arrive inside storage waits, under a walk or a
// stop, are held and applied in arrival order once the outermost walk or stop
// has ended. Such messages land at random points in the storage waits of
// running alerts; the outcome must equal that of a run that applies the same
// messages in the same order outside any wait.
#include <random>

#include "FakePlatform.h"
#include "RulesFixture.h"
#include "ScriptedStorage.h"

namespace {

using harness::Bytes;
using harness::Harness;

struct Message {
    unsigned int id;
    Bytes payload;
};

// A random mix of every kind of rule and area message, for alert ids 1 to 5.
class Script {
public:
    explicit Script(uint32_t seed) : m_rng(seed) {}
    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_rng); }
    // n elements {"ID":1..5}, with rule members when `rule`.
    std::string elements(int n, bool rule) {
        std::string s;
        for (int i = 0; i < n; ++i) {
            s += (i ? ",{\"ID\":" : "{\"ID\":") + std::to_string(pick(1, 5));
            if (rule) s += ",\"ATLEAST\":" + std::to_string(pick(0, 2));
            if (rule && pick(0, 3))
                s += ",\"SPEED\":{\"GT\":" + std::to_string(pick(2, 99)) + ".5}";
            s += "}";
        }
        return s;
    }
    Message next() {
        std::string cmd = "{\"SOURCE\":100,\"CMD\":";
        switch (pick(0, 7)) {
        case 0: return json(39564, "{\"DUMMY100\":[" + elements(pick(1, 5), true) +
                                       "],\"CIRCLE100\":[" + elements(pick(0, 2), false) + "]}");
        case 1: return json(39564, "{\"AREALINE\":[" + elements(pick(0, 3), false) + "]}");
        case 2: return json(6796, cmd + "1,\"DUMMY\":[" + elements(pick(1, 3), true) +
                                      "],\"RECT\":[" + elements(pick(0, 1), false) + "]}");
        case 3: return json(6796, cmd + "3,\"DUMMYIDS\":[" + elements(pick(1, 3), false) + "]}");
        case 4: return json(6796, cmd + "4}");
        case 5: return json(6796, cmd + "5,\"DUMMY\":[" + elements(pick(1, 3), true) + "]}");
        case 6: return {6689, rulestest::fenceState(pick(1, 5), static_cast<uint8_t>(pick(0, 1)))};
        default:
            return json(6795, "{\"SOURCE\":100,\"EVENT\":" + std::to_string(pick(0, 1)) +
                                  ",\"ID\":" + std::to_string(pick(1, 5)) + "}");
        }
    }

private:
    Message json(unsigned int id, const std::string& t) { return {id, harness::textBytes(t)}; }
    std::mt19937 m_rng;
};

const int kCycles = 200;
const int kScriptLength = 14;

// One run; what it leaves that the order of the messages decides, as text.
// With `plan` null, script messages land inside storage waits at random and
// the cycle of each landing goes to `landed`; otherwise the messages of
// plan[c] are applied right after the pass of cycle c, outside any wait, at
// the moment the held ones would have been.
std::vector<std::string> run(uint32_t seed, const std::vector<Message>& script,
                             std::vector<std::vector<int>>* landed,
                             const std::vector<std::vector<int>>* plan) {
    Harness h;
    logtest::ScriptedStorage storage(h);
    std::mt19937 rng(seed ^ 0x5eed);
    std::mt19937 delays(seed);
    std::mt19937 landing(seed ^ 0x1a2d);
    storage.replyDelay = [&] { return std::uniform_int_distribution<int64_t>(0, 400000)(delays); };
    h.start();
    h.announceStorage();
    h.cycle();
    h.deliver(rulestest::kRuleReply,
              harness::textBytes("{\"DUMMY100\":[" + Script(seed).elements(4, true) + "]}"));
    size_t nextMessage = 0;
    int cycle = 0;
    if (plan == nullptr) {
        storage.inRequest = [&](unsigned int, int64_t replyAtUs) {
            if (nextMessage >= script.size() || landing() % 3 != 0) return;
            // Landing times rise with the script, so arrival order is script order.
            int64_t at = h.nowUs();
            for (int n = 1 + landing() % 2; n > 0 && nextMessage < script.size(); --n) {
                at += static_cast<int64_t>(landing() % (replyAtUs - at + 1));
                h.injectAt(at, script[nextMessage].id, script[nextMessage].payload);
                (*landed)[cycle].push_back(static_cast<int>(nextMessage++));
            }
        };
    }
    double speed = 0;
    for (cycle = 0; cycle < kCycles; ++cycle) {
        if (cycle % 8 == 0) speed = rng() % 120;
        h.service().m_Speed = speed;
        h.service().setEventValid(harness::kSpeedEvent);
        h.cycle();
        if (plan == nullptr || (*plan)[cycle].empty()) continue;
        harness::state().nowUs -= 100000;  // back to the end of the pass, before its sleep
        for (int i : (*plan)[cycle]) h.deliver(script[i].id, script[i].payload);
        h.advance(0.1);
    }
    std::vector<std::string> out;
    for (const ZelAlertPara_t& p : h.service().m_ParaList)
        out.push_back(harness::fmt("rule %u %u %d%d%d %ld %zu ", p.alertID, p.atLeast,
                                   p.bState, p.bLastState, p.bConditionMet,
                                   static_cast<long>(p.conditionTime), p.triggers.size()) +
                      harness::hex(harness::six(p.alarmStart)) + " " +
                      harness::hex(harness::six(p.alarmEnd)));
    for (const auto& area : h.service().m_IsInGPSAreaMap)
        out.push_back(harness::fmt("area %u %d", area.first, area.second));
    for (const harness::SentMessage& m : h.sent())
        if (m.id == 3215 || m.id == 6661 || m.id == 6668 || m.id == 6671 || m.id == 6796)
            out.push_back(harness::fmt("%u@%lld ", m.id, static_cast<long long>(m.atUs)) +
                          harness::hex(m.payload));
    return out;
}

TEST(HeldMessages, RandomLandingsInStorageWaitsMatchTheSameMessagesAppliedOutsideWaits) {
    const int kRounds = 40;
    int held = 0;
    int reports = 0;
    for (uint32_t seed = 20260305; seed < 20260305u + kRounds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Script gen(seed * 7);
        std::vector<Message> script;
        for (int i = 0; i < kScriptLength; ++i) script.push_back(gen.next());
        std::vector<std::vector<int>> landed(kCycles);
        std::vector<std::string> inWaits = run(seed, script, &landed, nullptr);
        ASSERT_EQ(inWaits, run(seed, script, nullptr, &landed));
        for (const std::vector<int>& l : landed) held += static_cast<int>(l.size());
        for (const std::string& s : inWaits) reports += s.compare(0, 5, "3215@") == 0;
    }
    // The rounds did exercise what they are about.
    EXPECT_GT(held, kRounds * kScriptLength / 2);
    EXPECT_GT(reports, kRounds * 4);
}

}  // namespace
