// What a write would create. The service makes every element that a path names and that is missing,
// so that a slip of the pen would be a new setting that nobody reads.
#pragma once

#include <string>
#include <vector>

#include "context.h"

namespace veltrancord::tool {

// Finds the settings whose place is not there yet. Unless `create` the first of them is a failure,
// told with the name that was perhaps meant; nothing must be written then.
//
// Return: exit_done with the paths that a write will create in `created`, or a status after a
// message.
int check_creation(context& tool, const setting_list& settings, bool create,
                   std::vector<std::string>& created);

// Makes the documents of those paths that are not there, each with an empty root element: a write
// makes elements, but no document. Says so of each, since it stays when the write fails; and it is
// saved at once, also where the write is to memory alone.
//
// Return: exit_done, or a status after a message; nothing must be written then.
int make_documents(context& tool, const std::vector<std::string>& created);

// Says what was created, a line for each.
void tell_created(const std::vector<std::string>& created);

// How many letters have to be changed, added, left out or exchanged with their neighbour to make
// one name of the other; letters that differ in case alone are the same.
std::size_t name_distance(std::string_view one, std::string_view other);

}  // namespace veltrancord::tool
