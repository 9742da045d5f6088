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
#include "store/document_set.h"
#include "store/path.h"
#include "store/value.h"
#include "update/argument_file.h"

namespace veltrancord {

namespace {

// An attribute is read into a field of this size, so a longer program path is cut.
constexpr std::size_t program_path_size = 64;

struct dispatch_entry {
    char program[program_path_size] = {};
};

// All entries of one command share its argument file. Each program gets a descriptor of its own
// only when it is started, so that a command takes two descriptors and not one for each program.
struct dispatch_queue {
    std::vector<dispatch_entry> entries;
    owned_fd argument;
};

dispatch_queue g_dispatchQueue;

const char* dispatch_program(std::string_view path) {
    XmlPath list;
    if (!SplitXmlPath(path, list)) {
        return nullptr;
    }
    XmlDocument* const doc = FindXmlDoc(list[0].text());
    if (doc == nullptr) {
        return nullptr;
    }
    const TiXmlElement* const element = FindXmlElement(doc->FirstChildElement(), list);
    return element != nullptr ? element->Attribute("DispatchW") : nullptr;
}

void start_entry(dispatch_entry& entry) {
    if (!is_trusted_program(entry.program)) {
        return;
    }
    owned_fd input = open_argument_file(g_dispatchQueue.argument);
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

void queue_dispatch(std::string_view path, std::string_view argument) {
    const char* const program = dispatch_program(path);
    if (program == nullptr) {
        return;
    }
    dispatch_entry entry;
    copy_bounded(entry.program, program);
    const bool queued = std::any_of(g_dispatchQueue.entries.begin(), g_dispatchQueue.entries.end(),
                                    [&](const dispatch_entry& other) {
                                        return std::strcmp(other.program, entry.program) == 0;
                                    });
    if (queued) {
        return;
    }
    if (g_dispatchQueue.entries.empty()) {
        g_dispatchQueue.argument = make_argument_file(argument);
    }
    print_error("[%s]...\n", "XmlCheckDispatch");
    g_dispatchQueue.entries.push_back(entry);
}

void run_dispatch_queue() {
    for (dispatch_entry& entry : g_dispatchQueue.entries) {
        start_entry(entry);
    }
    g_dispatchQueue.entries.clear();
    g_dispatchQueue.argument.reset();
}

std::size_t queued_programs() {
    return g_dispatchQueue.entries.size();
}

}  // namespace veltrancord
