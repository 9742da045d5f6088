#include "xml/child_index.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "store/change.h"
#include "store/document_set.h"
#include "store/merge.h"
#include "store/value.h"
#include "xml/document.h"
#include "xml/text.h"

namespace veltrancord {
namespace {

// What an index must never be told from.
TiXmlElement* WalkedTo(TiXmlNode& parent, const std::string& name) {
    return parent.FirstChildElement(name);
}

// `count` children that are named by `modulus` names in turn.
std::string Children(int count, int modulus) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        const std::string name = "E" + std::to_string(i % modulus);
        text.append("<").append(name).append(">").append(std::to_string(i)).append("</");
        text.append(name).append(">");
    }
    return text;
}

std::unique_ptr<XmlDocument> Load(const std::string& text) {
    auto doc = std::make_unique<XmlDocument>("D");
    EXPECT_TRUE(doc->LoadXMLFile(text.c_str()));
    return doc;
}

TEST(ChildIndex, FewChildrenAreWalkedOver) {
    const auto doc = Load("<D>" + Children(walked_children, walked_children) + "</D>");
    EXPECT_EQ(FirstChildNamed(*doc->RootElement(), "none"), nullptr);
    EXPECT_NE(FirstChildNamed(*doc->RootElement(), "E63"), nullptr);
    EXPECT_EQ(doc->ChildIndexes().Count(), 0U);
}

TEST(ChildIndex, IsMadeWhenAWalkIsNotEnough) {
    const auto doc = Load("<D>" + Children(1000, 1000) + "</D>");
    TiXmlElement& root = *doc->RootElement();
    EXPECT_EQ(FirstChildNamed(root, "E63"), WalkedTo(root, "E63"));
    EXPECT_EQ(doc->ChildIndexes().Count(), 0U);
    EXPECT_EQ(FirstChildNamed(root, "E64"), WalkedTo(root, "E64"));
    EXPECT_EQ(FirstChildNamed(root, "E999"), WalkedTo(root, "E999"));
    EXPECT_EQ(FirstChildNamed(root, "E1000"), nullptr);
    EXPECT_EQ(doc->ChildIndexes().Count(), 1U);
}

TEST(ChildIndex, GivesTheFirstOfANameAndTheNext) {
    const auto doc = Load("<D>" + Children(1000, 100) + "</D>");
    TiXmlElement& root = *doc->RootElement();
    int met = 0;
    for (TiXmlElement* child = FirstChildNamed(root, "E70"); child != nullptr;
         child = NextOfSameName(*child)) {
        EXPECT_EQ(child->GetText(), std::to_string(met * 100 + 70));
        ++met;
    }
    EXPECT_EQ(met, 10);
}

TEST(ChildIndex, IsGoneWithWhatItWasMadeFor) {
    const auto doc = Load("<D><G>" + Children(200, 200) + "</G><H/></D>");
    EXPECT_NE(FirstChildNamed(*doc->RootElement()->FirstChild(), "E199"), nullptr);
    EXPECT_EQ(doc->ChildIndexes().Count(), 1U);
    RemoveChildNode(*doc->RootElement()->FirstChild());
    EXPECT_EQ(doc->ChildIndexes().Count(), 0U);

    EXPECT_TRUE(doc->LoadXMLFile(("<D>" + Children(200, 200) + "</D>").c_str()));
    EXPECT_NE(FirstChildNamed(*doc->RootElement(), "E199"), nullptr);
    EXPECT_EQ(doc->ChildIndexes().Count(), 1U);
    EXPECT_TRUE(doc->LoadXMLFile("<D/>"));
    EXPECT_EQ(doc->ChildIndexes().Count(), 0U);
    EXPECT_EQ(FirstChildNamed(*doc->RootElement(), "E199"), nullptr);
}

// An element whose children have gone one by one still has its index when it goes itself.
TEST(ChildIndex, IsGoneWithAnElementThatWasEmptied) {
    const auto doc = Load("<D><G>" + Children(70, 70) + "</G></D>");
    TiXmlElement& group = *doc->RootElement()->FirstChildElement();
    EXPECT_NE(FirstChildNamed(group, "E69"), nullptr);
    while (!group.NoChildren()) {
        RemoveChildNode(*group.FirstChild());
    }
    EXPECT_EQ(doc->ChildIndexes().Count(), 1U);
    RemoveChildNode(group);
    EXPECT_EQ(doc->ChildIndexes().Count(), 0U);
}

TEST(ChildIndex, NodesOutsideADocumentAreWalkedOver) {
    TiXmlElement parent("P");
    for (int i = 0; i < 200; ++i) {
        AppendElement(parent, "E" + std::to_string(i));
    }
    EXPECT_EQ(FirstChildNamed(parent, "E199"), parent.LastChild());
    EXPECT_EQ(FirstChildNamed(parent, "E200"), nullptr);
    EXPECT_EQ(parent.GetUserData(), nullptr);
}

