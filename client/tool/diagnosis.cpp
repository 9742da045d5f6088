#include "diagnosis.h"

#include <dirent.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>

#include "directory_check.h"
#include "key_check.h"
#include "leaf/file_replacer.h"
#include "leaf/kept_original.h"
#include "leaf/trusted_program.h"
#include "process_facts.h"
#include "service.h"
#include "store/reply_capacity.h"

namespace veltrancord::tool {
namespace {

std::string duration_text(double length) {
    const auto seconds = static_cast<long long>(length);
    if (seconds < 120) {
        return std::to_string(seconds) + " s";
    }
    return seconds < 7200 ? std::to_string(seconds / 60) + " min"
                          : std::to_string(seconds / 3600) + " h";
}

std::string described(const std::string& file, const struct stat& status) {
    const double age =
        static_cast<double>(std::time(nullptr)) - static_cast<double>(status.st_mtim.tv_sec);
    return file + ": " + std::to_string(status.st_size) + " bytes, " + duration_text(age) + " old";
}

// Who may do what with a file or directory, besides its owner and group.
std::string access_text(const struct stat& status) {
    std::array<char, 64> mode{};
    std::snprintf(mode.data(), mode.size(), "mode %04o, user %u, group %u",
                  static_cast<unsigned>(status.st_mode & 07777U), status.st_uid, status.st_gid);
    return mode.data();
}

void diagnose_socket(const std::string& path, diagnosis_list& list) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        list.push_back({"socket", state::bad, path + ": " + std::strerror(errno)});
        return;
    }
    const std::string text = path + ": " + access_text(status);
    if (!S_ISSOCK(status.st_mode)) {
        list.push_back({"socket", state::bad, text + ", is no socket"});
    } else if ((status.st_mode & S_IWOTH) != 0) {
        list.push_back({"socket", state::warning,
                        text + ": everybody on the device may connect, and so read every secret "
                               "and have programs run; start the service with umask 007"});
    } else {
        list.push_back({"socket", state::good, text});
    }
}

std::string process_text(const process_facts& facts) {
    const std::string limit =
        facts.descriptor_limit > 0 ? std::to_string(facts.descriptor_limit) : "unlimited";
    const std::string descriptors =
        facts.descriptors >= 0 ? std::to_string(facts.descriptors) + " descriptors of " + limit
                               : "at most " + limit + " descriptors";
    return facts.name + " (" + std::to_string(facts.pid) + "): " + descriptors + ", " +
           std::to_string(facts.resident_bytes / 1024) + " KiB resident, runs for " +
           duration_text(static_cast<double>(std::time(nullptr)) - facts.start_time);
}

void diagnose_processes(const running_service& service, diagnosis_list& list) {
    process_facts supervisor;
    process_facts worker;
    if (service.supervisor == 0 || !read_process_facts(service.supervisor, supervisor)) {
        list.push_back(
            {"process", state::warning, "no process seen that runs the service behind the socket"});
        return;
    }
    list.push_back({"process", state::info, process_text(supervisor)});
    if (service.worker == 0 || !read_process_facts(service.worker, worker)) {
        list.push_back({"process", state::bad, "there is no worker, which answers requests"});
        return;
    }
    list.push_back({"process", state::info, process_text(worker)});
    if (supervisor.has_lost_child) {
        list.push_back({"restart", state::warning,
                        "a worker has ended and this one was started in its place, " +
                            duration_text(worker.start_time - supervisor.start_time) +
                            " after the service; the messages before that tell why"});
    }
}

// Who is connected, each process once.
std::string clients_text(const std::vector<int>& clients) {
    std::map<int, int> connections;
    for (const int pid : clients) {
        ++connections[pid];
    }
    std::string text;
    for (const auto& [pid, count] : connections) {
        process_facts facts;
        text.append(text.empty() ? "" : ", ");
        if (pid == 0) {
            text.append("others that root sees");
        } else {
            (void)read_process_facts(pid, facts);
            text.append(facts.name).append(" (").append(std::to_string(pid)).append(")");
        }
        text.append(count > 1 ? ", " + std::to_string(count) + " times" : "");
    }
    return text;
}

