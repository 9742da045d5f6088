// The permits that the configuration defines.
//
// Built at start and by SyncPermit, used by the server thread.
#pragma once

#include <cstdint>
#include <string_view>

#include "access/owned_text.h"
#include "access/tail_queue.h"
#include "handler/reply_text.h"

namespace veltrancord {

// "Account.Permission.Define.Permit<number>".
struct PermitDef {
    tail_queue_link<PermitDef> link;
    owned_text key;     // "Permit<number>", by which filter rules name the permit
    owned_text name;    // the element's text, by which queries name it
    owned_text type;    // its attribute Type; absent when missing: no check then ever passes
    owned_text value;   // its attribute Value, absent when missing; only listed, never decided by
    int32_t index = 0;  // the number, from 1
};

using permit_queue = tail_queue<PermitDef>;

extern permit_queue g_permit_list;  // in rising order of index, gaps allowed

// How many permit and group numbers count where the configuration does not say.
inline constexpr int32_t default_permit_count = 20;
inline constexpr int32_t default_group_count = 10;

// Return: "Account.Permission.MaxPermDefNum", the highest permit number that counts.
[[nodiscard]] int32_t highest_permit_number();

// Builds the list anew from the configuration. When memory cannot be had that is printed, and the
// list holds what was built until then.
void init_permit_list();

// Empties the list.
void free_permit_list();

// Return: the number of the first permit with that key, or -1.
[[nodiscard]] int32_t find_permit_index_by_key(const permit_queue& permits, std::string_view key);

// Appends one line for each permit, in list order, to `out`, which the caller has opened. A missing
// type or value reads "(null)": pages that show the list look for just this text.
//
// Return: false when memory could not be had.
[[nodiscard]] bool list_permits(const permit_queue& permits, reply_text& out);

}  // namespace veltrancord
