// The storage peer's side of the three log requests, without the bus: a
// request message (16-byte head, then payload) goes in, the store acts, and
// the reply payload comes out. Frame, request and reply layouts: LogFrame.h;
// a reply's result is 0 or a StoreResult.
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

class StorageRequests {
public:
    typedef std::function<void(const std::string&)> Sink;

    // refused: one line per refused request; done: one line per request served.
    StorageRequests(AlertLogStore& store, Sink refused, Sink done);

    // True when a reply is due; out then holds its payload.
    bool onWrite(const char* msg, int len, std::vector<uint8_t>& out);
    void onModify(const char* msg, int len);
    bool onSize(const char* msg, int len, std::vector<uint8_t>& out);

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
