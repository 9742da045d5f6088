// A small store in a sandbox: three documents that every command finds something in.
#pragma once

#include <filesystem>
#include <string>

#include "fuzz_target.h"
#include "leaf/file_replacer.h"
#include "sandbox.h"
#include "saved_form.h"
#include "store/document_set.h"

namespace veltrancord::fuzz {

inline constexpr const char* account_text =
    "<?xml version=\"1.0\" ?>\n"
    "<Account><Maxuser>3</Maxuser>"
    "<User1><Username>admin</Username><Password>enc:1:NQ==</Password><Level>Admin</Level></User1>"
    "<User2 Level=\"2\" AllowToShow=\"NO\"><Username>joe</Username><Level>POWER "
    "USER</Level></User2>"
    "<Cloud><Username>far</Username><Admin><Username>near</Username></Admin></Cloud>"
    "<Permission><MaxPermDefNum>4</MaxPermDefNum><MaxGroupNum>3</MaxGroupNum><Define>"
    "<Permit1 Type=\"Switch\" Value=\"ON\">Net</Permit1>"
    "<Permit2 Type=\"Channel\">Cam</Permit2><Permit4>Odd</Permit4></Define>"
    "<Group1><Name>Admin</Name><Permit1>YES</Permit1><Permit2>1,3,5</Permit2>"
    "<Permit4>x</Permit4></Group1>"
    "<Group2><Name>POWER USER</Name><Permit2>-1</Permit2></Group2></Permission>"
    "<CGIPermitDenyFilter><R1><RelatedPermit>Permit1</RelatedPermit>"
    "<C1><CMD>apply</CMD><P1>reboot</P1></C1><C2><CMD>*</CMD></C2></R1></CGIPermitDenyFilter>"
    "<Event><Notify>FF</Notify></Event></Account>\n";
inline constexpr const char* network_text =
    "<Network><Lan Level=\"3\" DispatchW=\"/bin/hook\"><Ip>10.0.0.1</Ip><Ip>twice</Ip>"
    "<a_20b>blank</a_20b></Lan><Wlan DispatchW=\"/bin/other\">on &amp; off</Wlan></Network>";
inline constexpr const char* empty_text = "<Empty/>";

// Loads the store anew from files of its own; made inside a sandbox.
class small_store {
  public:
    small_store() {
        const std::string folder = std::string(configuration) + "/";
        put_file(folder + "Account", account_text);
        put_file(folder + "Network", network_text);
        put_file(folder + "Empty", empty_text);
        LoadXmlDir(configuration);
    }
    small_store(const small_store&) = delete;
    small_store& operator=(const small_store&) = delete;
    ~small_store() { FreeXmlDocs(); }
};

// What holds of the document set between two commands.
inline void check_document_set() {
    const XmlDocNode* before = nullptr;
    for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
        require(node->prev == before, "the links of the list");
        require((node->saveFlags & ~(DOC_SAVE_FLASH | DOC_SAVE_MEMORY)) == 0, "save flags");
        require((node->saveFlags & DOC_SAVE_FLASH) == 0, "a changed document was saved");
        if (node->doc != nullptr) {
            check_saved_form(*node->doc);
        }
        before = node;
    }
    for (const auto& entry : std::filesystem::directory_iterator(configuration)) {
        require(!is_replacement_leftover(entry.path().filename().string()),
                "no save leaves anything behind");
    }
}

}  // namespace veltrancord::fuzz
