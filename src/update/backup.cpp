#include "update/backup.h"

#include <chrono>
#include <string>
#include <thread>

#include "leaf/child_program.h"
#include "leaf/clock.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "leaf/trusted_program.h"
#include "store/document_set.h"
#include "store/reply_capacity.h"

namespace veltrancord {

namespace {

constexpr char backup_script[] = "/tmp/BackupXmlDB.sh";
constexpr std::size_t max_script_text = 256;
constexpr int64_t clock_step = 1800;  // seconds
constexpr std::chrono::seconds look_period{5};

}  // namespace

int32_t XMLDBCallBack(std::string_view text) {
    if (XmlFileExists(backup_script) == 0) {
        return result_ok;
    }
    if (text.size() > max_script_text) {
        print_error("input parameter fail !!\n");
        return result_ok;
    }
    if (!is_trusted_program(backup_script)) {
        return result_ok;
    }
    std::string command = backup_script;
    if (!text.empty()) {
        command.append(" ").append(text);
    }
    static_cast<void>(run_shell(command.c_str()));
    return result_ok;
}

bool backup_is_due(int64_t now, int64_t last, uint32_t changes, int32_t interval) {
    const int64_t distance = now - last;
    return changes != 0 && (distance > clock_step || distance < -clock_step || distance > interval);
}

void check_backup(std::atomic<uint32_t>& change_counter, int32_t interval, int64_t& last) {
    if (!backup_is_due(wall_clock_seconds(), last, change_counter.load(), interval)) {
        return;
    }
    XMLDBCallBack("internal");
    last = wall_clock_seconds();
    scan_reply_capacity(default_config_directory);
    change_counter.store(0);
}

void backup_thread(std::atomic<uint32_t>& change_counter, int32_t interval) {
    int64_t last = 0;
    for (;;) {
        std::this_thread::sleep_for(look_period);
        check_backup(change_counter, interval, last);
    }
}

}  // namespace veltrancord
