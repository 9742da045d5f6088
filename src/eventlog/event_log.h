// The event log of the service: a bounded ring of entries, kept in one XML file.
//
// docs/eventlog.md describes the file and the paging. Used by the server thread, and by the main
// thread before that one serves its first request.
#pragma once

#include <cstdint>
#include <memory>

#include "eventlog/entry_text.h"
#include "eventlog/log_cursor.h"
#include "eventlog/log_document.h"
#include "eventlog/log_reader.h"
#include "eventlog/log_record.h"
#include "eventlog/log_ring.h"
#include "handler/reply_text.h"

namespace veltrancord {

class event_log {
  public:
    // Loads the log from the file at `path` (its first 63 characters count) and sizes the ring by
    // the file system that holds it. A missing, unreadable or empty file is created anew; one that
    // does not parse gives an empty or partial log, of which a line tells, and is kept beside
    // before it is first replaced. Prints the capacity or why there is none, and the messages of
    // LoadFile2Buf. To be called once.
    //
    // Return: 0, or a negative value: the log then has no document and answers accordingly.
    [[nodiscard]] int32_t start(const char* path);

    // As start(), with a capacity that is given.
    [[nodiscard]] int32_t start_with_capacity(const char* path, int32_t capacity);

    // Stores an entry of that time and saves the file. A file that cannot be saved is reported; the
    // entry is kept and saved with the next one. A detail text whose end would take in what follows
    // the entry in the file is cut.
    //
    // Return: result_ok, or result_denied: no document, or the process is terminating.
    [[nodiscard]] int32_t add(const log_record& record, const log_time_text& time);

    // Reads a page into `reply`, which is opened.
    //
    // Return: the bytes appended, result_denied without a document, or a failure of log_read.
    [[nodiscard]] int32_t read(const log_request& request, reply_text& reply);

    // Empties the log and its file. The empty file is made aside and read back before it takes the
    // place of the old one, or where there is no room aside written in place: where neither is
    // possible the log stays as it is. Without a log it makes one; when the file system could not
    // be measured at the start, its capacity is 0.
    //
    // Return: result_ok or result_failed.
    [[nodiscard]] int32_t clean();

    // Saves the file. Return: false when there is no document or the process is terminating.
    [[nodiscard]] bool save();

    // What clients are told; both 0 while there is no document.
    [[nodiscard]] int32_t count() const { return document_ ? ring_.count : 0; }
    [[nodiscard]] int32_t capacity() const { return document_ ? ring_.capacity : 0; }

  private:
    [[nodiscard]] std::unique_ptr<log_document> load(const char* path) const;
    void find_ring();
    [[nodiscard]] bool keep_damaged() const;
    [[nodiscard]] log_entry_text entry_to_keep(log_record record, const log_time_text& time) const;

    char path_[64] = "";
    std::unique_ptr<log_document> document_;
    log_ring ring_;
    log_cursor cursor_;
    bool damaged_ = false;  // the file holds more than the document and has not been replaced yet
    bool measured_ = true;  // false: start() could not tell the capacity
};

// The service's log.
extern event_log g_event_log;

// Starts the service's log from the file at `path`.
//
// Return: 0 or a negative value, as event_log::start.
int32_t init_event_log(const char* path);

// Saves the service's log; for a path that halts the device. Reports on standard error when there
// is nothing that may be saved.
void SystemHaltEventLog();

}  // namespace veltrancord
