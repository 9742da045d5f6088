#include "exchange_file.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "handler/reply_text.h"
#include "leaf/decimal_number.h"
#include "store/document_set.h"
#include "store/read_query.h"
#include "store/value.h"
#include "xml/document.h"
#include "xml/element_text.h"

namespace veltrancord::tool {
namespace {

std::size_t longest_secret_in(const TiXmlNode& node) {
    std::size_t longest = 0;
    for (const TiXmlElement* element = node.FirstChildElement(); element != nullptr;
         element = element->NextSiblingElement()) {
        constexpr std::string_view stored_mark = "enc:";
        const std::string_view text = XmlElementText(*element);
        if (IsSecretName(element->Value()) && text.starts_with(stored_mark)) {
            const int32_t length = decimal_number(text.substr(stored_mark.size()));
            longest = std::max(longest, static_cast<std::size_t>(std::max(length, 0)));
        }
        longest = std::max(longest, longest_secret_in(*element));
    }
    return longest;
}

}  // namespace

std::size_t longest_stored_secret(const std::string& text) {
    XmlDocument file("exchange");
    return file.LoadXMLFile(text) ? longest_secret_in(file) : 0;
}

bool parse_exchange_text(const std::string& text, setting_list& settings,
                         std::set<std::string>* documents) {
    XmlDocument file("exchange");
    if (!file.LoadXMLFile(text) || file.RootElement() == nullptr) {
        return false;
    }
    for (const TiXmlElement* element = file.RootElement()->FirstChildElement(); element != nullptr;
         element = element->NextSiblingElement()) {
        if (documents != nullptr) {
            documents->insert(element->ValueStr());
        }
        auto document = std::make_unique<XmlDocument>(element->Value());
        document->InsertEndChild(*element);
        XmlDocNode* record = AddXmlDocNode(element->Value(), "", std::move(document));
        reply_text reply;
        if (record != nullptr && reply.open(std::numeric_limits<int32_t>::max()) &&
            ReadXmlTree(std::string(element->Value()) + ".*", reply, 0, {}) > 0) {
            const setting_list more = parse_settings(std::string(reply.view()));
            settings.insert(settings.end(), more.begin(), more.end());
        }
        if (record != nullptr) {
            (void)RemoveXmlDocNode(record);
        }
    }
    return true;
}

}  // namespace veltrancord::tool
