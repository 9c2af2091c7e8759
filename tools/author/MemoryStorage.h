// The storage peer of a replay: keeps the alert log in memory and answers
// the service's write and size requests at once, from inside its sends, as
// a storage peer that is never busy would. One log per day of the device
// clock, as the real peer keeps one per day of its own.
//
// Installs responders on the harness it is given; must not outlive it.
#ifndef ZELAUTHOR_MEMORYSTORAGE_H
#define ZELAUTHOR_MEMORYSTORAGE_H

#include <stdint.h>

#include <map>
#include <vector>

#include "Harness.h"

namespace zelauthor {

class MemoryStorage {
public:
    explicit MemoryStorage(harness::Harness& h);

    // Frames of each day's log (key yyyymmdd), in the order written.
    const std::map<uint32_t, std::vector<harness::Bytes>>& logs() const { return m_logs; }

private:
    std::vector<harness::Bytes>& today();
    void onWrite(const harness::SentMessage& m);
    void onModify(const harness::SentMessage& m);
    void onSize(const harness::SentMessage& m);

    harness::Harness& m_h;
    std::map<uint32_t, std::vector<harness::Bytes>> m_logs;
};

}  // namespace zelauthor

#endif  // ZELAUTHOR_MEMORYSTORAGE_H
