#include "service_numbers.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>

#include "process_facts.h"
#include "question.h"
#include "socket_clients.h"

namespace veltrancord::tool {
namespace {

// How what(1) has programs say which version they are.
constexpr std::string_view version_mark = "@(#)Veltrancord ";

void ask(context& tool, examination& found) {
    const auto start = std::chrono::steady_clock::now();
    found.alive = veltrancord_ping(&tool.client()) == VELTRANCORD_OK;
    found.answer_seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!found.alive) {
        std::array<char, 400> reason{};
        veltrancord_error_text(&tool.client(), reason.data(), reason.size());
        found.failure = reason.data();
        return;
    }
    int32_t capacity = 0;
    if (read_log_capacity(tool, capacity)) {
        found.log_capacity = capacity;
        found.log_entries = capacity > 0 ? veltrancord_log_count(&tool.client()) : 0;
    }
    save_report saves;
    if (compare_with_files(tool, found.places.directory, nullptr, saves) == VELTRANCORD_OK) {
        found.saves = std::move(saves);
    }
}

class number_list {
  public:
    void add(const char* name, const char* help, double value) {
        numbers_.push_back({name, help, false, "", value});
    }

    void add_process(const std::string& role, int pid) {
        process_facts facts;
        if (pid == 0 || !read_process_facts(pid, facts)) {
            return;
        }
        const auto add_one = [&](const char* name, const char* help, bool counter, double value) {
            numbers_.push_back({std::string("process_") + name, help, counter, role, value});
        };
        add_one("start_time_seconds", "When the process was started, in seconds since the epoch.",
                false, facts.start_time);
        add_one("cpu_seconds_total", "Processor time that the process has used, in seconds.", true,
                facts.processor_seconds);
        add_one("resident_memory_bytes", "Memory of the process that is really there, in bytes.",
                false, static_cast<double>(facts.resident_bytes));
        if (facts.descriptors >= 0) {
            add_one("open_fds", "Descriptors that the process holds.", false, facts.descriptors);
        }
        if (facts.descriptor_limit > 0) {
            add_one("max_fds", "Descriptors that the process may hold.", false,
                    static_cast<double>(facts.descriptor_limit));
        }
    }

    [[nodiscard]] std::vector<service_number> sorted() const {
        // All of one name together, as the text format wants it.
        std::vector<service_number> together;
        for (const service_number& one : numbers_) {
            const auto last =
                std::find_if(together.rbegin(), together.rend(),
                             [&](const service_number& other) { return other.name == one.name; });
            together.insert(last == together.rend() ? together.end() : last.base(), one);
        }
        return together;
    }

  private:
    std::vector<service_number> numbers_;
};

std::string number_text(double value) {
    std::array<char, 40> text{};
    if (value == std::floor(value) && std::fabs(value) < 1e15) {
        std::snprintf(text.data(), text.size(), "%" PRId64, static_cast<int64_t>(value));
    } else {
        std::snprintf(text.data(), text.size(), "%.9g", value);
    }
    return text.data();
}

std::string version_in(const std::string& file) {
    std::string bytes;
    if (!read_input(file, bytes)) {
        return {};
    }
    const std::size_t mark = bytes.find(version_mark);
    if (mark == std::string::npos) {
        return {};
    }
    const std::size_t start = mark + version_mark.size();
    return bytes.substr(start, bytes.find('\0', start) - start);
}

}  // namespace

examination examine(context& tool, const examined_places& asked) {
    examination found;
    found.service = find_service(tool);
    found.places = asked;
    if (asked.directory.empty()) {
        found.places.directory = found.service.directory;
    }
    if (asked.log_file.empty()) {
        found.places.log_file = found.service.log_file;
    }
    ask(tool, found);
    found.clients = clients_of_socket(tool.socket_path);
    return found;
}

