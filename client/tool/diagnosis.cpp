#include "diagnosis.h"

#include <dirent.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <memory>

#include "difference.h"
#include "directory_check.h"
#include "leaf/file_replacer.h"
#include "leaf/kept_original.h"
#include "leaf/trusted_program.h"
#include "process_facts.h"
#include "service.h"
#include "store/document_set.h"
#include "store/read_query.h"
#include "store/reply_capacity.h"

namespace veltrancord::tool {
namespace {

std::string age_of(time_t changed) {
    const auto seconds = static_cast<long long>(std::time(nullptr)) - changed;
    if (seconds < 120) {
        return std::to_string(seconds) + " s old";
    }
    return seconds < 7200 ? std::to_string(seconds / 60) + " min old"
                          : std::to_string(seconds / 3600) + " h old";
}

std::string described(const std::string& file, const struct stat& status) {
    return file + ": " + std::to_string(status.st_size) + " bytes, " + age_of(status.st_mtime);
}

void diagnose_socket(const context& tool, diagnosis_list& list) {
    struct stat status {};
    if (stat(tool.socket_path.c_str(), &status) != 0) {
        list.push_back({"socket", state::bad, tool.socket_path + ": " + std::strerror(errno)});
        return;
    }
    std::array<char, 64> mode{};
    std::snprintf(mode.data(), mode.size(), "mode %04o, user %u, group %u",
                  static_cast<unsigned>(status.st_mode & 07777U), status.st_uid, status.st_gid);
    const bool is_socket = S_ISSOCK(status.st_mode);
    list.push_back({"socket", is_socket ? state::good : state::bad,
                    tool.socket_path + (is_socket ? ": " : ": is no socket, ") + mode.data()});
}

}  // namespace

bool diagnose_service(context& tool, diagnosis_list& list) {
    diagnose_socket(tool, list);
    const auto start = std::chrono::steady_clock::now();
    const int32_t result = veltrancord_ping(&tool.client());
    const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    if (result == VELTRANCORD_OK) {
        list.push_back({"answer", state::good,
                        "answers within " + std::to_string(took.count()) + " microseconds"});
    } else {
        std::array<char, 256> reason{};
        veltrancord_error_text(&tool.client(), reason.data(), reason.size());
        list.push_back({"answer", state::bad, std::string("does not answer: ") + reason.data()});
    }
    const std::vector<process_facts> holders = holders_of_socket(tool.socket_path);
    for (const process_facts& one : holders) {
        list.push_back({"process", state::info,
                        one.name + " (" + std::to_string(one.pid) +
                            "): " + std::to_string(one.descriptors) + " descriptors of " +
                            one.descriptor_limit + ", " + std::to_string(one.resident_kib) +
                            " KiB resident"});
    }
    if (holders.empty()) {
        list.push_back(
            {"process", state::warning,
             "no process seen that holds the socket; those of other users root sees alone"});
    }
    return result == VELTRANCORD_OK;
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

void diagnose_directory(const std::string& directory, diagnosis_list& list) {
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

void diagnose_files(const doctor_options& options, diagnosis_list& list) {
    diagnose_directory(options.directory, list);
    struct stat kept {};
    const std::string log_original = kept_original_of(options.log_file);
    if (stat(log_original.c_str(), &kept) == 0) {
        list.push_back({"kept", state::warning, described(log_original, kept)});
    }
    for (const std::string& file : {options.log_file, std::string("/tmp/Permit.db")}) {
        struct stat status {};
        if (stat(file.c_str(), &status) != 0) {
            list.push_back({"file", state::warning, file + ": " + std::strerror(errno)});
        } else {
            list.push_back({"file", state::info, described(file, status)});
        }
    }
    diagnose_room(options.directory, list);
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

void diagnose_saves(context& tool, const doctor_options& options, diagnosis_list& list) {
    // Loading the files as the service does and comparing tells what only its memory holds.
    std::vector<finding> findings;
    if (!check_files(options.directory, findings)) {
        return;
    }
    check_log(options.log_file, findings);
    if (!findings.empty()) {
        list.push_back({"fsck", state::warning,
                        std::to_string(findings.size()) + " findings, see veltrancordctl fsck"});
    }
    std::size_t waiting = 0;
    for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        const std::string path = std::string(node->name) + ".*";
        owned_reply running;
        reply_text saved;
        if (veltrancord_read(&tool.client(), path.c_str(), running.get()) < 0 ||
            !saved.open(INT32_MAX)) {
            continue;
        }
        const std::string text =
            ReadXmlTree(path, saved, 0, {}) > 0 ? std::string(saved.view()) : std::string();
        if (text != running.text()) {
            ++waiting;
            list.push_back({"save", state::warning,
                            std::string(node->name) +
                                ": the service holds other values than its file; memory-only "
                                "changes wait for a sync, or a save has failed"});
        }
    }
    if (waiting == 0) {
        list.push_back({"save", state::good, "all settings are in their files"});
    }
}

void diagnose_limits(context& tool, const doctor_options& options, bool alive,
                     diagnosis_list& list) {
    scan_reply_capacity(options.directory.c_str());
    list.push_back(
        {"limit", state::info,
         "reply capacity " + std::to_string(GetReadBufSize()) + " bytes, as the directory stands"});
    if (!alive) {
        return;
    }
    const int32_t capacity = veltrancord_log_capacity(&tool.client());
    const int32_t count = veltrancord_log_count(&tool.client());
    list.push_back({"limit", capacity > 0 ? state::info : state::warning,
                    "event log holds " + std::to_string(count) + " of " + std::to_string(capacity) +
                        " events"});
    for (const char* path : {"Account.Maxuser", "Account.Permission.MaxPermDefNum",
                             "Account.Permission.MaxGroupNum"}) {
        std::string value;
        if (get_value(tool, path, value) >= 0) {
            list.push_back({"limit", state::info, std::string(path) + " is " + value});
        }
    }
}

}  // namespace veltrancord::tool
