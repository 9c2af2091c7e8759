// Shared set-up of the rule tests: a started service whose storage has
// announced itself, and short ways to send rule and area messages.
#ifndef ALERTZEL_TEST_RULESFIXTURE_H
#define ALERTZEL_TEST_RULESFIXTURE_H

#include "ServiceFixture.h"

namespace rulestest {

const unsigned int kRuleReply = 39564, kPlatform = 6796, kFenceState = 6689, kFenceEvent = 6795;

// A fence state record (6689) of `length` payload bytes.
inline harness::Bytes fenceState(uint32_t id, uint8_t flagByte, size_t length = 3352) {
    harness::Bytes b(length, 0);
    b[0] = flagByte;
    for (int i = 0; i < 4; ++i) b[4 + i] = static_cast<uint8_t>(id >> (8 * i));
    return b;
}

// Storage up, rules not yet received.
class RulesTest : public harness::ServiceTest {
protected:
    void SetUp() override { up(true, false); }

    std::list<ZelAlertPara_t>& rules() { return svc().m_ParaList; }
    std::map<uint32_t, bool>& areas() { return svc().m_IsInGPSAreaMap; }
    // Messages handed straight to their handler, outside any wait.
    void reply(const std::string& json) { h.deliver(kRuleReply, harness::textBytes(json)); }
    void push(const std::string& json) { h.deliver(kPlatform, harness::textBytes(json)); }

    std::vector<uint32_t> ruleIds() {
        std::vector<uint32_t> ids;
        for (const ZelAlertPara_t& p : rules()) ids.push_back(p.alertID);
        return ids;
    }
    // Requests on 6796, as their texts.
    std::vector<std::string> requests() {
        std::vector<std::string> out;
        for (const harness::SentMessage& m : h.sentWithId(kPlatform))
            out.emplace_back(m.payload.begin(), m.payload.end());
        return out;
    }
};

}  // namespace rulestest

#endif  // ALERTZEL_TEST_RULESFIXTURE_H
