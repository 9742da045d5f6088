#include "whole_file.h"

#include <array>
#include <cstdio>
#include <memory>

namespace veltrancord::bench {

namespace {

struct close_file {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

std::string read_whole(const std::string& path) {
    std::string text;
    const std::unique_ptr<std::FILE, close_file> file(std::fopen(path.c_str(), "rbe"));
    if (!file) {
        return text;
    }
    std::array<char, 65536> block{};
    for (;;) {
        const std::size_t count = std::fread(block.data(), 1, block.size(), file.get());
        if (count == 0) {
            return text;
        }
        text.append(block.data(), count);
    }
}

}  // namespace veltrancord::bench
