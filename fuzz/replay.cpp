// Feeds every file of a folder to a fuzz target: the corpus as an ordinary test, by any compiler.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_target.h"

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "Usage: %s FOLDER-OR-FILE\n", arguments[0]);
        return 2;
    }
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_regular_file(arguments[1])) {
        files.emplace_back(arguments[1]);
    } else if (std::filesystem::is_directory(arguments[1])) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& file : files) {
        std::printf("%s\n", file.c_str());
        std::fflush(stdout);
        std::ifstream stream(file, std::ios::binary);
        const std::string content((std::istreambuf_iterator<char>(stream)), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(content.data()), content.size());
    }
    // A corpus that is not there would otherwise pass for one without a finding.
    return files.empty() ? 1 : 0;
}