void diagnose_clients(const examination& found, diagnosis_list& list) {
    if (!found.clients || found.clients->empty()) {
        return;
    }
    const std::string text =
        std::to_string(found.clients->size()) + " connections: " + clients_text(*found.clients);
    if (found.alive) {
        list.push_back({"client", state::info, text});
    } else {
        list.push_back({"client", state::warning,
                        text + "; who announces a request and withholds it holds up all others, "
                               "until it is ended"});
    }
}

}  // namespace

void diagnose_service(const context& tool, const examination& found, diagnosis_list& list) {
    diagnose_socket(tool.socket_path, list);
    if (found.alive) {
        const auto microseconds = static_cast<long long>(found.answer_seconds * 1e6);
        list.push_back({"answer", state::good,
                        "answers within " + std::to_string(microseconds) + " microseconds"});
    } else {
        list.push_back({"answer", state::bad, "does not answer: " + found.failure});
    }
    diagnose_processes(found.service, list);
    diagnose_clients(found, list);
    const std::string program = process_link(found.service.supervisor, "exe");
    if (program.ends_with(" (deleted)")) {
        list.push_back({"program", state::warning,
                        "another program has taken the place of the one that runs; a restart of "
                        "the service starts it"});
    }
}

void diagnose_semaphores(diagnosis_list& list) {
    for (const key_t key : {520, 521, 522, 523, 530}) {
        const int id = semget(key, 1, 0);
        const int value = id >= 0 ? semctl(id, 0, GETVAL) : -1;
        std::string text = std::to_string(key);
        if (value >= 0) {
            text.append(" is ").append(std::to_string(value));
        } else {
            text.append(": ").append(std::strerror(errno));
        }
        list.push_back({"semaphore", value >= 0 ? state::info : state::warning, text});
    }
}

namespace {

void diagnose_access(const std::string& directory, diagnosis_list& list) {
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0 || (status.st_mode & S_IRWXO) == 0) {
        return;
    }
    const char* const danger =
        (status.st_mode & S_IWOTH) != 0
            ? ": everybody on the device may put documents there, which can name programs that the "
              "service runs; chmod o-rwx"
            : ": everybody on the device may look into it, where secrets are; chmod o-rwx";
    list.push_back({"directory", state::warning, directory + ": " + access_text(status) + danger});
}

void diagnose_directory(const std::string& directory, diagnosis_list& list) {
    diagnose_access(directory, list);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    if (entries == nullptr) {
        list.push_back({"file", state::bad, directory + ": " + std::strerror(errno)});
        return;
    }
    while (const dirent* entry = readdir(entries.get())) {
        const std::string name = entry->d_name;
        std::string path = directory;
        path.append("/").append(name);
        struct stat status {};
        if (name == "." || name == ".." || stat(path.c_str(), &status) != 0) {
            continue;
        }
        const bool leftover = is_replacement_leftover(name);
        const bool kept = is_kept_original(name);
        list.push_back({leftover ? "leftover"
                        : kept   ? "kept"
                                 : "file",
                        leftover || kept ? state::warning : state::info, described(path, status)});
    }
}

void diagnose_room(const std::string& path, diagnosis_list& list) {
    struct statvfs room {};
    if (statvfs(path.c_str(), &room) != 0) {
        return;
    }
    const unsigned long long free_bytes =
        static_cast<unsigned long long>(room.f_bavail) * room.f_frsize;
    list.push_back({"disk", free_bytes < (1U << 20U) ? state::warning : state::info,
                    path + ": " + std::to_string(free_bytes >> 10U) + " KiB free"});
}

}  // namespace

