// Names of files that the service opens for us: it has another working directory and other input.
#pragma once

#include <sys/types.h>

#include <string>

namespace veltrancord::tool {

// The name with the working directory before it when it is relative.
std::string absolute_name(const std::string& name);

// A file that the service can read: the named one, or for "-" standard input in a temporary file
// that goes with this object.
class service_file {
  public:
    explicit service_file(const std::string& name);

    // A temporary file with this text, which everybody may read: for texts without secrets.
    static service_file with_text(const std::string& text);

    ~service_file();
    service_file(const service_file&) = delete;
    service_file& operator=(const service_file&) = delete;
    service_file(service_file&&) = delete;
    service_file& operator=(service_file&&) = delete;

    // Empty with errno set when standard input or the text could not be spooled.
    [[nodiscard]] const std::string& name() const { return name_; }

  private:
    service_file(const std::string& text, mode_t mode) { spool(text, mode); }
    void spool(const std::string& text, mode_t mode);

    std::string name_;
    std::string temporary_name_;
};

}  // namespace veltrancord::tool
