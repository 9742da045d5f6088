// What the XML library alone costs on the same files: the limit of start, save and memory.
//
//   parse DIR             read and parse every file; prints milliseconds and the documents' memory
//   walk PATH ROUNDS      visit every element's name and text of a file or of a directory's files,
//                         and list them; prints microseconds of processor time of either
//   save FILE ROUNDS      the library's SaveFile to FILE.copy and its printer, and the service's
//                         serialising of the same document; prints microseconds of processor time
//   replace FILE ROUNDS   write, fsync, close and rename the same bytes; likewise
//   replace-safely FILE ROUNDS   replace the file as the service does, which also keeps mode and
//                         owner and flushes the directory; likewise
#include <fcntl.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "leaf/file_replacer.h"
#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "whole_file.h"
#include "xml/document.h"
#include "xml/text.h"

namespace {

using veltrancord::bench::read_whole;

using document_list = std::vector<std::unique_ptr<TiXmlDocument>>;

double microseconds(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

std::unique_ptr<TiXmlDocument> parse_file(const std::string& path) {
    const std::string text = read_whole(path);
    auto document = std::make_unique<TiXmlDocument>();
    document->Parse(text.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    return document;
}

document_list parse_all(const std::string& path) {
    document_list documents;
    if (!std::filesystem::is_directory(path)) {
        documents.push_back(parse_file(path));
        return documents;
    }
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        documents.push_back(parse_file(entry.path().string()));
    }
    return documents;
}

uint64_t resident_kilobytes() {
    const std::string statm = read_whole("/proc/self/statm");
    const std::size_t blank = statm.find(' ');
    const uint64_t resident = blank == std::string::npos ? 0 : std::stoull(statm.substr(blank + 1));
    return resident * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

// Touches what a listing touches: each element's name and text.
std::size_t walk(const TiXmlNode& node) {
    std::size_t bytes = 0;
    for (const TiXmlElement* child = node.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        bytes += child->ValueStr().size();
        if (const char* text = child->GetText()) {
            bytes += std::char_traits<char>::length(text);
        }
        bytes += walk(*child);
    }
    return bytes;
}

// The text lines that a listing of everything has, built as plainly as it can be: full key, "=",
// text, line feed.
void list(const TiXmlNode& node, std::string& key, std::string& out) {
    const std::size_t parent = key.size();
    for (const TiXmlElement* child = node.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
        if (parent != 0) {
            key += '.';
        }
        key += child->ValueStr();
        list(*child, key, out);
        if (const char* text = child->GetText()) {
            out.append(key).append("=").append(text).append("\n");
        }
        key.resize(parent);
    }
}

void print(const nlohmann::json& report) {
    std::printf("%s\n", report.dump().c_str());
}

void run_parse(const std::string& directory) {
    const uint64_t before = resident_kilobytes();
    const double start = microseconds(CLOCK_MONOTONIC);
    const double processor = microseconds(CLOCK_PROCESS_CPUTIME_ID);
    const document_list documents = parse_all(directory);
    print({{"wall_us", microseconds(CLOCK_MONOTONIC) - start},
           {"processor_us", microseconds(CLOCK_PROCESS_CPUTIME_ID) - processor},
           {"documents_kb", resident_kilobytes() - before},
           {"documents", documents.size()}});
}

void run_walk(const std::string& directory, int rounds) {
    const document_list documents = parse_all(directory);
    std::size_t bytes = 0;
    double start = microseconds(CLOCK_PROCESS_CPUTIME_ID);
    for (int round = 0; round < rounds; ++round) {
        for (const auto& document : documents) {
            bytes += walk(*document);
        }
    }
    const double walked = microseconds(CLOCK_PROCESS_CPUTIME_ID) - start;
    start = microseconds(CLOCK_PROCESS_CPUTIME_ID);
    std::size_t listed_bytes = 0;
    for (int round = 0; round < rounds; ++round) {
        std::string key;
        std::string out;
        for (const auto& document : documents) {
            list(*document, key, out);
        }
        listed_bytes = out.size();
    }
    const double listed = microseconds(CLOCK_PROCESS_CPUTIME_ID) - start;
    print({{"walk_us", walked / rounds},
           {"list_us", listed / rounds},
           {"visited_bytes", bytes},
           {"listed_bytes", listed_bytes}});
}

// Processor time of one call, in microseconds.
template <class Call>
double processor_time(int rounds, const Call& call) {
    const double start = microseconds(CLOCK_PROCESS_CPUTIME_ID);
    for (int round = 0; round < rounds; ++round) {
        call();
    }
    return (microseconds(CLOCK_PROCESS_CPUTIME_ID) - start) / rounds;
}

void run_save(const std::string& path, int rounds) {
    const std::string text = read_whole(path);
    veltrancord::XmlDocument document("Measured");
    static_cast<void>(document.LoadXMLFile(text.c_str()));
    const std::string copy = path + ".copy";
    bool saved = true;
    const double save_us =
        processor_time(rounds, [&] { saved = document.SaveFile(copy) && saved; });
    const double print_us = processor_time(rounds, [&] {
        TiXmlPrinter printer;
        document.Accept(&printer);
    });
    std::string serialised;
    const double serialise_us =
        processor_time(rounds, [&] { serialised = veltrancord::SerialiseXmlDoc(document); });
    print({{"saved", saved},
           {"processor_us", save_us},
           {"print_us", print_us},
           {"serialise_us", serialise_us},
           {"identical", serialised == read_whole(copy)}});
    ::unlink(copy.c_str());
}

bool replace_once(const std::string& path, const std::string& copy, const std::string& text) {
    veltrancord::owned_fd fd(::open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    return fd && ::write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
           ::fsync(fd.get()) == 0 && fd.close() == 0 && ::rename(copy.c_str(), path.c_str()) == 0;
}

void run_replace(const std::string& path, int rounds) {
    const std::string text = read_whole(path);
    const std::string copy = path + ".copy";
    const double start = microseconds(CLOCK_PROCESS_CPUTIME_ID);
    const double wall = microseconds(CLOCK_MONOTONIC);
    for (int round = 0; round < rounds; ++round) {
        if (!replace_once(path, copy, text)) {
            std::perror(copy.c_str());
            return;
        }
    }
    print({{"processor_us", (microseconds(CLOCK_PROCESS_CPUTIME_ID) - start) / rounds},
           {"wall_us", (microseconds(CLOCK_MONOTONIC) - wall) / rounds}});
}

void run_replace_safely(const std::string& path, int rounds) {
    const std::string text = read_whole(path);
    bool replaced = true;
    const double wall = microseconds(CLOCK_MONOTONIC);
    const double processor_us = processor_time(rounds, [&] {
        replaced =
            veltrancord::replace_file(path.c_str(), text) == veltrancord::result_ok && replaced;
    });
    print({{"replaced", replaced},
           {"processor_us", processor_us},
           {"wall_us", (microseconds(CLOCK_MONOTONIC) - wall) / rounds}});
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("What the XML library and the file system alone cost");
    app.require_subcommand(1);
    std::string path;
    int rounds = 10;
    auto* parse = app.add_subcommand("parse", "Read and parse every file of a directory");
    auto* walk_command = app.add_subcommand("walk", "Visit and list every element");
    auto* save = app.add_subcommand("save", "Print and save one document");
    auto* replace = app.add_subcommand("replace", "Write, fsync and rename one file's bytes");
    auto* safely = app.add_subcommand("replace-safely", "Replace one file as the service does");
    for (CLI::App* command : {parse, walk_command, save, replace, safely}) {
        command->add_option("path", path, "Directory or file")->required();
        command->add_option("rounds", rounds, "How often")->check(CLI::Range(1, 1'000'000));
    }
    CLI11_PARSE(app, argc, argv);
    if (parse->parsed()) {
        run_parse(path);
    } else if (walk_command->parsed()) {
        run_walk(path, rounds);
    } else if (save->parsed()) {
        run_save(path, rounds);
    } else if (replace->parsed()) {
        run_replace(path, rounds);
    } else {
        run_replace_safely(path, rounds);
    }
}
