#include "trial/trial.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <map>
#include <utility>

#include "leaf/child_program.h"
#include "leaf/whole_io.h"
#include "trial/document_file.h"
#include "trial/journal.h"

namespace veltrancord::trial {
namespace {

constexpr int64_t in_a_second = 1000;
constexpr int glance = 200;        // milliseconds between two looks at the folder
constexpr int glances_a_look = 5;  // after so many the settings themselves are looked at

verdict system_trouble(std::string about) {
    const int error = errno;
    return {trouble::system, std::move(about), VELTRANCORD_OK, error};
}

verdict service_trouble(int32_t code, std::string about) {
    return {trouble::service, std::move(about), code, 0};
}

void pause_for(int milliseconds) {
    const timespec pause = {milliseconds / in_a_second,
                            static_cast<long>(milliseconds % in_a_second) * 1'000'000};
    (void)nanosleep(&pause, nullptr);  // a signal ends it early, which costs a look
}

std::string document_of(const std::string& path) {
    const std::size_t start = std::min(path.find_first_not_of('.'), path.size());
    return path.substr(start, path.find('.', start) - start);
}

std::map<std::string, std::string> document_files(const setup& where,
                                                  const former_settings& former) {
    std::map<std::string, std::string> files;
    for (const former_setting& one : former.entries) {
        const std::string document = document_of(one.path);
        const std::string identity = file_identity(where.documents + "/" + document);
        if (!identity.empty()) {
            files.emplace(document, identity);
        }
    }
    return files;
}

// Whether flash may hold what is tried.
bool may_be_saved(const setup& where, const journal& content) {
    const std::map<std::string, std::string> now = document_files(where, content.former);
    return std::any_of(content.former.entries.begin(), content.former.entries.end(),
                       [&](const former_setting& one) {
                           const std::string document = document_of(one.path);
                           const auto then = content.files.find(document);
                           const auto today = now.find(document);
                           return then == content.files.end() || today == now.end() ||
                                  then->second != today->second;
                       });
}

// A worker that has been started anew holds what flash does. Looked at document by document: of one
// whose every setting is as before nothing is being tried any more.
//
// Return: VELTRANCORD_OK, or what the exchange gave.
int32_t look_for_loss(veltrancord_client& client, const journal& content, bool& lost) {
    std::map<std::string, bool> all_former;
    for (const former_setting& one : content.former.entries) {
        bool& former = all_former.emplace(document_of(one.path), true).first->second;
        held now = held::former;
        const int32_t result = former ? look_again(client, one, now) : VELTRANCORD_OK;
        if (result < 0) {
            return result;
        }
        former = former && now == held::former;
    }
    lost = std::any_of(all_former.begin(), all_former.end(),
                       [](const auto& document) { return document.second; });
    return VELTRANCORD_OK;
}

bool is_over(const journal& content) {
    return content.boot != boot_name() || boot_milliseconds() >= content.deadline;
}

// ---- Finishing what was decided: with the lock, and the journal under its name ----

verdict finish_returning(veltrancord_client& client, const setup& where, trial_folder& folder,
                         const journal& content, ending& how) {
    std::vector<std::string> failed;
    const int32_t result = put_back(client, content.former, may_be_saved(where, content), failed);
    if (result < 0) {
        return service_trouble(result, "");
    }
    how = failed.empty() ? ending::given_back : ending::partly_given_back;
    return folder.end(phase::returning, how) ? verdict{} : system_trouble(where.folder);
}

// What a new worker has lost before it could be saved is written again.
int32_t write_what_was_lost(veltrancord_client& client, const former_settings& former) {
    former_settings lost;
    for (const former_setting& one : former.entries) {
        held now = held::changed;
        const int32_t result = look_again(client, one, now);
        if (result < 0) {
            return result;
        }
        if (now == held::former) {
            lost.entries.push_back(one);
        }
    }
    return lost.entries.empty() ? VELTRANCORD_OK : write_changes(client, lost, true);
}

verdict finish_keeping(veltrancord_client& client, const setup& where, trial_folder& folder,
                       const journal& content, ending& how) {
    int32_t result = veltrancord_sync_memory(&client);
    if (result >= 0) {
        result = write_what_was_lost(client, content.former);
    }
    if (result < 0) {
        return service_trouble(result, "");
    }
    how = ending::kept;
    return folder.end(phase::keeping, how) ? verdict{} : system_trouble(where.folder);
}

verdict finish(veltrancord_client& client, const setup& where, trial_folder& folder, phase decision,
               ending& how) {
    std::string text;
    journal content;
    if (!folder.read_journal(decision, text)) {
        return system_trouble(where.folder);
    }
    if (!parse_journal(text, content)) {
        return {trouble::damaged, where.folder};
    }
    return decision == phase::keeping ? finish_keeping(client, where, folder, content, how)
                                      : finish_returning(client, where, folder, content, how);
}

// ---- Deciding ----

// Another user's trial is finished by its guard.
verdict wait_for_guard(const setup& where, trial_folder& folder, ino_t journal, int milliseconds,
                       ending& how) {
    const int64_t end = boot_milliseconds() + milliseconds;
    folder.unlock();
    while (folder.look().journal == journal) {
        if (!folder.is_guarded()) {
            return {trouble::foreign, where.folder};
        }
        if (milliseconds >= 0 && boot_milliseconds() >= end) {
            return service_trouble(VELTRANCORD_TIMED_OUT, "");
        }
        pause_for(glance);
    }
    how = folder.how_ended(journal);
    return {};
}

// Opens the folder, where a trial may be, and locks it.
verdict enter(trial_folder& folder, const setup& where, int timeout_ms) {
    if (!folder.open(where.folder)) {
        return errno == ENOENT ? verdict{trouble::nothing, where.folder}
                               : system_trouble(where.folder);
    }
    return folder.lock(timeout_ms) ? verdict{} : system_trouble(where.folder);
}

verdict decide(veltrancord_client& client, const setup& where, std::optional<ino_t> journal,
               phase decision, ending& how) {
    trial_folder folder;
    if (verdict entered = enter(folder, where, client.timeout_ms); !entered.good()) {
        return entered;
    }
    const trial_folder::found found = folder.look();
    if (found.how_far == phase::none || (journal && *journal != found.journal)) {
        return {trouble::nothing, where.folder};
    }
    if (found.how_far != phase::waiting && found.how_far != decision) {
        return {trouble::decided, where.folder};
    }
    const bool readable = static_cast<bool>(folder.hold_journal(found.how_far)) || errno != EACCES;
    if (!readable && !folder.is_guarded()) {
        return {trouble::foreign, where.folder};
    }
    if (found.how_far != decision && !folder.set_phase(found.how_far, decision)) {
        return system_trouble(where.folder);
    }
    return readable ? finish(client, where, folder, decision, how)
                    : wait_for_guard(where, folder, found.journal, client.timeout_ms, how);
}

// ---- Beginning ----

bool start_guard(const setup& where, const trial_folder& folder) {
    std::vector<std::string> words = where.guard;
    words.push_back(where.folder);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    program_start start;
    start.path = where.guard_program.c_str();
    start.arguments = arguments.data();
    start.environment = environ;
    const pid_t child = start_program(start);
    if (child < 0) {
        return false;
    }
    // Its status may be lost to a caller that has its children reaped; the guard's lock is not.
    (void)uninterrupted([child] { return ::waitpid(child, nullptr, 0); });
    return folder.is_guarded();
}

// Looks at the places, and whether they are what the caller thinks. Nothing is changed.
verdict prepare(veltrancord_client& client, const setup& where, const std::vector<change>& changes,
                journal& content) {
    std::string failed;
    const int32_t result = look_at_former(client, changes, content.former, failed);
    if (result < 0) {
        return service_trouble(result, failed);
    }
    for (std::size_t index = 0; index < changes.size(); ++index) {
        const former_setting& found = content.former.entries[index];
        if (!is_expected(found, changes[index])) {
            return {trouble::differs, found.path};
        }
        if (!can_be_put_back(found)) {
            return {trouble::not_writable, found.path};
        }
    }
    content.files = document_files(where, content.former);
    content.boot = boot_name();
    return {};
}

// After a write that has failed: what of it holds goes at once. When the service does not answer
// the guard goes on trying.
verdict undo_begin(veltrancord_client& client, const setup& where, trial_folder& folder,
                   const journal& content, int32_t result) {
    const std::size_t index = client.error.index;
    std::string about = result <= VELTRANCORD_INVALID_USE && index < content.former.entries.size()
                            ? content.former.entries[index].path
                            : first_not_changed(client, content.former);
    if (about.empty()) {
        about = content.former.entries.front().path;
    }
    const veltrancord_error error = client.error;
    ending how = ending::unknown;
    if (folder.set_phase(phase::waiting, phase::returning)) {
        (void)finish_returning(client, where, folder, content, how);
    }
    client.error = error;
    return service_trouble(result, std::move(about));
}

}  // namespace

bool ticket::is_over() const {
    return folder_.look().journal != journal_;
}

ending ticket::how_ended() const {
    return folder_.how_ended(journal_);
}

int64_t ticket::milliseconds_left() const {
    return std::max<int64_t>(0, deadline_ - boot_milliseconds());
}

verdict begin(veltrancord_client& client, const setup& where, const std::vector<change>& changes,
              int seconds, ticket& made) {
    trial_folder& folder = made.folder_;
    if (!folder.open(where.folder) || !folder.lock(client.timeout_ms)) {
        return system_trouble(where.folder);
    }
    if (folder.look().how_far != phase::none) {
        folder.unlock();
        return {trouble::another, where.folder};
    }
    journal content;
    verdict outcome = prepare(client, where, changes, content);
    if (outcome.good()) {
        made.deadline_ = boot_milliseconds() + seconds * in_a_second;
        content.deadline = made.deadline_;
        if (!folder.put_journal(journal_text(content))) {
            outcome = system_trouble(where.folder);
        }
    }
    if (outcome.good()) {
        made.journal_ = folder.look().journal;
        made.held_ = folder.hold_journal(phase::waiting);
        if (!start_guard(where, folder)) {
            (void)folder.end(phase::waiting, ending::given_back);
            outcome = {trouble::no_guard, where.guard_program};
        }
    }
    if (outcome.good()) {
        const int32_t result = write_changes(client, content.former, false);
        if (result < 0) {
            outcome = undo_begin(client, where, folder, content, result);
        }
    }
    folder.unlock();
    return outcome;
}

verdict keep(veltrancord_client& client, const setup& where, std::optional<ino_t> journal,
             ending& how) {
    return decide(client, where, journal, phase::keeping, how);
}

verdict give_back(veltrancord_client& client, const setup& where, std::optional<ino_t> journal,
                  ending& how) {
    return decide(client, where, journal, phase::returning, how);
}

verdict resume(veltrancord_client& client, const setup& where, ending& how) {
    trial_folder folder;
    if (verdict entered = enter(folder, where, client.timeout_ms); !entered.good()) {
        return entered;
    }
    const trial_folder::found found = folder.look();
    if (found.how_far == phase::none) {
        return {trouble::nothing, where.folder};
    }
    phase decision = found.how_far;
    if (decision == phase::waiting) {
        std::string text;
        journal content;
        if (!folder.read_journal(phase::waiting, text)) {
            return system_trouble(where.folder);
        }
        if (!parse_journal(text, content)) {
            return {trouble::damaged, where.folder};
        }
        bool lost = !folder.is_guarded() || is_over(content);
        const int32_t result = lost ? VELTRANCORD_OK : look_for_loss(client, content, lost);
        if (result < 0) {
            return service_trouble(result, "");
        }
        if (!lost) {
            return {};
        }
        decision = phase::returning;
        if (!folder.set_phase(phase::waiting, decision)) {
            return system_trouble(where.folder);
        }
    }
    return finish(client, where, folder, decision, how);
}

verdict guard(veltrancord_client& client, const setup& where, void (*ready)(),
              const volatile std::sig_atomic_t& stop) {
    trial_folder folder;
    if (!folder.open(where.folder) || !folder.become_guard()) {
        return system_trouble(where.folder);
    }
    const trial_folder::found first = folder.look();
    const owned_fd held = folder.hold_journal(first.how_far);
    std::string text;
    journal content;
    if (!held || !folder.read_journal(first.how_far, text)) {
        return system_trouble(where.folder);
    }
    if (!parse_journal(text, content)) {
        return {trouble::damaged, where.folder};
    }
    ready();
    for (int glances = 1;; ++glances) {
        const trial_folder::found now = folder.look();
        if (now.journal != first.journal) {
            return {};
        }
        ending how = ending::unknown;
        bool lost = stop != 0 || is_over(content);
        // Not while somebody is at it: between the journal and the write all is as before.
        if (!lost && now.how_far == phase::waiting && glances % glances_a_look == 0 &&
            folder.lock(0)) {
            lost = look_for_loss(client, content, lost) >= 0 && lost;
            folder.unlock();
        }
        verdict outcome;
        if (now.how_far == phase::keeping) {
            outcome = keep(client, where, first.journal, how);
        } else if (lost || now.how_far == phase::returning) {
            outcome = give_back(client, where, first.journal, how);
        }
        if (outcome.what == trouble::nothing || (!outcome.good() && stop != 0)) {
            return outcome;
        }
        pause_for(outcome.good() ? glance : in_a_second);
    }
}

verdict look(const setup& where, state& found) {
    trial_folder folder;
    if (!folder.open(where.folder)) {
        return errno == ENOENT ? verdict{} : system_trouble(where.folder);
    }
    const trial_folder::found now = folder.look();
    found.how_far = now.how_far;
    found.owner = now.owner;
    found.guarded = folder.is_guarded();
    std::string text;
    journal content;
    if (now.how_far != phase::none && folder.read_journal(now.how_far, text) &&
        parse_journal(text, content)) {
        found.milliseconds_left = content.boot == boot_name()
                                      ? std::max<int64_t>(0, content.deadline - boot_milliseconds())
                                      : 0;
    }
    return {};
}

}  // namespace veltrancord::trial
