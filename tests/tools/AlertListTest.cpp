// The alert list as zelctl reads it off the bus, and the timeline lines that
// zelctl watch prints from it.
#include <gtest/gtest.h>

#include "AlertList.h"
#include "AlertReport.h"
#include "ByteOrder.h"

namespace zelctl {
namespace {

struct Rec {
    uint32_t id;
    uint8_t time[6];
    bool ended;
};

std::vector<uint8_t> List(const std::vector<Rec>& recs) {
    std::vector<uint8_t> p(zel::kListHeadSize + zel::kRecordSize * recs.size(), 0xEE);  // reserved: noise
    zel::putLe32(p.data(), 0, static_cast<uint32_t>(recs.size()));
    zel::putLe32(p.data(), 4, static_cast<uint32_t>(zel::kRecordSize * recs.size()));
    for (size_t i = 0; i < recs.size(); ++i) {
        uint8_t* r = p.data() + zel::kListHeadSize + zel::kRecordSize * i;
        zel::putLe32(r, zel::kRecAlertId, recs[i].id);
        zel::putLe64(r, zel::kRecEventMark, 0);
        for (int k = 0; k < 6; ++k) r[zel::kRecAlertTime + k] = recs[i].time[k];
        r[zel::kRecEnded] = recs[i].ended ? 1 : 0;
    }
    return p;
}

// Records in order, reserved bytes ignored; a list whose head disagrees with
// its length is refused whole.
TEST(AlertList, DecodesRecordsInOrderAndRefusesListsWhoseHeadDisagrees) {
    const std::vector<uint8_t> two =
        List({{7, {26, 3, 5, 12, 0, 5}, false}, {9, {26, 3, 5, 12, 0, 6}, true}});
    std::vector<uint8_t> one = List({{7, {26, 3, 5, 12, 0, 5}, false}});
    std::vector<uint8_t> badBytes = one;
    zel::putLe32(badBytes.data(), 4, 31);
    std::vector<uint8_t> tooMany = one;
    zel::putLe32(tooMany.data(), 0, 2);
    zel::putLe32(tooMany.data(), 4, 64);
    std::vector<uint8_t> huge = one;  // count × 32 wraps in 32 bits
    zel::putLe32(huge.data(), 0, 0x08000001);
    zel::putLe32(huge.data(), 4, 32);
    const struct {
        std::vector<uint8_t> bytes;
        const char* seen;  // the records, or why the list was refused
    } cases[] = {
        {two, "7 began 2026-03-05 12:00:05; 9 ended 2026-03-05 12:00:06; "},
        {List({}), ""},
        {std::vector<uint8_t>(one.begin(), one.begin() + 7), "a list needs 8 bytes of head, got 7"},
        {badBytes, "count 1 and byte length 31 disagree"},
        {tooMany, "head says 2 records but 32 bytes follow"},
        {std::vector<uint8_t>(one.begin(), one.end() - 1), "head says 1 records but 31 bytes follow"},
        {huge, "count 134217729 and byte length 32 disagree"},
    };
    for (const auto& c : cases) {
        std::vector<AlertRecord> out;
        std::string seen;
        if (decodeAlertList(c.bytes.data(), c.bytes.size(), out, seen))
            for (const AlertRecord& r : out)
                seen += std::to_string(r.alertID) + (r.ended ? " ended " : " began ") +
                        alertTimeText(r.time) + "; ";
        else
            EXPECT_TRUE(out.empty()) << c.seen;
        EXPECT_EQ(seen, c.seen);
    }
}

TEST(AlertTimeline, EndsSayHowLongTheirAlertRan) {
    const struct {
        Rec rec;
        const char* line;
    } steps[] = {
        {{7, {26, 3, 5, 23, 59, 55}, false}, "alert 7 began  2026-03-05 23:59:55"},
        {{9, {26, 3, 5, 23, 59, 57}, true}, "alert 9 ended  2026-03-05 23:59:57  (start not seen)"},
        {{9, {26, 3, 5, 23, 59, 58}, false}, "alert 9 began  2026-03-05 23:59:58"},
        // Across midnight.
        {{7, {26, 3, 6, 0, 0, 2}, true}, "alert 7 ended  2026-03-06 00:00:02  after 7 s"},
        {{9, {26, 3, 6, 0, 1, 0}, true}, "alert 9 ended  2026-03-06 00:01:00  after 62 s"},
        // An end is remembered once: a second end has no start.
        {{9, {26, 3, 6, 0, 1, 1}, true}, "alert 9 ended  2026-03-06 00:01:01  (start not seen)"},
        // A start that is no date is not a start to count from.
        {{4, {26, 0, 0, 0, 0, 0}, false}, "alert 4 began  2026-00-00 00:00:00"},
        {{4, {26, 3, 6, 0, 2, 0}, true}, "alert 4 ended  2026-03-06 00:02:00  (start not seen)"},
    };
    AlertTimeline timeline;
    for (const auto& s : steps) {
        AlertRecord r{s.rec.id, 0, {}, s.rec.ended};
        std::copy(s.rec.time, s.rec.time + 6, r.time);
        EXPECT_EQ(timeline.describe(r), s.line);
    }
}

}  // namespace
}  // namespace zelctl
