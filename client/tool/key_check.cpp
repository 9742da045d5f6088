#include "key_check.h"

#include <algorithm>
#include <array>

#include "encoding/secret.h"
#include "exit_status.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

constexpr std::size_t key_size = 7;  // bytes, which are used in turn

// Compares what the key makes of one secret. Return: how many bytes of the key this tells; `other`
// is set when they differ.
std::size_t compare_one(context& tool, const setting& plain, bool& other) {
    owned_reply reply;
    if (veltrancord_read(&tool.client(), plain.path.c_str(), reply.get()) < 0) {
        return 0;
    }
    const std::string line = reply.text();
    const std::string stored = line.substr(std::min(line.size(), plain.path.size() + 1));
    std::array<char, secret_text_size> decoded{};
    if (!stored.starts_with("enc:") || enc_value_decode(stored, decoded) != 0) {
        return 0;
    }
    const std::size_t count = std::min({plain.value.size(), decoded.size(), key_size});
    other = other ||
            !std::equal(plain.value.begin(),
                        plain.value.begin() + static_cast<std::ptrdiff_t>(count), decoded.begin());
    return count;
}

}  // namespace

key_match compare_keys(context& tool, std::size_t length) {
    setting_list settings;
    if (read_subtree(tool, "", settings) < 0) {
        return key_match::unknown;
    }
    const std::size_t needed = std::clamp<std::size_t>(length, 1, key_size);
    std::size_t told = 0;
    bool other = false;
    for (const setting& one : settings) {
        if (is_secret_path(one.path) && !other && told < needed) {
            told = std::max(told, compare_one(tool, one, other));
        }
    }
    return other ? key_match::other : told < needed ? key_match::unknown : key_match::same;
}

int check_key(context& tool, const std::string& file, std::size_t length) {
    if (!tool.root.empty()) {
        return exit_done;  // what is decoded here is stored from here
    }
    switch (compare_keys(tool, length)) {
        case key_match::same:
            return exit_done;
        case key_match::other:
            return tool.fail_with(exit_other_key, file,
                                  "holds secrets, and the service stores them with another key "
                                  "than this tool uses; give "
                                  "the product's key with --key, or use \"merge\" or \"load\", "
                                  "which leave the decoding "
                                  "to the service");
        default:
            return tool.fail_with(
                exit_other_key, file,
                "holds secrets, and the service holds none that is long enough to tell whether it "
                "stores them with the key that this tool uses; \"merge\" and \"load\" leave the "
                "decoding to the service");
    }
}

}  // namespace veltrancord::tool
