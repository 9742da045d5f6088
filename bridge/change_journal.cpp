#include "change_journal.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "leaf/file_replacer.h"
#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "leaf/whole_io.h"
#include "text_line.h"
#include "topics.h"

namespace veltrancord::bridge {
namespace {

constexpr std::array words = {"none",        "noted",   "trial",    "applied",
                              "rolled-back", "refused", "conflict", "expired"};

constexpr std::size_t largest_file = 4096;

enum class file_look : uint8_t { read, missing, unreadable };

file_look read_file(const std::string& path, std::string& text) {
    const owned_fd file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        return errno == ENOENT ? file_look::missing : file_look::unreadable;
    }
    text.assign(largest_file, '\0');
    const ssize_t count = read_whole(file.get(), text.data(), text.size());
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return count >= 0 ? file_look::read : file_look::unreadable;
}

bool read_state(std::string_view word, change_state& state) {
    const auto* const found = std::find(words.begin(), words.end(), word);
    state = static_cast<change_state>(found - words.begin());
    return found != words.end();
}

// Return: false for what is not wholly understood.
bool parse(std::string_view text, noted_change& change) {
    std::string_view line;
    while (next_line(text, line)) {
        named_value field;
        if (!split_line(line, field)) {
            return false;
        }
        if (field.name == "id" && is_device_name(field.value)) {
            change.id = field.value;
        } else if (field.name == "reason") {
            change.reason = field.value;
        } else if (!(field.name == "sequence" && read_number(field.value, change.sequence)) &&
                   !(field.name == "trial" && read_number(field.value, change.trial)) &&
                   !(field.name == "state" && read_state(field.value, change.state))) {
            return false;
        }
    }
    return change.sequence > 0 && !change.id.empty();
}

std::string head_of(const noted_change& change) {
    return "sequence=" + std::to_string(change.sequence) + "\nid=" + change.id + "\n";
}

}  // namespace

const char* word_of(change_state state) {
    return words[static_cast<std::size_t>(state)];
}

change_journal::change_journal(std::string flash, std::string memory)
    : flash_(std::move(flash)), memory_(std::move(memory)) {}

bool change_journal::load() {
    last_ = {};
    std::string text;
    const file_look look = read_file(flash_, text);
    if (look != file_look::read) {
        return look == file_look::missing;
    }
    if (!parse(text, last_)) {
        last_ = {};
        return false;
    }
    last_.state = change_state::noted;
    noted_change ended;
    if (read_file(memory_, text) == file_look::read && parse(text, ended) &&
        ended.sequence == last_.sequence && ended.id == last_.id) {
        last_ = std::move(ended);
    }
    return true;
}

bool change_journal::note(uint64_t sequence, const std::string& id) {
    noted_change next;
    next.sequence = sequence;
    next.id = id;
    next.state = change_state::noted;
    if (replace_file(flash_.c_str(), head_of(next)) != result_ok) {
        return false;
    }
    last_ = std::move(next);
    return true;
}

void change_journal::set_state(change_state state, const std::string& reason, uint64_t trial) {
    last_.state = state;
    last_.reason = reason;
    last_.trial = trial;
    const std::string text = head_of(last_) + "state=" + word_of(state) +
                             "\ntrial=" + std::to_string(trial) + "\nreason=" + reason + "\n";
    (void)replace_file(memory_.c_str(), text);
}

}  // namespace veltrancord::bridge
