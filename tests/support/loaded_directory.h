// For tests: a configuration directory of their own, loaded as the service loads it.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "handler/handler.h"
#include "leaf/termination.h"
#include "store/document_set.h"
#include "store/value.h"
#include "xml/text.h"

namespace veltrancord {

class LoadedDirectory : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "update-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        base_ = name;
        config_ = base_ / "xml";
        std::filesystem::create_directory(config_);
        umask(022);
        listener_.change_counter = &change_counter_;
        connection_.listener = &listener_;
    }

    void TearDown() override {
        g_terminating = false;
        FreeXmlDocs();
        std::filesystem::remove_all(base_);
    }

    // Writes the documents and loads the directory. The last one named is not promised to be the
    // head of the list: that is up to the file system.
    void load(std::initializer_list<std::pair<const char*, const char*>> documents) {
        for (const auto& [name, text] : documents) {
            put(config_ / name, text);
        }
        ASSERT_EQ(LoadXmlDir(config_.c_str()), 0);
    }

    // Loads documents one by one, so that the list's order is known: the last one is the head.
    void load_in_order(std::initializer_list<std::pair<const char*, const char*>> documents) {
        ASSERT_EQ(LoadXmlDir(config_.c_str()), 0);
        for (const auto& [name, text] : documents) {
            put(config_ / name, text);
            auto doc = std::make_unique<XmlDocument>(name);
            doc->LoadXMLFile(text);
            ASSERT_NE(AddXmlDocNode(name, (config_ / name).string(), std::move(doc)), nullptr);
        }
    }

    static void put(const std::filesystem::path& file, const std::string& content) {
        std::ofstream(file, std::ios::binary) << content;
    }

    static std::string get(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        std::stringstream content;
        content << stream.rdbuf();
        return content.str();
    }

    [[nodiscard]] std::string file(const char* name) const { return get(config_ / name); }

    // What the loaded document would be saved as.
    static std::string document(const char* name) {
        const XmlDocument* const doc = FindXmlDoc(name);
        return doc != nullptr ? SerialiseXmlDoc(*doc) : "(not loaded)";
    }

    // The plain value at a path, or "(none)".
    static std::string value(const char* path) {
        XmlValue found;
        return ReadXmlValue(path, found) >= 0 ? std::string(found.text) : "(none)";
    }

    static uint32_t flags(const char* name) {
        const XmlDocNode* const node = FindXmlDocNode(name);
        return node != nullptr ? node->saveFlags : ~0U;
    }

    // Names of the loaded documents from the head on.
    static std::vector<std::string> loaded() {
        std::vector<std::string> names;
        for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
            if (node->doc != nullptr) {
                names.emplace_back(node->name);
            }
        }
        return names;
    }

    // Names of everything in a directory, sorted.
    static std::vector<std::string> names(const std::filesystem::path& directory) {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            found.push_back(entry.path().filename().string());
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    // Runs a handler on a text argument; no handler here leaves a reply text.
    int32_t run(command_handler* handler, std::string argument) {
        const int32_t result = handler(connection_, {argument.data(), argument.size()}, 0);
        EXPECT_FALSE(connection_.reply.is_open());
        return result;
    }

    std::filesystem::path base_;    // the test's own directory
    std::filesystem::path config_;  // the configuration directory within
    std::atomic<uint32_t> change_counter_{0};
    listener_record listener_;
    connection_record connection_;
};

}  // namespace veltrancord
