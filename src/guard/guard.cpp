#include "guard/guard.h"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>
#include <vector>

#include "guard/classes.h"
#include "guard/exchange_place.h"
#include "guard/needs.h"
#include "guard/policy_file.h"
#include "leaf/clock.h"
#include "leaf/message.h"
#include "leaf/result.h"
#include "store/attribute_query.h"
#include "store/secret_view.h"
#include "store/value.h"

namespace veltrancord {

namespace {

constexpr std::size_t longest_cut_path = 127;  // of what restore and syncxml are given
constexpr std::string_view reloading_command = "SyncPermit";

std::string number_of(uid_t user) {
    return user == no_id ? "-" : std::to_string(user);
}

const char* shown(const std::string& document) {
    return document.empty() ? "-" : document.c_str();
}

// What the setting holds now; empty where there is none. A secret is not asked for.
std::string old_value(const command_traits& traits, std::string_view path) {
    if (traits.argument == argument_kind::attribute_lines) {
        std::string_view value;
        return ReadSingleAttr(path, value) >= 0 ? std::string(value) : std::string();
    }
    XmlValue value;
    return ReadXmlValue(path, value) >= 0 ? std::string(value.text) : std::string();
}

bool has_values(const command_traits& traits) {
    return traits.argument == argument_kind::lines ||
           traits.argument == argument_kind::attribute_lines;
}

}  // namespace

// Holds its user's place as long as it lives.
struct guarded_client final : client_pass {
    guarded_client(int socket, user_record& its_user, peer_credentials who)
        : fd(socket), user(its_user), peer(std::move(who)) {
        ++user.places;
    }
    guarded_client(const guarded_client&) = delete;
    guarded_client& operator=(const guarded_client&) = delete;
    ~guarded_client() override { --user.places; }

    int fd;  // borrowed from the connection, which owns this, too
    user_record& user;
    peer_credentials peer;
};

// One command while it is judged and run.
struct guarded_request {
    guarded_request(access_guard& its_guard, guarded_client& who, const command_traits& its_traits,
                    std::string_view text)
        : guard(its_guard), client(who), traits(its_traits), argument(text) {}

    access_guard& guard;
    guarded_client& client;
    const command_traits& traits;
    std::string_view argument;

    bool refused = false;
    command_class refused_class = command_class::admin;  // the first need that was refused
    std::string refused_document;

