#include "operator_message.h"

#include <veltrancord/client.h>

#include <algorithm>

#include "digest.h"
#include "path_rules.h"
#include "text_line.h"
#include "topics.h"

namespace veltrancord::bridge {
namespace {

bool is_control(char one) {
    const auto byte = static_cast<unsigned char>(one);
    constexpr unsigned char first_printable = 0x20;
    constexpr unsigned char rubout = 0x7F;
    return (byte < first_printable && one != '\t') || byte == rubout;
}

bool is_value(std::string_view value) {
    return value.size() <= VELTRANCORD_MAX_VALUE &&
           std::none_of(value.begin(), value.end(), is_control);
}

class message_reader {
  public:
    message_reader(message_kind kind, operator_message& message) : kind_(kind), message_(message) {}

    std::string read(std::string_view text) {
        std::string_view line;
        bool in_head = true;
        while (next_line(text, line)) {
            if (in_head && line.empty()) {
                in_head = false;
                continue;
            }
            std::string problem = in_head ? take_head(line) : take_setting(line);
            if (!problem.empty()) {
                return problem;
            }
        }
        return check_whole();
    }

  private:
    std::string take_head(std::string_view line) {
        named_value field;
        if (!split_line(line, field)) {
            return "a line of the head without \"=\"";
        }
        if (kind_ == message_kind::change && field.name == "base") {
            return take_base(field.value);
        }
        if (kind_ == message_kind::change && field.name == "remove") {
            return take_path(field.value, nullptr);
        }
        if (std::find(seen_.begin(), seen_.end(), field.name) != seen_.end()) {
            return std::string(field.name.substr(0, max_shown)) + ": twice";
        }
        seen_.push_back(field.name);
        return take_field(field)
                   ? std::string()
                   : std::string(field.name.substr(0, max_shown)) + ": unknown, or not of its form";
    }

    bool take_field(const named_value& field) {
        if (field.name == "id" && is_device_name(field.value)) {
            message_.id = field.value;
            return true;
        }
        if (field.name == "device" && is_device_name(field.value)) {
            message_.device = field.value;
            return true;
        }
        if (field.name == "sequence") {
            return read_number(field.value, message_.sequence) && message_.sequence > 0;
        }
        if (field.name == "not-after") {
            return read_number(field.value, message_.not_after);
        }
        if (field.name == "trial" && kind_ == message_kind::change) {
            return read_number(field.value, message_.trial_seconds) && message_.trial_seconds > 0 &&
                   message_.trial_seconds <= max_trial_seconds;
        }
        if (field.name == "answer" && kind_ == message_kind::answer) {
            message_.keep = field.value == "keep";
            return message_.keep || field.value == "give-back";
        }
        return false;
    }

    std::string take_base(std::string_view value) {
        const std::size_t blank = value.find(' ');
        const std::string_view document = value.substr(0, blank);
        if (blank == std::string_view::npos || !is_digest(value.substr(blank + 1)) ||
            !is_plain_path(std::string(document) + ".x")) {
            return "base: not a document and its hash";
        }
        if (message_.bases.size() == max_settings ||
            std::any_of(message_.bases.begin(), message_.bases.end(),
                        [&](const auto& one) { return one.first == document; })) {
            return "base: twice for one document, or too many";
        }
        message_.bases.emplace_back(document, value.substr(blank + 1));
        return {};
    }

    std::string take_setting(std::string_view line) {
        if (line.empty() || line.front() == '#') {
            return {};
        }
        named_value setting;
        if (kind_ != message_kind::change || !split_line(line, setting)) {
            return "a line that is no setting";
        }
        if (!is_value(setting.value)) {
            return std::string(setting.name.substr(0, max_shown)) +
                   ": a value that is too long, or "
                   "with control characters";
        }
        return take_path(setting.name, &setting.value);
    }

    // Notes a setting to be written, or with a null `value` to be removed.
    std::string take_path(std::string_view path, const std::string_view* value) {
        if (!is_plain_path(path)) {
            return "a path that is not plain";
        }
        if (message_.set.size() + message_.remove.size() == max_settings) {
            return "over " + std::to_string(max_settings) + " settings";
        }
        if (std::find(message_.remove.begin(), message_.remove.end(), path) !=
                message_.remove.end() ||
            std::any_of(message_.set.begin(), message_.set.end(),
                        [&](const auto& one) { return one.first == path; })) {
            return std::string(path) + ": twice";
        }
        if (value != nullptr) {
            message_.set.emplace_back(path, *value);
        } else {
            message_.remove.emplace_back(path);
        }
        return {};
    }

    [[nodiscard]] std::string check_whole() const {
        const bool change = kind_ == message_kind::change;
        const bool whole = !message_.id.empty() && !message_.device.empty() &&
                           message_.sequence > 0 && has("not-after") &&
                           has(change ? "trial" : "answer");
        if (!whole) {
            return change ? "id, device, sequence, not-after or trial is missing"
                          : "id, device, sequence, not-after or answer is missing";
        }
        return change && message_.set.empty() && message_.remove.empty() ? "no settings"
                                                                         : std::string();
    }

    [[nodiscard]] bool has(std::string_view name) const {
        return std::find(seen_.begin(), seen_.end(), name) != seen_.end();
    }

    static constexpr std::size_t max_shown = max_path;

    message_kind kind_;
    operator_message& message_;
    std::vector<std::string_view> seen_;
};

}  // namespace

std::string parse_message(std::string_view text, message_kind kind, operator_message& message) {
    message = {};
    if (text.size() > max_message) {
        return "over 64 KiB";
    }
    return message_reader(kind, message).read(text);
}

}  // namespace veltrancord::bridge
