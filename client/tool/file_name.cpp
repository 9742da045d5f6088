#include "file_name.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "leaf/owned_fd.h"
#include "pager.h"
#include "question.h"

namespace veltrancord::tool {

std::string absolute_name(const std::string& name) {
    std::error_code failure;
    const std::filesystem::path path = std::filesystem::absolute(name, failure);
    return failure ? name : path.string();
}

target_file::target_file(const std::string& name) {
    const owned_fd file(
        open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    is_there_ = file || errno == EEXIST;
    if (file) {
        made_ = name;
    }
}

void target_file::remove() {
    if (is_new()) {
        (void)unlink(made_.c_str());
        made_.clear();
    }
}

service_file::service_file(const std::string& name) : name_(name) {
    if (name != "-") {
        name_ = absolute_name(name);
        return;
    }
    name_.clear();
    std::string text;
    if (read_input("-", text)) {
        spool(text, S_IRUSR | S_IWUSR);
    }
}

service_file service_file::with_text(const std::string& text) {
    return {text, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH};
}

void service_file::spool(const std::string& text, mode_t mode) {
    char path[] = "/tmp/veltrancordctl-XXXXXX";
    const owned_fd file(mkostemp(path, O_CLOEXEC));
    if (!file) {
        return;
    }
    temporary_name_ = path;
    if (write_whole(file.get(), text) && fchmod(file.get(), mode) == 0) {
        name_ = path;
    }
}

service_file::~service_file() {
    if (!temporary_name_.empty()) {
        (void)unlink(temporary_name_.c_str());
    }
}

}  // namespace veltrancord::tool
