// For tests: calls of handlers as the dispatcher makes them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "access/sessions.h"
#include "handler/handler.h"

namespace veltrancord {

// A connection to a worker without any session, and what the last call did.
class handler_call {
  public:
    handler_call() {
        listener_.sessions = &sessions;
        connection_.listener = &listener_;
    }

    int32_t operator()(command_handler* handler, std::string_view text) {
        argument_ = text;
        return call(handler, {argument_.data(), argument_.size()});
    }

    int32_t without_argument(command_handler* handler) { return call(handler, {}); }

    // What was printed on standard error; the reply text.
    [[nodiscard]] const std::string& printed() const { return printed_; }
    [[nodiscard]] std::string_view reply() const { return connection_.reply.view(); }
    [[nodiscard]] bool has_reply() const { return connection_.reply.is_open(); }

    session_lists sessions;

  private:
    int32_t call(command_handler* handler, command_argument argument) {
        connection_.reply.close();
        testing::internal::CaptureStderr();
        const int32_t result = handler(connection_, argument, 0);
        printed_ = testing::internal::GetCapturedStderr();
        return result;
    }

    listener_record listener_;
    connection_record connection_;
    std::string argument_;
    std::string printed_;
};

}  // namespace veltrancord
