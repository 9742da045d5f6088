// For tests that draw their input at random: how long to go on.
#pragma once

#include <algorithm>
#include <cstdlib>

#include "support/time_limit.h"

namespace veltrancord {

// The rounds that are usual, or as many as TEST_ROUNDS in the environment says: those take their
// time, so the test is not ended then.
inline int rounds(int usual) {
    const char* const wanted = std::getenv("TEST_ROUNDS");
    if (wanted == nullptr) {
        return usual;
    }
    end_process_after(0);
    return std::max(std::atoi(wanted), 1);
}

}  // namespace veltrancord
