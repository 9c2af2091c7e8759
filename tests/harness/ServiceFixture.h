// Fixtures of the component tests: a started service on the harness, and
// short ways to add rules, set the speed, send a signal and read back the
// alert lists the service sent.
#ifndef ALERTZEL_TEST_SERVICEFIXTURE_H
#define ALERTZEL_TEST_SERVICEFIXTURE_H

#include <stdarg.h>
#include <stdio.h>

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ByteOrder.h"
#include "Harness.h"

namespace harness {

const uint32_t kSpeedEvent = 14;

inline Bytes six(const Common::_datetime_& dt) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&dt);
    return Bytes(p, p + 6);
}

inline Common::_datetime_ dateTime(uint8_t y, uint8_t mo, uint8_t d, uint8_t h, uint8_t mi,
                                   uint8_t s, uint8_t weekday = 0) {
    return Common::_datetime_{y, mo, d, h, mi, s, weekday, 0};
}

inline std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
inline std::string fmt(const char* format, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, format);
    vsnprintf(buf, sizeof buf, format, ap);
    va_end(ap);
    return buf;
}

// One record of an alert list (message 3215, or the reply to 3216).
struct Report {
    uint32_t alertID;
    Bytes time;  // six bytes
    uint8_t ended;
    bool operator==(const Report& o) const {
        return alertID == o.alertID && time == o.time && ended == o.ended;
    }
};
inline void PrintTo(const Report& r, std::ostream* os) {
    *os << "{alert " << r.alertID << (r.ended ? " ended " : " began ") << hex(r.time) << "}";
}

// The records of an alert list; checks its counts and zero fields on the way.
inline std::vector<Report> decodeList(const Bytes& payload) {
    std::vector<Report> list;
    EXPECT_GE(payload.size(), 8u);
    if (payload.size() < 8) return list;
    uint32_t count = zel::getLe32(payload.data(), 0);
    EXPECT_EQ(zel::getLe32(payload.data(), 4), count * 32);
    EXPECT_EQ(payload.size(), 8 + count * 32);
    for (uint32_t i = 0; i < count && 8 + 32 * (i + 1) <= payload.size(); ++i) {
        const uint8_t* rec = payload.data() + 8 + 32 * i;
        EXPECT_EQ(zel::getLe64(rec, 8), 0u);
        list.push_back(Report{zel::getLe32(rec, 0), Bytes(rec + 16, rec + 22), rec[24]});
    }
    return list;
}

// One diagnostic line: its level, the operation that printed it and its text.
struct Line {
    int level;
    std::string func, text;
    bool operator==(const Line& o) const {
        return level == o.level && func == o.func && text == o.text;
    }
};
// A line as a row of a test table, to paste where the service's lines
// changed on purpose.
inline std::string rowOf(const Line& l) {
    std::string text = "\"";
    for (char c : l.text) {
        if (c == '\n') text += "\\n";
        else if (c == '\r') text += "\\r";
        else if (c == '\t') text += "\\t";
        else if (c == '"' || c == '\\') text += std::string("\\") + c;
        else text += c;
    }
    return "{" + std::to_string(l.level) + ", \"" + l.func + "\", " + text + "\"}";
}
inline void PrintTo(const Line& l, std::ostream* os) { *os << rowOf(l); }
inline std::string asTable(const std::vector<Line>& lines) {
    std::string out;
    for (const Line& l : lines) out += rowOf(l) + ",\n";
    return out;
}

// A started service, nothing sent or printed yet as far as the test sees.
class ServiceTest : public ::testing::Test {
protected:
    void SetUp() override { up(false, false); }
    // Starts the service; with storage, announces it and runs the first
    // cycle; rulesReady marks the rules as received.
    void up(bool storage, bool rulesReady) {
        h.start();
        if (storage) {
            h.announceStorage();
            h.cycle();
        }
        svc().m_bParaReady = rulesReady ? 1 : 0;
        h.clearSent();
        h.clearLines();
    }

    CAlertZelManage& svc() { return h.service(); }

    ZelAlertPara_t& addRule(uint32_t id, uint32_t atLeast = 0,
                            const std::vector<sInputTrigger>& triggers = {{kSpeedEvent, GT, 60.0}}) {
        svc().m_ParaList.push_back(makeRule(id, atLeast, triggers));
        return svc().m_ParaList.back();
    }
    void speed(double mph) {
        svc().m_Speed = mph;
        svc().setEventValid(kSpeedEvent);
    }
    // A message through the bus and the cycle that takes it.
    void send(unsigned int id, const Bytes& payload) {
        h.inject(id, payload);
        h.cycle();
    }
    // upDateTrigger's verdict on one trigger, starting from `initial`.
    bool trigger(uint32_t event, eTriggerType type, double value, bool initial = false) {
        sInputTrigger t{event, type, value};
        unsigned int atLeast = 0;
        unsigned long long mark = 0;
        svc().upDateTrigger(t, atLeast, mark, initial);
        return initial;
    }

    // Every line printed since the last clear, which this clears; each must
    // carry the service's source name.
    std::vector<Line> printed() {
        std::vector<Line> out;
        for (const DebugLine& l : h.lines()) {
            EXPECT_EQ(l.file, "basicservice/basebusiness/AlertZelManage/src/AlertZelManage");
            out.push_back(Line{l.level, l.func, l.text});
        }
        h.clearLines();
        return out;
    }
    // Compares the lines printed since the last clear with `expected`,
    // leaving out those of the operations in `skip`.
    void expectLines(const std::vector<Line>& expected, const std::set<std::string>& skip = {}) {
        std::vector<Line> got;
        for (const Line& l : printed())
            if (!skip.count(l.func)) got.push_back(l);
        EXPECT_EQ(got, expected) << "printed:\n" << asTable(got);
    }

    std::vector<unsigned int> sentIds() {
        std::vector<unsigned int> ids;
        for (const SentMessage& m : h.sent()) ids.push_back(m.id);
        return ids;
    }
    // Every message 3215 sent so far, decoded.
    std::vector<std::vector<Report>> reports() {
        std::vector<std::vector<Report>> out;
        for (const SentMessage& m : h.sentWithId(3215)) out.push_back(decodeList(m.payload));
        return out;
    }
    // Virtual seconds that fn took.
    template <class Fn>
    double timed(Fn fn) {
        int64_t t0 = h.nowUs();
        fn();
        return (h.nowUs() - t0) / 1e6;
    }

    Harness h;
};

// Storage up and rules received: the alert pass runs.
class ReadyServiceTest : public ServiceTest {
protected:
    void SetUp() override { up(true, true); }
};

}  // namespace harness

#endif  // ALERTZEL_TEST_SERVICEFIXTURE_H
