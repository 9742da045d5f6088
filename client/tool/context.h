// What every command of the tool gets: the client, the general options, and the ways to speak.
#pragma once

#include <veltrancord/client.h>

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "setting.h"

namespace veltrancord::schema {
class description_set;
}  // namespace veltrancord::schema

namespace veltrancord::tool {

enum class output_form { text, json, shell };

using json = nlohmann::ordered_json;

// Set by -q: notes are left out, which any part of the tool prints.
inline bool g_quiet = false;

class context {
  public:
    // Options that all commands share; set while the command line is parsed.
    std::string socket_path;
    double timeout_seconds = VELTRANCORD_DEFAULT_TIMEOUT_MS / 1000.0;
    output_form form = output_form::text;
    bool null_separated = false;
    bool reveal = false;
    bool assume_yes = false;
    bool dry_run = false;  // of commands that have this option: change nothing
    bool verbose = false;
    bool no_pager = false;
    bool may_colour = true;
    std::string backup_file;

    // With --root: the directory of documents to work on, in place of the service.
    std::string root;

    // The key of stored secrets, empty: the one that the tool was built with.
    std::string key;

    // The directory of the descriptions of settings.
    std::string schema_directory;

    // What is written is against the description, as was asked for; the history tells it.
    bool forced = false;

    // How many mistakes of descriptions have been told.
    std::size_t mistakes_told = 0;

    // The command line as it was typed, for the history; it holds no secret.
    std::string command_line;

    // The command that was chosen; its result is the exit status.
    std::function<int()> run;

    // The client with the options above.
    veltrancord_client& client();

    // The descriptions in that directory; those of a document are read when they are asked for.
    schema::description_set& descriptions();

    // Standard output, gathered so that it can be paged as a whole. Return: `status`, or a failure
    // when it could not be written.
    void print(std::string_view text) { output_.append(text); }
    void print_json(const json& value);

    // Prints an answer that is an object, a list of objects or both in one, for a program: as JSON,
    // or as a shell's assignments. A list gives one line for each of its objects. Return: false
    // where people read it, and nothing has been printed.
    bool print_for_programs(const json& value);

    // What ends a line of the output: a line feed, or with -0 a NUL byte.
    void end_line();

    int finish(int status);

    // Prints at once, for what goes on for ever. Return: false when it could not be written.
    [[nodiscard]] static bool print_now(std::string_view text);

    // Prints settings in the form asked for, secrets masked.
    void print_settings(const setting_list& settings);

    // Whether standard output is a terminal that may be coloured; `text` in that colour, marked as
    // terminal_text.h says, or plain.
    [[nodiscard]] bool colours() const;
    [[nodiscard]] std::string coloured(const char* sequence, std::string_view text) const;

    // Says on standard error what went wrong with `subject` and why. Return: the exit status.
    int fail(std::string_view subject, int32_t result);
    int fail_with(int status, std::string_view subject, std::string_view reason);

    // The same with more that a program gets: `details` are members of the error.
    int fail_with(int status, std::string_view subject, std::string_view reason,
                  const json& details);

    // The same for a file or directory, with the reason that errno gives: one exit status for
    // whatever cannot be read or written, whichever command it is.
    int fail_file(std::string_view name);

    // The same for a command that changes something: where no reply came, it says that it is
    // unknown whether the change was applied. A service that was busy may apply it later.
    int fail_change(std::string_view subject, int32_t result);

    // Says something on standard error that is no failure; nothing with -q.
    static void note(std::string_view text);

    // The same where -v asks for it.
    void detail(std::string_view text) const;

  private:
    [[nodiscard]] std::string_view line_end() const;
    // What went wrong, as the client or the result tells it.
    std::string reason_of(int32_t result);
    int print_failure(int status, std::string_view subject, const json& code, const char* name,
                      std::string_view reason, const json* details = nullptr) const;

    veltrancord_client client_ = VELTRANCORD_CLIENT_INIT;
    std::shared_ptr<schema::description_set> descriptions_;
    std::string output_;
};

// The name of a variable of a shell for a path: "Account.User1" gives "Account_User1".
std::string shell_name(std::string_view path);

// JSON on one line. Bytes that are no UTF-8 are shown as the replacement character.
std::string one_line(const json& value);

// Text in single quotes for a shell.
std::string shell_quoted(std::string_view text);

// An answer as a shell's assignments, each line ended by `end`: each member of an object on a line
// of its own, the members of an object in a list on one line, texts in a list joined by commas.
std::string shell_assignments(const json& value, std::string_view end);

}  // namespace veltrancord::tool
