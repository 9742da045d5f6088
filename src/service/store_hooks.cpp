#include "service/store_hooks.h"

#include <sys/types.h>

#include <cstdint>

#include "service/semaphore.h"
#include "service/shared_memory.h"
#include "store/document_set.h"

namespace veltrancord {

namespace {

struct initial_value {
    key_t key;
    int value;
};

// The device's other programs use these; the service itself only waits for and posts the last.
constexpr initial_value initial_values[] = {
    {520, 0}, {521, 0}, {522, 1}, {523, 0}, {readiness_semaphore, 0},
};

void set_semaphores() {
    for (const initial_value& semaphore : initial_values) {
        semaphore_create(semaphore.key, semaphore.value);
    }
}

uint32_t* reply_length_word() {
    return static_cast<uint32_t*>(g_replySegment.address);
}

}  // namespace

void install_store_hooks() {
    g_storeHooks = {set_semaphores, shm_remove, reply_length_word};
}

}  // namespace veltrancord
