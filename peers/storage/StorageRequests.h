// The storage peer's side of the three log requests, without the bus: a
// request message (16-byte head, then payload) goes in, the store acts, and
// the reply payload comes out. Frame and request layouts: LogFrame.h.
//
// Write reply (to 6661, sent as 39429), 8 bytes:
// | Offset | Width | Content                                        |
// |--------|-------|------------------------------------------------|
// | 0      | u8    | logType of the request (0 if it had none)      |
// | 1      | i8    | result: 0 stored, else a StoreResult           |
// | 2      | 6     | 0                                              |
//
// Size reply (to 6671, sent as 39439), 32 bytes:
// | Offset | Width | Content                                        |
// |--------|-------|------------------------------------------------|
// | 0      | u8    | logType of the request (0 if it had none)      |
// | 1      | i8    | result: 0 ok, else a StoreResult               |
// | 2      | 6     | 0                                              |
// | 8      | u16   | year of the log the size is of (the store's    |
// | 10     | u8    | month           own current day)               |
// | 11     | u8    | day                                            |
// | 12     | 12    | 0                                              |
// | 24     | u64   | log size in bytes; 0 when the day has no log   |
//
// A request that breaks its format is refused with one line to `refused`
// and, when it has a head to answer, a reply with result -1. A modify has no
// reply. Nothing is read past len, whatever the head claims.
#ifndef ZEL_STORAGE_STORAGEREQUESTS_H
#define ZEL_STORAGE_STORAGEREQUESTS_H

#include <stdint.h>

#include <string>
#include <vector>

#include "AlertLogStore.h"

namespace zelstore {

const size_t kWriteReplySize = 8;
const size_t kSizeReplySize = 32;
const size_t kReplyLogType = 0;
const size_t kReplyResult = 1;
const size_t kReplyYear = 8;
const size_t kReplyMonth = 10;
const size_t kReplyDay = 11;
const size_t kReplyLogSize = 24;

class StorageRequests {
public:
    typedef std::function<void(const std::string&)> Sink;

    // refused: one line per refused request; done: one line per request served.
    StorageRequests(AlertLogStore& store, Sink refused, Sink done);

    // True when a reply is due; reply then holds its payload.
    bool onWrite(const char* msg, int len, std::vector<uint8_t>& reply);
    void onModify(const char* msg, int len);
    bool onSize(const char* msg, int len, std::vector<uint8_t>& reply);

private:
    // The payload of a request of exactly `size` bytes, or null after a
    // refusal line. hasHead tells whether the request can be answered.
    const uint8_t* payloadOf(const char* msg, int len, const char* what, size_t size,
                             bool& hasHead);
    void refuse(const char* msg, int len, const char* what, const std::string& why);

    AlertLogStore& m_store;
    Sink m_refused;
    Sink m_done;
};

}  // namespace zelstore

#endif
