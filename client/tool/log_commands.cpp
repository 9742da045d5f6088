// log list, log add, log count, log clear, log follow.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <vector>

#include "commands.h"
#include "difference.h"
#include "dry_run.h"
#include "event_names.h"
#include "exit_status.h"
#include "kept_log.h"
#include "question.h"
#include "running_service.h"
#include "service.h"

namespace veltrancord::tool {
namespace {

constexpr std::size_t most_events = 1000;

struct list_options {
    std::string mask = "-1";
    std::size_t count = most_events;
    int interval_ms = 1000;
    int rounds = -1;  // of "follow"; below 0: until it is ended
};

struct add_options {
    std::string type;
    std::string text;
    int detail1 = 0;
    int detail2 = 0;
    int64_t time = -1;
};

using record_list = std::vector<veltrancord_log_record>;

// Reads all events, newest first.
int32_t read_events(context& tool, record_list& records) {
    records.resize(most_events);
    const int32_t count = veltrancord_log_read(&tool.client(), VELTRANCORD_LOG_NEWEST, -1,
                                               records.data(), records.size());
    records.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return count;
}

// Keeps those that share a bit with the mask; the service takes 7 digits of one only.
void keep_types(record_list& records, int32_t mask) {
    std::erase_if(records, [mask](const veltrancord_log_record& record) {
        return (record.type & mask) == 0;
    });
}

std::string time_of(const veltrancord_log_record& record) {
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", record.year, record.month,
                  record.day, record.hour, record.minute, record.second);
    return text;
}

json as_json(const veltrancord_log_record& record, const event_names& names) {
    return {{"time", time_of(record)},   {"type", record.type}, {"names", names.of(record.type)},
            {"detail1", record.detail1}, {"text", record.text}, {"detail2", record.detail2}};
}

std::string as_line(const veltrancord_log_record& record, const event_names& names) {
    std::string line = time_of(record) + "  ";
    std::string type;
    for (const std::string& name : names.of(record.type)) {
        type += (type.empty() ? "" : ",") + name;
    }
    if (type.empty()) {
        std::array<char, 16> number{};
        std::snprintf(number.data(), number.size(), "0x%x", static_cast<unsigned>(record.type));
        type = number.data();
    }
    type.resize(std::max<std::size_t>(type.size(), 12), ' ');
    line += type + "  " + std::to_string(record.detail1) + "  " + record.text + "  " +
            std::to_string(record.detail2);
    return line;
}

// A log that the service could not open is told as a denial.
int fail_log(context& tool, int32_t result) {
    int32_t capacity = 0;
    if (result != VELTRANCORD_DENIED || !read_log_capacity(tool, capacity) || capacity > 0) {
        return tool.fail("log", result);
    }
    return fail_without_room(tool, capacity);
}

int run_list(context& tool, const list_options& options) {
    int32_t mask = 0;
    int status = take_event_bits(tool, options.mask, mask);
    if (status != exit_done) {
        return status;
    }
    record_list records;
    const int32_t result = read_events(tool, records);
    if (result < 0) {
        return fail_log(tool, result);
    }
    status = records.empty() ? check_log_capacity(tool) : exit_done;
    if (status != exit_done) {
        return status;
    }
    const event_names names(tool);
    keep_types(records, mask);
    records.resize(std::min(records.size(), options.count));
    json list = json::array();
    for (const veltrancord_log_record& record : records) {
        list.push_back(as_json(record, names));
    }
    if (tool.print_for_programs(list)) {
        return records.empty() ? exit_empty : exit_done;
    }
    for (const veltrancord_log_record& record : records) {
        tool.print(as_line(record, names));
        tool.end_line();
    }
    return records.empty() ? tool.fail_with(exit_empty, "log", "empty") : exit_done;
}

bool is_same(const veltrancord_log_record& one, const veltrancord_log_record& other) {
    const auto fields = [](const veltrancord_log_record& record) {
        return std::make_tuple(record.type, record.year, record.month, record.day, record.hour,
                               record.minute, record.second, record.detail1, record.detail2,
                               std::string_view(record.text), record.time);
    };
    return fields(one) == fields(other);
}

// How many of `now` are new when `before` was the list a moment ago: the least shift by which the
// two agree as far as both reach.
std::size_t count_new(const record_list& before, const record_list& now) {
    for (std::size_t shift = 0; shift < now.size(); ++shift) {
        const std::size_t common = std::min(before.size(), now.size() - shift);
        if (common > 0 &&
            std::equal(before.begin(), before.begin() + static_cast<std::ptrdiff_t>(common),
                       now.begin() + static_cast<std::ptrdiff_t>(shift), is_same)) {
            return shift;
        }
    }
    return now.size();
}

std::string followed_line(const context& tool, const veltrancord_log_record& record,
                          const event_names& names) {
    if (tool.form == output_form::shell) {
        return shell_assignments(json::array({as_json(record, names)}), "\n");
    }
    return (tool.form == output_form::json ? one_line(as_json(record, names))
                                           : as_line(record, names)) +
           "\n";
}

int run_follow(context& tool, const list_options& options) {
    int32_t mask = 0;
    int status = take_event_bits(tool, options.mask, mask);
    if (status != exit_done) {
        return status;
    }
    record_list before;
    int32_t result = read_events(tool, before);
    status = result >= 0 && before.empty() ? check_log_capacity(tool) : exit_done;
    if (status != exit_done) {
        return status;
    }
    if (result >= 0) {
        context::note("following");
    }
    for (int round = 0; result >= 0 && round != options.rounds; ++round) {
        std::this_thread::sleep_for(std::chrono::milliseconds(options.interval_ms));
        record_list now;
        result = read_events(tool, now);
        const event_names names(tool);
        for (std::size_t index = count_new(before, now); result >= 0 && index > 0; --index) {
            const veltrancord_log_record& record = now[index - 1];
            if ((record.type & mask) != 0) {
                if (!context::print_now(followed_line(tool, record, names))) {
                    return exit_failed;
                }
            }
        }
        before = std::move(now);
    }
    return result < 0 ? fail_log(tool, result) : exit_done;
}

int run_add(context& tool, const add_options& options) {
    int32_t type = 0;
    const int understood = take_event_bits(tool, options.type, type);
    if (understood != exit_done) {
        return understood;
    }
    if (options.time > INT32_MAX) {
        return tool.fail_with(exit_refused, "--time", "is over 2147483647");
    }
    veltrancord_log_record record{};
    record.type = type;
    record.year = 2000;
    record.month = 1;
    record.detail1 = static_cast<uint8_t>(options.detail1);
    record.detail2 = static_cast<uint8_t>(options.detail2);
    if (options.text.size() > VELTRANCORD_MAX_LOG_TEXT) {
        return tool.fail_with(
            exit_refused, options.text,
            "text over its bound: " + std::to_string(options.text.size()) + " bytes, at most 15");
    }
    std::copy(options.text.begin(), options.text.end(), record.text);
    record.time = static_cast<int32_t>(std::max<int64_t>(options.time, 0));
    const log_before before(find_service(tool));
    const int32_t result = options.time >= 0
                               ? veltrancord_log_add_with_time(&tool.client(), &record)
                               : veltrancord_log_add(&tool.client(), &record);
    if (result < 0) {
        return result == VELTRANCORD_DENIED ? fail_log(tool, result)
                                            : tool.fail_change("log", result);
    }
    const int status = check_log_capacity(tool);
    if (status == exit_done && !before.seems_saved(record)) {
        return tool.fail_with(exit_not_saved, "log",
                              "added, but not saved: " + before.file() +
                                  " does not hold the event; the service tries to save it again");
    }
    return status;
}

int print_count(context& tool, const char* name, int32_t count) {
    if (!tool.print_for_programs({{name, count}})) {
        tool.print(std::to_string(count));
        tool.end_line();
    }
    return exit_done;
}

int run_count(context& tool, bool wants_capacity) {
    int32_t capacity = 0;
    const int32_t count = wants_capacity ? 0 : veltrancord_log_count(&tool.client());
    if (count > 0) {
        return print_count(tool, "count", count);
    }
    if (is_failed_exchange(count)) {
        return tool.fail("log", count);
    }
    // Without room the count is the capacity, which is below 1 and looks like a failure.
    if (!read_log_capacity(tool, capacity)) {
        return tool.fail("log", capacity);
    }
    const int status =
        print_count(tool, wants_capacity ? "capacity" : "count", wants_capacity ? capacity : 0);
    return capacity > 0 ? status : fail_without_room(tool, capacity);
}

// The events as JSON lines, which "log add" can put back one by one.
int back_up_log(context& tool) {
    if (tool.backup_file.empty()) {
        return exit_done;
    }
    record_list records;
    const int32_t result = read_events(tool, records);
    if (result < 0) {
        return tool.fail("log", result);
    }
    std::string text;
    const event_names names(tool);
    for (const veltrancord_log_record& record : records) {
        text += one_line(as_json(record, names)) + '\n';
    }
    return write_private_file(tool.backup_file, text) ? exit_done
                                                      : tool.fail_file(tool.backup_file);
}

int run_clear(context& tool) {
    if (tool.dry_run) {
        const int32_t count = veltrancord_log_count(&tool.client());
        if (count < 0) {
            return tool.fail("log", count);
        }
        context::note("clearing would remove " + std::to_string(count) + " events");
        return end_dry_run();
    }
    int status = may_destroy(tool, "clear the event log");
    if (status == exit_done) {
        status = back_up_log(tool);
    }
    if (status != exit_done) {
        return status;
    }
    const int32_t result = veltrancord_log_clear(&tool.client());
    return result < 0 ? tool.fail_change("log", result) : exit_done;
}

void add_list_commands(subcommand log, context& tool) {
    const auto list = std::make_shared<list_options>();
    subcommand command = log.add_subcommand("list", "print the events, newest first");
    command.fallthrough();
    command.add_option("--mask", list->mask, "only these types: bits (0x10) or names, as listed");
    command.add_option("--count", list->count, "at most so many");
    command.callback([&tool, list] { tool.run = [&tool, list] { return run_list(tool, *list); }; });

    const auto follow = std::make_shared<list_options>();
    command = log.add_subcommand("follow", "print events as they come");
    command.fallthrough();
    command.add_option("--mask", follow->mask, "only these types: bits (0x10) or names, as listed");
    command.add_option("--interval", follow->interval_ms, "milliseconds between two looks");
    command.add_option("--rounds", follow->rounds, "end after so many looks");
    command.callback(
        [&tool, follow] { tool.run = [&tool, follow] { return run_follow(tool, *follow); }; });
}

}  // namespace

