#include "AlertList.h"

#include <stdio.h>
#include <time.h>

#include "AlertReport.h"
#include "ByteOrder.h"

namespace zelctl {

bool decodeAlertList(const uint8_t* p, size_t n, std::vector<AlertRecord>& out,
                     std::string& why) {
    out.clear();
    if (p == nullptr || n < zel::kListHeadSize) {
        why = "a list needs 8 bytes of head, got " + std::to_string(n);
        return false;
    }
    const uint32_t count = zel::getLe32(p, zel::kListCount);
    const uint32_t bytes = zel::getLe32(p, zel::kListBytes);
    if (static_cast<uint64_t>(count) * zel::kRecordSize != bytes) {
        why = "count " + std::to_string(count) + " and byte length " + std::to_string(bytes) +
              " disagree";
        return false;
    }
    if (zel::kListHeadSize + static_cast<uint64_t>(bytes) != n) {
        why = "head says " + std::to_string(count) + " records but " +
              std::to_string(n - zel::kListHeadSize) + " bytes follow";
        return false;
    }
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t* r = p + zel::kListHeadSize + zel::kRecordSize * i;
        AlertRecord rec;
        rec.alertID = zel::getLe32(r, zel::kRecAlertId);
        rec.eventMark = zel::getLe64(r, zel::kRecEventMark);
        for (int k = 0; k < 6; ++k) rec.time[k] = r[zel::kRecAlertTime + k];
        rec.ended = r[zel::kRecEnded] != 0;
        out.push_back(rec);
    }
    return true;
}

std::string alertTimeText(const uint8_t* t) {
    char text[32];
    snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", 2000 + t[0], t[1], t[2], t[3],
             t[4], t[5]);
    return text;
}

bool alertTimeSeconds(const uint8_t* t, long long& out) {
    if (t[1] < 1 || t[1] > 12 || t[2] < 1 || t[2] > 31 || t[3] > 23 || t[4] > 59 || t[5] > 59)
        return false;
    struct tm tm = {};
    tm.tm_year = 100 + t[0];
    tm.tm_mon = t[1] - 1;
    tm.tm_mday = t[2];
    tm.tm_hour = t[3];
    tm.tm_min = t[4];
    tm.tm_sec = t[5];
    out = static_cast<long long>(timegm(&tm));
    return true;
}

std::string AlertTimeline::describe(const AlertRecord& r) {
    std::string text = "alert " + std::to_string(r.alertID) + (r.ended ? " ended  " : " began  ") +
                       alertTimeText(r.time);
    long long at = 0;
    const bool dated = alertTimeSeconds(r.time, at);
    if (!r.ended) {
        if (dated) m_began[r.alertID] = at;
        else m_began.erase(r.alertID);
        return text;
    }
    auto it = m_began.find(r.alertID);
    if (it == m_began.end() || !dated) return text + "  (start not seen)";
    text += "  after " + std::to_string(at - it->second) + " s";
    m_began.erase(it);
    return text;
}

}  // namespace zelctl
