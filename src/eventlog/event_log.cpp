#include "eventlog/event_log.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "eventlog/log_capacity.h"
#include "leaf/bounded_text.h"
#include "leaf/file_replacer.h"
#include "leaf/file_text.h"
#include "leaf/kept_original.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "leaf/termination.h"
#include "store/document_set.h"

namespace veltrancord {

event_log g_event_log;

namespace {

// Everything before the last "/"; empty for a file at the top or a bare name.
std::string directory_of(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return std::string(path.substr(0, slash == std::string_view::npos ? 0 : slash));
}

bool is_terminating() {
    return g_terminating.load(std::memory_order_relaxed);
}

}  // namespace

int32_t event_log::start(const char* path) {
    copy_bounded(path_, path);
    int32_t size = 0;
    const int32_t result = read_log_file_system_size(directory_of(path_).c_str(), size);
    if (result < 0) {
        print_error("no event log: the file system of %s cannot be measured : %s\n", path_,
                    std::strerror(errno));
        measured_ = false;
        return result;
    }
    const int32_t capacity = log_capacity_for_size(size);
    print_error("event log max number = %d iAvailHddSize=0x%x\n", capacity,
                static_cast<uint32_t>(size));
    return start_with_capacity(path, capacity);
}

int32_t event_log::start_with_capacity(const char* path, int32_t capacity) {
    copy_bounded(path_, path);
    ring_.capacity = capacity;
    clear_replacement_leftovers(directory_of(path_).c_str());
    document_ = load(path_);
    if (!document_) {
        // What the replacer could not do shows when the file is read again.
        static_cast<void>(replace_file(path_, log_document::empty_file));
        document_ = load(path_);
    }
    if (!document_) {
        return result_failed;
    }
    if (document_->damaged_line() != 0) {
        damaged_ = true;
        print_error("%s damaged, not read from line %zu on, strxmlPath=%s\n", "init_event_log",
                    document_->damaged_line(), path_);
    }
    find_ring();
    return result_ok;
}

std::unique_ptr<log_document> event_log::load(const char* path) const {
    std::string text;
    if (LoadFile2Buf(path, text) < 0) {
        return nullptr;
    }
    auto document = std::make_unique<log_document>(ring_.capacity);
    document->load(std::move(text));
    return document;
}

void event_log::find_ring() {
    const int32_t capacity = ring_.capacity;
    const int32_t elements = document_->element_count();
    if (!log_starts_full(capacity, elements)) {
        ring_ = partial_log_ring(capacity, elements);
        return;
    }
    newest_log_entry newest;
    for (int32_t position = 1; position <= capacity; ++position) {
        log_record record;
        const log_entry_state state = document_->decode(position, record);
        if (state == log_entry_state::missing) {
            break;
        }
        // Decoding takes the entries that a mask of all bits selects, so none of type 0.
        if (state == log_entry_state::readable && record.type != 0) {
            newest.consider(position, record);
        }
    }
    ring_ = full_log_ring(capacity, newest.position());
}

int32_t event_log::add(const log_record& record, const log_time_text& time) {
    if (!document_ || is_terminating()) {
        return result_denied;
    }
    document_->set(ring_.write_position(), entry_to_keep(record, time).view());
    ring_.advance();
    // From here on the entry is in, and nothing may tell the client that it is not.
    try {
        static_cast<void>(save());
    } catch (const std::bad_alloc&) {
        print_error("replace_file %s error : %s\n", path_, std::strerror(ENOMEM));
    }
    return result_ok;
}

// The entry's text, with as much of the detail text as the file keeps.
log_entry_text event_log::entry_to_keep(log_record record, const log_time_text& time) const {
    log_entry_text entry = format_log_entry(record, time);
    for (std::size_t length = record.detail().size(); length > 0 && !document_->keeps(entry.view());
         --length) {
        record.detail_text[length - 1] = '\0';
        entry = format_log_entry(record, time);
    }
    return entry;
}

int32_t event_log::read(const log_request& request, reply_text& reply) {
    return document_ ? log_read(*document_, ring_, cursor_, request, reply) : result_denied;
}

// What a damaged file holds beyond the log goes with its replacement, so the original is kept
// first.
//
// Return: whether the file may be replaced.
bool event_log::keep_damaged() const {
    return !damaged_ || keep_original(path_) == result_ok;
}

int32_t event_log::clean() {
    file_replacement replacement;
    if (!keep_damaged()) {
        return result_failed;
    }
    if (replacement.prepare(path_, log_document::empty_file) < 0 &&
        !replacement.settle_for_in_place()) {
        replacement.report_failure();
        return result_failed;
    }
    std::unique_ptr<log_document> fresh;
    const std::string aside = replacement.prepared_path();
    if (!aside.empty()) {
        fresh = load(aside.c_str());
        if (!fresh) {
            return result_failed;
        }
    }
    if (replacement.commit() < 0) {
        replacement.report_failure();
        // Where only the flush of the directory failed, the file is the empty one, and the document
        // has to agree with it.
        if (!replacement.replaced()) {
            return result_failed;
        }
    }
    if (!fresh) {
        fresh = load(path_);
        if (!fresh) {
            return result_failed;
        }
    }
    if (!document_ && !measured_) {
        print_error("the event log holds nothing until the service is started again\n");
    }
    document_ = std::move(fresh);
    damaged_ = false;
    ring_.clear();
    cursor_.reset();
    return result_ok;
}

bool event_log::save() {
    if (!document_ || is_terminating()) {
        return false;
    }
    if (keep_damaged() && replace_file(path_, document_->file_text()) == result_ok) {
        damaged_ = false;
    }
    return true;
}

int32_t init_event_log(const char* path) {
    return g_event_log.start(path);
}

void SystemHaltEventLog() {
    if (!g_event_log.save()) {
        // The same words when the process is terminating: readers of the device's boot log look
        // for them.
        print_error("%s logdoc == NULL\n", "SystemHaltEventLog");
    }
}

}  // namespace veltrancord
