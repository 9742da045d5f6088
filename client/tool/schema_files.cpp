#include "schema_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "leaf/file_replacer.h"
#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "leaf/whole_io.h"

namespace veltrancord::tool {

bool document_names(const std::string& directory, std::vector<std::string>& names) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory.c_str()), closedir);
    while (entries) {
        const dirent* const entry = readdir(entries.get());
        if (entry == nullptr) {
            break;
        }
        const std::string name = entry->d_name;
        struct stat status {};
        if (name.front() != '.' && fstatat(dirfd(entries.get()), name.c_str(), &status, 0) == 0 &&
            S_ISREG(status.st_mode)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return entries != nullptr;
}

bool create_file(const std::string& file, const std::string& text) {
    constexpr mode_t mode = 0644;
    owned_fd fd(open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!fd) {
        return false;
    }
    if (write_whole(fd.get(), text) && fd.close() == 0) {
        return true;
    }
    const int reason = errno;
    (void)unlink(file.c_str());  // half a description would look like a whole one
    errno = reason;
    return false;
}

bool make_file(const std::string& file, const std::string& text) {
    file_replacement replacement;
    return replacement.prepare(file.c_str(), text) == result_ok &&
           replacement.commit() == result_ok;
}

}  // namespace veltrancord::tool
