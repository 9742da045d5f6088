// The guard: asks the access file about every client and every command, where there is such a file.
//
// Without the file nothing is asked, kept or refused. With one that is not to be obeyed, or for
// which there is no memory, root and the service's own user alone are served. How rules are written
// is told in guard/policy.h. This is the one place where the service asks who its client is.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

#include "guard/credentials.h"
#include "guard/policy.h"
#include "guard/trail.h"
#include "guard/users.h"
#include "handler/gate.h"

namespace veltrancord {

// What the guard goes by. Pointers are borrowed for its life.
struct guard_setup {
    const char* policy_path = nullptr;
    const char* log_path = nullptr;  // of the system log's socket
    account_lookup accounts;
    uid_t own_user = 0;  // the service's
    bool (*credentials)(int fd, const overflow_ids& overflow,
                        peer_credentials& peer) = read_credentials;
    void (*groups)(int fd, const overflow_ids& overflow, peer_credentials& peer) = read_groups;
    int64_t (*now)() = nullptr;  // milliseconds, monotonic
};

// That of the device: the build's access file, /dev/log, the system's accounts and clock.
[[nodiscard]] guard_setup device_guard_setup() noexcept;

struct guarded_client;
struct guarded_request;

// Loaded by the main thread before the server thread starts, used by that one alone then.
class access_guard final : public command_gate {
  public:
    explicit access_guard(const guard_setup& setup) : setup_(setup), log_(setup.log_path) {}

    // Reads the access file; again after each SyncPermit. What is wrong with it is printed, a line
    // for each mistake, and nothing of the file counts then.
    void load() noexcept;

    [[nodiscard]] bool admit(const gate_visitor& visitor, std::size_t places) noexcept override;
    [[nodiscard]] int payload_time(const gate_visitor& visitor) noexcept override;
    [[nodiscard]] int32_t run(const gate_visitor& visitor, const gated_command& command,
                              connection_record& connection) override;

  private:
    enum class mode : uint8_t {
        open,    // no access file
        closed,  // one that is not obeyed: root and the service's own user alone are served
        ruled,
    };

    // What permissive mode has told is remembered so far, to be told once.
    static constexpr std::size_t max_told = 512;

    void take(access_policy policy, mode how);
    [[nodiscard]] guarded_client* meet(const gate_visitor& visitor);
    [[nodiscard]] bool has_place(const guarded_client& client, std::size_t places);
    [[nodiscard]] bool is_privileged(const guarded_client& client) const noexcept;

    [[nodiscard]] int32_t run_guarded(const gate_visitor& visitor, const gated_command& command,
                                      connection_record& connection);
    [[nodiscard]] int32_t run_recorded(guarded_request& request, const gated_command& command,
                                       connection_record& connection);
    [[nodiscard]] int32_t run_handler(guarded_request& request, const gated_command& command,
                                      connection_record& connection);

    void judge(guarded_request& request);
    void judge_file(guarded_request& request);
    void judge_privileged_file(guarded_request& request);
    void refuse_place(guarded_request& request);
    [[nodiscard]] bool judge_need(guarded_request& request, const access_need& need);
    [[nodiscard]] bool allows(guarded_client& client, const access_need& need);
    [[nodiscard]] bool allows_this(guarded_client& client, const access_need& need);
    [[nodiscard]] bool allows_somewhere(guarded_client& client, command_class which);
    [[nodiscard]] static bool may_show_secret(void* request, std::string_view document);

    [[nodiscard]] std::string name_of(const guarded_client& client) const;
    void tell_need(const guarded_client& client, const access_need& need);
    void refuse(guarded_request& request);
    [[nodiscard]] std::unique_ptr<trail_record> begin_record(const guarded_request& request,
                                                             trail_kind kind);

    guard_setup setup_;
    mode mode_ = mode::open;
    access_policy policy_;
    overflow_ids overflow_;
    user_table users_;
    std::unordered_set<std::size_t> told_;  // hashes of lines
    system_log log_;
};

}  // namespace veltrancord
