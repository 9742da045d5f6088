// What the service's starter has inherited: made the same whoever starts it.
#pragma once

namespace veltrancord {

// To be called before anything is opened or printed:
// - descriptors 0, 1 and 2 are opened on /dev/null where they are closed, so that no file or socket
//   of the service can come to stand where messages are printed; all others are closed;
// - no signal is blocked, and the end of a child can be waited for;
// - no process of the service dumps core: secrets are in its memory.
// Umask, directory, environment, priority and the other limits are the starter's to choose.
void settle_inheritance();

}  // namespace veltrancord
