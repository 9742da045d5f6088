#include "command_help.h"

#include <algorithm>
#include <array>

#include "exit_status.h"

namespace veltrancord::tool {
namespace {

constexpr const char* settings = "Settings";
constexpr const char* documents = "Whole documents";
constexpr const char* changes = "Changes";
constexpr const char* events = "Event log";
constexpr const char* access = "Access";
constexpr const char* service = "The service itself";

constexpr bool also_offline = true;

constexpr uint32_t one_of(auto... statuses) {
    return ((uint32_t{1} << static_cast<unsigned>(statuses)) | ...);
}

// Every command may end so.
constexpr uint32_t always = one_of(exit_done, exit_usage, exit_failed);

// Whatever asks the service.
constexpr uint32_t asks =
    always | one_of(exit_refused, exit_too_large, exit_unreachable, exit_timed_out, exit_broken);
constexpr uint32_t reads = asks | one_of(exit_not_found, exit_empty);
constexpr uint32_t writes = asks | one_of(exit_not_found, exit_unknown);
constexpr uint32_t replaces = writes | one_of(exit_cancelled);
constexpr uint32_t may_break = replaces | one_of(exit_not_allowed);
constexpr uint32_t ends_trial = replaces | one_of(exit_denied);

// In the order of the help. A command without a row has no examples, and stands under a heading of
// its own; a test tells it.
constexpr command_help rows[] = {
    {"get", settings,
     "veltrancordctl get System.Name\n"
     "veltrancordctl get 'Network.Lan.*'\n"
     "veltrancordctl --json get Network.Lan.Mtu Network.Lan.Dhcp\n"
     "veltrancordctl get Network.Lan.Mtu --with-default",
     reads, also_offline},
    {"ls", settings, "veltrancordctl ls\nveltrancordctl ls Network.Lan", reads, also_offline},
    {"tree", settings,
     "veltrancordctl tree Network\n"
     "veltrancordctl --json tree Network\n"
     "veltrancordctl tree Network.Lan --describe",
     reads, also_offline},
    {"set", settings,
     "veltrancordctl set Network.Lan.Mtu 1500\n"
     "veltrancordctl set Network.Lan.Mtu=1500 Network.Lan.Dhcp=NO\n"
     "printf 'crane-07' | veltrancordctl set Account.User2.Password -\n"
     "printf 'Network.Lan.Label=yard\\n' | veltrancordctl set --create -",
     writes | one_of(exit_cancelled, exit_not_saved, exit_not_allowed), also_offline},
    {"reset", settings,
     "veltrancordctl reset Network.Lan.Mtu\nveltrancordctl reset Network --dry-run",
     writes | one_of(exit_empty, exit_not_saved, exit_not_allowed), also_offline},
    {"describe", settings,
     "veltrancordctl describe\n"
     "veltrancordctl describe Network.Lan.Mtu\n"
     "veltrancordctl --json describe Network.Lan",
     always | one_of(exit_not_found), also_offline},
    {"unset", settings,
     "veltrancordctl unset Network.Lan.Dns --yes\n"
     "veltrancordctl unset 'Web.*' --yes --backup /tmp/all.xml",
     replaces, also_offline},
    {"sync", settings, "veltrancordctl sync", writes | one_of(exit_not_saved)},
    {"attr", settings, "veltrancordctl attr list 'Account.User1.#'", reads | writes, also_offline},
    {"attr get", nullptr, "veltrancordctl attr get Account.User1.AllowToShow", reads, also_offline},
    {"attr list", nullptr,
     "veltrancordctl attr list 'Account.User1.#'\nveltrancordctl attr list 'Account.*.AllowToShow'",
     reads, also_offline},
    {"attr set", nullptr, "veltrancordctl attr set Account.User1.AllowToShow=NO", writes,
     also_offline},

    {"dump", documents, "veltrancordctl dump /tmp/all.xml", asks | one_of(exit_unknown),
     also_offline},
    {"load", documents, "veltrancordctl load /tmp/all.xml --yes", may_break, also_offline},
    {"restore", documents, "veltrancordctl restore /tmp/all.xml --yes", may_break, also_offline},
    {"merge", documents, "veltrancordctl merge /tmp/all.xml --yes --backup /tmp/before.xml",
     may_break, also_offline},
    {"backup", documents, "veltrancordctl backup now", writes},

    {"snapshot", changes,
     "veltrancordctl snapshot /tmp/before\nveltrancordctl snapshot /tmp/lan Network.Lan", reads,
     also_offline},
    {"diff", changes,
     "veltrancordctl diff /tmp/before\n"
     "veltrancordctl diff /tmp/before --path Network.Lan\n"
     "veltrancordctl diff --defaults",
     reads | one_of(exit_differs, exit_other_key), also_offline},
    {"apply", changes, "veltrancordctl apply /tmp/before",
     may_break | one_of(exit_empty, exit_denied, exit_not_saved, exit_other_key), also_offline},
    {"confirm", changes, "veltrancordctl confirm", ends_trial},
    {"trial", changes, "veltrancordctl trial resume", ends_trial},
    {"trial status", nullptr, "veltrancordctl trial status", ends_trial},
    {"trial resume", nullptr, "veltrancordctl trial resume", ends_trial},
    {"trial guard", nullptr, "veltrancordctl trial guard /run/veltrancord", always},
    {"edit", changes, "EDITOR=true veltrancordctl edit Network.Lan", may_break | one_of(exit_empty),
     also_offline},
    {"history", changes,
     "veltrancordctl history --count 5\nveltrancordctl --json history Network.Lan",
     always | one_of(exit_empty)},
    {"undo", changes, "veltrancordctl undo --dry-run\nveltrancordctl undo 12",
     writes | one_of(exit_differs)},
    {"trail", changes,
     "veltrancordctl trail --file /tmp/auth.log --count 5\n"
     "veltrancordctl --json trail Network --user www-data --file /tmp/auth.log",
     always | one_of(exit_empty)},
    {"watch", changes,
     "veltrancordctl watch Network\nveltrancordctl watch Network.Lan -- /usr/bin/logger", reads},

    {"log", events, "veltrancordctl log list --count 5",
     reads | replaces | one_of(exit_not_saved, exit_no_log)},
    {"log list", nullptr,
     "veltrancordctl log list --count 5\nveltrancordctl --json log list --mask 0x10",
     reads | one_of(exit_no_log)},
    {"log follow", nullptr, "veltrancordctl log follow --rounds 1", reads | one_of(exit_no_log)},
    {"log add", nullptr, "veltrancordctl log add 0x10 gate --detail1 2",
     writes | one_of(exit_not_saved, exit_no_log)},
    {"log count", nullptr, "veltrancordctl log count\nveltrancordctl log count --capacity",
     asks | one_of(exit_no_log)},
    {"log clear", nullptr, "veltrancordctl log clear --yes --backup /tmp/events", replaces},

    {"can", access,
     "veltrancordctl can operator StorageFormat\n"
     "veltrancordctl can --group Admin NetworkSetup",
     asks | one_of(exit_not_found, exit_denied)},
    {"permits", access, "veltrancordctl permits", reads},
    {"permits value", nullptr, "veltrancordctl permits value Admin NetworkSetup",
     reads | one_of(exit_denied)},
    {"permits sync", nullptr, "veltrancordctl permits sync", writes},
    {"group", access, "veltrancordctl group admin", reads | one_of(exit_denied)},
    {"filter", access, "veltrancordctl filter operator reboot",
     asks | one_of(exit_not_found, exit_denied)},
    {"access", access, "veltrancordctl access check /tmp/access",
     always | one_of(exit_not_found, exit_denied, exit_empty, exit_refused, exit_differs)},
    {"access check", nullptr, "veltrancordctl access check /tmp/access",
     always | one_of(exit_differs)},
    {"access explain", nullptr,
     "veltrancordctl access explain www-data write Display.Layout --file /tmp/access\n"
     "veltrancordctl access explain --group veltrancord cleanlog --file /tmp/access\n"
     "veltrancordctl access explain any read '*' --file /tmp/access",
     always | one_of(exit_not_found, exit_denied, exit_refused)},
    {"access draft", nullptr, "veltrancordctl access draft --file /tmp/messages",
     always | one_of(exit_empty)},
    {"session", access, "printf token | veltrancordctl session check", writes},
    {"session set", nullptr, "printf token | veltrancordctl session set", writes},
    {"session check", nullptr, "printf token | veltrancordctl session check --lifetime 600",
     asks | one_of(exit_not_found)},
    {"captcha", access, "printf k7m2 | veltrancordctl captcha check v1",
     writes | one_of(exit_mismatch)},
    {"captcha set", nullptr, "printf k7m2 | veltrancordctl captcha set v1", writes},
    {"captcha check", nullptr, "printf k7m2 | veltrancordctl captcha check v1 --remove",
     writes | one_of(exit_mismatch)},
    {"captcha refresh", nullptr, "printf k7m2 | veltrancordctl captcha refresh v1", writes},
    {"captcha delete", nullptr, "printf k7m2 | veltrancordctl captcha delete v1", writes},

    {"ping", service, "veltrancordctl ping", asks},
    {"wait", service, "veltrancordctl wait --timeout 60", asks},
    {"raw", service,
     "veltrancordctl raw readvalue System.Name\n"
     "printf 'Network.Lan.Mtu=1500' | veltrancordctl raw write -",
     replaces | one_of(exit_denied)},
    {"doctor", service, "veltrancordctl doctor", asks | one_of(exit_differs)},
    {"stats", service, "veltrancordctl stats\nveltrancordctl stats --prometheus", asks},
    {"fsck", service, "veltrancordctl fsck /mnt/database/xml", always | one_of(exit_differs)},
    {"schema", service, "veltrancordctl schema check",
     always | one_of(exit_not_found, exit_refused, exit_differs)},
    {"schema check", nullptr, "veltrancordctl schema check",
     always | one_of(exit_not_found, exit_differs)},
    {"schema draft", nullptr, "veltrancordctl schema draft /mnt/database/xml /tmp",
     always | one_of(exit_refused)},
    {"schema doc", nullptr,
     "veltrancordctl schema doc /tmp\nveltrancordctl schema doc /tmp --language de",
     always | one_of(exit_not_found)},
    {"help", service, "veltrancordctl help log add", one_of(exit_done, exit_usage)},
};

}  // namespace

std::span<const command_help> command_helps() {
    return rows;
}

const command_help* find_command_help(std::string_view name) {
    const auto* const row = std::find_if(std::begin(rows), std::end(rows),
                                         [&](const command_help& one) { return one.name == name; });
    return row != std::end(rows) ? row : nullptr;
}

std::string help_footer(const command_help& help) {
    std::string text = "Examples:\n";
    std::string_view rest = help.examples;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        text.append("  ").append(rest.substr(0, end)).append("\n");
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    text += "\nExit status:\n";
    for (int status = 0; status < 32; ++status) {
        if ((help.statuses >> static_cast<unsigned>(status) & 1U) != 0) {
            text.append(status < 10 ? "   " : "  ").append(std::to_string(status)).append("  ");
            text.append(exit_status_text(status)).append("\n");
        }
    }
    return text + "\n\"veltrancordctl help\" tells the general options: --json, --socket, -q ...";
}

}  // namespace veltrancord::tool
