// The one place where a loaded document is changed. Each routine brings the cached text of the
// document's file up to date or drops it, changes the document, and marks its record for saving, so
// that none of the three can be forgotten. Documents outside the set (the event log's, an
// exchange file's) are changed by their owners.
//
// Server thread only.
#pragma once

#include <tinyxml.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "store/document_set.h"
#include "store/path.h"

namespace veltrancord {

// Sets the value at `path`, whose first component names the root element, as SetXmlValue.
//
// Return: the element, owned by the document, or null when the value cannot be stored: nothing has
// changed then and nothing is marked.
TiXmlElement* ChangeValue(XmlDocNode& node, const XmlPath& path, std::string_view value,
                          SaveFlag flag);

// Sets the attribute of the element at `path`, the first of its name on each level; no element is
// made. Marks the record DOC_SAVE_FLASH.
//
// Return: the element, or null when there is none, and for a new name or a value with which the
// saved document could not be read whole again (xml/syntax.h); nothing has changed then.
TiXmlElement* ChangeAttribute(XmlDocNode& node, const XmlPath& path, const std::string& name,
                              std::string_view value);

// Removes the element that FindXmlElement finds at `path`. Marks the record DOC_SAVE_FLASH.
//
// Return: whether there was one.
[[nodiscard]] bool RemoveElement(XmlDocNode& node, const XmlPath& path);

// Merges the settings of `from` into the document (store/merge.h) and marks the record
// DOC_SAVE_FLASH.
//
// Return: whether all of them could be stored. One line on standard error tells each that could
// not.
[[nodiscard]] bool MergeSettings(XmlDocNode& node, const TiXmlElement& from);

// Sets the value at a path below `start`, a document that is not in the set, so that the first
// component names the root element. Missing elements are created, each as the last child of its
// parent; there is no backtracking. The text is set as WriteElementText does. A secret is stored in
// "enc:" form.
//
// Return: the element, or null, and nothing is changed, for a secret whose "enc:" form is over 255
// bytes, and for what would keep the saved document from being read whole again: a missing element
// with a name that is none in XML ("1st", "*"), a text that ends within a character (xml/syntax.h).
[[nodiscard]] TiXmlElement* SetXmlValue(TiXmlNode& start, const XmlPath& path,
                                        std::string_view value);

// What waits to be saved, for update/saving.h alone.
struct PendingSaves {
    bool flash = false;  // a record may carry DOC_SAVE_FLASH: no walk over the records without it
    bool fresh = false;  // something has changed since a save was tried last
};
extern PendingSaves g_pendingSaves;

// Marks a record whose document is to be saved, although it was not changed just now.
void MarkForSaving(XmlDocNode& node, SaveFlag flag);

// The text of the document's file, for update/saving.h alone. Valid until the next call for any
// document or the next change; LetGoOfLongText() when it has been used.
[[nodiscard]] std::string_view TextToSave(const XmlDocument& document);
void LetGoOfLongText();

}  // namespace veltrancord
