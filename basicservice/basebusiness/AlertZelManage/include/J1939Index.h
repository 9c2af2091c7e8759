// The J1939 table as the frame decoder uses it, worked out once per table.
//
// Frames arrive by the thousand per second, so everything a row says that
// doesn't depend on the frame (whether it counts, its shift and mask) is
// computed when the table arrives, and a frame costs one look into a small
// open-addressing hash table of the plans, usually a single probe. For
// each group number only its first counting row is held: a frame feeds one
// row at most, and of two rows with the same group only the lower one ever
// gets a value.
//
// Fixed size: building and lookup never allocate. Owned by the service and
// used on its worker thread only.
#ifndef ALERTZEL_J1939INDEX_H
#define ALERTZEL_J1939INDEX_H

#include <stddef.h>
#include <stdint.h>

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

    J1939Index() = default;

    void clear() {
        for (J1939Slot& s : m_table) s.pgn = 0;
        m_count = 0;
    }

    // Rows are added in table order; a group already held keeps its row.
    // Group 0 marks an empty place and is never held (such a row doesn't
    // count).
    void add(const J1939Slot& slot) {
        if (slot.pgn == 0 || m_count >= kCapacity) return;
        size_t i = home(slot.pgn);
        for (; m_table[i].pgn != 0; i = (i + 1) & (kPlaces - 1))
            if (m_table[i].pgn == slot.pgn) return;
        m_table[i] = slot;
        ++m_count;
    }

    // The plan of the row that group `pgn` feeds, or null. Ends: at most
    // half the places are taken, so an empty one always comes.
    const J1939Slot* find(uint32_t pgn) const {
        for (size_t i = home(pgn);; i = (i + 1) & (kPlaces - 1)) {
            const J1939Slot& s = m_table[i];
            if (s.pgn == pgn && pgn != 0) return &s;
            if (s.pgn == 0) return nullptr;
        }
    }

    size_t size() const { return m_count; }

private:
    static const size_t kPlaces = 2 * kCapacity;  // a power of two

    // Fibonacci hashing: the top bits of the product spread neighbouring
    // group numbers apart.
    static size_t home(uint32_t pgn) { return (pgn * 2654435761u) >> (32 - 7); }

    J1939Slot m_table[kPlaces]{};  // open addressing, linear probing
    size_t m_count = 0;
};

}  // namespace zel

#endif  // ALERTZEL_J1939INDEX_H
