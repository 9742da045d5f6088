#include "update/program_queue.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "leaf/bounded_text.h"
#include "leaf/child_program.h"
#include "leaf/message.h"
#include "leaf/owned_fd.h"
#include "leaf/trusted_program.h"
#include "update/argument_file.h"

namespace veltrancord {

namespace {

// An attribute is read into a field of this size, so a longer program path is cut.
constexpr std::size_t program_path_size = 64;

struct queued_program {
    char program[program_path_size] = {};
};

// All entries of one command share its argument file. Each program gets a descriptor of its own
// only when it is started, so that a command takes two descriptors and not one for each program.
struct program_queue {
    std::vector<queued_program> entries;
    owned_fd argument;
};

program_queue g_programQueue;
bool g_programsLeftOut = false;

void start_entry(queued_program& entry) {
    if (!is_trusted_program(entry.program)) {
        return;
    }
    owned_fd input = open_argument_file(g_programQueue.argument);
    if (!input) {
        input.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    char path_variable[] = "PATH=/bin";
    const std::array<char*, 2> environment = {path_variable, nullptr};
    char* const slash = std::strrchr(entry.program, '/');
    const std::array<char*, 2> arguments = {slash != nullptr ? slash + 1 : entry.program, nullptr};

    program_start start;
    start.path = entry.program;
    start.arguments = arguments.data();
    start.environment = environment.data();
    start.standard_input = input.get();
    if (start_program(start) < 0) {
        print_reason("fork");
    }
}

}  // namespace

void queue_program(const TiXmlElement& element, std::string_view argument) {
    const char* const program = element.Attribute("DispatchW");
    if (program == nullptr || g_programsLeftOut) {
        return;
    }
    queued_program entry;
    copy_bounded(entry.program, program);
    const bool queued = std::any_of(g_programQueue.entries.begin(), g_programQueue.entries.end(),
                                    [&](const queued_program& other) {
                                        return std::strcmp(other.program, entry.program) == 0;
                                    });
    if (queued) {
        return;
    }
    if (g_programQueue.entries.empty()) {
        g_programQueue.argument = make_argument_file(argument);
    }
    print_error("[%s]...\n", "XmlCheckDispatch");
    g_programQueue.entries.push_back(entry);
}

void leave_programs_out() {
    g_programsLeftOut = true;
}

void run_program_queue() {
    for (queued_program& entry : g_programQueue.entries) {
        start_entry(entry);
    }
    g_programQueue.entries.clear();
    g_programQueue.argument.reset();
}

std::size_t queued_programs() {
    return g_programQueue.entries.size();
}

}  // namespace veltrancord
