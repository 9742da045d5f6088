// An operator's message written out again from what was read of it.
#pragma once

#include <string>

#include "operator_message.h"

namespace veltrancord::bridge {

// Read again it gives the same message.
[[nodiscard]] inline std::string plainest_form(const operator_message& message, message_kind kind) {
    std::string text = "id=" + message.id + "\ndevice=" + message.device +
                       "\nsequence=" + std::to_string(message.sequence) +
                       "\nnot-after=" + std::to_string(message.not_after) + "\n";
    if (kind == message_kind::answer) {
        return text + "answer=" + (message.keep ? "keep" : "give-back") + "\n";
    }
    text += "trial=" + std::to_string(message.trial_seconds) + "\n";
    for (const auto& [document, hash] : message.bases) {
        text.append("base=").append(document).append(" ").append(hash).append("\n");
    }
    for (const std::string& path : message.remove) {
        text.append("remove=").append(path).append("\n");
    }
    text += "\n";
    for (const auto& [path, value] : message.set) {
        text.append(path).append("=").append(value).append("\n");
    }
    return text;
}

}  // namespace veltrancord::bridge
