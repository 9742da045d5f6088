#include "schema/description_set.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace veltrancord::schema {
namespace {

constexpr std::string_view suffix = ".xsd";

struct file_closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// Return: false where it cannot be read, or is larger than a description may be.
bool read_whole(const std::string& name, std::string& text) {
    const std::unique_ptr<std::FILE, file_closer> file(std::fopen(name.c_str(), "re"));
    if (!file) {
        return false;
    }
    char block[8192];
    std::size_t count = 0;
    while ((count = std::fread(block, 1, sizeof block, file.get())) > 0) {
        text.append(block, count);
        if (text.size() > max_description_size) {
            return false;
        }
    }
    return std::ferror(file.get()) == 0;
}

bool can_be_file_name(const std::string& name) {
    return !name.empty() && name.find('/') == std::string::npos && name.front() != '.';
}

}  // namespace

std::vector<std::string> description_set::documents() const {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(directory_.c_str()), closedir);
    while (entries) {
        const dirent* const entry = readdir(entries.get());
        if (entry == nullptr) {
            break;
        }
        const std::string name = entry->d_name;
        if (name.size() > suffix.size() && name.ends_with(suffix) && name.front() != '.') {
            names.push_back(name.substr(0, name.size() - suffix.size()));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

const document_description* description_set::document(const std::string& name) {
    const auto known = loaded_.find(name);
    if (known != loaded_.end()) {
        return known->second.get();
    }
    std::unique_ptr<const document_description> made;
    std::string text;
    const std::string file = directory_ + "/" + name + std::string(suffix);
    if (can_be_file_name(name)) {
        errno = 0;
        if (read_whole(file, text)) {
            made = read_description(name, file, std::move(text), mistakes_);
        } else if (errno != ENOENT && errno != ENOTDIR) {
            mistakes_.push_back({file, 0,
                                 text.size() > max_description_size
                                     ? "is larger than 4 MiB; write types for what is repeated"
                                     : "cannot be read"});
        }
    }
    return loaded_.emplace(name, std::move(made)).first->second.get();
}

std::vector<const element_description*> description_set::way_to(std::string_view path) {
    std::vector<const element_description*> way;
    for (const std::string& name : stored_components(path)) {
        const document_description* const found = way.empty() ? document(name) : nullptr;
        const element_description* const next = !way.empty()       ? way.back()->child(name)
                                                : found != nullptr ? &found->root
                                                                   : nullptr;
        if (next == nullptr) {
            return {};
        }
        way.push_back(next);
    }
    return way;
}

const element_description* description_set::find(std::string_view path) {
    const std::vector<const element_description*> way = way_to(path);
    return way.empty() ? nullptr : way.back();
}

bool description_set::is_described(std::string_view path) {
    const std::vector<std::string> names = stored_components(path);
    return !names.empty() && document(names.front()) != nullptr;
}

std::vector<std::string> stored_components(std::string_view path) {
    std::vector<std::string> names;
    while (!path.empty()) {
        const std::size_t dot = std::min(path.find('.'), path.size());
        if (dot > 0) {
            names.push_back(stored_name(path.substr(0, dot)));
        }
        path.remove_prefix(std::min(dot + 1, path.size()));
    }
    return names;
}

}  // namespace veltrancord::schema
