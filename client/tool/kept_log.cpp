#include "kept_log.h"

#include <sys/stat.h>
#include <sys/statfs.h>

#include <cerrno>
#include <string_view>

#include "exit_status.h"
#include "question.h"
#include "saved_settings.h"
#include "xml/document.h"
#include "xml/element_text.h"

namespace veltrancord::tool {
namespace {

constexpr std::string_view remedy =
    "; give the log a small file system of its own, 1 MiB will do (docs/eventlog.md), and start "
    "the service again";

std::string folder_of(const std::string& file) {
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : file.substr(0, slash);
}

std::string mebibytes(unsigned long long bytes) {
    return std::to_string(bytes >> 20U) + " MiB";
}

}  // namespace

bool is_failed_exchange(int32_t number) {
    return number <= VELTRANCORD_UNREACHABLE && number >= VELTRANCORD_SYSTEM_ERROR;
}

bool read_log_capacity(context& tool, int32_t& capacity) {
    capacity = veltrancord_log_capacity(&tool.client());
    return !is_failed_exchange(capacity);
}

std::string why_log_keeps_nothing(const running_service& service, int32_t capacity) {
    std::string why =
        "the event log has room for " + std::to_string(capacity) + " events, so it keeps none: ";
    const std::string folder = folder_of(service.log_file);
    struct stat there {};
    struct statfs file_system {};
    if (service.paths_known && stat(folder.c_str(), &there) != 0 && errno == ENOENT) {
        return why + folder + " is not there; make it and start the service again";
    }
    if (!service.paths_known || statfs(folder.c_str(), &file_system) != 0) {
        return why +
               "its file system is smaller than 129 KiB, or so large, from 2 GiB on, that the "
               "reckoning in 32 bits overflows" +
               std::string(remedy);
    }
    const unsigned long long size = static_cast<unsigned long long>(file_system.f_blocks) *
                                    static_cast<unsigned long long>(file_system.f_bsize);
    if (size < 1ULL << 31U) {
        why += capacity == 0 && size >= 131072 + 256
                   ? "it could not be opened when the service started; make " + service.log_file +
                         " readable and writable for it"
                   : "the file system of " + service.log_file + " has " +
                         std::to_string(size >> 10U) + " KiB, and at least 129 are needed";
        return why + std::string(remedy);
    }
    return why + "the file system of " + service.log_file + " has " + mebibytes(size) +
           ", and from 2 GiB on the reckoning in 32 bits overflows" + std::string(remedy);
}

int fail_without_room(context& tool, int32_t capacity) {
    return tool.fail_with(exit_no_log, "log", why_log_keeps_nothing(find_service(tool), capacity));
}

int check_log_capacity(context& tool) {
    int32_t capacity = 0;
    if (!read_log_capacity(tool, capacity)) {
        return tool.fail("log", capacity);
    }
    return capacity > 0 ? exit_done : fail_without_room(tool, capacity);
}

log_before::log_before(const running_service& service)
    : file_(service.paths_known ? service.log_file : ""), before_(look()) {}

log_before::state log_before::look() const {
    state now;
    struct stat status {};
    if (file_.empty() || stat(file_.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return now;
    }
    now.readable = read_input(file_, now.text);
    for (const auto part :
         {static_cast<long long>(status.st_ino), static_cast<long long>(status.st_mtim.tv_sec),
          static_cast<long long>(status.st_mtim.tv_nsec)}) {
        now.stamp += std::to_string(part) + " ";
    }
    return now;
}

bool log_before::seems_saved(const veltrancord_log_record& record) const {
    const state now = look();
    if (!before_.readable || !now.readable) {
        return true;
    }
    if (now.stamp == before_.stamp && now.text == before_.text) {
        return false;
    }
    const std::string start = std::to_string(record.type) + ":";
    const std::string end = value_as_loaded(":" + std::to_string(record.detail1) + ":" +
                                            record.text + ":" + std::to_string(record.detail2));
    XmlDocument log("Log");
    (void)log.LoadXMLFile(now.text);
    // What was a damaged file may have another root beside the log's.
    for (const TiXmlElement* root = log.RootElement(); root != nullptr;
         root = root->NextSiblingElement()) {
        for (const TiXmlElement* entry = root->FirstChildElement(); entry != nullptr;
             entry = entry->NextSiblingElement()) {
            const std::string_view text = XmlElementText(*entry);
            if (text.starts_with(start) && text.ends_with(end)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace veltrancord::tool
