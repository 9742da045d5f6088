#include "guard/policy_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "leaf/owned_fd.h"
#include "leaf/trusted_program.h"
#include "leaf/whole_io.h"

namespace veltrancord {

namespace {

policy_reading bad(std::string why) {
    policy_reading reading;
    reading.state = policy_state::bad;
    reading.mistakes.push_back({0, std::move(why)});
    return reading;
}

policy_reading bad_for(int error) {
    return bad(std::string("cannot be read: ") + std::strerror(error));
}

}  // namespace

const char* access_file_path() noexcept {
    return VELTRANCORD_ACCESS_FILE;
}

policy_reading read_policy_file(const char* path, uid_t own_user, const account_lookup& accounts) {
    // Looked at before it is opened: where nobody else may write now, nobody has put another one
    // in its place until it is open.
    const std::string why = why_not_trusted(path, own_user);
    const owned_fd file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
    if (!file && errno == ENOENT) {
        return {};
    }
    if (!why.empty()) {
        return bad("is not obeyed: " + why);
    }
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        return errno == ELOOP ? bad("is not obeyed: it is a link") : bad_for(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return bad("is not obeyed: it is no regular file");
    }
    // A byte more than there may be, so that a longer one is told from a whole one; and no more
    // than there is, since what is touched stays the process's.
    const auto size = static_cast<std::size_t>(std::max<off_t>(status.st_size, 0));
    std::string text(std::min(size, max_policy_size) + 1, '\0');
    const ssize_t count = read_whole(file.get(), text.data(), text.size());
    if (count < 0) {
        return bad_for(errno);
    }
    text.resize(static_cast<std::size_t>(count));
    parsed_policy parsed = parse_policy(text, accounts);
    policy_reading reading;
    reading.state = parsed.mistakes.empty() ? policy_state::good : policy_state::bad;
    reading.policy = std::move(parsed.policy);
    reading.mistakes = std::move(parsed.mistakes);
    return reading;
}

}  // namespace veltrancord