    // What the command is given in place of its argument, where that is a file.
    guarded_file file;
    std::string replacement;
};

guard_setup device_guard_setup() noexcept {
    guard_setup setup;
    setup.policy_path = access_file_path();
    setup.log_path = "/dev/log";
    setup.accounts = system_accounts();
    setup.own_user = ::geteuid();
    setup.now = monotonic_milliseconds;
    return setup;
}

// ---- the file -----------------------------------------------------------------------------------

void access_guard::take(access_policy policy, mode how) {
    policy_ = std::move(policy);
    told_ = {};
    mode_ = how;
}

void access_guard::load() noexcept {
    try {
        policy_reading reading =
            read_policy_file(setup_.policy_path, setup_.own_user, setup_.accounts);
        if (reading.state != policy_state::absent) {
            overflow_ = read_overflow_ids();
        }
        switch (reading.state) {
            case policy_state::absent:
                take({}, mode::open);
                return;
            case policy_state::good:
                take(std::move(reading.policy), mode::ruled);
                return;
            case policy_state::bad:
                break;
        }
        for (const policy_mistake& mistake : reading.mistakes) {
            if (mistake.line == 0) {
                print_error("access file %s %s\n", setup_.policy_path, mistake.text.c_str());
            } else {
                print_error("access file %s:%zu: %s\n", setup_.policy_path, mistake.line,
                            mistake.text.c_str());
            }
        }
    } catch (const std::exception&) {
        print_error("access file %s: no memory for it\n", setup_.policy_path);
    }
    take({}, mode::closed);
    print_error("only root and the service's own user are served\n");
}

// ---- clients ------------------------------------------------------------------------------------

guarded_client* access_guard::meet(const gate_visitor& visitor) {
    if (!visitor.pass) {
        peer_credentials peer;
        if (!setup_.credentials(visitor.fd, overflow_, peer)) {
            return nullptr;
        }
        user_record& user = users_.find(peer.user);
        visitor.pass = std::make_unique<guarded_client>(visitor.fd, user, std::move(peer));
    }
    return static_cast<guarded_client*>(visitor.pass.get());
}

bool access_guard::is_privileged(const guarded_client& client) const noexcept {
    return client.peer.user_known && (client.peer.user == 0 || client.peer.user == setup_.own_user);
}

bool access_guard::has_place(const guarded_client& client, std::size_t places) {
    const std::size_t share = share_of(policy_, places);
    if (client.user.places <= share || is_privileged(client)) {
        return true;
    }
    const uint64_t untold = count_refusal(client.user, setup_.now());
    if (untold > 0) {
        print_error(
            "%s: user %s, process %d (%s): holds its share of %zu places; refusals since the last "
            "such line: %llu\n",
            policy_.permissive ? "would be turned away" : "access refused", name_of(client).c_str(),
            static_cast<int>(client.peer.process), name_of_program(client.peer.process).text, share,
            static_cast<unsigned long long>(untold));
    }
    return policy_.permissive;
}

bool access_guard::admit(const gate_visitor& visitor, std::size_t places) noexcept {
    if (mode_ == mode::open) {
        return true;
    }
    try {
        const guarded_client* const client = meet(visitor);
        return client != nullptr && has_place(*client, places);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

int access_guard::payload_time(const gate_visitor& visitor) noexcept {
    if (mode_ != mode::ruled || policy_.permissive || policy_.request_deadline < 0) {
        return -1;
    }
    try {
        const guarded_client* const client = meet(visitor);
        const std::vector<uid_t>& excepted = policy_.deadline_exceptions;
        const bool free =
            client != nullptr && client->peer.user_known &&
            std::find(excepted.begin(), excepted.end(), client->peer.user) != excepted.end();
        return free ? -1 : policy_.request_deadline;
    } catch (const std::bad_alloc&) {
        return policy_.request_deadline;
    }
}

// ---- judging ------------------------------------------------------------------------------------

// What the rules say, word for word. The kernel is asked for groups where a rule wants them.
bool access_guard::allows_this(guarded_client& client, const access_need& need) {
    access_decision decision = decide(policy_, client.peer.identity(), need);
    if (decision.ask_groups) {
        setup_.groups(client.fd, overflow_, client.peer);
        decision = decide(policy_, client.peer.identity(), need);
    }
    return decision.allowed;
}

bool access_guard::allows_somewhere(guarded_client& client, command_class which) {
    const auto forbidden = [&](const access_need& need) { return !allows_this(client, need); };
    return !forbidden({which, {}}) || !each_document(which, forbidden);
}

bool access_guard::allows(guarded_client& client, const access_need& need) {
    if (mode_ == mode::closed) {
        return is_privileged(client);
    }
    if (need.document.empty() && has_documents(need.which)) {
        return allows_somewhere(client, need.which);
    }
    return allows_this(client, need);
}

// Return: whether to go on to the next need.
bool access_guard::judge_need(guarded_request& request, const access_need& need) {
    if (allows(request.client, need)) {
        return true;
    }
    if (!std::exchange(request.refused, true)) {
        request.refused_class = need.which;
        request.refused_document = need.document;
    }
    if (policy_.permissive) {
        tell_need(request.client, need);
    }
    return policy_.permissive;
}

// Whoever can write these files anyway is not held to directories. What such a file holds is not
// looked into, so the whole of the class is needed, and what a DispatchW in it would need.
void access_guard::judge_privileged_file(guarded_request& request) {
    const auto rule = [&](const access_need& need) { return judge_need(request, need); };
    if (request.traits.argument == argument_kind::file_to_write) {
        static_cast<void>(each_document(command_class::files, rule) &&
                          each_document(command_class::secrets, rule));
        return;
    }
    const bool whole =
        mode_ == mode::closed || allows_this(request.client, {command_class::files, {}});
    if (!whole) {
        static_cast<void>(each_document(command_class::files, rule));
        request.refused = true;
        request.refused_class = command_class::files;
    }
    static_cast<void>(rule({command_class::admin, {}}));
}

void access_guard::refuse_place(guarded_request& request) {
    if (!std::exchange(request.refused, true)) {
        request.refused_class = command_class::files;
        request.refused_document = "a file outside of files-below";
    }
    if (policy_.permissive) {
        tell_need(request.client, {command_class::files, {}});
    }
}

// A file that is written holds the secrets of all documents.
void access_guard::judge_file(guarded_request& request) {
    if (is_privileged(request.client)) {
        judge_privileged_file(request);
        return;
    }
    const auto rule = [&](const access_need& need) { return judge_need(request, need); };
    const bool cut = request.traits.argument == argument_kind::file_to_read_cut;
    const std::string path(request.argument.substr(0, cut ? longest_cut_path : std::string::npos));
    if (request.traits.argument == argument_kind::file_to_write) {
        request.replacement = guarded_place(path, policy_.directories, setup_.own_user);
        static_cast<void>(each_document(command_class::files, rule) &&
                          each_document(command_class::secrets, rule));
    } else if (copy_guarded_file(path, policy_.directories, request.file)) {
        request.replacement = request.file.path;
        for (const std::string& document : request.file.documents) {
            if (!rule({command_class::files, document})) {
                return;
            }
        }
        static_cast<void>(!request.file.documents.empty() || rule({command_class::files, {}}));
        static_cast<void>(!request.file.sets_programs || rule({command_class::admin, {}}));
    }
    if (request.replacement.empty()) {
        refuse_place(request);
    }
}

void access_guard::judge(guarded_request& request) {
    switch (request.traits.argument) {
        case argument_kind::file_to_read:
        case argument_kind::file_to_read_cut:
        case argument_kind::file_to_write:
            judge_file(request);
            return;
        default:
            static_cast<void>(
                each_need(request.traits, request.argument,
                          [&](const access_need& need) { return judge_need(request, need); }));
    }
}

bool access_guard::may_show_secret(void* request, std::string_view document) {
    guarded_request& its = *static_cast<guarded_request*>(request);
    access_guard& guard = its.guard;
    const access_need need{command_class::secrets, document};
    if (guard.allows(its.client, need)) {
        return true;
    }
    if (guard.policy_.permissive) {
        guard.tell_need(its.client, need);
    }
    return guard.policy_.permissive;
}

// ---- refusals and the trail ---------------------------------------------------------------------

std::string access_guard::name_of(const guarded_client& client) const {
    for (const named_user& user : policy_.users) {
        if (user.id == client.peer.user) {
            return user.name;
        }
    }
    return client.peer.user == 0 ? "root" : number_of(client.peer.user);
}

void access_guard::tell_need(const guarded_client& client, const access_need& need) {
    std::string line(would_be_refused);
    line.append("user ").append(number_of(client.peer.user));
    line.append(" group ").append(number_of(client.peer.group));
    line.append(" class ").append(class_name(need.which));
    line.append(" document ").append(need.document.empty() ? "-" : need.document);
    const std::size_t hash = std::hash<std::string>()(line);
    if (told_.contains(hash)) {
        return;
    }
    if (told_.size() == max_told) {
        told_.clear();
    }
    told_.insert(hash);
    print_error("%s\n", line.c_str());
}

void access_guard::refuse(guarded_request& request) {
    guarded_client& client = request.client;
    const uint64_t untold = count_refusal(client.user, setup_.now());
    if (untold > 0) {
        print_error(
            "access refused: user %s, process %d (%s): %s needs class %s on %s; refusals since the "
            "last such line: %llu\n",
            name_of(client).c_str(), static_cast<int>(client.peer.process),
            name_of_program(client.peer.process).text, std::string(request.traits.name).c_str(),
            std::string(class_name(request.refused_class)).c_str(), shown(request.refused_document),
            static_cast<unsigned long long>(untold));
    }
}

std::unique_ptr<trail_record> access_guard::begin_record(const guarded_request& request,
                                                         trail_kind kind) {
    const guarded_client& client = request.client;
    const bool values = kind == trail_kind::change && policy_.trail_values;
    const std::string name = name_of(client);
    const std::string number = number_of(client.peer.user);
    const program_name program = name_of_program(client.peer.process);
    auto record = std::make_unique<trail_record>(
        kind, trail_subject{name, number, client.peer.process, program.text}, request.traits.name);
    each_path(request.traits, request.argument,
              [&](std::string_view path, std::string_view new_value) {
                  if (values && has_values(request.traits) && !names_secret(path)) {
                      record->add_change(path, old_value(request.traits, path), new_value);
                  } else {
                      record->add_path(path);
                  }
                  return true;
              });
    return record;
}

// ---- running ------------------------------------------------------------------------------------

int32_t access_guard::run_handler(guarded_request& request, const gated_command& command,
                                  connection_record& connection) {
    command_argument argument = command.argument;
    if (!request.replacement.empty()) {
        argument = {request.replacement.data(), request.replacement.size()};
    }
    SecretRule rule;
    if (mode_ == mode::ruled && request.traits.which == command_class::read) {
        rule = {may_show_secret, &request};
    }
    const SecretView view(rule);
    return command.handler(connection, argument, command.row);
}

// Handlers may change their argument, so the record of what it was is begun before.
int32_t access_guard::run_recorded(guarded_request& request, const gated_command& command,
                                   connection_record& connection) {
    if (!policy_.trail_changes || !request.traits.changes) {
        return run_handler(request, command, connection);
    }
    const std::unique_ptr<trail_record> record = begin_record(request, trail_kind::change);
    int32_t result = result_too_large;  // what an exception becomes
    try {
        result = run_handler(request, command, connection);
    } catch (const std::exception&) {
        log_.send(*record, result);
        throw;
    }
    log_.send(*record, result);
    return result;
}

int32_t access_guard::run_guarded(const gate_visitor& visitor, const gated_command& command,
                                  connection_record& connection) {
    guarded_client* const client = meet(visitor);
    if (client == nullptr) {
        return result_denied;
    }
    // The table of commands asserts that the two have the same rows.
    guarded_request request(*this, *client,
                            all_command_traits[static_cast<std::size_t>(command.row)],
                            command.argument.text());
    judge(request);
    if (!request.refused) {
        return run_recorded(request, command, connection);
    }
    const trail_kind kind = policy_.permissive ? trail_kind::would_refuse : trail_kind::refused;
    if (!policy_.permissive) {
        refuse(request);
    }
    if (policy_.trail_refusals) {
        log_.send(*begin_record(request, kind), result_denied);
    }
    if (!policy_.permissive) {
        return result_denied;
    }
    request.replacement.clear();
    return run_recorded(request, command, connection);
}

int32_t access_guard::run(const gate_visitor& visitor, const gated_command& command,
                          connection_record& connection) {
    const int32_t result = mode_ == mode::open
                               ? command.handler(connection, command.argument, command.row)
                               : run_guarded(visitor, command, connection);
    // The answer counts for who has asked: it has been given before the file is read anew.
    if (command.name == reloading_command && result != result_denied) {
        load();
    }
    return result;
}

}  // namespace veltrancord
