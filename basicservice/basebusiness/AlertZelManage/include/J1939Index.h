// The J1939 table as the frame decoder uses it, worked out once per table.
//
// Frames arrive by the thousand per second, so everything a row says that
// doesn't depend on the frame (whether it counts, its shift and mask) is
// computed when the table arrives, and a frame costs one binary search over
// at most 64 group numbers. For each group number only its first counting row
// is held: a frame feeds one row at most, and of two rows with the same group
// only the lower one ever gets a value.
//
// Fixed size: building and lookup never allocate. Owned by the service and
// used on its worker thread only.
#ifndef ALERTZEL_J1939INDEX_H
#define ALERTZEL_J1939INDEX_H

#include <stddef.h>
#include <stdint.h>

#include <algorithm>

namespace zel {

// The decode plan of one counting row.
struct J1939Slot {
    uint32_t pgn;
    uint32_t row;   // table row: the key in the value map, event 34 + row
    uint32_t id;    // the row's signal number, printed with its value
    uint32_t shift; // startbit + 8 × startbyte; 64 stands for any larger shift
    uint64_t mask;  // the low `length` bits
    double resolution;
    double offset;
};

class J1939Index {
public:
    static const size_t kCapacity = 64;

    J1939Index() : m_slots(), m_count(0) {}

    void clear() { m_count = 0; }

    // Rows are added in table order; a group already held keeps its row.
    void add(const J1939Slot& slot) {
        for (size_t i = 0; i < m_count; ++i)
            if (m_slots[i].pgn == slot.pgn) return;
        if (m_count < kCapacity) m_slots[m_count++] = slot;
    }

    // Call once after the last add, before any find.
    void seal() {
        std::sort(m_slots, m_slots + m_count,
                  [](const J1939Slot& a, const J1939Slot& b) { return a.pgn < b.pgn; });
    }

    // The plan of the row that group `pgn` feeds, or null.
    const J1939Slot* find(uint32_t pgn) const {
        const J1939Slot* end = m_slots + m_count;
        const J1939Slot* it = std::lower_bound(
            m_slots, end, pgn, [](const J1939Slot& s, uint32_t p) { return s.pgn < p; });
        return it != end && it->pgn == pgn ? it : nullptr;
    }

    size_t size() const { return m_count; }

private:
    J1939Slot m_slots[kCapacity];
    size_t m_count;
};

}  // namespace zel

#endif  // ALERTZEL_J1939INDEX_H
