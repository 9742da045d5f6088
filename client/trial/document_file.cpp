#include "trial/document_file.h"

#include <sys/stat.h>

#include <cinttypes>
#include <cstdio>

namespace veltrancord::trial {

std::string file_identity(const std::string& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        return {};
    }
    char text[160];
    std::snprintf(text, sizeof text, "%ju:%ju:%jd:%jd.%09ld:%jd.%09ld",
                  static_cast<uintmax_t>(status.st_dev), static_cast<uintmax_t>(status.st_ino),
                  static_cast<intmax_t>(status.st_size),
                  static_cast<intmax_t>(status.st_mtim.tv_sec), long{status.st_mtim.tv_nsec},
                  static_cast<intmax_t>(status.st_ctim.tv_sec), long{status.st_ctim.tv_nsec});
    return text;
}

}  // namespace veltrancord::trial
