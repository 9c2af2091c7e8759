// Arbitrary bytes and arbitrary JSON, from a seeded generator, to the rule and
// area handlers: nothing may crash or throw, and what the parser keeps stays
// well formed.
#include <random>

#include <gtest/gtest.h>

#include "RulesFixture.h"

namespace {

using rulestest::RulesTest;

const unsigned int kRuleIds[] = {39564, 6796, 6795, 6689};

const char* const kKeys[] = {
    "DUMMY100", "DUMMY", "DUMMYIDS", "AREALINE", "CIRCLE100", "LINE100", "CIRCLE", "RECT",
    "CMD", "SOURCE", "ID", "EVENT", "ATLEAST", "STARTIME", "ENDTIME", "GT", "LT", "EQ",
    "SPEED", "IN1", "PANIC", "J193963", "ALPR_radarL4", "x"};

class JsonGenerator {
public:
    explicit JsonGenerator(uint32_t seed) : m_rng(seed) {}

    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(m_rng); }

    Json::Value value(int depth) {
        switch (pick(0, depth > 3 ? 6 : 9)) {
        case 0: return Json::Value();
        case 1: return Json::Value(pick(0, 1) == 1);
        case 2: return Json::Value(pick(-3, 8));
        case 3: return Json::Value(static_cast<Json::UInt>(m_rng()));
        case 4: return Json::Value(pick(-1000, 1000) / 7.0);
        case 5: return Json::Value(static_cast<Json::Int64>(m_rng()) << 31);
        case 6: {
            static const char* const kTexts[] = {"", "2021/06/15 08:30:00", "0/0/0 8:0:0",
                                                 "2021/13/01 00:00:00x", "x", "GT"};
            return Json::Value(kTexts[pick(0, 5)]);
        }
        case 7: case 8: {
            Json::Value o(Json::objectValue);
            for (int n = pick(0, 5); n > 0; --n)
                o[kKeys[pick(0, sizeof kKeys / sizeof kKeys[0] - 1)]] = value(depth + 1);
            return o;
        }
        default: return array(depth);
        }
    }

    Json::Value array(int depth) {
        Json::Value a(Json::arrayValue);
        for (int n = pick(0, 4); n > 0; --n) a.append(value(depth + 1));
        return a;
    }

    // An object shaped like a rule or an area element: mostly a small id and
    // a few members of any type.
    Json::Value ruleLike() {
        Json::Value o = pick(0, 5) ? Json::Value(Json::objectValue) : value(2);
        if (!o.isObject()) return o;
        o["ID"] = pick(0, 4) ? Json::Value(pick(0, 6)) : value(2);
        for (int n = pick(0, 4); n > 0; --n)
            o[kKeys[pick(0, sizeof kKeys / sizeof kKeys[0] - 1)]] = value(2);
        return o;
    }
    Json::Value ruleArray() {
        if (pick(0, 5) == 0) return value(1);
        Json::Value a(Json::arrayValue);
        for (int n = pick(0, 4); n > 0; --n) a.append(ruleLike());
        return a;
    }

    // A message for `id`: mostly of the shape its handler expects, with
    // members of any type, sometimes cut short or with a byte changed.
    std::string text(unsigned int& id) {
        Json::Value root;
        switch (pick(0, 4)) {
        case 0: root = value(0); break;
        case 1:
            id = 6796;
            root["SOURCE"] = pick(0, 5) ? Json::Value(100) : value(1);
            root["CMD"] = pick(0, 5) ? Json::Value(pick(0, 6)) : value(1);
            for (const char* key : {"DUMMY", "DUMMYIDS", "CIRCLE", "RECT"})
                if (pick(0, 2)) root[key] = ruleArray();
            break;
        case 2:
            id = 39564;
            for (const char* key : {"DUMMY100", "AREALINE", "LINE100", "CIRCLE100"})
                if (pick(0, 2)) root[key] = ruleArray();
            break;
        default:
            id = 6795;
            root["SOURCE"] = 100;
            root["EVENT"] = pick(0, 3) ? Json::Value(pick(-1, 2)) : value(1);
            root["ID"] = pick(0, 3) ? Json::Value(pick(0, 6)) : value(1);
            break;
        }
        std::string s = Json::FastWriter().write(root);
        if (pick(0, 9) == 0 && !s.empty()) s.resize(pick(0, static_cast<int>(s.size())));
        if (pick(0, 9) == 0 && !s.empty()) s[pick(0, static_cast<int>(s.size()) - 1)] ^= 0x20;
        return s;
    }

    harness::Bytes bytes() {
        harness::Bytes b(pick(0, 1) ? pick(0, 64) : pick(3340, 3880));
        for (uint8_t& c : b) c = static_cast<uint8_t>(m_rng());
        return b;
    }

private:
    std::mt19937 m_rng;
};

// Triggers in strictly ascending event order, all of them known events.
void expectWellFormed(const decltype(CAlertZelManage::m_ParaList)& rules) {
    for (const ZelAlertPara_t& p : rules) {
        int last = -1;
        for (const sInputTrigger& t : p.triggers) {
            EXPECT_GT(static_cast<int>(t.Event), last);
            EXPECT_LT(t.Event, 103u);
            EXPECT_LE(static_cast<int>(t.Type), 2);
            last = static_cast<int>(t.Event);
        }
    }
}

TEST_F(RulesTest, ArbitraryBytesAndJsonNeverStopTheService) {
    // Storage answers at once, so that alerts rise and stops reach their waits.
    h.onSend(6661, [&](const harness::SentMessage&) { h.inject(39429, harness::Bytes(8, 0)); });
    h.onSend(6671, [&](const harness::SentMessage&) {
        harness::Bytes r(32, 0);
        r[24] = 144;
        h.inject(39439, r);
    });
    const uint32_t kSeed = 0xA1E27;
    const int kRounds = 3000;
    JsonGenerator gen(kSeed);
    for (int round = 0; round < kRounds; ++round) {
        unsigned int id = kRuleIds[gen.pick(0, 3)];
        switch (gen.pick(0, 3)) {
        case 0: h.deliver(id, gen.bytes()); break;
        case 1:
            h.injectClaiming(id, static_cast<uint32_t>(gen.pick(0, 0x7fffff)), gen.bytes());
            break;
        default: {
            std::string text = gen.text(id);
            h.inject(id, text);
            break;
        }
        }
        if (round % 3 == 0) h.cycle();
        if (round % 500 == 0) {
            h.clearLines();
            h.clearSent();
        }
    }
    h.cycle();
    expectWellFormed(rules());
    EXPECT_TRUE(svc().m_HeldMessages.empty());
    EXPECT_EQ(svc().m_BusyDepth, 0);
}

}  // namespace
