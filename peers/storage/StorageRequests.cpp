#include "StorageRequests.h"

#include <stdarg.h>
#include <stdio.h>

#include <utility>

#include "ByteOrder.h"
#include "LogFrame.h"
#include "MessageHead.h"

namespace zelstore {

namespace {

std::vector<uint8_t> reply(size_t size, uint8_t logType, int result) {
    std::vector<uint8_t> r(size, 0);
    r[zel::kReplyLogType] = logType;
    r[zel::kReplyResult] = static_cast<uint8_t>(static_cast<int8_t>(result));
    return r;
}

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
    char text[256];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    return text;
}

}  // namespace

StorageRequests::StorageRequests(AlertLogStore& store, Sink refused, Sink done)
    : m_store(store), m_refused(std::move(refused)), m_done(std::move(done)) {}

void StorageRequests::refuse(const char* msg, int len, const char* what, const std::string& why) {
    char who[96] = "";
    if (msg != nullptr && len >= zel::kHeadSize)
        snprintf(who, sizeof who, " from client %u session %u",
                 zel::getLe32(msg, zel::kHeadSourceId), zel::getLe32(msg, zel::kHeadSession));
    m_refused(std::string("refused ") + what + who + ": " + why);
}

const uint8_t* StorageRequests::payloadOf(const char* msg, int len, const char* what,
                                          size_t size, bool& hasHead) {
    hasHead = msg != nullptr && len >= zel::kHeadSize;
    if (!hasHead) {
        refuse(msg, len, what,
               format("a message of %d bytes is shorter than its 16-byte head",
                      msg ? len : 0));
        return nullptr;
    }
    uint32_t claimed = zel::headPayloadLength(msg);
    uint32_t got = static_cast<uint32_t>(len - zel::kHeadSize);
    if (claimed > got) {
        refuse(msg, len, what,
               format("its head claims %u payload bytes but %u arrived", claimed, got));
        return nullptr;
    }
    if (claimed != size) {
        refuse(msg, len, what,
               format("a payload of %u bytes; this request has %zu", claimed, size));
        return nullptr;
    }
    return reinterpret_cast<const uint8_t*>(msg) + zel::kHeadSize;
}

bool StorageRequests::onWrite(const char* msg, int len, std::vector<uint8_t>& out) {
    const char* what = "write (6661)";
    bool hasHead = false;
    const uint8_t* p = payloadOf(msg, len, what, zel::kWriteSize, hasHead);
    if (p == nullptr) {
        out = reply(zel::kWriteReplySize, 0, kMalformed);
        return hasHead;
    }
    uint8_t logType = p[zel::kReqLogType];
    const uint8_t* frame = p + zel::kWriteFrame;
    if (!zel::isLogFrame(frame)) {
        refuse(msg, len, what, "its frame lacks the z2db magic or its record heads");
        out = reply(zel::kWriteReplySize, logType, kMalformed);
        return true;
    }
    uint32_t alertID = zel::getLe32(frame, zel::kFrameAlertId);
    uint64_t offset = 0;
    std::string why;
    int result = m_store.append(logType, frame, offset, why);
    if (result == kStored)
        m_done(format("stored alert %u at offset %llu of %s", alertID,
                      static_cast<unsigned long long>(offset),
                      logFileName(logType, m_store.today()).c_str()));
    else
        m_refused(format("could not store alert %u (result %d): %s", alertID, result,
                         why.c_str()));
    out = reply(zel::kWriteReplySize, logType, result);
    return true;
}

void StorageRequests::onModify(const char* msg, int len) {
    const char* what = "modify (6668)";
    bool hasHead = false;
    const uint8_t* p = payloadOf(msg, len, what, zel::kModifySize, hasHead);
    if (p == nullptr) return;
    uint8_t logType = p[zel::kReqLogType];
    uint64_t offset = zel::getLe64(p, zel::kModifyOffset);
    const uint8_t* frame = p + zel::kModifyFrame;
    if (!zel::isLogFrame(frame)) {
        refuse(msg, len, what, "its frame lacks the z2db magic or its record heads");
        return;
    }
    uint32_t alertID = zel::getLe32(frame, zel::kFrameAlertId);
    std::string why;
    int result = m_store.replace(logType, offset, frame, why);
    if (result == kStored)
        m_done(format("patched alert %u at offset %llu of %s", alertID,
                      static_cast<unsigned long long>(offset),
                      logFileName(logType, m_store.today()).c_str()));
    else
        refuse(msg, len, what,
               format("alert %u at offset %llu: %s", alertID,
                      static_cast<unsigned long long>(offset), why.c_str()));
}

bool StorageRequests::onSize(const char* msg, int len, std::vector<uint8_t>& out) {
    bool hasHead = false;
    const uint8_t* p = payloadOf(msg, len, "size query (6671)", zel::kSizeQuerySize, hasHead);
    if (p == nullptr) {
        out = reply(zel::kSizeReplySize, 0, kMalformed);
        return hasHead;
    }
    uint8_t logType = p[zel::kReqLogType];
    uint64_t bytes = 0;
    Day day = {0, 0, 0};
    std::string why;
    int result = m_store.size(logType, bytes, day, why);
    if (result != kStored) m_refused("could not tell the log size: " + why);
    out = reply(zel::kSizeReplySize, logType, result);
    zel::putLe16(out.data(), zel::kReplyYear, static_cast<uint16_t>(day.year));
    out[zel::kReplyMonth] = static_cast<uint8_t>(day.month);
    out[zel::kReplyDay] = static_cast<uint8_t>(day.day);
    zel::putLe64(out.data(), zel::kSizeReplyLogSize, result == kStored ? bytes : 0);
    return true;
}

}  // namespace zelstore
