// The alert list as receivers see it on the bus (message 3215, and the reply
// 35984 to the state query 3216; layout in the service's AlertReport.h): its
// one reader, and a timeline that turns its records into lines for a person.
// Shared by zelctl, the soak load and the tests.
#ifndef ZELFORMATS_ALERTLIST_H
#define ZELFORMATS_ALERTLIST_H

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <string>
#include <vector>

namespace zelctl {

struct AlertRecord {
    uint32_t alertID;
    uint64_t eventMark;
    uint8_t time[6];
    bool ended;
};

// False with `why` when the payload is not a whole list: too short for its
// head, or count and byte length disagreeing with each other or the size.
bool decodeAlertList(const uint8_t* p, size_t n, std::vector<AlertRecord>& out,
                     std::string& why);

// "2026-03-05 12:34:56" from a record's time.
std::string alertTimeText(const uint8_t* t);
// Seconds of a record's time on a calendar without zones, for differences;
// false for a time that is no date.
bool alertTimeSeconds(const uint8_t* t, long long& out);

// Remembers when each alert began, so that its end can say how long it ran.
// Not thread-safe.
class AlertTimeline {
public:
    // "alert 7 began  2026-03-05 12:00:05", or "alert 7 ended  2026-03-05
    // 12:00:12  after 7 s" ("start not seen" when its start never came).
    std::string describe(const AlertRecord& r);

private:
    std::map<uint32_t, long long> m_began;
};

}  // namespace zelctl

#endif  // ZELFORMATS_ALERTLIST_H
