// A started service with storage announced and rules marked ready, on the
// harness, with a scripted storage peer.
#ifndef ALERTZEL_TEST_LOGFIXTURE_H
#define ALERTZEL_TEST_LOGFIXTURE_H

#include <gtest/gtest.h>

#include "ByteOrder.h"
#include "Harness.h"
#include "ScriptedStorage.h"

namespace logtest {

const uint32_t kSpeedEvent = 14;

// The date-time whose 8 bytes are given, as the library would return it.
inline Common::_datetime_ dateTime(uint8_t y, uint8_t mo, uint8_t d, uint8_t h, uint8_t mi,
                                   uint8_t s, uint8_t weekday = 0) {
    Common::_datetime_ dt = {y, mo, d, h, mi, s, weekday, 0};
    return dt;
}

inline Bytes six(const Common::_datetime_& dt) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&dt);
    return Bytes(p, p + 6);
}

// One record of a message 3215 or of a state reply.
struct Report {
    uint32_t alertID;
    Bytes time;  // six bytes
    uint8_t ended;
};

// The records of an alert list payload; checks its counts on the way.
inline std::vector<Report> decodeList(const Bytes& payload) {
    std::vector<Report> list;
    EXPECT_GE(payload.size(), 8u);
    if (payload.size() < 8) return list;
    uint32_t count = zel::getLe32(payload.data(), 0);
    EXPECT_EQ(zel::getLe32(payload.data(), 4), count * 32);
    EXPECT_EQ(payload.size(), 8 + count * 32);
    for (uint32_t i = 0; i < count && 8 + 32 * (i + 1) <= payload.size(); ++i) {
        const uint8_t* rec = payload.data() + 8 + 32 * i;
        list.push_back(Report{zel::getLe32(rec, 0), Bytes(rec + 16, rec + 22), rec[24]});
    }
    return list;
}

class LogFixture : public ::testing::Test {
protected:
    void SetUp() override {
        h.start();
        h.announceStorage();
        h.cycle();
        svc().m_bParaReady = 1;
        h.clearSent();
        h.clearLines();
    }

    CAlertZelManage& svc() { return h.service(); }

    ZelAlertPara_t& addSpeedRule(uint32_t id, uint32_t atLeast = 0) {
        std::vector<sInputTrigger> triggers = {sInputTrigger{kSpeedEvent, GT, 60.0}};
        svc().m_ParaList.push_back(harness::makeRule(id, atLeast, triggers));
        return svc().m_ParaList.back();
    }

    void speed(double mph) {
        svc().m_Speed = mph;
        svc().setEventValid(kSpeedEvent);
    }

    // Ids of the messages sent so far, in order.
    std::vector<unsigned int> sentIds() {
        std::vector<unsigned int> ids;
        for (const harness::SentMessage& m : h.sent()) ids.push_back(m.id);
        return ids;
    }

    // Every message 3215 sent so far, decoded.
    std::vector<std::vector<Report>> reports() {
        std::vector<std::vector<Report>> out;
        for (const harness::SentMessage& m : h.sentWithId(3215))
            out.push_back(decodeList(m.payload));
        return out;
    }

    // Virtual seconds that fn took.
    template <class Fn>
    double timed(Fn fn) {
        int64_t t0 = h.nowUs();
        fn();
        return (h.nowUs() - t0) / 1e6;
    }

    harness::Harness h;
    ScriptedStorage storage{h};
};

}  // namespace logtest

#endif
