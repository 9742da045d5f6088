// A draft of an access file, from what the service has said in permissive mode.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <set>
#include <string>

#include "guard/policy.h"
#include "logged_lines.h"

namespace veltrancord::tool {

// What would have been refused, by user and class: the documents; "-": a need without one.
class access_draft {
  public:
    // Takes a line of the log; what is no such line is passed over.
    void add(const logged_line& line);

    [[nodiscard]] bool empty() const { return seen_.empty(); }

    // How many needs no line can express: clients may name documents that no file is called.
    [[nodiscard]] std::size_t left_out() const { return left_out_; }

    // The statements, in permissive mode.
    [[nodiscard]] std::string text() const;

  private:
    using needs = std::map<command_class, std::set<std::string>>;
    std::map<uid_t, needs> seen_;
    std::size_t left_out_ = 0;
};

}  // namespace veltrancord::tool