// The element at a path as a plain walk with backtracking finds it.
TiXmlElement* WalkedPath(TiXmlNode& parent, const std::vector<std::string>& names,
                         std::size_t level) {
    for (TiXmlElement* child = parent.FirstChildElement(names[level]); child != nullptr;
         child = child->NextSiblingElement(names[level])) {
        if (level + 1 == names.size()) {
            return child;
        }
        if (TiXmlElement* const found = WalkedPath(*child, names, level + 1); found != nullptr) {
            return found;
        }
    }
    return nullptr;
}

// Everything that changes a document, in any order and on few names, so that names come, go and
// come again, several of one name lie far apart, and indexes are made, grown and dropped on the
// way.
class ChangedAtRandom : public testing::TestWithParam<unsigned> {
  protected:
    std::string Name(int range) {
        return "N" + std::to_string(std::uniform_int_distribution<int>(0, range - 1)(random_));
    }

    std::vector<std::string> Path() {
        std::vector<std::string> names{"D", Name(4)};
        const int more = std::uniform_int_distribution<int>(0, 2)(random_);
        for (int i = 0; i < more; ++i) {
            names.push_back(Name(150));
        }
        return names;
    }

    static void Split(const std::vector<std::string>& names, XmlPath& list) {
        std::string path;
        for (const std::string& name : names) {
            path.append(path.empty() ? "" : ".").append(name);
        }
        ASSERT_TRUE(SplitXmlPath(path, list));
    }

    std::string Tree() {
        std::string text = "<D>";
        for (int group = 0; group < 6; ++group) {
            const std::string name = Name(4);
            text.append("<").append(name).append(">");
            for (int i = 0; i < 120; ++i) {
                const std::string child = Name(150);
                text.append("<").append(child).append("><!--c-->x");
                text.append(i % 9 == 0 ? "<" + Name(150) + "/>" : "").append("</");
                text.append(child).append(">");
            }
            text.append("</").append(name).append(">");
        }
        return text + "</D>";
    }

    void Change() {
        const int kind = std::uniform_int_distribution<int>(0, 99)(random_);
        XmlPath list;
        const std::vector<std::string> names = Path();
        Split(names, list);
        if (kind < 60) {
            EXPECT_NE(SetXmlValue(*doc_, list, "v"), nullptr);
        } else if (kind < 95) {
            TiXmlElement* const found = FindXmlElement(doc_->RootElement(), list);
            if (found != nullptr) {
                RemoveChildNode(*found);
            }
        } else if (kind < 97) {
            const auto from = Load(Tree());
            MergeXmlNode(doc_.get(), from.get());
        } else if (kind < 98) {
            EXPECT_TRUE(doc_->LoadXMLFile(Tree().c_str()));
        } else if (kind < 99) {
            doc_ = Load(Tree());  // at addresses that have been used before, as likely as not
        } else if (TiXmlElement* const root = doc_->RootElement(); root != nullptr) {
            RemoveChildNode(*root);
        }
    }

    void Check() {
        for (int i = 0; i < 10; ++i) {
            const std::vector<std::string> names = Path();
            XmlPath list;
            Split(names, list);
            ASSERT_EQ(FindXmlElement(doc_->RootElement(), list), WalkedPath(*doc_, names, 0));
        }
    }

    std::mt19937 random_{GetParam()};
    std::unique_ptr<XmlDocument> doc_ = std::make_unique<XmlDocument>("D");
};

TEST_P(ChangedAtRandom, FindsWhatAWalkFinds) {
    for (int change = 0; change < 3000 && !HasFatalFailure(); ++change) {
        Change();
        Check();
    }
}

INSTANTIATE_TEST_SUITE_P(ChildIndex, ChangedAtRandom, testing::Range(1U, 9U));

// With a walk for each of them these would take minutes.
TEST(ChildIndex, HundredThousandSiblingsAreWrittenReadAndRemovedInLinearTime) {
    const auto doc = Load("<D>" + Children(100000, 100000) + "</D>");
    const auto each = [&doc](auto&& check) {
        for (int i = 99999; i >= 0; --i) {
            XmlPath list;
            ASSERT_TRUE(SplitXmlPath("D.E" + std::to_string(i), list));
            check(list);
        }
    };
    each([&doc](const XmlPath& list) { ASSERT_NE(SetXmlValue(*doc, list, "new"), nullptr); });
    EXPECT_STREQ(doc->RootElement()->FirstChildElement()->GetText(), "new");
    EXPECT_STREQ(doc->RootElement()->LastChild()->ToElement()->GetText(), "new");
    each([&doc](const XmlPath& list) {
        TiXmlElement* const found = FindXmlElement(doc->RootElement(), list);
        ASSERT_NE(found, nullptr);
        RemoveChildNode(*found);
    });
    EXPECT_TRUE(doc->RootElement()->NoChildren());
}

}  // namespace
}  // namespace veltrancord
