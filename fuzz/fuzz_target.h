// What the fuzz targets share: their entry point, and how they say that something does not hold.
//
// A target is one source here, which defines try_input. LibFuzzer feeds it what it makes up
// (`./dev fuzz`), replay.cpp what the corpus keeps; both come in by entry_point.cpp. A target does
// not only wait for crashes: it compares with the simplest other way to come to the same answer.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace veltrancord::fuzz {

// What has to be done before an input that is to blame can be kept.
inline void (*g_before_abort)() = nullptr;

// Ends the process with `what` where something that always holds does not: a finding.
inline void require(bool holds, std::string_view what) {
    if (holds) {
        return;
    }
    // Standard error may be closed to keep the service's own messages out of the way; then the
    // stack trace that follows names the line.
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, what.data(), what.size());
    if (g_before_abort != nullptr) {
        g_before_abort();
    }
    std::abort();
}

// The part of `text` before its first NUL: what a routine that takes C texts sees.
inline std::string_view up_to_nul(std::string_view text) {
    return text.substr(0, text.find('\0'));
}

// Takes bytes and pieces off the front of an input, so that one input says several things.
class input_reader {
  public:
    explicit input_reader(std::string_view input) : rest_(input) {}

    // Return: the next byte, 0 behind the end.
    [[nodiscard]] uint8_t byte() {
        if (rest_.empty()) {
            return 0;
        }
        const auto first = static_cast<uint8_t>(rest_.front());
        rest_.remove_prefix(1);
        return first;
    }

    // Return: what stands before the next byte FF, which no text holds; the rest without one.
    [[nodiscard]] std::string_view piece() {
        const std::size_t end = rest_.find('\xFF');
        const std::string_view found = rest_.substr(0, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        return found;
    }

    [[nodiscard]] std::string_view rest() const { return rest_; }
    [[nodiscard]] bool empty() const { return rest_.empty(); }

  private:
    std::string_view rest_;
};

// One input, tried on the target; what does not hold does not return.
void try_input(input_reader& input);

}  // namespace veltrancord::fuzz
