#include "store/document_set.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "leaf/bounded_text.h"
#include "leaf/file_replacer.h"
#include "leaf/file_text.h"
#include "leaf/kept_original.h"
#include "leaf/message.h"

namespace veltrancord {

XmlDocNode* g_xmlDocList = nullptr;
StoreHooks g_storeHooks;

namespace {

char g_configDir[128] = {};

// The first record of each name that has a document, so that finding one of two hundred costs no
// more than finding the only one. Empty, or complete: where a record goes it may uncover another of
// its name, so all is forgotten then and learnt anew at the next look.
std::unordered_map<std::string_view, XmlDocNode*> g_firstOfName;

XmlDocNode* WalkTo(std::string_view name) {
    for (XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc != nullptr && name == node->name) {
            return node;
        }
    }
    return nullptr;
}

// Return: false when memory could not be had.
bool LearnNames() {
    try {
        for (XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
            if (node->doc != nullptr) {
                g_firstOfName.try_emplace(node->name, node);
            }
        }
    } catch (const std::bad_alloc&) {
        g_firstOfName.clear();
        return false;
    }
    return true;
}

// The record is the new head and stands before others of its name.
void LearnHead(XmlDocNode& node) {
    if (g_firstOfName.empty() || node.doc == nullptr) {
        return;
    }
    try {
        g_firstOfName.erase(node.name);  // the key, too, belongs to the record
        g_firstOfName.try_emplace(node.name, &node);
    } catch (const std::bad_alloc&) {
        g_firstOfName.clear();
    }
}

// To be called before the record goes.
void Forget(const XmlDocNode& node) {
    const auto found = g_firstOfName.find(node.name);
    if (found != g_firstOfName.end() && found->second == &node) {
        g_firstOfName.clear();
    }
}

// A file that does not parse keeps its place in the set, so that its settings can be written anew.
void LoadFile(const char* name, const char* path) {
    std::string text;
    if (LoadFile2Buf(path, text) != 0) {
        print_error("skip strxmlPath=%s\n", path);
        return;
    }
    auto doc = std::make_unique<XmlDocument>(name);
    static_cast<void>(doc->LoadXMLFile(std::move(text)));
    const std::size_t damaged_line = doc->DamagedLine();
    XmlDocNode* const node = AddXmlDocNode(name, path, std::move(doc));
    if (node == nullptr) {
        throw std::bad_alloc();
    }
    if (damaged_line != 0) {
        node->damaged = true;
        print_error("%s damaged, not read from line %zu on, strxmlPath=%s\n", "LoadXmlDir",
                    damaged_line, path);
    }
}

void LoadEntry(const char* name) {
    char path[sizeof(g_configDir) + sizeof(dirent::d_name)];
    std::snprintf(path, sizeof(path), "%s/%s", g_configDir, name);
    // A name that had to be cut could stand for another document, and a cut path be saved over
    // another file.
    if (std::strlen(name) >= sizeof(XmlDocNode::name) ||
        std::strlen(path) >= sizeof(XmlDocNode::path)) {
        print_error("%s name too long, skip strxmlPath=%s\n", "LoadXmlDir", path);
        return;
    }
    try {
        LoadFile(name, path);
    } catch (const std::bad_alloc&) {
        print_error("%s no memory, skip strxmlPath=%s\n", "LoadXmlDir", path);
    }
}

// A file that merely cannot be looked at (an input/output error, no memory) is still there, and
// forgetting its settings for that would lose them.
bool IsGone(const char* path) {
    struct stat status = {};
    return ::stat(path, &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

void Unlink(XmlDocNode& node) {
    if (node.prev != nullptr) {
        node.prev->next = node.next;
    }
    if (node.next != nullptr) {
        node.next->prev = node.prev;
    }
}

}  // namespace

int32_t LoadXmlDir(const char* dir) {
    copy_bounded(g_configDir, dir);
    clear_replacement_leftovers(g_configDir);
    if (DIR* const entries = ::opendir(g_configDir); entries != nullptr) {
        while (const dirent* const entry = ::readdir(entries)) {
            const std::string_view name(entry->d_name);
            if (name != "." && name != ".." && !is_replacement_leftover(name) &&
                !is_kept_original(name)) {
                LoadEntry(entry->d_name);
            }
        }
        ::closedir(entries);
    } else {
        print_error("%s can't open %s : %s\n", "LoadXmlDir", g_configDir, std::strerror(errno));
    }
    if (g_storeHooks.loaded != nullptr) {
        g_storeHooks.loaded();
    }
    return 0;
}

const char* XmlConfigDir() {
    return g_configDir;
}

XmlDocNode* FindXmlDocNode(std::string_view name) {
    if (g_firstOfName.empty() && !LearnNames()) {
        return WalkTo(name);
    }
    const auto found = g_firstOfName.find(name);
    return found != g_firstOfName.end() ? found->second : nullptr;
}

XmlDocument* FindXmlDoc(std::string_view name) {
    const XmlDocNode* const node = FindXmlDocNode(name);
    return node != nullptr ? node->doc.get() : nullptr;
}

XmlDocNode* AddXmlDocNode(std::string_view name, std::string_view path,
                          std::unique_ptr<XmlDocument> doc) {
    auto* const node = new (std::nothrow) XmlDocNode;
    if (node == nullptr) {
        return nullptr;
    }
    copy_bounded(node->name, name);
    copy_bounded(node->path, path);
    node->doc = std::move(doc);
    node->next = g_xmlDocList;
    if (g_xmlDocList != nullptr) {
        g_xmlDocList->prev = node;
    }
    g_xmlDocList = node;
    LearnHead(*node);
    return node;
}

int32_t RemoveXmlDocNode(XmlDocNode* node) {
    for (XmlDocNode* listed = g_xmlDocList; listed != nullptr; listed = listed->next) {
        if (listed != node) {
            continue;
        }
        Forget(*node);
        Unlink(*node);
        if (g_xmlDocList == node) {
            g_xmlDocList = node->next;
        }
        delete node;
        break;
    }
    return 0;
}

void PruneXmlDocs() {
    for (XmlDocNode* node = g_xmlDocList; node != nullptr;) {
        XmlDocNode* const next = node->next;
        if (!IsGone(node->path)) {
            node = next;
            continue;
        }
        Forget(*node);
        if (node == g_xmlDocList) {
            // The head pointer stays, so its record must: empty, found and listed by nothing.
            node->doc.reset();
            copy_bounded(node->path, "");
            copy_bounded(node->name, "");
            node->saveFlags = 0;
            node->damaged = false;
        } else {
            Unlink(*node);
            delete node;
        }
        node = next;
    }
}

int32_t FreeXmlDocs() {
    g_firstOfName.clear();
    while (g_xmlDocList != nullptr) {
        delete std::exchange(g_xmlDocList, g_xmlDocList->next);
    }
    if (g_storeHooks.freed != nullptr) {
        g_storeHooks.freed();
    }
    return 0;
}

int32_t XmlFileExists(const char* path) {
    struct stat status = {};
    return ::stat(path, &status) == 0 ? 1 : 0;
}

}  // namespace veltrancord
