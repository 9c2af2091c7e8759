// The alert logs of one directory: appends frames, replaces a frame in place
// and tells a log's size. The log of a request is always the one of the
// store's own current day (its clock), never the date a request carries, so
// that after midnight the day's new log starts empty.
//
// Durability: append and replace return only after the bytes are written
// and flushed with fdatasync, and a new file appears whole (its head is
// written to a temporary file that is renamed into place, and the directory
// is synced). A frame that was acknowledged therefore survives a crash of
// the process, or of the machine.
//
// Repairs: opening a log whose length is not 84 + 60 n (a crash tore the last
// frame) cuts the torn bytes; a log whose head is damaged is renamed aside
// to NAME.damaged and the day starts a new one. Both are told to `notice`.
//
// Not thread-safe; the files of one directory must have one store.
#ifndef ZEL_STORAGE_ALERTLOGSTORE_H
#define ZEL_STORAGE_ALERTLOGSTORE_H

#include <stdint.h>

#include <functional>
#include <string>

#include "AlertLogFile.h"

namespace zelstore {

// Results as the replies carry them in their signed result byte.
enum StoreResult {
    kStored = 0,
    kMalformed = -1,   // the request breaks the message format
    kIoError = -2,     // the disk refused the write or the flush
    kNoSpace = -3,     // the disk is full
    kNoLog = -4,       // no log for today to patch
    kBadOffset = -5,   // the offset names no frame of that alert in today's log
};

class AlertLogStore {
public:
    typedef std::function<Common::_datetime_()> Clock;
    typedef std::function<void(const std::string&)> Notice;

    // dir must exist. writer names the program in the heads it writes.
    AlertLogStore(std::string dir, Clock clock, Notice notice,
                  std::string writer = "zel-storage");

    // Appends frame (60 bytes) to today's log, made first if missing.
    // On kStored, offset is where the frame begins.
    int append(uint8_t logType, const uint8_t* frame, uint64_t& offset, std::string& why);
    // Replaces the frame at offset of today's log with frame, if the frame
    // there is one of the same alert.
    int replace(uint8_t logType, uint64_t offset, const uint8_t* frame, std::string& why);
    // Today's log size in bytes, 0 when today has no log yet. day: today.
    int size(uint8_t logType, uint64_t& bytes, Day& day, std::string& why);

    Day today() const;
    std::string pathOf(uint8_t logType, const Day& day) const;

private:
    // Today's log opened for reading and writing, with its whole length, or
    // -1 with a result (kNoLog when it is missing and create is false).
    int openLog(uint8_t logType, bool create, uint64_t& length, int& result, std::string& why);
    bool createLog(const std::string& path, uint8_t logType, const Day& day, std::string& why);
    void syncDir();

    std::string m_dir;
    Clock m_clock;
    Notice m_notice;
    std::string m_writer;
};

}  // namespace zelstore

#endif
