#include "process_facts.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

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
        names.emplace_back(entry->d_name);
    }
    return names;
}

// The inodes of the sockets bound to the path, as links in /proc name them.
std::set<std::string> socket_links(const std::string& path) {
    std::set<std::string> links;
    std::ifstream table("/proc/net/unix");
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::array<std::string, 8> field;
        for (std::string& one : field) {
            fields >> one;
        }
        if (field[7] == path) {
            links.insert("socket:[" + field[6] + "]");
        }
    }
    return links;
}

std::string link_text(const std::string& path) {
    std::array<char, 256> text{};
    const ssize_t length = readlink(path.c_str(), text.data(), text.size());
    return length > 0 ? std::string(text.data(), static_cast<std::size_t>(length)) : std::string();
}

std::string line_with(const std::string& file, const std::string& start) {
    std::ifstream lines(file);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.compare(0, start.size(), start) == 0) {
            return line.substr(start.size());
        }
    }
    return {};
}

process_facts facts_of(const std::string& pid, int descriptors) {
    process_facts facts;
    facts.pid = std::stoi(pid);
    std::getline(std::ifstream("/proc/" + pid + "/comm"), facts.name);
    facts.descriptors = descriptors;
    std::istringstream resident(line_with("/proc/" + pid + "/status", "VmRSS:"));
    resident >> facts.resident_kib;
    std::istringstream limit(line_with("/proc/" + pid + "/limits", "Max open files"));
    limit >> facts.descriptor_limit;
    return facts;
}

}  // namespace

std::string process_start(long process) {
    std::string line;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/stat"), line);
    // The name, in parentheses, may hold blanks; the start is the 20th field behind it.
    const std::size_t name_end = line.rfind(')');
    if (name_end == std::string::npos) {
        return {};
    }
    std::istringstream fields(line.substr(name_end + 1));
    std::string field;
    for (int index = 0; index < 20; ++index) {
        fields >> field;
    }
    return field;
}

std::vector<process_facts> holders_of_socket(const std::string& path) {
    std::vector<process_facts> holders;
    const std::set<std::string> links = socket_links(path);
    for (const std::string& pid : entries_of("/proc")) {
        if (links.empty() || std::isdigit(static_cast<unsigned char>(pid.front())) == 0) {
            continue;
        }
        const std::string folder = "/proc/" + pid + "/fd";
        const std::vector<std::string> descriptors = entries_of(folder);
        const bool holds =
            std::any_of(descriptors.begin(), descriptors.end(), [&](const std::string& name) {
                return links.count(link_text(std::string(folder).append("/").append(name))) != 0;
            });
        if (holds) {
            holders.push_back(facts_of(pid, static_cast<int>(descriptors.size()) - 2));
        }
    }
    return holders;
}

}  // namespace veltrancord::tool
