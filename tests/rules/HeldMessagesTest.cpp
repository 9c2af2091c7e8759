// Rule and area messages that arrive inside storage waits, under a walk or a
// stop, are held and applied in arrival order once the outermost walk or stop
// has ended. The randomized test lets such messages land at random points in
// the storage waits of running alerts, and compares the outcome with a run
// that applies the same messages in the same order outside any wait.
#include <random>

#include <gtest/gtest.h>

#include "FakePlatform.h"
#include "RulesFixture.h"
#include "ScriptedStorage.h"

namespace {

using harness::Bytes;
using harness::Harness;
using harness::SentMessage;

struct Message {
    unsigned int id;
    Bytes payload;
};

// Storage that answers every write and size request after a delay drawn
// from its own generator.
struct Storage : logtest::ScriptedStorage {
    Storage(Harness& h, uint32_t seed) : ScriptedStorage(h), m_delays(seed) {
        replyDelay = [this] { return std::uniform_int_distribution<int64_t>(0, 400000)(m_delays); };
    }
    std::mt19937 m_delays;
};

// A random mix of every kind of rule and area message, for alert ids 1 to 5.
class Script {
public:
    explicit Script(uint32_t seed) : m_rng(seed) {}

    std::vector<Message> make(int count) {
        std::vector<Message> out;
        for (int i = 0; i < count; ++i) out.push_back(next());
        return out;
    }
    std::string rules(int n) {
        std::string s;
        for (int i = 0; i < n; ++i) {
            s += (i ? ",{\"ID\":" : "{\"ID\":") + std::to_string(pick(1, 5)) +
                 ",\"ATLEAST\":" + std::to_string(pick(0, 2));
            if (pick(0, 3)) s += ",\"SPEED\":{\"GT\":" + std::to_string(pick(2, 10) * 10) + ".5}";
            s += "}";
        }
        return s;
    }

private:
    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_rng); }
    std::string ids(int n) {
        std::string s;
        for (int i = 0; i < n; ++i)
            s += (i ? ",{\"ID\":" : "{\"ID\":") + std::to_string(pick(1, 5)) + "}";
        return s;
    }
    Message json(unsigned int id, const std::string& text) {
        return {id, harness::textBytes(text)};
    }
    Message next() {
        std::string cmd = "{\"SOURCE\":100,\"CMD\":";
        switch (pick(0, 7)) {
        case 0:
            return json(39564, "{\"DUMMY100\":[" + rules(pick(1, 5)) + "],\"CIRCLE100\":[" +
                                   ids(pick(0, 2)) + "]}");
        case 1: return json(39564, "{\"AREALINE\":[" + ids(pick(0, 3)) + "]}");
        case 2:
            return json(6796, cmd + "1,\"DUMMY\":[" + rules(pick(1, 3)) + "],\"RECT\":[" +
                                  ids(pick(0, 1)) + "]}");
        case 3: return json(6796, cmd + "3,\"DUMMYIDS\":[" + ids(pick(1, 3)) + "]}");
        case 4: return json(6796, cmd + "4}");
        case 5: return json(6796, cmd + "5,\"DUMMY\":[" + rules(pick(1, 3)) + "]}");
        case 6: return {6689, rulestest::fenceState(pick(1, 5), static_cast<uint8_t>(pick(0, 1)))};
        default:
            return json(6795, "{\"SOURCE\":100,\"EVENT\":" + std::to_string(pick(0, 1)) +
                                  ",\"ID\":" + std::to_string(pick(1, 5)) + "}");
        }
    }
    std::mt19937 m_rng;
};

// Everything a run leaves that the order of the messages decides.
struct Outcome {
    std::vector<std::string> rules;
    std::map<uint32_t, bool> areas;
    std::vector<std::string> sent;
    int held = 0;
};

// A rule with its run state, as text.
std::string describe(const ZelAlertPara_t& p) {
    std::string s = harness::fmt("%u atLeast %u state %d%d%d since %ld from ", p.alertID, p.atLeast,
                                 p.bState, p.bLastState, p.bConditionMet,
                                 static_cast<long>(p.conditionTime)) +
                    harness::hex(harness::six(p.alarmStart)) + " to " +
                    harness::hex(harness::six(p.alarmEnd));
    for (const sInputTrigger& t : p.triggers)
        s += harness::fmt(" %u:%d:%f", t.Event, static_cast<int>(t.Type), t.Value);
    return s;
}

