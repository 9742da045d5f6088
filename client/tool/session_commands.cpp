// session set, session check, captcha set, captcha check, captcha refresh, captcha delete.
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "commands.h"
#include "exit_status.h"
#include "question.h"

namespace veltrancord::tool {
namespace {

// A session's token and a captcha's text let somebody in: they come from standard input or a file.
struct secret_options {
    std::string file = "-";
    std::string code;
    int32_t lifetime = VELTRANCORD_DEFAULT_LIFETIME;
    bool remove = false;
};

using secret_call = int32_t(veltrancord_client& client, const secret_options& options,
                            const std::string& secret);

int run_secret(context& tool, const std::string& what, const secret_options& options,
               secret_call* call) {
    std::string secret;
    if (!read_secret(what, options.file, secret)) {
        return errno == ECANCELED
                   ? tool.fail_with(exit_cancelled, options.file, std::strerror(errno))
                   : tool.fail_file(options.file);
    }
    const int32_t result = call(tool.client(), options, secret);
    if (result != VELTRANCORD_OK) {
        return tool.fail(options.code.empty() ? what : options.code, result);
    }
    return exit_done;
}

int32_t set_session(veltrancord_client& client, const secret_options& /*options*/,
                    const std::string& token) {
    // What is 0 or above tells no more than that it was set.
    const int32_t result = veltrancord_set_session(&client, token.c_str());
    return result > 0 ? VELTRANCORD_OK : result;
}

int32_t check_session(veltrancord_client& client, const secret_options& options,
                      const std::string& token) {
    return veltrancord_check_session(&client, token.c_str(), options.lifetime);
}

int32_t set_captcha(veltrancord_client& client, const secret_options& options,
                    const std::string& captcha) {
    return veltrancord_set_captcha(&client, options.code.c_str(), captcha.c_str());
}

int32_t check_captcha(veltrancord_client& client, const secret_options& options,
                      const std::string& captcha) {
    return veltrancord_compare_captcha(&client, options.code.c_str(), captcha.c_str(),
                                       options.remove ? 1 : 0, options.lifetime);
}

int32_t refresh_captcha(veltrancord_client& client, const secret_options& options,
                        const std::string& captcha) {
    return veltrancord_refresh_captcha(&client, options.code.c_str(), captcha.c_str());
}

int32_t delete_captcha(veltrancord_client& client, const secret_options& options,
                       const std::string& captcha) {
    return veltrancord_delete_captcha(&client, options.code.c_str(), captcha.c_str());
}

subcommand add_secret_command(subcommand group, context& tool, const std::string& name,
                              const std::string& description, const std::string& what,
                              const std::shared_ptr<secret_options>& options, secret_call* call) {
    subcommand command = group.add_subcommand(name, description);
    command.fallthrough();
    command.add_option("--file", options->file, "read it from this file, not standard input");
    command.callback([&tool, options, what, call] {
        tool.run = [&tool, options, what, call] { return run_secret(tool, what, *options, call); };
    });
    return command;
}

void add_captcha_command(subcommand group, context& tool, const std::string& name,
                         const std::string& description, secret_call* call) {
    const auto options = std::make_shared<secret_options>();
    subcommand command =
        add_secret_command(group, tool, name, description, "captcha", options, call);
    command.add_option("CODE", options->code, "the verify code").required();
    if (call == check_captcha) {
        command.add_option("--lifetime", options->lifetime, "seconds, 30 when not given");
        command.add_flag("--remove", options->remove, "forget it after a match");
    }
}

}  // namespace

void add_session_commands(subcommand app, context& tool) {
    subcommand session = app.add_subcommand("session", "login sessions; the token is read");
    session.require_subcommand(1);
    session.fallthrough();
    add_secret_command(session, tool, "set", "keep a token", "session",
                       std::make_shared<secret_options>(), set_session);
    const auto check = std::make_shared<secret_options>();
    add_secret_command(session, tool, "check", "whether a token is valid", "session", check,
                       check_session)
        .add_option("--lifetime", check->lifetime, "seconds, 60 when not given");

    subcommand captcha = app.add_subcommand("captcha", "captchas; their text is read");
    captcha.require_subcommand(1);
    captcha.fallthrough();
    add_captcha_command(captcha, tool, "set", "keep a captcha", set_captcha);
    add_captcha_command(captcha, tool, "check", "compare an answer", check_captcha);
    add_captcha_command(captcha, tool, "refresh", "begin its time anew", refresh_captcha);
    add_captcha_command(captcha, tool, "delete", "forget a captcha", delete_captcha);
}

}  // namespace veltrancord::tool
