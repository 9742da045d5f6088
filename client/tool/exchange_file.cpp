#include "exchange_file.h"

#include <limits>

#include "handler/reply_text.h"
#include "store/document_set.h"
#include "store/read_query.h"
#include "xml/document.h"

namespace veltrancord::tool {

bool parse_exchange_text(const std::string& text, setting_list& settings) {
    XmlDocument file("exchange");
    if (!file.LoadXMLFile(text) || file.RootElement() == nullptr) {
        return false;
    }
    for (const TiXmlElement* element = file.RootElement()->FirstChildElement(); element != nullptr;
         element = element->NextSiblingElement()) {
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
