// Preloaded into the service by the fault tests: makes chosen calls of one thread fail.
//
// The file that FAULT_CONTROL names is mapped shared, so that a test steers from outside, while the
// thread waits for the next request: it writes which calls fail, counted from 1 within a group (the
// allocations, or the calls on files), and reads how many there were. Calls that the C library
// makes inside itself are not seen; the service's own are, and so are those of the libraries that
// it links. Descriptors that are sockets are left alone: what a client can do to them is tested by
// clients.
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <unistd.h>

enum { group_allocations = 1, group_files = 2 };
enum { action_short_write = 0x10001, action_kill = 0x10002 };
enum { name_size = 12, names = 256 };

// fault_control.py knows this layout.
struct control {
    uint32_t thread;  // id of the thread whose calls count, 0: nobody's
    uint32_t group;
    uint32_t first;                 // the first call that fails, from 1
    uint32_t amount;                // how many calls fail in a row
    uint32_t action;                // an errno value or one of the actions above
    uint32_t seen;                  // calls of the group so far
    uint32_t failed;                // calls that were made to fail
    int32_t blocks;                 // blocks that the thread has allocated and not freed
    int64_t bytes;                  // their size
    char called[names][name_size];  // names of the first calls
    uint64_t largest;               // allocations of more bytes fail, whoever's; 0: none does
};

static struct control* g_control;
static __thread uint32_t t_id __attribute__((tls_model("initial-exec")));
static __thread int32_t t_blocks __attribute__((tls_model("initial-exec")));
static __thread int64_t t_bytes __attribute__((tls_model("initial-exec")));

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void __libc_free(void* block);

