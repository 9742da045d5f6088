// Which files of some directories were replaced or removed, as the kernel tells it.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "leaf/owned_fd.h"

namespace veltrancord::bridge {

class directory_watch {
  public:
    // Called for each change with the number that add() gave and the file's name; with an empty
    // name where anything may have changed.
    using change_handler = std::function<void(int directory, std::string_view name)>;

    directory_watch();

    // Return: the directory's number, or -1 with errno set.
    [[nodiscard]] int add(const std::string& directory);

    // For poll().
    [[nodiscard]] int descriptor() const { return notifier_.get(); }

    // Takes what has happened, without waiting. Return: false when a directory itself has gone.
    [[nodiscard]] bool take(const change_handler& changed);

  private:
    owned_fd notifier_;
};

}  // namespace veltrancord::bridge
