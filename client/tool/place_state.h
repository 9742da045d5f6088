// What the service holds at some places, settings and attributes, to see what a change makes of it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "context.h"

namespace veltrancord::tool {

struct place_state {
    std::map<std::string, std::string> settings;    // an element without a text has an empty one
    std::map<std::string, std::string> attributes;  // the last component of the path names one
};

// Reads these settings alone, without attributes. Return: the result.
int32_t read_named(context& tool, const std::vector<std::string>& paths, place_state& state);

// Reads these attributes alone. Return: the result.
int32_t read_named_attributes(context& tool, const std::vector<std::string>& paths,
                              place_state& state);

// Reads all that lies at each place and below, attributes too; "*" is everything. Elements below a
// place that have neither a text nor attributes are not told. A place that does not exist holds
// nothing. Return: the result.
int32_t read_places(context& tool, const std::vector<std::string>& places, place_state& state);

// The first element on the way to `path` that does not exist: what writing there would make. Empty:
// all of them exist.
std::string first_missing(context& tool, const std::string& path);

}  // namespace veltrancord::tool
