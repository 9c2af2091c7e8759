// Clock, diagnostics, channel counts and the thread base. CTest runs this with
// TZ=CET-1CEST,M3.5.0,M10.5.0/3, Q7X_TIME_OFFSET_S=-2592000 and
// Q7X_DEBUG_LEVEL=3 (see CMakeLists.txt).
#include <sstream>

#include "BusTestUtil.h"

namespace q7xtest {
namespace {

constexpr time_t kOffset = -2592000;  // thirty days back

Common::_datetime_ Dt(int y, int mo, int d, int h, int mi, int s) {
    Common::_datetime_ dt = {};
    dt.year = static_cast<unsigned char>(y - 2000);
    dt.month = static_cast<unsigned char>(mo);
    dt.day = static_cast<unsigned char>(d);
    dt.hour = static_cast<unsigned char>(h);
    dt.minute = static_cast<unsigned char>(mi);
    dt.second = static_cast<unsigned char>(s);
    return dt;
}

TEST(Clock, LocalDateTimeConvertsToUtcSeconds) {
    struct Case {
        const char* name;
        Common::_datetime_ dt;
        int rc;
        long utc;
    };
    const Case cases[] = {
        {"winter, UTC+1", Dt(2024, 1, 15, 12, 0, 0), 0, 1705316400},
        {"summer, UTC+2", Dt(2024, 7, 1, 12, 0, 0), 0, 1719828000},
        {"first second of 2000", Dt(2000, 1, 1, 0, 0, 0), 0, 946681200},
        {"leap day, last second", Dt(2024, 2, 29, 23, 59, 59), 0, 1709247599},
        {"just after the spring gap", Dt(2024, 3, 31, 3, 30, 0), 0, 1711848600},
        {"month 0", Dt(2024, 0, 1, 0, 0, 0), -1, 0},
        {"month 13", Dt(2024, 13, 1, 0, 0, 0), -1, 0},
        {"day 0", Dt(2024, 1, 0, 0, 0, 0), -1, 0},
        {"29 February of a common year", Dt(2023, 2, 29, 0, 0, 0), -1, 0},
        {"31 April", Dt(2024, 4, 31, 0, 0, 0), -1, 0},
        {"hour 24", Dt(2024, 1, 1, 24, 0, 0), -1, 0},
        {"minute 60", Dt(2024, 1, 1, 0, 60, 0), -1, 0},
        {"second 60", Dt(2024, 1, 1, 0, 0, 60), -1, 0},
    };
    for (const Case& c : cases) {
        long utc = 0;
        EXPECT_EQ(Common::Q7X_TMDateTimeToUtcTime(&c.dt, &utc), c.rc) << c.name;
        EXPECT_EQ(utc, c.utc) << c.name;
    }
}

TEST(Clock, ShareTimeIsLocalTimeShiftedByTheOffset) {
    // Retried when the second ticks over between the two readings.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const time_t t = time(nullptr) + kOffset;
        Common::_datetime_ now = {};
        unsigned char flag = 0xee;
        ASSERT_EQ(Common::Q7X_TMGetShareTime(&now, flag), 0);
        if (time(nullptr) + kOffset != t) continue;
        struct tm tm;
        ASSERT_TRUE(localtime_r(&t, &tm));
        EXPECT_EQ(now.year, tm.tm_year - 100);
        EXPECT_EQ(now.month, tm.tm_mon + 1);
        EXPECT_EQ(now.day, tm.tm_mday);
        EXPECT_EQ(now.hour, tm.tm_hour);
        EXPECT_EQ(now.minute, tm.tm_min);
        EXPECT_EQ(now.second, tm.tm_sec);
        EXPECT_EQ(now.weekday, tm.tm_wday);
        EXPECT_EQ(flag, tm.tm_isdst > 0 ? 1 : 0);
        long utc = 0;
        ASSERT_EQ(Common::Q7X_TMDateTimeToUtcTime(&now, &utc), 0);
        EXPECT_EQ(utc, static_cast<long>(t));
        return;
    }
    FAIL() << "the clock never held still for a second";
}

// Lines look like "[3] file func:12: text".
TEST(Diagnostics, OneLinePerCallWithItsOrigin) {
    TempDir dir;
    const std::string longer(5000, 'y');  // beyond any stack buffer
    struct Case {
        int level;
        std::string text;
        std::string expected;  // empty: hidden
    };
    const Case cases[] = {
        {3, "plain", "[3] src/Svc Run:12: plain\n"},
        {2, "ends in a newline\n", "[2] src/Svc Run:12: ends in a newline\n"},
        {0, "", "[0] src/Svc Run:12: \n"},
        {4, "too chatty", ""},
        {3, longer, "[3] src/Svc Run:12: " + longer + "\n"},
    };
    for (const Case& c : cases) {
        StderrCapture err(dir.Path("stderr"));
        Common::gclDebugPrintf(c.level, "src/Svc", "Run", 12, "%s", c.text.c_str());
        EXPECT_EQ(err.Text(), c.expected) << c.text.substr(0, 20);
    }
}

TEST(Diagnostics, LinesFromManyThreadsStayWhole) {
    TempDir dir;
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    StderrCapture err(dir.Path("stderr"));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i)
                Common::gclDebugPrintf(3, "f", "g", t, "thread %d line %d %s\n", t, i,
                                       std::string(static_cast<size_t>(i % 50), '.').c_str());
        });
    for (std::thread& th : threads) th.join();
    std::istringstream lines(err.Text());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        int t = -1, t2 = -2, i = -1, rest = -1;
        const bool parsed =
            sscanf(line.c_str(), "[3] f g:%d: thread %d line %d %n", &t, &t2, &i, &rest) == 3;
        EXPECT_TRUE(parsed && t == t2 && rest >= 0 &&
                    line.substr(static_cast<size_t>(rest)) == std::string(static_cast<size_t>(i % 50), '.'))
            << line;
    }
    EXPECT_EQ(count, kThreads * kLines);
}

