// The alert list: the service publishes alert transitions as message 3215
// and answers the running-alerts query 3216 with the same layout (35984).
// Declared once, here: the service writes it, zelctl and the soak load read it.
//
// Payload, little-endian:
// | Offset | Width  | Field      | Content                                |
// |--------|--------|------------|----------------------------------------|
// | 0      | u32    | alertCount | n                                      |
// | 4      | u32    | alertBytes | n × 32                                 |
// | 8      | n × 32 | records    | back to back                           |
// Record, 32 bytes:
// | 0      | u32    | alertID    | rule id                                |
// | 4      | 4      | reserved   | 0                                      |
// | 8      | u64    | EventMark  | the rule's mark                        |
// | 16     | 6      | alertTime  | year-2000, month, day, hour, min, sec  |
// | 22     | 2      | reserved   | 0                                      |
// | 24     | u8     | bEnded     | 0 began, 1 ended                       |
// | 25     | 7      | reserved   | 0                                      |
#ifndef ALERTZEL_ALERTREPORT_H
#define ALERTZEL_ALERTREPORT_H

#include <stddef.h>

namespace zel {

const size_t kListCount = 0, kListBytes = 4, kListHeadSize = 8;
const size_t kRecordSize = 32, kRecAlertId = 0, kRecEventMark = 8, kRecAlertTime = 16,
             kRecAlertTimeSize = 6, kRecEnded = 24;

}  // namespace zel

#endif  // ALERTZEL_ALERTREPORT_H
