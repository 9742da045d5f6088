#include "change_plan.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "digest.h"
#include "schema/check.h"
#include "schema/description_set.h"
#include "service_settings.h"

namespace veltrancord::bridge {
namespace {

class planner {
  public:
    planner(veltrancord_client& client, const configuration& settings,
            const operator_message& message, change_plan& plan)
        : client_(client),
          settings_(settings),
          message_(message),
          plan_(plan),
          descriptions_(settings.descriptions) {}

    int32_t make() {
        for (const auto& [path, value] : message_.set) {
            check_path(path);
            check_value(path, value);
        }
        for (const std::string& path : message_.remove) {
            check_path(path);
            check_removal(path);
        }
        check_bases();
        for (const auto& [path, value] : message_.set) {
            compare(path, value, false);
        }
        for (const std::string& path : message_.remove) {
            compare(path, "", true);
        }
        return result_;
    }

  private:
    // Whether there is nothing yet against it, and the service has answered.
    [[nodiscard]] bool goes_on() const {
        return result_ >= 0 && plan_.obstacle == change_state::none;
    }

    void stop(change_state obstacle, std::string reason) {
        plan_.obstacle = obstacle;
        plan_.reason = std::move(reason);
    }

    void check_path(const std::string& path) {
        if (!goes_on()) {
            return;
        }
        if (!settings_.writable.cover(path)) {
            stop(change_state::refused, path + ": not on the list of what may be written");
            return;
        }
        bool starts_program = false;
        result_ = look_for_program(client_, path, starts_program);
        if (result_ >= 0 && starts_program && !settings_.writable.name_exactly(path)) {
            stop(change_state::refused,
                 path + ": starts a program, so the list must name it exactly");
        }
    }

    void check_value(const std::string& path, const std::string& value) {
        if (!goes_on()) {
            return;
        }
        const std::optional<schema::violation> found =
            schema::check_value(descriptions_, path, value);
        if (found) {
            stop(change_state::refused, path + ": " + schema::sentence_of(*found));
        }
    }

    void check_removal(const std::string& path) {
        bool some = false;
        if (goes_on()) {
            result_ = look_below(client_, path, some);
        }
        if (some) {
            stop(change_state::refused, path + ": cannot be removed, there are settings below it");
        }
    }

    void check_base(const std::string& path) {
        const std::string_view document = document_of(path);
        const auto base = std::find_if(message_.bases.begin(), message_.bases.end(),
                                       [&](const auto& one) { return one.first == document; });
        if (goes_on() && base == message_.bases.end()) {
            stop(change_state::refused, std::string(document) + ": its base hash is missing");
        }
    }

    void check_bases() {
        for (const auto& [path, value] : message_.set) {
            check_base(path);
        }
        for (const std::string& path : message_.remove) {
            check_base(path);
        }
        for (const auto& [document, hash] : message_.bases) {
            std::string report;
            if (goes_on()) {
                result_ = read_report(client_, settings_, document, report);
            }
            if (goes_on() && digest_of(report) != hash) {
                stop(change_state::conflict, document + ": is not what the change was made for");
            }
        }
    }

    void compare(const std::string& path, const std::string& wanted, bool removed) {
        std::optional<std::string> present;
        if (goes_on()) {
            result_ = read_value(client_, path, present);
        }
        if (goes_on() && present.value_or("") != wanted) {
            plan_.changes.push_back({path, present, wanted});
            if (removed) {
                plan_.removals.push_back(path);
            }
        }
    }

    veltrancord_client& client_;
    const configuration& settings_;
    const operator_message& message_;
    change_plan& plan_;
    schema::description_set descriptions_;  // let go of with the plan: a change is a rare thing
    int32_t result_ = VELTRANCORD_OK;
};

}  // namespace

int32_t make_plan(veltrancord_client& client, const configuration& settings,
                  const operator_message& message, change_plan& plan) {
    plan = {};
    return planner(client, settings, message, plan).make();
}

std::string difference_text(const std::vector<trial::change>& changes) {
    std::string text;
    for (const trial::change& one : changes) {
        if (one.before) {
            text.append("-").append(one.path).append("=").append(*one.before).append("\n");
        }
        if (!one.after.empty()) {
            text.append("+").append(one.path).append("=").append(one.after).append("\n");
        }
    }
    return text;
}

}  // namespace veltrancord::bridge
