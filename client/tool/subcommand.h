// How the groups of commands say what the command line takes. The parser's own headers take a
// compiler longer than all the rest of a group, so no group sees them: only subcommand.cpp,
// main.cpp and completion.cpp do.
//
// A new command needs a row in command_help.cpp, too: its heading in the list of commands, its
// examples, the exit statuses that it may end with, and whether it works with --root. A test tells
// which command has none, and runs the examples.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace veltrancord::tool {

// An argument or option that was just added; may be copied.
class argument {
  public:
    explicit argument(CLI::Option& option) : option_(&option) {}

    argument required();

    // Only numbers from `least` to `most` are taken.
    argument between(int least, int most);

  private:
    CLI::Option* option_;
};

// A command of the command line, the tool itself being the outermost; may be copied, and lives as
// long as the parser does. What is added writes into `target`, which must outlive the parse. Names
// that begin with "-" are options, others are arguments taken in the order of their adding.
class subcommand {
  public:
    explicit subcommand(CLI::App& app) : app_(&app) {}

    subcommand add_subcommand(const std::string& name, const std::string& description);

    argument add_option(const std::string& name, std::string& target, const std::string& help);
    argument add_option(const std::string& name, std::vector<std::string>& target,
                        const std::string& help);
    argument add_option(const std::string& name, int& target, const std::string& help);
    argument add_option(const std::string& name, int64_t& target, const std::string& help);
    argument add_option(const std::string& name, std::size_t& target, const std::string& help);
    argument add_option(const std::string& name, std::optional<std::string>& target,
                        const std::string& help);
    argument add_option(const std::string& name, std::optional<int>& target,
                        const std::string& help);
    void add_flag(const std::string& name, bool& target, const std::string& help);

    // Options that this command does not know are looked up in the one around it.
    void fallthrough();

    // One of its subcommands has to be given, and no more than `count`.
    void require_subcommand(int count);

    // Called when the command was chosen and all arguments are in their places.
    void callback(std::function<void()> chosen);

    // Once the line has been parsed: whether one of its subcommands was given.
    [[nodiscard]] bool subcommand_was_given() const;

  private:
    CLI::App* app_;
};

}  // namespace veltrancord::tool
