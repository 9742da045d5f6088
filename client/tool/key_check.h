// Whether this tool decodes secrets with the service's key: with another one they become garbage,
// which nothing would notice before somebody is locked out.
#pragma once

#include <cstddef>
#include <string>

#include "context.h"

namespace veltrancord::tool {

enum class key_match { same, other, unknown };

// Compares the stored form of the service's secrets with their plain text. `length` is that of the
// longest secret that is going to be decoded, in bytes: a short secret of the service tells only
// the beginning of its key, and is no proof for a longer one. With 0 one byte is proof.
key_match compare_keys(context& tool, std::size_t length);

// Before the secrets of an exchange file are decoded, the longest of them `length` bytes long. With
// --root no other key is used than the tool's, or that of --key.
//
// Return: exit_done when the keys are the same, or exit_other_key after a message.
int check_key(context& tool, const std::string& file, std::size_t length);

}  // namespace veltrancord::tool
