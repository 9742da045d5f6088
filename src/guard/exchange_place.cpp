#include "guard/exchange_place.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "leaf/path_walk.h"
#include "leaf/trusted_program.h"
#include "leaf/whole_io.h"
#include "update/exchange_file.h"
#include "xml/document.h"

namespace veltrancord {

namespace {

constexpr std::size_t copy_step = 65'536;  // bytes

// path_walk leaves each ".." where it is, so where such a path leads is not to be seen in it.
bool is_canonical(const std::string& path) {
    const std::string closed = path + "/";
    return closed.find("/../") == std::string::npos && closed.find("/./") == std::string::npos;
}

bool lies_below(const std::string& place, const std::string& directory) {
    path_walk walk;
    const bool found =
        walk.follow(directory.c_str(), [](const struct stat&, const struct stat&) { return true; });
    if (!found || !is_canonical(walk.path()) || !S_ISDIR(walk.entry().st_mode)) {
        return false;
    }
    const std::string top = walk.path().ends_with('/') ? walk.path() : walk.path() + "/";
    return (place + "/").starts_with(top);
}

// The directory of a path and the last name in it.
class named_place {
  public:
    // Return: false when there is no such directory, or it does not lie below one of those.
    [[nodiscard]] bool find(const std::string& path, std::span<const std::string> directories) {
        const std::size_t slash = path.rfind('/');
        if (path[0] != '/' || slash == std::string::npos) {
            return false;
        }
        name_ = path.substr(slash + 1);
        if (name_.empty() || name_ == "." || name_ == "..") {
            return false;
        }
        const bool found =
            walk_.follow(path.substr(0, slash + 1).c_str(),
                         [](const struct stat&, const struct stat&) { return true; });
        return found && S_ISDIR(walk_.entry().st_mode) && is_canonical(walk_.path()) &&
               std::any_of(directories.begin(), directories.end(),
                           [&](const std::string& one) { return lies_below(walk_.path(), one); });
    }

    [[nodiscard]] const std::string& directory() const { return walk_.path(); }
    [[nodiscard]] int descriptor() const { return walk_.descriptor(); }
    [[nodiscard]] const std::string& name() const { return name_; }

  private:
    path_walk walk_;
    std::string name_;
};

// Return: false when it is too long, or cannot be read or copied.
bool copy_bounded_file(int from, int to) {
    const auto buffer = std::make_unique<char[]>(copy_step);
    std::size_t copied = 0;
    for (;;) {
        const ssize_t count = read_whole(from, buffer.get(), copy_step);
        if (count <= 0) {
            return count == 0;
        }
        const auto size = static_cast<std::size_t>(count);
        copied += size;
        if (copied > max_guarded_file || !write_whole(to, {buffer.get(), size})) {
            return false;
        }
    }
}

bool sets_programs(const TiXmlNode& top) {
    const TiXmlNode* node = &top;
    while (true) {
        const TiXmlElement* const element = node->ToElement();
        if (element != nullptr && element->Attribute("DispatchW") != nullptr) {
            return true;
        }
        if (node->FirstChild() != nullptr) {
            node = node->FirstChild();
            continue;
        }
        while (node != &top && node->NextSibling() == nullptr) {
            node = node->Parent();
        }
        if (node == &top) {
            return false;
        }
        node = node->NextSibling();
    }
}

// Return: false when it does not parse, or there is no memory for it.
bool look_into(guarded_file& file) {
    XmlDocument exchange("exchange");
    if (!load_exchange_file(file.path.c_str(), exchange)) {
        return false;
    }
    const TiXmlElement* const root = exchange.RootElement();
    const TiXmlElement* element = root != nullptr ? root->FirstChildElement() : nullptr;
    for (; element != nullptr; element = element->NextSiblingElement()) {
        file.documents.push_back(element->ValueStr());
        file.sets_programs = file.sets_programs || sets_programs(*element);
    }
    return true;
}

}  // namespace

bool copy_guarded_file(const std::string& path, std::span<const std::string> directories,
                       guarded_file& file) {
    named_place place;
    if (!place.find(path, directories)) {
        return false;
    }
    file.copy.reset(::memfd_create("exchange", MFD_CLOEXEC));
    if (!file.copy) {
        return false;
    }
    file.path = "/proc/self/fd/" + std::to_string(file.copy.get());
    const owned_fd original(::openat(place.descriptor(), place.name().c_str(),
                                     O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
    if (!original) {
        return errno == ENOENT;
    }
    struct stat status {};
    if (::fstat(original.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > 1 ||
        !copy_bounded_file(original.get(), file.copy.get())) {
        return false;
    }
    // What has not been looked into, for want of memory perhaps, must not be there to be read when
    // the handler asks for it a moment later.
    return look_into(file) || ::ftruncate(file.copy.get(), 0) == 0;
}

std::string guarded_place(const std::string& path, std::span<const std::string> directories,
                          uid_t own_user) {
    named_place place;
    // With a step behind the directory it counts who may write to that.
    if (!place.find(path, directories) ||
        !why_not_trusted((place.directory() + "/.").c_str(), own_user).empty()) {
        return {};
    }
    struct stat status {};
    const bool there =
        ::fstatat(place.descriptor(), place.name().c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (there ? !S_ISREG(status.st_mode) : errno != ENOENT) {
        return {};
    }
    return (place.directory() == "/" ? "" : place.directory()) + "/" + place.name();
}

}  // namespace veltrancord
