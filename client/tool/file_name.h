// Names of files that the service opens for us: it has another working directory and other input.
#pragma once

#include <sys/types.h>

#include <string>

namespace veltrancord::tool {

// The name with the working directory before it when it is relative.
std::string absolute_name(const std::string& name);

// A file that the service is to fill, made first if it is not there: ours, and for nobody else to
// read, as it holds secrets. One that is there keeps its mode and owner. Goes with this object
// unless it is kept.
class target_file {
  public:
    explicit target_file(const std::string& name);
    ~target_file() { remove(); }
    target_file(const target_file&) = delete;
    target_file& operator=(const target_file&) = delete;
    target_file(target_file&&) = delete;
    target_file& operator=(target_file&&) = delete;

    // With errno set where not.
    [[nodiscard]] bool is_there() const { return is_there_; }
    [[nodiscard]] bool is_new() const { return !made_.empty(); }
    void keep() { made_.clear(); }
    void remove();

  private:
    bool is_there_ = false;
    std::string made_;
};

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