const int kCycles = 200;
const int kScriptLength = 14;

// One run. With `plan` null, script messages land inside storage waits at
// random and the cycle of each landing is written to `landed`; otherwise the
// messages of `plan[c]` are applied right after the pass of cycle c, outside
// any wait, at the moment the held ones would have been.
Outcome run(uint32_t seed, const std::vector<Message>& script,
            std::vector<std::vector<int>>* landed, const std::vector<std::vector<int>>* plan) {
    Harness h;
    Storage storage(h, seed);
    std::mt19937 rng(seed ^ 0x5eed);
    std::vector<double> speeds;
    for (int c = 0; c < kCycles; ++c)
        speeds.push_back(c % 8 == 0 || speeds.empty() ? rng() % 120 : speeds.back());

    h.start();
    h.announceStorage();
    h.cycle();
    std::string firstSet = "{\"DUMMY100\":[" + Script(seed).rules(4) + "]}";
    h.deliver(rulestest::kRuleReply, harness::textBytes(firstSet));

    Outcome out;
    size_t nextMessage = 0;
    int cycle = 0;
    std::mt19937 landing(seed ^ 0x1a2d);
    if (plan == nullptr) {
        storage.inRequest = [&](unsigned int, int64_t replyAtUs) {
            if (nextMessage >= script.size() || landing() % 3 != 0) return;
            EXPECT_GT(h.service().m_BusyDepth, 0);
            // Landing times rise with the script, so arrival order is script order.
            int64_t at = h.nowUs();
            for (int n = 1 + landing() % 2; n > 0 && nextMessage < script.size(); --n) {
                const Message& m = script[nextMessage];
                at += static_cast<int64_t>(landing() % (replyAtUs - at + 1));
                h.injectAt(at, m.id, m.payload);
                (*landed)[cycle].push_back(static_cast<int>(nextMessage++));
                ++out.held;
            }
        };
    }
    for (cycle = 0; cycle < kCycles; ++cycle) {
        h.service().m_Speed = speeds[cycle];
        h.service().setEventValid(harness::kSpeedEvent);
        h.cycle();
        if (plan == nullptr || (*plan)[cycle].empty()) continue;
        harness::state().nowUs -= 100000;  // back to the end of the pass, before its sleep
        for (int i : (*plan)[cycle]) h.deliver(script[i].id, script[i].payload);
        h.advance(0.1);
    }
    for (const ZelAlertPara_t& p : h.service().m_ParaList) out.rules.push_back(describe(p));
    out.areas = h.service().m_IsInGPSAreaMap;
    for (const SentMessage& m : h.sent())
        if (m.id == 3215 || m.id == 6661 || m.id == 6668 || m.id == 6671 || m.id == 6796)
            out.sent.push_back(std::to_string(m.id) + "@" + std::to_string(m.atUs) + " " +
                               harness::hex(m.payload));
    return out;
}

TEST(HeldMessages, RandomLandingsInStorageWaitsMatchTheSameMessagesAppliedOutsideWaits) {
    const uint32_t kBaseSeed = 20260305;
    const int kRounds = 150;
    int held = 0, reports = 0;
    for (int round = 0; round < kRounds; ++round) {
        uint32_t seed = kBaseSeed + static_cast<uint32_t>(round);
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::vector<Message> script = Script(seed * 7).make(kScriptLength);
        std::vector<std::vector<int>> landed(kCycles);
        Outcome inWaits = run(seed, script, &landed, nullptr);
        Outcome outside = run(seed, script, nullptr, &landed);
        EXPECT_EQ(inWaits.rules, outside.rules);
        EXPECT_EQ(inWaits.areas, outside.areas);
        ASSERT_EQ(inWaits.sent, outside.sent);
        held += inWaits.held;
        for (const std::string& s : inWaits.sent) reports += s.compare(0, 4, "3215") == 0;
    }
    // The rounds did exercise what they are about.
    EXPECT_GT(held, kRounds * kScriptLength / 2);
    EXPECT_GT(reports, kRounds * 4);
}

}  // namespace
