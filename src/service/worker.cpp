#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "access/filter.h"
#include "access/groups.h"
#include "access/permit_db.h"
#include "access/permits.h"
#include "access/sessions.h"
#include "eventlog/event_log.h"
#include "guard/guard.h"
#include "leaf/message.h"
#include "server/listener.h"
#include "service/commands.h"
#include "service/processes.h"
#include "service/semaphore.h"
#include "service/shared_memory.h"
#include "service/signals.h"
#include "store/document_set.h"
#include "store/reply_capacity.h"
#include "update/backup.h"

namespace veltrancord {

namespace {

constexpr int thread_failed_status = 1;
constexpr int socket_gone_status = 1;
constexpr unsigned pass_seconds = 10;

// Blocks of at least this many bytes are mapped by themselves.
constexpr int mapped_block = 512 * 1024;

// Handlers walk documents recursively, and documents may nest 512 elements deep. The widest frame
// on such a walk holds a key and a line of a few hundred bytes; a sanitizer triples it. Four
// mebibytes hold that several times over and cost only the pages that are touched.
constexpr std::size_t server_stack_size = std::size_t{4} * 1024 * 1024;

// Left for requests when documents have taken all that they could.
constexpr std::size_t working_size = std::size_t{4} * 1024 * 1024;

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

std::size_t default_stack_size() {
    pthread_attr_t attributes;
    std::size_t size = 0;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_getstacksize(&attributes, &size);
    ::pthread_attr_destroy(&attributes);
    return size;
}

// Address space that is kept from the documents while they are loaded. One that memory does not
// suffice for takes all there is until it is refused, and what it gives back may stay in the
// allocator's hands, which cannot serve a thread's stack.
class address_space_reserve {
  public:
    explicit address_space_reserve(std::size_t size)
        : size_(size),
          start_(::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1,
                        0)) {}
    address_space_reserve(const address_space_reserve&) = delete;
    address_space_reserve& operator=(const address_space_reserve&) = delete;
    ~address_space_reserve() {
        if (start_ != MAP_FAILED) {
            ::munmap(start_, size_);
        }
    }

  private:
    std::size_t size_;
    void* start_;
};

// Starts a thread that runs until the process ends and takes no signals but what it asks for
// itself. `stack_size` 0: default.
bool start_thread(void* (*routine)(void*), void* argument, std::size_t stack_size) {
    const all_signals_blocked blocked;
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    if (stack_size > 0) {
        ::pthread_attr_setstacksize(&attributes, stack_size);
    }
    pthread_t thread = {};
    const int error = ::pthread_create(&thread, &attributes, routine, argument);
    ::pthread_attr_destroy(&attributes);
    if (error != 0) {
        print_error("pthread_create: %s\n", std::strerror(error));
        return false;
    }
    ::pthread_detach(thread);
    return true;
}

// What lives as long as the worker and is shared between its threads.
struct worker_state {
    std::atomic<uint32_t> change_counter{0};
    session_lists sessions;
    access_guard guard{device_guard_setup()};
    int32_t backup_interval = 0;  // seconds
    server_start server;
};

void* start_backups(void* argument) {
    worker_state& state = *static_cast<worker_state*>(argument);
    backup_thread(state.change_counter, state.backup_interval);
}

// Loads the document set and computes the reply capacity.
//
// Return: what LoadXmlDir returned.
int32_t load_configuration(const service_options& options) {
    install_store_hooks();
    const int32_t loaded = LoadXmlDir(options.xml_path);
    if (loaded >= 0) {
        // The default directory, wherever the configuration is loaded from: products that load
        // another one count on replies being bounded as they are on the device.
        scan_reply_capacity(default_config_directory);
    }
    return loaded;
}

[[noreturn]] void run_main_loop() {
    bool ready_posted = false;
    for (;;) {
        if (g_childExited.load()) {
            reap_children();
        }
        g_shmBodyOffset = 0;
        if (!ready_posted) {
            ready_posted = true;
            semaphore_post(readiness_semaphore);
        }
        ::sleep(pass_seconds);  // shorter when a child ends
    }
}

// A large reply is one block that grows and goes; the allocator would learn from the first one to
// keep such blocks, and the process would stay as large as its largest reply. Fixed thresholds make
// it map them, so that growing moves no bytes and freeing gives the pages back. One arena, since
// all that is large is loaded by one thread and replaced by another, and what the first has freed
// must serve the second.
void bound_memory() {
    ::mallopt(M_MMAP_THRESHOLD, mapped_block);
    ::mallopt(M_TRIM_THRESHOLD, 2 * mapped_block);
    ::mallopt(M_ARENA_MAX, 1);
}

// Loads documents and log. Return: false when the service cannot go on.
bool load_data(const service_options& options) {
    const address_space_reserve reserve(default_stack_size() + server_stack_size + working_size);
    if (load_configuration(options) < 0) {
        return false;
    }
    install_worker_signals();
    // Without a log the service serves everything else.
    init_event_log(options.event_log_path);
    return true;
}

}  // namespace

void install_store_hooks() {
    g_storeHooks = {set_semaphores, shm_remove, reply_length_word};
}

// The order is fixed: each step stands on the ones before it, and clients that connect meanwhile
// wait until all is there.
int run_worker(const service_options& options) {
    bound_memory();
    if (!load_data(options)) {
        return 0;
    }

    worker_state state;
    state.server.fd = g_listeningFd.load();
    state.server.change_counter = &state.change_counter;
    state.server.sessions = &state.sessions;
    state.server.commands = command_table();
    state.server.follow_ups = command_follow_ups();
    state.guard.load();
    state.server.gate = &state.guard;
    state.server.socket_gone = [] { ::_exit(socket_gone_status); };
    state.backup_interval = options.backup_interval;
    if (!start_thread(start_backups, &state, 0) ||
        !start_thread(server_thread, &state.server, server_stack_size)) {
        return thread_failed_status;
    }
    init_permit_list();
    init_group_list();
    init_filter_list();
    init_session_lists(state.sessions);
    save_xml_to_file(permit_db_content, permit_db_path);
    state.server.lists_ready.count_down();
    run_main_loop();
}

}  // namespace veltrancord
