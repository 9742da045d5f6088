#include "update/exchange_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "leaf/message.h"
#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "leaf/whole_io.h"
#include "store/document_set.h"
#include "xml/text.h"

namespace veltrancord {

namespace {

// Documents are collected up to about this many bytes before they are written.
constexpr std::size_t write_block = std::size_t{64} * 1024;

// Return: the first `size` bytes of the file and a NUL, or null when there are fewer.
std::unique_ptr<char[]> read_text(int fd, std::size_t size) {
    std::unique_ptr<char[]> text(new (std::nothrow) char[size + 1]);
    if (text == nullptr || read_whole(fd, text.get(), size) != static_cast<ssize_t>(size)) {
        return nullptr;
    }
    text[size] = '\0';
    return text;
}

// Return: false with errno set. Empties `text`.
bool write_out(int fd, std::string& text) {
    const bool written = write_whole(fd, text);
    text.clear();
    return written;
}

bool write_documents(int fd) {
    std::string text = "<ROOT>\n";
    for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc == nullptr) {
            continue;
        }
        PrintXml(*node->doc, 1, text);
        if (text.size() >= write_block && !write_out(fd, text)) {
            return false;
        }
    }
    text += "</ROOT>";
    return write_out(fd, text);
}

}  // namespace

bool load_exchange_file(const char* path, XmlDocument& exchange) {
    const owned_fd file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size <= 0 || status.st_size >= std::numeric_limits<int32_t>::max()) {
        return false;
    }
    const auto text = read_text(file.get(), static_cast<std::size_t>(status.st_size));
    return text != nullptr && exchange.LoadXMLFile(text.get());
}

int32_t write_exchange_file(const char* path) {
    // Neither a pipe without a reader nor a full one may hold the service up.
    owned_fd file(::open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK | O_NOCTTY,
                         S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH));
    if (!file) {
        return result_failed;
    }
    if (!write_documents(file.get())) {
        print_error("write_exchange_file %s error : %s\n", path, std::strerror(errno));
        // Where it is no regular file, what is out is out.
        static_cast<void>(::ftruncate(file.get(), 0) == 0);
        return result_failed;
    }
    return file.close() == 0 ? result_ok : result_failed;
}

}  // namespace veltrancord
