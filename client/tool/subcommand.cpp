#include "subcommand.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <utility>

namespace veltrancord::tool {

argument argument::required() {
    option_->required();
    return *this;
}

argument argument::between(int least, int most) {
    option_->check(CLI::Range(least, most));
    return *this;
}

subcommand subcommand::add_subcommand(const std::string& name, const std::string& description) {
    return subcommand(*app_->add_subcommand(name, description));
}

argument subcommand::add_option(const std::string& name, std::string& target,
                                const std::string& help) {
    return argument(*app_->add_option(name, target, help));
}

argument subcommand::add_option(const std::string& name, std::vector<std::string>& target,
                                const std::string& help) {
    return argument(*app_->add_option(name, target, help));
}

argument subcommand::add_option(const std::string& name, int& target, const std::string& help) {
    return argument(*app_->add_option(name, target, help));
}

argument subcommand::add_option(const std::string& name, int64_t& target, const std::string& help) {
    return argument(*app_->add_option(name, target, help));
}

argument subcommand::add_option(const std::string& name, std::size_t& target,
                                const std::string& help) {
    return argument(*app_->add_option(name, target, help));
}

argument subcommand::add_option(const std::string& name, std::optional<std::string>& target,
                                const std::string& help) {
    return argument(*app_->add_option(name, target, help));
}

argument subcommand::add_option(const std::string& name, std::optional<int>& target,
                                const std::string& help) {
    return argument(*app_->add_option(name, target, help));
}

void subcommand::add_flag(const std::string& name, bool& target, const std::string& help) {
    app_->add_flag(name, target, help);
}

void subcommand::fallthrough() {
    app_->fallthrough();
}

void subcommand::require_subcommand(int count) {
    app_->require_subcommand(count);
}

void subcommand::callback(std::function<void()> chosen) {
    app_->callback(std::move(chosen));
}

bool subcommand::subcommand_was_given() const {
    return !app_->get_subcommands().empty();
}

}  // namespace veltrancord::tool
