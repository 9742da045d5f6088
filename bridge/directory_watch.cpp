#include "directory_watch.h"

#include <sys/inotify.h>

#include <cstring>

#include "leaf/whole_io.h"

namespace veltrancord::bridge {
namespace {

constexpr uint32_t changes = IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE | IN_ONLYDIR;
constexpr std::size_t block_size = 4096;  // room for the longest name

}  // namespace

directory_watch::directory_watch() : notifier_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

int directory_watch::add(const std::string& directory) {
    return ::inotify_add_watch(notifier_.get(), directory.c_str(), changes);
}

bool directory_watch::take(const change_handler& changed) {
    alignas(inotify_event) char block[block_size];
    while (true) {
        const ssize_t size =
            uninterrupted([&] { return ::read(notifier_.get(), block, sizeof block); });
        if (size <= 0) {
            return true;
        }
        for (ssize_t at = 0; at < size;) {
            inotify_event event{};
            std::memcpy(&event, block + at, sizeof event);
            if ((event.mask & IN_IGNORED) != 0) {
                return false;
            }
            const bool lost = (event.mask & IN_Q_OVERFLOW) != 0;
            const char* const name = block + at + sizeof event;
            changed(event.wd, lost || event.len == 0 ? std::string_view() : std::string_view(name));
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

}  // namespace veltrancord::bridge