void diagnose_files(const examined_places& places, diagnosis_list& list) {
    diagnose_directory(places.directory, list);
    struct stat kept {};
    const std::string log_original = kept_original_of(places.log_file);
    if (stat(log_original.c_str(), &kept) == 0) {
        list.push_back({"kept", state::warning, described(log_original, kept)});
    }
    for (const std::string& file : {places.log_file, std::string("/tmp/Permit.db")}) {
        struct stat status {};
        if (stat(file.c_str(), &status) != 0) {
            list.push_back({"file", state::warning, file + ": " + std::strerror(errno)});
        } else {
            list.push_back({"file", state::info, described(file, status)});
        }
    }
    diagnose_room(places.directory, list);
    diagnose_room("/tmp", list);
}

void diagnose_scripts(const context& tool, diagnosis_list& list) {
    // The socket is the service's own.
    struct stat socket {};
    const uid_t service_user =
        stat(tool.socket_path.c_str(), &socket) == 0 ? socket.st_uid : geteuid();
    for (const std::string script :
         {"/tmp/BackupXmlDB.sh", "/tmp/trigger/EventLogCallBack.sh", "/bin/PermitSyncCb.sh"}) {
        if (access(script.c_str(), F_OK) != 0) {
            list.push_back({"script", state::info, script + ": absent"});
        } else if (access(script.c_str(), X_OK) != 0) {
            list.push_back({"script", state::warning, script + ": is not executable"});
        } else {
            const std::string why = why_not_trusted(script.c_str(), service_user);
            if (why.empty()) {
                list.push_back({"script", state::info, script + ": executable"});
            } else {
                list.push_back({"script", state::warning,
                                std::string(script).append(": is not run: ").append(why)});
            }
        }
    }
}

void diagnose_saves(const examination& found, diagnosis_list& list) {
    if (!found.saves) {
        list.push_back({"save", state::warning, "the settings could not be read"});
        return;
    }
    for (const unsaved_document& one : found.saves->unsaved) {
        list.push_back({"save", state::warning,
                        one.name + ": the service holds other values than its file, at " +
                            one.place +
                            " first; memory-only changes wait for a sync, or a save has failed"});
    }
    if (!found.saves->unseen.empty()) {
        list.push_back({"save", state::info,
                        "of " + std::to_string(found.saves->unseen.size()) +
                            " documents it cannot be told whether they are saved: their files may "
                            "not be read from here"});
    } else if (found.saves->unsaved.empty()) {
        list.push_back({"save", state::good, "all settings are in their files"});
    }
}

void diagnose_fsck(context& tool, const examined_places& places, diagnosis_list& list) {
    std::vector<finding> findings;
    if (!check_files(places.directory, findings)) {
        return;  // which diagnose_files() has told
    }
    check_log(places.log_file, findings);
    check_descriptions(places.directory, tool.descriptions(), findings);
    if (!findings.empty()) {
        list.push_back({"fsck", state::warning,
                        std::to_string(findings.size()) + " findings, see veltrancordctl fsck"});
    }
}

void diagnose_key(context& tool, diagnosis_list& list) {
    if (compare_keys(tool, 0) == key_match::other) {
        list.push_back({"key", state::warning,
                        "the service stores secrets with another key than the one that this tool "
                        "was built with: it refuses exchange files with secrets in them"});
    }
}

void diagnose_limits(context& tool, const examination& found, diagnosis_list& list) {
    scan_reply_capacity(found.places.directory.c_str());
    list.push_back(
        {"limit", state::info,
         "reply capacity " + std::to_string(GetReadBufSize()) + " bytes, as the directory stands"});
    if (found.log_capacity && *found.log_capacity < 1) {
        list.push_back(
            {"log", state::warning, why_log_keeps_nothing(found.service, *found.log_capacity)});
    } else if (found.log_capacity) {
        list.push_back({"limit", state::info,
                        "event log holds " + std::to_string(found.log_entries) + " of " +
                            std::to_string(*found.log_capacity) + " events"});
    }
    for (const char* path : {"Account.Maxuser", "Account.Permission.MaxPermDefNum",
                             "Account.Permission.MaxGroupNum"}) {
        std::string value;
        if (found.alive && get_value(tool, path, value) >= 0) {
            list.push_back({"limit", state::info, std::string(path) + " is " + value});
        }
    }
}

}  // namespace veltrancord::tool
