// The platform API that services on the recorder are built against: bus client,
// clock, thread base, diagnostics and channel counts.
//
// On a device the vendor's library implements this header. On a PC,
// libq7xcommon.so implements it over the broker q7x-busd (see
// platform/src/BusProtocol.h for the wire protocol), and the test harness
// implements it in-process with a virtual clock.
//
// Contract shared by every implementation:
//   * Every received message starts with SMessageHead; the payload follows at
//     byte 16 and its length is word 3 masked with 0x7fffff.
//   * Callbacks run only inside Q7X_MSGWaitForEvent, on the thread that calls
//     it. A wait may be called from inside a callback (nested waits).
//   * Send, register and unregister may be called from another thread while a
//     wait blocks.
//   * A sent message reaches every other client subscribed to its id, never
//     the sender. Q7X_MSGResponseMessage answers request N with id N | 0x8000
//     to the requester alone.
#ifndef Q7X_COMMON_H
#define Q7X_COMMON_H

#include <stdint.h>

namespace Common {

// Head of every received message, 16 bytes, little-endian on the wire.
struct SMessageHead {
    uint32_t uiSourceId;  // 0: client id of the sender (the broker assigns it)
    uint32_t uiSession;   // 4: sender's session number of this message
    uint32_t uiMsgId;     // 8: message id in bits 0..15, send flag in bit 16
    uint32_t uiLength;    // 12: bits 0..22 payload length; bits 23..31 unused
};

// Local date and time, 8 bytes.
struct _datetime_ {
    unsigned char year;     // years since 2000
    unsigned char month;    // 1..12
    unsigned char day;      // 1..31
    unsigned char hour;     // 0..23
    unsigned char minute;   // 0..59
    unsigned char second;   // 0..59
    unsigned char weekday;  // 0..6, Sunday = 0
    unsigned char reserved;
};

// A bound message handler. Q7X_Bind makes one; Q7X_MSGEventRegister takes
// ownership of it, and the client deletes it on unregister or on a failed
// registration.
class CMsgCallback {
public:
    virtual ~CMsgCallback() = default;
    virtual void Invoke(const char* msg, int len) = 0;
};

template <class T>
class CMemberMsgCallback : public CMsgCallback {
public:
    typedef void (T::*Handler)(const char*, int);
    CMemberMsgCallback(T* obj, Handler fn) : m_obj(obj), m_fn(fn) {}
    void Invoke(const char* msg, int len) override { (m_obj->*m_fn)(msg, len); }

private:
    T* m_obj;
    Handler m_fn;
};

template <class T>
void* Q7X_Bind(T* obj, void (T::*fn)(const char*, int)) {
    return static_cast<CMsgCallback*>(new CMemberMsgCallback<T>(obj, fn));
}

// appId is informative; path is the broker's socket (Q7X_BUS_PATH, when set,
// replaces it). Never returns null; a client whose broker is absent keeps
// trying to reach it. A client lives as long as the process.
void* Q7X_MSGCreateMessageClient(int appId, const char* path, int flags);
// msgId is 0..0xffff; answers to request N arrive under N | 0x8000. Returns 0,
// or -1 (the callback is then deleted). Registering an id again replaces its
// callback.
int Q7X_MSGEventRegister(void* client, unsigned int msgId, void* callback);
// A call of that callback already running on another thread completes; the
// callback is deleted after it. Returns -1 for an id not registered.
int Q7X_MSGEventUnRegister(void* client, unsigned int msgId);
// Dispatches every message already waiting; returns the number dispatched as
// soon as it is at least one, or 0 after timeoutMs with none (a negative
// timeout waits for good).
int Q7X_MSGWaitForEvent(void* client, int timeoutMs);
// Does not wait for a reply; the payload may be reused on return. Returns 0
// once the message is with the broker, -1 when it was refused (on the PC bus
// a payload above 128 KiB, with one diagnostic line) or dropped because no
// broker is reachable.
int Q7X_MSGSendMessage(void* client, int dest, unsigned int msgId, int flag,
                       const void* payload, int len, int reserved);
// Answers the request whose message starts with requestHead.
int Q7X_MSGResponseMessage(void* client, const void* requestHead,
                           const void* payload, int len);

// Current local date-time of the device (shifted by Q7X_TIME_OFFSET_S).
int Q7X_TMGetShareTime(_datetime_* now);
// Also gives a byte that changes when the clock's daylight-saving state does
// (on the PC: tm_isdst of that local time, 0 or 1).
int Q7X_TMGetShareTime(_datetime_* now, unsigned char& timeFlag);
// UTC seconds of a local date-time; -1, leaving *utc alone, when a field is
// out of range (31 April, hour 24, ...).
int Q7X_TMDateTimeToUtcTime(const _datetime_* dt, long* utc);

// One line per call on standard error: level, file, function, line, then the
// formatted text verbatim. Levels above Q7X_DEBUG_LEVEL (default 3) are hidden.
// Safe from any thread: each line leaves in one write.
void gclDebugPrintf(int level, const char* file, const char* func, int line,
                    const char* fmt, ...) __attribute__((format(printf, 5, 6)));

// Thread base: after Start, its own thread calls ThreadFuncImpl over and over;
// when Stop returns, that thread has ended. Start and Stop are called from one
// thread, and Stop before the derived object is destroyed. Stop is harmless
// when the thread never started or has stopped already.
class CThread {
public:
    CThread();
    virtual ~CThread();
    virtual int ThreadFuncImpl() = 0;
    virtual int PreBeginThread();
    virtual int PostExitThread();
    int Start(int flags);
    int Stop();

private:
    // Declared and never defined, not deleted: the simulator defines every
    // other member without reading m_impl, and a deleted pair would leave
    // clang no undefined member to excuse the unused field there.
    CThread(const CThread&);             // NOLINT(modernize-use-equals-delete)
    CThread& operator=(const CThread&);  // NOLINT(modernize-use-equals-delete)
    void* m_impl;  // NOLINT(modernize-use-default-member-init): each side's constructor sets it
};

}  // namespace Common

// What a host holds of a loaded service: it can only destroy it.
class CServiceBase {
public:
    virtual ~CServiceBase() = default;
};

int Q7X_GetVichnNum();
int Q7X_GetDigitalchnNum();

#endif  // Q7X_COMMON_H
