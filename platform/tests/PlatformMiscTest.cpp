// Clock, diagnostics and the thread base. CTest runs this with
// TZ=CET-1CEST,M3.5.0,M10.5.0/3, Q7X_TIME_OFFSET_S=-2592000 and
// Q7X_DEBUG_LEVEL=3 (see CMakeLists.txt).
#include <cstdlib>
#include <tuple>

#include "BusTestUtil.h"

namespace q7xtest {
namespace {

TEST(Clock, LocalDateTimeConvertsToUtcSecondsAndImpossibleDatesFail) {
    const struct {
        Common::_datetime_ dt;  // year since 2000, month, day, h, m, s, weekday, 0
        long utc;               // 0: refused
    } cases[] = {
        {{24, 1, 15, 12, 0, 0, 0, 0}, 1705316400},    // winter, UTC+1
        {{24, 7, 1, 12, 0, 0, 0, 0}, 1719828000},     // summer, UTC+2
        {{24, 2, 29, 23, 59, 59, 0, 0}, 1709247599},  // leap day
        {{24, 3, 31, 3, 30, 0, 0, 0}, 1711848600},    // just after the spring gap
        // Refused: month 0 and 13, day 0, 29 February 2023, 31 April, hour 24,
        // minute 60, second 60.
        {{24, 0, 1, 0, 0, 0, 0, 0}, 0},
        {{24, 13, 1, 0, 0, 0, 0, 0}, 0},
        {{24, 1, 0, 0, 0, 0, 0, 0}, 0},
        {{23, 2, 29, 0, 0, 0, 0, 0}, 0},
        {{24, 4, 31, 0, 0, 0, 0, 0}, 0},
        {{24, 1, 1, 24, 0, 0, 0, 0}, 0},
        {{24, 1, 1, 0, 60, 0, 0, 0}, 0},
        {{24, 1, 1, 0, 0, 60, 0, 0}, 0},
    };
    for (const auto& c : cases) {
        long utc = 0;
        EXPECT_EQ(Common::Q7X_TMDateTimeToUtcTime(&c.dt, &utc), c.utc ? 0 : -1) << &c - cases;
        EXPECT_EQ(utc, c.utc) << &c - cases;
    }
}

TEST(Clock, ShareTimeIsLocalTimeShiftedByTheOffset) {
    // Retried when the second ticks over between the two readings.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const time_t t = time(nullptr) - 2592000;
        Common::_datetime_ now = {};
        unsigned char flag = 0xee;
        ASSERT_EQ(Common::Q7X_TMGetShareTime(&now, flag), 0);
        if (time(nullptr) - 2592000 != t) continue;
        struct tm tm;
        ASSERT_TRUE(localtime_r(&t, &tm));
        EXPECT_EQ(now.weekday, tm.tm_wday);
        EXPECT_EQ(flag, tm.tm_isdst > 0 ? 1 : 0);
        long utc = 0;
        ASSERT_EQ(Common::Q7X_TMDateTimeToUtcTime(&now, &utc), 0);
        if (utc != static_cast<long>(t)) {
            // In the hour repeated when summer time ends, the wall clock
            // names two seconds an hour apart: either is right.
            const time_t other = utc;
            struct tm back;
            ASSERT_TRUE(localtime_r(&other, &back));
            EXPECT_EQ(std::labs(utc - static_cast<long>(t)), 3600L);
            EXPECT_EQ(std::make_tuple(back.tm_mday, back.tm_hour, back.tm_min, back.tm_sec),
                      std::make_tuple(tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec));
        }
        return;
    }
    FAIL() << "the clock never held still for a second";
}

// Lines look like "[3] file func:12: text".
TEST(Diagnostics, OneLinePerCallWithItsOrigin) {
    const std::string longer(5000, 'y');  // beyond any stack buffer
    const struct {
        int level;
        std::string text, expected;  // expected empty: hidden
    } cases[] = {
        {3, "plain", "[3] src/Svc Run:12: plain\n"},
        {2, "ends in a newline\n", "[2] src/Svc Run:12: ends in a newline\n"},
        {0, "", "[0] src/Svc Run:12: \n"},
        {4, "too chatty", ""},
        {3, longer, "[3] src/Svc Run:12: " + longer + "\n"},
    };
    for (const auto& c : cases) {
        auto print = [&] {
            Common::gclDebugPrintf(c.level, "src/Svc", "Run", 12, "%s", c.text.c_str());
        };
        EXPECT_EQ(StderrOf(print), c.expected);
    }
}

struct CountingThread : Common::CThread {
    int PreBeginThread() override {
        ++pre;
        loopThread = std::this_thread::get_id();
        return 0;
    }
    int ThreadFuncImpl() override {
        ++loops;
        std::this_thread::sleep_for(milliseconds(1));
        return 0;
    }
    int PostExitThread() override {
        ++post;
        return 0;
    }
    std::atomic<int> pre{0}, loops{0}, post{0};
    std::thread::id loopThread;
};

TEST(Thread, LoopsOnItsOwnThreadFromStartUntilStopReturnsAndStartsAgain) {
    CountingThread t;
    EXPECT_EQ(t.Stop(), 0);  // never started
    for (int round = 1; round <= 2; ++round) {
        ASSERT_EQ(t.Start(0), 0);
        EXPECT_NE(t.Start(0), 0);  // already running
        const int from = t.loops;
        ASSERT_TRUE(Eventually([&] { return t.loops >= from + 3; }));
        EXPECT_EQ(t.Stop(), 0);
        const int loops = t.loops;
        EXPECT_EQ(t.Stop(), 0);  // twice
        EXPECT_EQ(t.loops, loops);
        EXPECT_EQ(t.pre, round);
        EXPECT_EQ(t.post, round);
        EXPECT_NE(t.loopThread, std::this_thread::get_id());
    }
}

}  // namespace
}  // namespace q7xtest
