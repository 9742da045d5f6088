#include "sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz_target.h"

extern "C" {
// The sanitizers' own; absent where the target was built without.
void __sanitizer_symbolize_pc(void* address, const char* format, char* text, std::size_t size)
    __attribute__((weak));
pid_t __wrap_vfork();
void __asan_on_error();
void __ubsan_on_report();
int LLVMFuzzerInitialize(int* count, char*** arguments);
}

namespace veltrancord::fuzz {

namespace {

int g_children = 0;

constexpr int none = -1;
int g_keptBack = none;       // what standard error goes to meanwhile
int g_standardError = none;  // where it goes else; none when it is closed

void keep_errors_back() {
    g_standardError = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    g_keptBack = ::memfd_create("errors", MFD_CLOEXEC);
    require(g_keptBack >= 0 && ::dup2(g_keptBack, STDERR_FILENO) >= 0, "sandbox: no memory file\n");
}

void let_errors_out() {
    if (g_keptBack == none) {
        return;
    }
    ::close(std::exchange(g_keptBack, none));
    if (g_standardError == none) {
        ::close(STDERR_FILENO);
    } else {
        ::dup2(g_standardError, STDERR_FILENO);
        ::close(std::exchange(g_standardError, none));
    }
}

// The two roots. The outer one is kept open: it is the way back.
struct roots {
    int outer = -1;
    int working_directory = -1;
    std::string inner;
    bool inside = false;

    roots();
    ~roots();
    void enter();
    void leave();
};

void write_text(const char* path, const std::string& text) {
    std::ofstream(path) << text;
}

// Changing the root takes a right that everybody has in a user namespace of their own.
void become_root_of_a_namespace() {
    const uid_t user = ::getuid();
    const gid_t group = ::getgid();
    require(::unshare(CLONE_NEWUSER) == 0, "sandbox: no user namespace\n");
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    write_text("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

void leave_if_inside();

roots::roots() {
    // Inside, no symbolizer could be started when something is found.
    if (__sanitizer_symbolize_pc != nullptr) {
        char text[256];
        __sanitizer_symbolize_pc(reinterpret_cast<void*>(&become_root_of_a_namespace), "%f", text,
                                 sizeof text);
    }
    const char* const chosen = std::getenv("TMPDIR");
    const bool memory = ::access("/dev/shm", W_OK) == 0;
    inner = (chosen != nullptr ? std::string(chosen)
             : memory          ? "/dev/shm"
                               : "/tmp") +
            "/fuzz-XXXXXX";
    require(::mkdtemp(inner.data()) != nullptr, "sandbox: no temporary folder\n");
    outer = ::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
    working_directory = ::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC);
    enter();
    leave();
    g_before_abort = leave_if_inside;
}

roots::~roots() {
    std::error_code ignored;
    std::filesystem::remove_all(inner, ignored);
}

void roots::enter() {
    if (::chroot(inner.c_str()) != 0) {
        require(errno == EPERM, "sandbox: chroot\n");
        become_root_of_a_namespace();
        require(::chroot(inner.c_str()) == 0, "sandbox: chroot\n");
    }
    require(::chdir("/") == 0, "sandbox: chdir\n");
    inside = true;
}

void roots::leave() {
    require(::fchdir(outer) == 0 && ::chroot(".") == 0, "sandbox: way back\n");
    require(::fchdir(working_directory) == 0, "sandbox: way back\n");
    inside = false;
}

roots& the_roots() {
    static roots both;
    return both;
}

void leave_if_inside() {
    let_errors_out();
    if (the_roots().inside) {
        the_roots().leave();
    }
}

}  // namespace

sandbox::sandbox() {
    roots& both = the_roots();
    both.enter();
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/")) {
        std::filesystem::remove_all(entry.path(), ignored);
    }
    std::filesystem::create_directories(configuration);
    std::filesystem::create_directories("/mnt/database/eventlog");
    std::filesystem::create_directories("/tmp");
}

sandbox::~sandbox() {
    the_roots().leave();
}

void put_file(const std::string& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
}

std::string get_file(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::string errors_printed_by(const std::function<void()>& call) {
    keep_errors_back();
    call();
    std::string printed(static_cast<std::size_t>(::lseek(g_keptBack, 0, SEEK_END)), '\0');
    const ssize_t count = ::pread(g_keptBack, printed.data(), printed.size(), 0);
    let_errors_out();
    require(count == static_cast<ssize_t>(printed.size()), "sandbox: what was printed");
    return printed;
}

int refused_children() {
    return std::exchange(g_children, 0);
}

}  // namespace veltrancord::fuzz

// In place of vfork in what is linked with this file.
pid_t __wrap_vfork() {
    ++veltrancord::fuzz::g_children;
    errno = EAGAIN;
    return -1;
}

// Called by the sanitizers before they end the process.
void __asan_on_error() {
    veltrancord::fuzz::leave_if_inside();
}
void __ubsan_on_report() {
    veltrancord::fuzz::leave_if_inside();
}

// A user namespace can be had only while there is no other thread; libFuzzer starts one.
int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    veltrancord::fuzz::the_roots();
    return 0;
}
