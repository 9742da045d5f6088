// The stored form of secrets: back and forth, and bounds whatever the file holds.
#include <string>
#include <vector>

#include "encoding/secret.h"
#include "fuzz_target.h"

namespace veltrancord::fuzz {
namespace {

void check_round_trip(std::string_view plain) {
    std::vector<char> stored(600);
    const int32_t length = enc_value_encode(plain, stored);
    const std::string_view form(stored.data());
    const std::size_t kept = plain.size() % 256;
    const std::string head = "enc:" + std::to_string(kept) + ":";
    require(length == static_cast<int32_t>((kept + 2) / 3 * 4), "the length of the base64 part");
    require(form.starts_with(head), "the head of the stored form");
    require(form.size() == head.size() + static_cast<std::size_t>(length), "the stored length");
    std::vector<char> back(secret_text_size);
    const int32_t result = enc_value_decode(form, back);
    require(result == (kept == 0 ? -1 : 0), "decoding what was stored");
    require(plain.substr(0, kept) == back.data(), "back again");
}

void check_decoding(std::string_view stored, std::size_t room) {
    std::vector<char> out(room);
    const int32_t result = enc_value_decode(stored, out);
    const std::size_t end = std::string_view(out.data(), out.size()).find('\0');
    require(end != std::string_view::npos, "the NUL behind a plain value");
    if (!stored.starts_with("enc:")) {
        require(result == 0 && stored.substr(0, room - 1) == out.data(), "text as it stands");
    }
}

// A form too long for its room leaves it as it was.
void check_small_room(std::string_view plain, std::size_t room) {
    std::vector<char> out(room, 'x');
    if (enc_value_encode(plain, out) < 0) {
        require(out == std::vector<char>(room, 'x'), "nothing is written where there is no room");
    }
}

}  // namespace

void try_input(input_reader& input) {
    const std::size_t room = input.byte() + std::size_t{1};
    const std::string_view text = up_to_nul(input.rest());
    check_round_trip(text);
    check_small_room(text, room);
    check_decoding(text, room);
    check_decoding("enc:" + std::string(text), room);
    check_decoding("enc:" + std::string(text), 256);
}

}  // namespace veltrancord::fuzz
