// What every command of the tool gets: the client, the general options, and the ways to speak.
#pragma once

#include <veltrancord/client.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "setting.h"

namespace veltrancord::tool {

enum class output_form { text, json, shell };

using json = nlohmann::ordered_json;

class context {
  public:
    // Options that all commands share; set while the command line is parsed.
    std::string socket_path;
    double timeout_seconds = VELTRANCORD_DEFAULT_TIMEOUT_MS / 1000.0;
    output_form form = output_form::text;
    bool null_separated = false;
    bool reveal = false;
    bool assume_yes = false;
    bool no_pager = false;
    bool may_colour = true;
    std::string backup_file;

    // The command that was chosen; its result is the exit status.
    std::function<int()> run;

    // The client with the options above.
    veltrancord_client& client();

    // Standard output, gathered so that it can be paged as a whole. Return: `status`, or a failure
    // when it could not be written.
    void print(std::string_view text) { output_.append(text); }
    void print_json(const json& value);
    int finish(int status);

    // Prints settings in the form asked for, secrets masked.
    void print_settings(const setting_list& settings);

    // Whether standard output is a terminal that may be coloured; `text` in that colour or plain.
    [[nodiscard]] bool colours() const;
    [[nodiscard]] std::string coloured(const char* sequence, std::string_view text) const;

    // Says on standard error what went wrong with `subject` and why. Return: the exit status.
    int fail(std::string_view subject, int32_t result);
    int fail_with(int status, std::string_view subject, std::string_view reason);

    // Says something on standard error that is no failure.
    static void note(std::string_view text);

  private:
    veltrancord_client client_ = VELTRANCORD_CLIENT_INIT;
    std::string output_;
};

// The name of a variable of a shell for a path: "Account.User1" gives "Account_User1".
std::string shell_name(std::string_view path);

// Text in single quotes for a shell.
std::string shell_quoted(std::string_view text);

}  // namespace veltrancord::tool
