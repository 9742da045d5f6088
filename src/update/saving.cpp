#include "update/saving.h"

#include <chrono>

#include "leaf/file_replacer.h"
#include "leaf/kept_original.h"
#include "leaf/result.h"
#include "leaf/termination.h"
#include "store/change.h"

namespace veltrancord {

namespace {

constexpr uint32_t both_flags = DOC_SAVE_FLASH | DOC_SAVE_MEMORY;

int64_t g_nextTry = 0;  // when what could not be saved is tried again without a change

bool nothing_may_be_saved() {
    return g_xmlDocList == nullptr || g_terminating.load(std::memory_order_relaxed);
}

// Return: false after one line on standard error; the flags are then as they were.
bool save_document(XmlDocNode& node) {
    if (node.damaged && keep_original(node.path) != result_ok) {
        return false;
    }
    const bool saved = replace_file(node.path, TextToSave(*node.doc)) == result_ok;
    LetGoOfLongText();
    if (!saved) {
        return false;
    }
    node.damaged = false;
    node.saveFlags &= ~both_flags;
    return true;
}

}  // namespace

// There used to be a second pass here that saved the documents marked DOC_SAVE_MEMORY once the
// first had saved anything. It started where the first had stopped, at the end of the list, and
// never saved one. Devices have come to depend on that: changes in memory only are written many
// times a minute by programs that must not wear the flash out, and they reach it through
// syncmemtoflash, or along with a flash save of the same document. So there is no second pass, and
// none must be added.
void save_changed_documents(int64_t now) {
    if (!g_pendingSaves.flash || nothing_may_be_saved() ||
        (!g_pendingSaves.fresh && now < g_nextTry)) {
        return;
    }
    bool still_due = false;
    for (XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc != nullptr && (node->saveFlags & DOC_SAVE_FLASH) != 0 &&
            !save_document(*node)) {
            still_due = true;
        }
    }
    // Not before: where memory runs out on the way, all is still due.
    g_pendingSaves = {still_due, false};
    g_nextTry = now + save_retry_seconds;
}

void save_changed_documents() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    save_changed_documents(std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

int32_t save_memory_changes() {
    if (nothing_may_be_saved()) {
        return result_not_found;
    }
    for (XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        if (node->doc != nullptr && (node->saveFlags & DOC_SAVE_MEMORY) != 0 &&
            !save_document(*node)) {
            MarkForSaving(*node, DOC_SAVE_FLASH);
        }
    }
    g_pendingSaves.fresh = true;
    return result_ok;
}

}  // namespace veltrancord