__attribute__((constructor)) static void map_control(void) {
    const char* const path = getenv("FAULT_CONTROL");
    const int fd = path != NULL ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0) {
        return;
    }
    void* const place =
        mmap(NULL, sizeof(struct control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    g_control = place != MAP_FAILED ? place : NULL;
}

static int is_watched(void) {
    if (g_control == NULL || g_control->thread == 0) {
        return 0;
    }
    // A forked child keeps its parent's variable, so only a match is trusted, and that is checked.
    if (t_id != g_control->thread) {
        t_id = (uint32_t)syscall(SYS_gettid);
    }
    return t_id == g_control->thread;
}

// Return: 0 when this call is to go through, else the action.
static uint32_t fault(uint32_t group, const char* name) {
    if (!is_watched() || g_control->group != group) {
        return 0;
    }
    const uint32_t number = ++g_control->seen;
    if (number <= names) {
        strncpy(g_control->called[number - 1], name, name_size - 1);
    }
    if (number < g_control->first || number - g_control->first >= g_control->amount) {
        return 0;
    }
    ++g_control->failed;
    if (g_control->action == action_kill) {
        kill(getpid(), SIGKILL);
    }
    return g_control->action;
}

// ---- allocations -----------------------------------------------------------------------------

static void* counted(void* block) {
    if (block != NULL && is_watched()) {
        t_blocks += 1;
        t_bytes += (int64_t)malloc_usable_size(block);
        g_control->blocks = t_blocks;
        g_control->bytes = t_bytes;
    }
    return block;
}

static void discount(void* block) {
    if (block != NULL && is_watched()) {
        t_blocks -= 1;
        t_bytes -= (int64_t)malloc_usable_size(block);
        g_control->blocks = t_blocks;
        g_control->bytes = t_bytes;
    }
}

static int refuse(const char* name, size_t size) {
    const int too_large = g_control != NULL && g_control->largest != 0 && size > g_control->largest;
    if (!too_large && fault(group_allocations, name) == 0) {
        return 0;
    }
    errno = ENOMEM;
    return 1;
}

void* malloc(size_t size) {
    return refuse("malloc", size) ? NULL : counted(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
    return refuse("calloc", count * size) ? NULL : counted(__libc_calloc(count, size));
}

void* realloc(void* block, size_t size) {
    if (refuse("realloc", size)) {
        return NULL;
    }
    discount(block);
    void* const moved = __libc_realloc(block, size);
    counted(moved != NULL ? moved : block);
    return moved;
}

void free(void* block) {
    discount(block);
    __libc_free(block);
}

// ---- calls on files --------------------------------------------------------------------------

#define REAL(name)                                  \
    static __typeof__(&name) real;                  \
    if (real == NULL) {                             \
        *(void**)(&real) = dlsym(RTLD_NEXT, #name); \
    }

// Fails the call here, or goes on with it.
#define FAIL_OR(name, failure)                         \
    REAL(name)                                         \
    const uint32_t action = fault(group_files, #name); \
    if (action != 0 && action != action_short_write) { \
        errno = (int)action;                           \
        return failure;                                \
    }

static int is_socket(int fd) {
    struct stat status;
    return syscall(SYS_fstat, fd, &status) == 0 && S_ISSOCK(status.st_mode);
}

static mode_t mode_argument(int flags, va_list list) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(list, mode_t) : 0;
}

int open(const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = mode_argument(flags, list);
    va_end(list);
    FAIL_OR(open, -1)
    return real(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = mode_argument(flags, list);
    va_end(list);
    FAIL_OR(openat, -1)
    return real(directory, path, flags, mode);
}

// The kernel closes the descriptor whatever it answers.
int close(int fd) {
    REAL(close)
    const uint32_t action = is_socket(fd) ? 0 : fault(group_files, "close");
    const int result = real(fd);
    if (action == 0 || action == action_short_write) {
        return result;
    }
    errno = (int)action;
    return -1;
}

ssize_t write(int fd, const void* data, size_t size) {
    REAL(write)
    const uint32_t action = is_socket(fd) || fd == STDERR_FILENO ? 0 : fault(group_files, "write");
    if (action == action_short_write) {
        return real(fd, data, size > 1 ? size / 2 : size);
    }
    if (action != 0) {
        errno = (int)action;
        return -1;
    }
    return real(fd, data, size);
}

ssize_t read(int fd, void* data, size_t size) {
    REAL(read)
    const uint32_t action = is_socket(fd) ? 0 : fault(group_files, "read");
    if (action == action_short_write) {
        return real(fd, data, size > 1 ? size / 2 : size);
    }
    if (action != 0) {
        errno = (int)action;
        return -1;
    }
    return real(fd, data, size);
}

ssize_t pread(int fd, void* data, size_t size, off_t offset) {
    FAIL_OR(pread, -1)
    return real(fd, data, size, offset);
}

off_t lseek(int fd, off_t offset, int whence) {
    FAIL_OR(lseek, -1)
    return real(fd, offset, whence);
}

int fsync(int fd) {
    FAIL_OR(fsync, -1)
    return real(fd);
}

int ftruncate(int fd, off_t size) {
    FAIL_OR(ftruncate, -1)
    return real(fd, size);
}

int fallocate(int fd, int mode, off_t offset, off_t size) {
    FAIL_OR(fallocate, -1)
    return real(fd, mode, offset, size);
}

int fstat(int fd, struct stat* status) {
    FAIL_OR(fstat, -1)
    return real(fd, status);
}

int fstatat(int directory, const char* restrict path, struct stat* restrict status, int flags) {
    FAIL_OR(fstatat, -1)
    return real(directory, path, status, flags);
}

int stat(const char* restrict path, struct stat* restrict status) {
    FAIL_OR(stat, -1)
    return real(path, status);
}

int statfs(const char* path, struct statfs* status) {
    FAIL_OR(statfs, -1)
    return real(path, status);
}

int fchmod(int fd, mode_t mode) {
    FAIL_OR(fchmod, -1)
    return real(fd, mode);
}

int fchown(int fd, uid_t owner, gid_t group) {
    FAIL_OR(fchown, -1)
    return real(fd, owner, group);
}

int renameat(int from_directory, const char* from, int to_directory, const char* to) {
    FAIL_OR(renameat, -1)
    return real(from_directory, from, to_directory, to);
}

int unlink(const char* path) {
    FAIL_OR(unlink, -1)
    return real(path);
}

int unlinkat(int directory, const char* path, int flags) {
    FAIL_OR(unlinkat, -1)
    return real(directory, path, flags);
}

ssize_t readlinkat(int directory, const char* restrict path, char* restrict text, size_t size) {
    FAIL_OR(readlinkat, -1)
    return real(directory, path, text, size);
}

int mkostemp(char* pattern, int flags) {
    FAIL_OR(mkostemp, -1)
    return real(pattern, flags);
}