TEST(Channels, CountsComeFromTheEnvironmentWithinBounds) {
    struct Case {
        const char* value;  // nullptr: unset
        int count;
    };
    const Case cases[] = {
        {nullptr, 4}, {"", 4}, {"8", 8}, {"0", 0}, {"-3", 0}, {"1000", 64}, {"12abc", 4},
    };
    struct Fn {
        const char* var;
        int (*get)();
    };
    for (const Fn& fn : {Fn{"Q7X_VIDEO_CHANNELS", Q7X_GetVichnNum},
                         Fn{"Q7X_DIGITAL_CHANNELS", Q7X_GetDigitalchnNum}}) {
        for (const Case& c : cases) {
            if (c.value)
                setenv(fn.var, c.value, 1);
            else
                unsetenv(fn.var);
            EXPECT_EQ(fn.get(), c.count) << fn.var << "=" << (c.value ? c.value : "(unset)");
        }
        unsetenv(fn.var);
    }
}

class CountingThread : public Common::CThread {
public:
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
    bool WaitLoops(int n) {
        const auto deadline = Clock::now() + std::chrono::seconds(5);
        while (loops < n && Clock::now() < deadline) std::this_thread::sleep_for(milliseconds(1));
        return loops >= n;
    }

    std::atomic<int> pre{0}, loops{0}, post{0};
    std::thread::id loopThread;
};

TEST(Thread, LoopsOnItsOwnThreadFromStartUntilStopReturns) {
    CountingThread t;
    EXPECT_EQ(t.Stop(), 0);  // never started
    ASSERT_EQ(t.Start(0), 0);
    EXPECT_NE(t.Start(0), 0);  // already running
    ASSERT_TRUE(t.WaitLoops(3));
    EXPECT_EQ(t.Stop(), 0);
    const int loops = t.loops;
    EXPECT_EQ(t.pre, 1);
    EXPECT_EQ(t.post, 1);
    EXPECT_NE(t.loopThread, std::this_thread::get_id());
    EXPECT_EQ(t.Stop(), 0);  // twice
    EXPECT_EQ(t.loops, loops);

    ASSERT_EQ(t.Start(0), 0);  // and again
    ASSERT_TRUE(t.WaitLoops(loops + 1));
    EXPECT_EQ(t.Stop(), 0);
    EXPECT_EQ(t.pre, 2);
    EXPECT_EQ(t.post, 2);
}

}  // namespace
}  // namespace q7xtest
