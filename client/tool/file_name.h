// Names of files that the service opens for us: it has another working directory and other input.
#pragma once

#include <string>

namespace veltrancord::tool {

// The name with the working directory before it when it is relative.
std::string absolute_name(const std::string& name);

// A file that the service can read: the named one, or for "-" standard input in a temporary file
// that goes with this object.
class service_file {
  public:
    explicit service_file(const std::string& name);
    ~service_file();
    service_file(const service_file&) = delete;
    service_file& operator=(const service_file&) = delete;
    service_file(service_file&&) = delete;
    service_file& operator=(service_file&&) = delete;

    // Empty with errno set when standard input could not be spooled.
    [[nodiscard]] const std::string& name() const { return name_; }

  private:
    std::string name_;
    std::string temporary_name_;
};

}  // namespace veltrancord::tool