std::vector<service_number> numbers_of(const examination& found) {
    number_list list;
    list.add("up", "Whether the service answers: 1, else 0.", found.alive ? 1 : 0);
    if (found.alive) {
        list.add("answer_seconds", "How long an answer took, in seconds.", found.answer_seconds);
    }
    if (found.saves) {
        list.add("documents", "Documents with settings in them.",
                 static_cast<double>(found.saves->documents));
        if (found.saves->unseen.empty()) {
            list.add("documents_unsaved", "Documents that hold something else than their files.",
                     static_cast<double>(found.saves->unsaved.size()));
        }
    }
    if (found.log_capacity) {
        list.add("log_entries", "Events that the log holds.", found.log_entries);
        list.add("log_capacity", "Events that the log has room for; below 1 it keeps none.",
                 *found.log_capacity);
    }
    if (found.clients) {
        list.add("clients", "Connections to the socket.",
                 static_cast<double>(found.clients->size()));
    }
    struct statvfs room {};
    if (statvfs(found.places.directory.c_str(), &room) == 0) {
        list.add("directory_free_bytes", "Room beside the documents, in bytes.",
                 static_cast<double>(room.f_bavail) * static_cast<double>(room.f_frsize));
    }
    struct stat backup {};
    if (!found.places.backup_file.empty() && stat(found.places.backup_file.c_str(), &backup) == 0) {
        list.add("last_backup_timestamp_seconds",
                 "When the last backup was written, in seconds since the epoch.",
                 static_cast<double>(backup.st_mtim.tv_sec));
    }
    process_facts supervisor;
    if (found.service.supervisor != 0 && read_process_facts(found.service.supervisor, supervisor)) {
        list.add("worker_restarted",
                 "Whether a worker has ended and another was started: 1, else 0.",
                 supervisor.has_lost_child ? 1 : 0);
    }
    list.add_process("supervisor", found.service.supervisor);
    list.add_process("worker", found.service.worker);
    return list.sorted();
}

json numbers_json(const std::vector<service_number>& numbers) {
    json object = json::object();
    for (const service_number& one : numbers) {
        constexpr std::size_t prefix_size = sizeof "process_" - 1;
        const std::string name =
            one.process.empty() ? one.name : one.process + "_" + one.name.substr(prefix_size);
        if (one.value == std::floor(one.value)) {
            object[name] = static_cast<int64_t>(one.value);
        } else {
            object[name] = one.value;
        }
    }
    return object;
}

std::string prometheus_text(const std::vector<service_number>& numbers,
                            const std::string& version) {
    std::string text;
    std::string last;
    for (const service_number& one : numbers) {
        const std::string name = "veltrancord_" + one.name;
        if (name != last) {
            text.append("# HELP ").append(name).append(" ").append(one.help).append("\n# TYPE ");
            text.append(name).append(one.counter ? " counter\n" : " gauge\n");
            last = name;
        }
        text += name;
        if (!one.process.empty()) {
            text.append("{process=\"").append(one.process).append("\"}");
        }
        text.append(" ").append(number_text(one.value)).append("\n");
    }
    if (!version.empty()) {
        text.append("# HELP veltrancord_build_info The version of the service; always 1.\n")
            .append("# TYPE veltrancord_build_info gauge\n")
            .append("veltrancord_build_info{version=\"" + version + "\"} 1\n");
    }
    return text;
}

std::string service_version(const running_service& service) {
    if (service.supervisor == 0) {
        return {};
    }
    // The first is the program that runs, though another one may have its name by now; who may not
    // read it has to take the word of the second.
    std::vector<std::string> files = {"/proc/" + std::to_string(service.supervisor) + "/exe"};
    if (service.program.starts_with('/')) {
        files.push_back(service.program);
    } else {
        for (const char* folder : {"/usr/local/sbin/", "/usr/sbin/"}) {
            files.push_back(folder + service.program);
        }
    }
    for (const std::string& file : files) {
        std::string version = version_in(file);
        if (!version.empty()) {
            return version;
        }
    }
    return {};
}

}  // namespace veltrancord::tool
