// The checks of documents against the descriptions of their settings.
#include <string>

#include "directory_check.h"
#include "question.h"
#include "schema/check.h"
#include "schema_files.h"

namespace veltrancord::tool {
namespace {

void check_described(const std::string& name, const schema::document_description& description,
                     const std::string& text, std::vector<finding>& findings) {
    TiXmlDocument document;
    std::string problem;
    std::size_t line = 0;
    if (!schema::read_document(text, document, problem, line)) {
        return;  // the check of files tells that it does not parse
    }
    for (const schema::violation& one :
         schema::check_document(description, *document.RootElement())) {
        findings.push_back({name, one.path, "against-description",
                            "line " + std::to_string(one.line) + ": " + schema::sentence_of(one)});
    }
}

}  // namespace

void check_descriptions(const std::string& directory, schema::description_set& descriptions,
                        std::vector<finding>& findings) {
    std::vector<std::string> names;
    static_cast<void>(document_names(directory, names));  // the check of files tells why not
    for (const std::string& name : names) {
        const std::size_t told = descriptions.mistakes().size();
        const schema::document_description* const description = descriptions.document(name);
        for (std::size_t at = told; at < descriptions.mistakes().size(); ++at) {
            const schema::mistake& one = descriptions.mistakes()[at];
            findings.push_back({one.file, "", "bad-description",
                                "line " + std::to_string(one.line) + ": " + one.text});
        }
        std::string file = directory;
        file.append("/").append(name);
        std::string text;
        if (description != nullptr && read_input(file, text)) {
            check_described(name, *description, text, findings);
        }
    }
}

}  // namespace veltrancord::tool
