#include "update/saving.h"

#include "leaf/file_replacer.h"
#include "leaf/result.h"
#include "leaf/termination.h"
#include "store/kept_text.h"

namespace veltrancord {

namespace {

// Whether a record may carry DOC_SAVE_FLASH. With hundreds of documents the walk over their
// records would be felt by each request that only reads.
bool g_flashSaveDue = false;

kept_text g_savedText;

constexpr uint32_t both_flags = DOC_SAVE_FLASH | DOC_SAVE_MEMORY;

bool nothing_may_be_saved() {
    return g_xmlDocList == nullptr || g_terminating.load(std::memory_order_relaxed);
}

// Return: false after one line on standard error; the flags are then as they were.
bool save_document(XmlDocNode& node) {
    const bool saved = replace_file(node.path, g_savedText.Of(*node.doc)) == result_ok;
    g_savedText.LetGoOfLong();
    if (!saved) {
        return false;
    }
    node.saveFlags &= ~both_flags;
    return true;
}

}  // namespace

int32_t change_value(XmlDocNode& node, const XmlPath& path, std::string_view value,
                     save_flag flag) {
    const int32_t result = g_savedText.SetValue(*node.doc, path, value);
    if (result == result_ok) {
        mark_for_saving(node, flag);
    }
    return result;
}

void mark_for_saving(XmlDocNode& node, save_flag flag) {
    node.saveFlags |= flag;
    g_flashSaveDue = g_flashSaveDue || flag == DOC_SAVE_FLASH;
}

// There used to be a second pass here that saved the documents marked DOC_SAVE_MEMORY once the
// first had saved anything. It started where the first had stopped, at the end of the list, and
// never saved one. Devices have come to depend on that: changes in memory only are written many
// times a minute by programs that must not wear the flash out, and they reach it through
// syncmemtoflash, or along with a flash save of the same document. So there is no second pass, and
// none must be added.
void save_changed_documents() {
    if (!g_flashSaveDue || nothing_may_be_saved()) {
        return;
    }
    bool still_due = false;
    for (XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc != nullptr && (node->saveFlags & DOC_SAVE_FLASH) != 0 &&
            !save_document(*node)) {
            still_due = true;
        }
    }
    g_flashSaveDue = still_due;  // not before: where memory runs out on the way, it is still due
}

int32_t save_memory_changes() {
    if (nothing_may_be_saved()) {
        return result_not_found;
    }
    for (XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc != nullptr && (node->saveFlags & DOC_SAVE_MEMORY) != 0 &&
            !save_document(*node)) {
            mark_for_saving(*node, DOC_SAVE_FLASH);
        }
    }
    return result_ok;
}

}  // namespace veltrancord
