// The document set in a directory of its own, as its tests use it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "leaf/file_text.h"
#include "store/document_set.h"
#include "store/value.h"

namespace veltrancord {

// How often the hooks were called.
inline int g_loaded = 0;
inline int g_freed = 0;

class DocumentSet : public testing::Test {
  protected:
    DocumentSet() {
        std::string name = testing::TempDir() + "document_set-XXXXXX";
        dir_ = ::mkdtemp(name.data());
        g_loaded = g_freed = 0;
        g_storeHooks.loaded = [] { ++g_loaded; };
        g_storeHooks.freed = [] { ++g_freed; };
    }
    ~DocumentSet() override {
        FreeXmlDocs();
        g_storeHooks = {};
        std::filesystem::remove_all(dir_);
    }

    [[nodiscard]] std::string Path(std::string_view name) const {
        return dir_ + "/" + std::string(name);
    }

    void Write(std::string_view name, std::string_view content) const {
        std::ofstream(Path(name)) << content;
    }

    // Loads the directory and gives what was printed.
    struct printed {
        std::string out;
        std::string err;
    };
    [[nodiscard]] printed Load() const {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(LoadXmlDir(dir_.c_str()), 0);
        printed result;
        result.out = testing::internal::GetCapturedStdout();
        result.err = testing::internal::GetCapturedStderr();
        return result;
    }

    // What LoadFile2Buf prints to standard output and gives.
    static std::string Read(const std::string& path, int32_t expected,
                            std::string* text = nullptr) {
        testing::internal::CaptureStdout();
        std::string buffer;
        EXPECT_EQ(LoadFile2Buf(path.c_str(), buffer), expected);
        if (text != nullptr) {
            *text = buffer.c_str();
        }
        return testing::internal::GetCapturedStdout();
    }

    static std::vector<std::string> Names() {
        std::vector<std::string> names;
        const XmlDocNode* prev = nullptr;
        for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
            EXPECT_EQ(node->prev, prev);
            prev = node;
            if (node->doc != nullptr) {
                names.emplace_back(node->name);
            }
        }
        return names;
    }

    static XmlDocNode* Add(const char* name, const std::string& path, const char* text = "<A/>") {
        auto doc = std::make_unique<XmlDocument>(name);
        static_cast<void>(doc->LoadXMLFile(text));
        return AddXmlDocNode(name, path, std::move(doc));
    }

    static std::string Value(std::string_view path) {
        XmlValue out;
        return ReadXmlValue(path, out) < 0 ? "none" : std::string(out.text);
    }

    std::string dir_;
};

using names = std::vector<std::string>;

}  // namespace veltrancord
