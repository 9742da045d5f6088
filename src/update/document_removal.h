// Removing documents and elements. Server thread only.
#pragma once

#include <cstdint>
#include <string_view>

namespace veltrancord {

// Removes what `argument` names; a final line feed is ignored.
// ".*": every document with its file. "<document>.*", written exactly as the document is named:
// that document with its file. Any other path: the element that it leads to, a final "*" left
// out; its document is marked to be saved. Removed files are gone from the device when the call
// returns.
//
// Return: result_ok; result_bad_argument for a path that does not split; result_not_found when no
// such document or element is there.
[[nodiscard]] int32_t remove_setting(std::string_view argument);

}  // namespace veltrancord
