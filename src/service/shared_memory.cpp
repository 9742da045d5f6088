#include "service/shared_memory.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>

#include "leaf/message.h"

namespace veltrancord {

namespace {

constexpr int permissions = 0666;

bool obtain(shared_segment& segment, key_t key) {
    if (segment.id < 0) {
        segment.id = ::shmget(key, segment_size, IPC_CREAT | permissions);
    }
    return segment.id >= 0;
}

void attach(shared_segment& segment) {
    if (segment.address == nullptr) {
        void* const address = ::shmat(segment.id, nullptr, 0);
        // shmat tells a failure by the address -1.
        segment.address = reinterpret_cast<std::intptr_t>(address) == -1 ? nullptr : address;
    }
}

void detach(shared_segment& segment) {
    if (segment.address != nullptr) {
        ::shmdt(segment.address);
        segment.address = nullptr;
    }
}

void remove(shared_segment& segment) {
    if (segment.id >= 0) {
        ::shmctl(segment.id, IPC_RMID, nullptr);
        segment.id = -1;
    }
}

}  // namespace

// The two messages differ by a line feed; they have always done so.
int32_t shm_attach() {
    if (!obtain(g_requestSegment, request_segment)) {
        print_error("allocate fail 0x%x error %s\n!!\n", static_cast<unsigned>(request_segment),
                    std::strerror(errno));
        return -1;
    }
    if (!obtain(g_replySegment, reply_segment)) {
        print_error("allocate fail 0x%x error %s!!\n", static_cast<unsigned>(reply_segment),
                    std::strerror(errno));
        return -1;
    }
    attach(g_requestSegment);
    attach(g_replySegment);
    return 0;
}

void shm_detach() {
    detach(g_requestSegment);
    detach(g_replySegment);
}

void shm_remove() {
    shm_detach();
    remove(g_requestSegment);
    remove(g_replySegment);
}

}  // namespace veltrancord