void add_log_commands(subcommand app, context& tool) {
    subcommand log = app.add_subcommand("log", "the event log");
    log.require_subcommand(1);
    log.fallthrough();
    add_list_commands(log, tool);

    const auto add = std::make_shared<add_options>();
    subcommand command = log.add_subcommand("add", "add an event");
    command.fallthrough();
    command.add_option("TYPE", add->type, "its type: bits (0x10) or names, as listed").required();
    command.add_option("TEXT", add->text, "at most 15 characters, no ':'").required();
    command.add_option("--detail1", add->detail1, "0 to 255").between(0, 255);
    command.add_option("--detail2", add->detail2, "0 to 255").between(0, 255);
    command.add_option("--time", add->time, "seconds since the epoch; the present if not given");
    command.callback([&tool, add] { tool.run = [&tool, add] { return run_add(tool, *add); }; });

    const auto capacity = std::make_shared<bool>(false);
    command = log.add_subcommand("count", "print how many events there are");
    command.fallthrough();
    command.add_flag("--capacity", *capacity, "how many fit");
    command.callback(
        [&tool, capacity] { tool.run = [&tool, capacity] { return run_count(tool, *capacity); }; });

    command = log.add_subcommand("clear", "remove all events");
    command.fallthrough();
    add_dry_run(command, tool);
    command.callback([&tool] { tool.run = [&tool] { return run_clear(tool); }; });
}

}  // namespace veltrancord::tool
