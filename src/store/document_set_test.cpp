#include "store/document_set.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/document_set_fixture.h"

namespace veltrancord {
namespace {

TEST_F(DocumentSet, MostRecentOfTwoRecordsOfOneNameIsFound) {
    Add("A", "/old", "<A><B>old</B></A>");
    XmlDocNode* const recent = Add("A", "/new", "<A><B>new</B></A>");
    EXPECT_EQ(FindXmlDocNode("A"), recent);
    EXPECT_EQ(Value("A.B"), "new");
    EXPECT_EQ(RemoveXmlDocNode(recent), 0);
    EXPECT_EQ(Value("A.B"), "old");
}

TEST_F(DocumentSet, NewRecordIsPutAtTheHeadWithBoundedFields) {
    Add("A", "/a");
    XmlDocNode* const node = Add("B", "/b");
    EXPECT_EQ(g_xmlDocList, node);
    EXPECT_EQ(Names(), (names{"B", "A"}));
    XmlDocNode* const cut = Add(std::string(70, 'n').c_str(), std::string(200, 'p'));
    EXPECT_EQ(std::string(cut->name), std::string(63, 'n'));
    EXPECT_EQ(std::string(cut->path), std::string(127, 'p'));
}

TEST_F(DocumentSet, RemovingARecordRelinksTheList) {
    XmlDocNode* const a = Add("A", "/a");
    XmlDocNode* const b = Add("B", "/b");
    XmlDocNode* const c = Add("C", "/c");
    XmlDocNode* const d = Add("D", "/d");
    XmlDocNode stranger;
    EXPECT_EQ(RemoveXmlDocNode(&stranger), 0);
    EXPECT_EQ(RemoveXmlDocNode(nullptr), 0);
    EXPECT_EQ(Names(), (names{"D", "C", "B", "A"}));
    EXPECT_EQ(RemoveXmlDocNode(c), 0);
    EXPECT_EQ(Names(), (names{"D", "B", "A"}));
    EXPECT_EQ(RemoveXmlDocNode(d), 0);
    EXPECT_EQ(g_xmlDocList, b);
    EXPECT_EQ(Names(), (names{"B", "A"}));
    EXPECT_EQ(RemoveXmlDocNode(a), 0);
    EXPECT_EQ(Names(), names{"B"});
    EXPECT_EQ(RemoveXmlDocNode(b), 0);
    EXPECT_EQ(g_xmlDocList, nullptr);
}

TEST_F(DocumentSet, PruningDropsRecordsWhoseFileIsGone) {
    Write("A", "<A/>");
    Write("C", "<C/>");
    Add("A", Path("A"));
    Add("B", Path("B"));
    Add("C", Path("C"));
    PruneXmlDocs();
    EXPECT_EQ(Names(), (names{"C", "A"}));
}

TEST_F(DocumentSet, PruningKeepsRecordsWhoseFileCannotBeLookedAt) {
    std::filesystem::create_symlink("Circle", Path("Circle"));
    Write("File", "<File/>");
    Add("Circle", Path("Circle"));
    Add("Below", Path("File/Below"));
    Add("A", Path("A"));
    Write("A", "<A/>");
    PruneXmlDocs();
    EXPECT_EQ(Names(), (names{"A", "Circle"}));
}

TEST_F(DocumentSet, PrunedHeadStaysWhereItIsAndIsFoundByNothing) {
    Write("A", "<A/>");
    Add("A", Path("A"), "<A><X>1</X></A>");
    Add("B", Path("B"));
    XmlDocNode* const head = Add("C", Path("C"));
    head->saveFlags = DOC_SAVE_FLASH;
    PruneXmlDocs();
    EXPECT_EQ(g_xmlDocList, head);
    EXPECT_EQ(head->doc, nullptr);
    EXPECT_EQ(head->saveFlags, 0U);
    EXPECT_EQ(FindXmlDocNode("C"), nullptr);
    EXPECT_EQ(FindXmlDocNode(""), nullptr);
    EXPECT_EQ(Names(), names{"A"});
    EXPECT_EQ(Value("A.X"), "1");
    PruneXmlDocs();
    EXPECT_EQ(g_xmlDocList, head);
    // Behind a newer head it can go.
    Add("A", Path("A"));
    PruneXmlDocs();
    EXPECT_EQ(Names(), (names{"A", "A"}));
    EXPECT_EQ(g_xmlDocList->next->name, std::string("A"));
}

// Whatever has been looked up before, it is the first record of a name with a document that counts.
TEST_F(DocumentSet, NameIsFoundAsAWalkFindsItAfterAnyChange) {
    std::mt19937 random(1);
    const auto below = [&random](int end) {
        return std::uniform_int_distribution<int>(0, end - 1)(random);
    };
    const auto name = [&below] { return "N" + std::to_string(below(8)); };
    const auto nth = [](int place) {
        XmlDocNode* node = g_xmlDocList;
        for (; node != nullptr && place > 0; --place) {
            node = node->next;
        }
        return node;
    };
    for (int i = 0; i < 5000; ++i) {
        const int kind = below(100);
        if (kind < 45) {
            AddXmlDocNode(name(), below(2) == 0 ? dir_ : "/missing",
                          below(8) == 0 ? nullptr : std::make_unique<XmlDocument>("D"));
        } else if (kind < 90) {
            RemoveXmlDocNode(nth(below(12)));
        } else if (kind < 98) {
            PruneXmlDocs();
        } else {
            FreeXmlDocs();
        }
        const std::string wanted = name();
        XmlDocNode* first = g_xmlDocList;
        while (first != nullptr && (first->doc == nullptr || wanted != first->name)) {
            first = first->next;
        }
        ASSERT_EQ(FindXmlDocNode(wanted), first) << i;
    }
}

TEST_F(DocumentSet, PruningAnEmptyListDoesNothing) {
    PruneXmlDocs();
    EXPECT_EQ(g_xmlDocList, nullptr);
}

TEST_F(DocumentSet, FreeingEmptiesTheListAndTellsSo) {
    Add("A", "/a");
    Add("B", "/b");
    EXPECT_EQ(FreeXmlDocs(), 0);
    EXPECT_EQ(g_xmlDocList, nullptr);
    EXPECT_EQ(g_freed, 1);
}

TEST_F(DocumentSet, FileExistsIfItCanBeLookedAt) {
    EXPECT_EQ(XmlFileExists(dir_.c_str()), 1);
    EXPECT_EQ(XmlFileExists(Path("missing").c_str()), 0);
    EXPECT_EQ(XmlFileExists(""), 0);
}

}  // namespace
}  // namespace veltrancord
