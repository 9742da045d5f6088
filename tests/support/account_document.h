// For tests: a configuration that consists of the document "Account".
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "access/filter.h"
#include "access/groups.h"
#include "access/permits.h"
#include "store/document_set.h"

namespace veltrancord {

// The document set and the lists are the process's own, so there is one of these at a time; its end
// leaves them empty.
class account_document {
  public:
    explicit account_document(const std::string& content) { replace(content); }
    account_document(const account_document&) = delete;
    account_document& operator=(const account_document&) = delete;
    ~account_document() {
        FreeXmlDocs();
        free_filter_list();
        free_group_list();
        free_permit_list();
    }

    // Makes `content` the root element's content in place of what there was.
    void replace(const std::string& content) {
        FreeXmlDocs();
        load("<Account>" + content + "</Account>");
    }

    // Adds a document of that name from the whole text.
    static void load(const std::string& text) {
        auto document = std::make_unique<XmlDocument>("Account");
        ASSERT_TRUE(document->LoadXMLFile(text.c_str())) << text;
        AddXmlDocNode("Account", "/nowhere/Account", std::move(document));
    }

    static void build_lists() {
        init_permit_list();
        init_group_list();
        init_filter_list();
    }
};

}  // namespace veltrancord
