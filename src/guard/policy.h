// Who may ask what: the statements of the access file, and what they say of a request.
//
// One statement a line; "#" begins a comment, blank lines do not count, words are separated by
// blanks or tabs:
//
//   mode enforce|permissive
//   allow|deny user NAME|UID CLASSES [on DOCUMENT... [except DOCUMENT...]]
//   allow|deny group NAME|GID CLASSES [on ...]
//   allow|deny any CLASSES [on ...]
//   files-below DIRECTORY...
//   places-per-user NUMBER%|NUMBER
//   request-deadline 2s|500ms|off [except USER...]
//   trail changes [values]
//   trail refusals
//
// CLASSES is "all" or names of classes with commas between them and no blank. DOCUMENT is the name
// of a document's file, or "*" for every one. A rule without "on" speaks of all that its classes
// can do, a rule with it of those documents alone: then "all" stands for the classes that have
// documents, and one without documents must not be named. Statements but rules and "trail" stand
// once. Names of users and groups are looked up while the text is parsed, never later.
//
// Nothing here prints, opens anything or knows the rest of the service; the tool links it alone.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veltrancord {

inline constexpr std::size_t max_policy_size = 65'536;  // bytes
inline constexpr std::size_t max_policy_line = 1024;    // bytes, without its end
inline constexpr std::size_t max_policy_rules = 256;
inline constexpr std::size_t max_policy_mistakes = 20;  // told; more of them are not looked for
inline constexpr std::size_t max_policy_directories = 16;

// What commands do. `secrets` is no command's: it shows the values of Password elements, which are
// empty without it, and `admin` is needed besides `write` or `files` to set a DispatchW attribute.
enum class command_class : uint8_t {
    read,
    secrets,
    write,
    memory,
    files,
    remove,
    log_read,
    log_write,
    log_clear,
    permits,
    sessions,
    admin,
};

inline constexpr std::size_t command_class_count = 12;

// Whether commands of the class name documents.
[[nodiscard]] constexpr bool has_documents(command_class which) noexcept {
    return which <= command_class::remove;
}

// The name as it stands in the file: "log-read" for log_read.
[[nodiscard]] std::string_view class_name(command_class which) noexcept;
[[nodiscard]] std::optional<command_class> class_of_name(std::string_view name) noexcept;

// Some classes, one bit each.
class class_set {
  public:
    constexpr class_set() noexcept = default;
    [[nodiscard]] static constexpr class_set all() noexcept {
        class_set set;
        set.bits_ = (1U << command_class_count) - 1;
        return set;
    }
    constexpr void add(command_class which) noexcept {
        bits_ = static_cast<uint16_t>(bits_ | (1U << static_cast<unsigned>(which)));
    }
    [[nodiscard]] constexpr bool has(command_class which) const noexcept {
        return (bits_ >> static_cast<unsigned>(which) & 1U) != 0;
    }

  private:
    uint16_t bits_ = 0;
};

enum class rule_subject : uint8_t { user, group, any };

// Where a rule holds.
struct rule_documents {
    bool restricted = false;  // "on" stands in the rule; else it holds everywhere
    bool every = false;       // "*" stands behind it
    std::vector<std::string> named;
    std::vector<std::string> excepted;
};

struct access_rule {
    bool allow = false;
    rule_subject subject = rule_subject::any;
    uint32_t id = 0;   // of the user or group
    std::string name;  // as the file has it: a name or a number; empty for "any"
    class_set classes;
    rule_documents documents;
    std::size_t line = 0;  // counted from 1
};

// A user that the file names, for messages, which must not ask the system for names.
struct named_user {
    uid_t id = 0;
    std::string name;
};

struct access_policy {
    bool permissive = false;
    std::vector<access_rule> rules;  // in the order of the file
    std::vector<std::string> directories;
    bool share_is_percent = true;
    uint32_t share = 50;            // places of one user: percent, or a number of at least 1
    int32_t request_deadline = -1;  // milliseconds for the rest of a request; -1: no end
    std::vector<uid_t> deadline_exceptions;
    bool trail_changes = false;
    bool trail_values = false;
    bool trail_refusals = false;
    std::vector<named_user> users;
};

struct policy_mistake {
    std::size_t line = 0;  // counted from 1; 0: the file as a whole
    std::string text;
};

// How names become numbers; none for a name that there is not.
struct account_lookup {
    std::optional<uid_t> (*user)(const std::string& name) = nullptr;
    std::optional<gid_t> (*group)(const std::string& name) = nullptr;
};

// As the system's own tables say, by getpwnam and getgrnam: not thread-safe.
[[nodiscard]] account_lookup system_accounts() noexcept;

struct parsed_policy {
    access_policy policy;                  // to be used only when there is no mistake
    std::vector<policy_mistake> mistakes;  // in the order of the lines, at most max_policy_mistakes
};

// Parses the text of an access file. A text over max_policy_size is one mistake. Memory that cannot
// be had is thrown as std::bad_alloc.
[[nodiscard]] parsed_policy parse_policy(std::string_view text, const account_lookup& accounts);

// The number that no user and no group has.
inline constexpr uint32_t no_id = ~uint32_t{0};

// Who asks. The group list is borrowed.
struct peer_identity {
    uid_t user = no_id;
    gid_t group = no_id;            // the primary one
    std::span<const gid_t> groups;  // the supplementary ones
    bool user_known = true;         // false: the user has no number in this user namespace
    bool groups_known = true;       // false: there may be groups beside those told
    bool groups_asked = true;       // false: it has not been asked for the supplementary ones
};

// What a command needs: its class, and the document that it reads or changes; empty: none.
struct access_need {
    command_class which = command_class::admin;
    std::string_view document;
};

struct access_decision {
    bool allowed = false;
    std::size_t line = 0;     // of the rule that decided; 0: none matched, which refuses
    bool ask_groups = false;  // nothing is decided: a rule wants the groups that were not asked for
};

// What the first rule says that matches peer, class and document. Who is not known well enough to
// tell is matched by every "deny" that might mean them, and by no "allow" but "any". The mode is
// the caller's to look at.
[[nodiscard]] access_decision decide(const access_policy& policy, const peer_identity& peer,
                                     const access_need& need) noexcept;

// The number of places that one user may hold of `places`; at least 1.
[[nodiscard]] std::size_t share_of(const access_policy& policy, std::size_t places) noexcept;

// In permissive mode the service prints a line for each need that is refused, once for each user,
// class and document (as long as it remembers them), which `veltrancordctl access draft` reads:
//
//   would be refused: user UID group GID class CLASS document DOCUMENT
//
// with "-" for a need without a document.
inline constexpr std::string_view would_be_refused = "would be refused: ";

}  // namespace veltrancord
