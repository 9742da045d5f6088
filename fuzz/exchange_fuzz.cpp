// Exchange files: whatever a client's file holds, each command takes it whole or refuses it, and
// what it took is in memory and in the files.
#include <cstddef>
#include <map>
#include <string>

#include "fuzz_target.h"
#include "leaf/result.h"
#include "sandbox.h"
#include "small_store.h"
#include "store/document_set.h"
#include "update/exchange_file.h"
#include "update/saving.h"
#include "xml/document.h"
#include "xml/text.h"

namespace veltrancord::fuzz {
namespace {

constexpr const char* client_file = "/tmp/exchange";

// What `upload` must leave in the files: for each name the last element that bears it.
std::map<std::string, std::string> uploaded_files(const XmlDocument& exchange) {
    std::map<std::string, std::string> files;
    const TiXmlElement* const root = exchange.RootElement();
    const TiXmlElement* element = root != nullptr ? root->FirstChildElement() : nullptr;
    for (; element != nullptr; element = element->NextSiblingElement()) {
        if (element->ValueStr().size() < sizeof(XmlDocNode::name)) {
            std::string text;
            PrintXml(*element, 1, text);
            files[element->ValueStr()] = text;
        }
    }
    return files;
}

void check_uploaded(const XmlDocument& exchange) {
    for (const auto& [name, text] : uploaded_files(exchange)) {
        require(get_file(std::string(configuration) + "/" + name) == text, "an uploaded file");
        XmlDocument read_back(name.c_str());
        read_back.LoadXMLFile(text);
        const XmlDocument* const loaded = FindXmlDoc(name);
        require(loaded != nullptr && SerialiseXmlDoc(*loaded) == SerialiseXmlDoc(read_back),
                "an uploaded document");
    }
}

// Runs the command, which may leave out settings that cannot be stored only if it says so.
//
// Return: its result, result_ok in the place of result_store_failed.
int32_t run_exchange(uint8_t choice) {
    int32_t (*const commands[])(std::string_view) = {upload_documents, restore_documents,
                                                     sync_documents};
    int32_t result = result_ok;
    const std::string printed =
        errors_printed_by([&] { result = commands[choice % 3](client_file); });
    const bool told = printed.starts_with("syncxml can't store ") ||
                      printed.find("\nsyncxml can't store ") != std::string::npos;
    require(told == (result == result_store_failed), "settings that were left out");
    require(!told || choice % 3 == 2, "who leaves settings out");
    return told ? result_ok : result;
}

}  // namespace

void try_input(input_reader& input) {
    const uint8_t choice = input.byte();
    const std::string text(input.rest());

    const sandbox inside;
    const small_store store;
    put_file(client_file, text);
    XmlDocument exchange("exchange");
    const bool loads = exchange.LoadXMLFile(text);
    require(run_exchange(choice) == (loads ? result_ok : result_unparsable),
            "the result of an exchange");
    save_changed_documents();
    check_document_set();
    if (loads && choice % 3 == 0) {
        check_uploaded(exchange);
    }
    require(download_documents(client_file) == result_ok, "the result of download");
    const std::string all = get_file(client_file);
    require(all.starts_with("<ROOT>\n") && all.ends_with("</ROOT>"), "a downloaded file");
    const int32_t again = run_exchange(choice / 3);
    require(again == result_ok || again == result_unparsable, "the second exchange");
    save_changed_documents();
    check_document_set();
}

}  // namespace veltrancord::fuzz
