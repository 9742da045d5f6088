// Where the tool keeps what must outlive it: VELTRANCORD_STATE, else the user's state folder.
#pragma once

#include <string>

namespace veltrancord::tool {

// Makes the folder for its owner alone if need be. Return: its path; empty with errno set when it
// cannot be made or belongs to somebody else.
std::string state_folder();

// The folder that all members of a group share, which packages make (VELTRANCORD_STATE_DIRECTORY of
// the build); where there is none, or it may not be written to, as above. Return: as above.
std::string shared_state_folder();

}  // namespace veltrancord::tool
