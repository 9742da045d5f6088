// The document set: every file of the configuration directory, parsed in memory.
//
// Used by the server thread, and by the main thread before that one serves its first request.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "xml/document.h"

namespace veltrancord {

enum SaveFlag : uint32_t {
    DOC_SAVE_FLASH = 1,   // changed; written to its file after the current command
    DOC_SAVE_MEMORY = 2,  // changed in memory only; written by syncmemtoflash or with a flash save
};

// One loaded file. Records live in the list from LoadXmlDir or AddXmlDocNode until
// RemoveXmlDocNode, PruneXmlDocs or FreeXmlDocs. Walking the list, skip records without a document:
// PruneXmlDocs may leave one at the head.
struct XmlDocNode {
    XmlDocNode* prev = nullptr;
    XmlDocNode* next = nullptr;
    std::unique_ptr<XmlDocument> doc;  // its value (name) is the file name
    char path[128] = {};               // full path of the file
    char name[64] = {};                // the file name, by which documents are found
    uint32_t saveFlags = 0;            // bits of SaveFlag
    bool damaged = false;              // its file holds more than the document does: the file must
                                       // be kept aside before it is replaced
};

// Head of the list; null when nothing is loaded. New records are always put at the head.
extern XmlDocNode* g_xmlDocList;

// What the process does around loading and freeing the set; set once by the process before
// LoadXmlDir. The store itself owns no semaphore and no shared memory.
struct StoreHooks {
    void (*loaded)() = nullptr;  // LoadXmlDir has read the last entry: set the semaphores
    void (*freed)() = nullptr;   // FreeXmlDocs: detach and remove the shared-memory segments
    // The first word of the second shared-memory segment, or null while it is not attached.
    uint32_t* (*reply_length_word)() = nullptr;
};
extern StoreHooks g_storeHooks;

// Loads every file of the directory, which is also remembered as the configuration directory. A
// file that cannot be read, or that memory does not suffice for, is reported and skipped; one that
// does not parse is reported and kept, empty or partial, under its name. What an interrupted
// replacement left behind is swept first, and never loaded. A file whose name is over 63 bytes or
// whose path is over 127 is reported and skipped: a cut name could hide another document, and a cut
// path be saved over another file. A directory that cannot be opened is reported on standard error
// and gives an empty set.
//
// Return: 0.
int32_t LoadXmlDir(const char* dir);

// The directory given to LoadXmlDir; documents are created in it.
[[nodiscard]] const char* XmlConfigDir();

// The first record of that name from the head (compared exactly), or null.
[[nodiscard]] XmlDocument* FindXmlDoc(std::string_view name);
[[nodiscard]] XmlDocNode* FindXmlDocNode(std::string_view name);

// Puts a new record at the head of the list. Name and path over their fields are cut.
//
// Return: the record, or null when memory could not be had.
XmlDocNode* AddXmlDocNode(std::string_view name, std::string_view path,
                          std::unique_ptr<XmlDocument> doc);

// Drops the record with its document; a record that is not in the list is ignored. Return: 0.
int32_t RemoveXmlDocNode(XmlDocNode* node);

// Drops every record whose file no longer exists. The head pointer stays as it is even when the
// head's record is dropped: an emptied record without document, name and path then stays there,
// which no lookup finds.
void PruneXmlDocs();

// Empties the set and runs the `freed` hook: for whoever loads a set and goes on without it, as
// tests do; the worker keeps its own to the end. Return: 0.
int32_t FreeXmlDocs();

// Return: 1 if stat() succeeds, else 0.
[[nodiscard]] int32_t XmlFileExists(const char* path);

}  // namespace veltrancord
