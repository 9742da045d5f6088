// What the description offers to who types: names of settings, and values that they may have.
#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace veltrancord::tool {

struct described_word {
    std::string word;
    std::string meaning;  // a label in the user's language, or empty
};

// The paths one component below `parent` ("": the documents) that the description names; those of
// groups end with a dot.
std::vector<described_word> described_paths(context& tool, const std::string& parent);

// Values for a setting: all of an enumeration, YES and NO, and of numbers all where they are few,
// else the least, the greatest and the default.
std::vector<described_word> described_values(context& tool, const std::string& path);

}  // namespace veltrancord::tool
