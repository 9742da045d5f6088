#include "process_facts.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string_view>

namespace veltrancord::tool {
namespace {

std::vector<std::string> entries_of(const std::string& directory) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    while (entries != nullptr) {
        const dirent* entry = readdir(entries.get());
        if (entry == nullptr) {
            break;
        }
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    return names;
}

std::vector<int> all_processes() {
    std::vector<int> processes;
    for (const std::string& name : entries_of("/proc")) {
        if (std::isdigit(static_cast<unsigned char>(name.front())) != 0) {
            processes.push_back(std::atoi(name.c_str()));
        }
    }
    return processes;
}

std::string place_of(long pid, std::string_view name) {
    return std::string("/proc/").append(std::to_string(pid)).append("/").append(name);
}

std::string line_with(const std::string& file, std::string_view start) {
    std::ifstream lines(file);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.starts_with(start)) {
            return line.substr(start.size());
        }
    }
    return {};
}

// The fields of "stat" behind the name, which stands in parentheses and may hold blanks: the state
// first. Empty: there is no such process.
std::vector<std::string> state_of(long pid) {
    std::string line;
    std::getline(std::ifstream(place_of(pid, "stat")), line);
    const std::size_t name_end = line.rfind(')');
    std::istringstream text(name_end == std::string::npos ? "" : line.substr(name_end + 1));
    std::vector<std::string> fields;
    for (std::string field; text >> field;) {
        fields.push_back(field);
    }
    return fields;
}

// Where the fields of interest stand among those.
enum state_field : std::size_t {
    parent_field = 1,
    child_faults_field = 8,  // page faults of children that were waited for: none has no fault
    user_ticks_field = 11,
    system_ticks_field = 12,
    start_ticks_field = 19
};

std::string field_of(const std::vector<std::string>& fields, state_field at) {
    return at < fields.size() ? fields[at] : std::string();
}

double seconds_of(const std::string& ticks) {
    return std::strtod(ticks.c_str(), nullptr) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double system_start() {
    return std::strtod(line_with("/proc/stat", "btime ").c_str(), nullptr);
}

}  // namespace

bool read_process_facts(int pid, process_facts& facts) {
    const std::vector<std::string> fields = state_of(pid);
    if (fields.empty()) {
        return false;
    }
    facts.pid = pid;
    std::getline(std::ifstream(place_of(pid, "comm")), facts.name);
    const std::string folder = place_of(pid, "fd");
    facts.descriptors =
        access(folder.c_str(), R_OK) == 0 ? static_cast<int>(entries_of(folder).size()) : -1;
    facts.descriptor_limit =
        std::atol(line_with(place_of(pid, "limits"), "Max open files").c_str());
    facts.resident_bytes = std::atoll(line_with(place_of(pid, "status"), "VmRSS:").c_str()) * 1024;
    facts.processor_seconds = seconds_of(field_of(fields, user_ticks_field)) +
                              seconds_of(field_of(fields, system_ticks_field));
    facts.has_lost_child = field_of(fields, child_faults_field) != "0";
    facts.start_time = system_start() + seconds_of(field_of(fields, start_ticks_field));
    return true;
}

std::vector<std::string> process_words(int pid) {
    std::ifstream line(place_of(pid, "cmdline"));
    std::vector<std::string> words;
    for (std::string word; std::getline(line, word, '\0');) {
        words.push_back(word);
    }
    return words;
}

std::string process_link(int pid, const std::string& name) {
    std::array<char, 4096> text{};
    const ssize_t length = readlink(place_of(pid, name).c_str(), text.data(), text.size());
    return length > 0 ? std::string(text.data(), static_cast<std::size_t>(length)) : std::string();
}

int child_of(int pid) {
    const std::string parent = std::to_string(pid);
    for (const int process : all_processes()) {
        const std::vector<std::string> fields = state_of(process);
        if (field_of(fields, parent_field) == parent && fields.front() != "Z") {
            return process;
        }
    }
    return 0;
}

std::map<uint64_t, int> holders_of(const std::vector<uint64_t>& sockets) {
    std::map<std::string, uint64_t> links;
    for (const uint64_t socket : sockets) {
        links["socket:[" + std::to_string(socket) + "]"] = socket;
    }
    std::map<uint64_t, int> holders;
    for (const int process : all_processes()) {
        for (const std::string& descriptor : entries_of(place_of(process, "fd"))) {
            const auto found = links.find(process_link(process, "fd/" + descriptor));
            if (found != links.end()) {
                holders[found->second] = process;
            }
        }
    }
    return holders;
}

std::string process_start(long process) {
    return field_of(state_of(process), start_ticks_field);
}

}  // namespace veltrancord::tool
