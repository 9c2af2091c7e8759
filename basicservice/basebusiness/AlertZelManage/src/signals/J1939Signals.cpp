// J1939 values decoded from raw CAN frames with the parameter table.
//
// The table (33243, 476) is kept whole in m_J1939Param and turned into
// m_J1939Index once; each frame (1089) then costs a lookup of its group and
// one fused multiply-add, and allocates nothing. Values live in m_J1939Value
// by table row and are never dropped: a new table leaves the old values in
// place until frames overwrite them.
#include <string.h>

#include <cmath>

#include "AlertZelManage.h"
#include "SignalInput.h"
#include "SignalRecords.h"

namespace {

// Events J19390..J193963 are 34..97: bits 2..31 of word 1, all of word 2,
// bits 0..1 of word 3.
const uint32_t kJ1939BitsWord1 = 0xfffffffcu;
const uint32_t kJ1939BitsWord2 = 0xffffffffu;
const uint32_t kJ1939BitsWord3 = 0x00000003u;

// A frame message must reach the last data byte of its record.
const int kMinCanMessage = zel::kHeadSize + static_cast<int>(CanFrameMsg_t::kSize);  // 44

const uint32_t kNoShift = 64;

}  // namespace

void CAlertZelManage::onGetJ1939param(const char* msg, int len) {
    ZEL_LOG(3, "=======onGetJ1939param======!\n");
    zel::SignalInput in = zel::openSignal(msg, len);
    if (!in.headOk) {
        ZEL_LOG(3, "onGetJ1939param length error \n");
        return;
    }
    if (!in.carriesExactly(J1939Param_t::kTableSize)) {
        ZEL_LOG(3, "onGetJ1939param length= %d \n", static_cast<int>(in.claimed));
        return;
    }
    memcpy(m_J1939Param, in.payload, J1939Param_t::kTableSize);

    ZEL_LOG(3, "J1939 parameter:\n");
    m_J1939Index.clear();
    for (int row = 0; row < J1939Param_t::kRowCount; ++row) {
        J1939Param_t p = J1939Param_t::read(m_J1939Param, row);
        if (!p.counts()) continue;
        ZEL_LOG(3,
                "[%d]:id=%d,pgn=%d,source=%d,startbyte=%d,startbit=%d,length=%d,max=%u,"
                "offset=%.8lf,resolution=%.8lf\n",
                row, static_cast<int>(p.id), static_cast<int>(p.pgn), static_cast<int>(p.source),
                static_cast<int>(p.startbyte), static_cast<int>(p.startbit), p.length, p.max,
                p.offset, p.resolution);

        zel::J1939Slot slot;
        slot.pgn = p.pgn;
        slot.row = static_cast<uint32_t>(row);
        slot.id = p.id;
        // Worked out in 64 bits: a start byte far out must not wrap back
        // into the data field.
        uint64_t shift = p.startbit + 8ull * p.startbyte;
        slot.shift = shift >= kNoShift ? kNoShift : static_cast<uint32_t>(shift);
        // A negative length reads as a large unsigned width: all 64 bits.
        slot.mask = get_bit_mask_set_ull(0, static_cast<uint32_t>(p.length));
        slot.resolution = p.resolution;
        slot.offset = p.offset;
        m_J1939Index.add(slot);
    }
}

void CAlertZelManage::onGetZelCanData(const char* msg, int len) {
    // Only len is tested; a null msg (never sent by the bus) is taken as a
    // frame too short to read.
    if (len < kMinCanMessage || msg == nullptr) {
        ZEL_LOG(3, "msg len is invalid(%d)\n", len);
    } else {
        const uint8_t* payload = reinterpret_cast<const uint8_t*>(msg) + zel::kHeadSize;
        CanFrameMsg_t frame = CanFrameMsg_t::read(payload);
        const zel::J1939Slot* slot = m_J1939Index.find(frame.pgn());
        if (slot != nullptr) {
            uint64_t raw =
                slot->shift >= kNoShift ? 0 : (frame.ullCanData >> slot->shift) & slot->mask;
            // Rounded once, as one fused multiply-add.
            double value = std::fma(static_cast<double>(raw), slot->resolution, slot->offset);
            ZEL_LOG(3, "J1939_%d:%.8lf \n", static_cast<int>(slot->id), value);
            m_J1939Value.set(slot->row, value);
        }
    }
    // Any frame at all makes the J1939 events valid; whether a row has a
    // value is told by m_J1939Value.
    m_EventValid[1] |= kJ1939BitsWord1;
    m_EventValid[2] |= kJ1939BitsWord2;
    m_EventValid[3] |= kJ1939BitsWord3;
}

unsigned long long CAlertZelManage::get_bit_mask_set_ull(uint32_t first, uint32_t end) {
    if (first >= end) return 0;
    unsigned long long below_end = end >= 64 ? ~0ull : (1ull << end) - 1;
    unsigned long long below_first = first >= 64 ? ~0ull : (1ull << first) - 1;
    return below_end & ~below_first;
}
