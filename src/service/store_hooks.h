// What the process does around loading and freeing the document set.
#pragma once

namespace veltrancord {

// Sets g_storeHooks: after each load the semaphores 520, 521, 522, 523 and 530 are set, in this
// order, to 0, 0, 1, 0 and 0; with the set the shared-memory segments are removed. To be called
// before anything is loaded.
void install_store_hooks();

}  // namespace veltrancord
