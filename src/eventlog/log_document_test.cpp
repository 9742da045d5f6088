#include "eventlog/log_document.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "eventlog/entry_text.h"
#include "leaf/result.h"
#include "store/change.h"
#include "store/path.h"
#include "store/value.h"
#include "xml/text.h"

namespace veltrancord {
namespace {

const std::string good = "4:2024:0:31:23:5:9:3:abc:1";

// What the store's own routines make of the same document, by walking it.
class walked_document {
  public:
    explicit walked_document(const std::string& text) { document_.LoadXMLFile(text.c_str()); }

    TiXmlElement* find(int32_t position) {
        XmlPath path;
        EXPECT_TRUE(SplitXmlPath("Log.E" + std::to_string(position), path));
        return FindXmlElement(document_.RootElement(), path);
    }

    void set(int32_t position, const std::string& text) {
        XmlPath path;
        EXPECT_TRUE(SplitXmlPath("Log.E" + std::to_string(position), path));
        EXPECT_NE(SetXmlValue(document_, path, text), nullptr);
    }

    std::string file_text() { return SerialiseXmlDoc(document_); }

    int32_t elements_in_root() {
        int32_t count = 0;
        if (document_.RootElement() != nullptr) {
            const TiXmlNode* node = document_.RootElement()->FirstChild();
            for (; node != nullptr; node = node->NextSibling()) {
                count += node->ToElement() != nullptr ? 1 : 0;
            }
        }
        return count;
    }

  private:
    XmlDocument document_{"Log"};
};

void expect_same(log_document& document, walked_document& walked, const std::string& what) {
    for (int32_t position = -2; position <= 9; ++position) {
        log_entry_state expected = log_entry_state::missing;
        log_record record;
        const TiXmlElement* const element = walked.find(position);
        if (element != nullptr) {
            const std::string_view text = XmlElementText(*element);
            expected = text.data() == nullptr                         ? log_entry_state::empty
                       : decode_log_entry(text.substr(0, 95), record) ? log_entry_state::readable
                                                                      : log_entry_state::unreadable;
        }
        log_entry entry;
        ASSERT_TRUE(document.read(position, entry));
        ASSERT_EQ(entry.state, expected) << what << "\nat " << position;
        if (entry.state == log_entry_state::readable) {
            ASSERT_EQ(entry.record, pack_log_record(record)) << what << "\nat " << position;
        }
    }
    ASSERT_EQ(document.element_count(), walked.elements_in_root()) << what;
    ASSERT_EQ(document.file_text(), walked.file_text()) << what;
}

// Sets entries in both, and compares all of both after each.
void expect_same_while_setting(const std::string& text, int32_t capacity, std::mt19937& random) {
    walked_document walked(text);
    log_document document(capacity);
    document.load(text.c_str());
    std::string story = text;
    expect_same(document, walked, story);
    for (int step = 0; step < 12 && !testing::Test::HasFatalFailure(); ++step) {
        const auto position = static_cast<int32_t>(random() % 8) - 1;
        if (document.stored(position) == nullptr) {
            continue;  // nothing is written beyond the index
        }
        const std::string entry =
            std::to_string(random() % 3 == 0 ? random() : random() % 10) + good.substr(1);
        story += "\nE" + std::to_string(position) + " = " + entry;
        walked.set(position, entry);
        document.set(position, entry);
        if (random() % 4 != 0) {  // several changes between two saves, too
            expect_same(document, walked, story);
        }
    }
}

TEST(LogDocument, IsOneElementALine) {
    log_document document(3);
    document.load("<Log>\n</Log>");
    EXPECT_EQ(document.file_text(), "<Log />\n");
    document.set(1, good);
    EXPECT_EQ(document.file_text(), "<Log>\n    <E1>" + good + "</E1>\n</Log>\n");
    document.set(2, "a<&>");
    EXPECT_EQ(document.file_text(),
              "<Log>\n    <E1>" + good + "</E1>\n    <E2>a&lt;&amp;&gt;</E2>\n</Log>\n");
    document.set(1, "shorter");
    EXPECT_EQ(document.file_text(),
              "<Log>\n    <E1>shorter</E1>\n    <E2>a&lt;&amp;&gt;</E2>\n</Log>\n");
    document.set(2, good + good);
    document.set(1, good);
    EXPECT_EQ(document.file_text(),
              "<Log>\n    <E1>" + good + "</E1>\n    <E2>" + good + good + "</E2>\n</Log>\n");
}

TEST(LogDocument, StatesOfEntries) {
    log_document document(6);
    const std::string text = "<Log><E1>" + good + "</E1><E2/><E3>word</E3><E4><x/>" + good +
                             "</E4><E5><!-- c --></E5></Log>";
    document.load(text.c_str());
    const auto state_of = [&](int32_t position) {
        log_entry entry;
        EXPECT_TRUE(document.read(position, entry));
        return entry.state;
    };
    EXPECT_EQ(state_of(1), log_entry_state::readable);
    EXPECT_EQ(state_of(2), log_entry_state::empty);
    EXPECT_EQ(state_of(3), log_entry_state::unreadable);
    EXPECT_EQ(state_of(4), log_entry_state::empty);
    EXPECT_EQ(state_of(5), log_entry_state::empty);
    EXPECT_EQ(state_of(6), log_entry_state::missing);
    EXPECT_EQ(state_of(7), log_entry_state::missing);
    EXPECT_EQ(state_of(-1), log_entry_state::missing);
    EXPECT_EQ(document.element_count(), 5);
}

TEST(LogDocument, ReadingTakes95CharactersAndDecodingAll) {
    // Of the first, 95 characters hold all but the last field.
    const std::string lead = "1:2024:0:1:2:3:4:5:";
    const std::string over = lead + std::string(95 - lead.size(), 'x') + ":6";
    const std::string cut = lead + std::string(94 - lead.size() - 1, 'x') + ":61";
    log_document document(2);
    document.load(("<Log><E1>" + over + "</E1><E2>" + cut + "</E2></Log>").c_str());
    log_entry entry;
    ASSERT_TRUE(document.read(1, entry));
    EXPECT_EQ(entry.state, log_entry_state::unreadable);
    ASSERT_TRUE(document.read(2, entry));
    EXPECT_EQ(entry.state, log_entry_state::readable);
    EXPECT_EQ(entry.record[27], 6);
    log_record record;
    EXPECT_EQ(document.decode(1, record), log_entry_state::readable);
    EXPECT_EQ(document.decode(2, record), log_entry_state::readable);
    EXPECT_EQ(record.second_detail, 61);
}

TEST(LogDocument, HandsOutStoredEntriesOfTheIndexOnly) {
    log_document document(2);
    document.load(("<Log><E1>" + good + "</E1><E3>" + good + "</E3></Log>").c_str());
    ASSERT_NE(document.stored(1), nullptr);
    EXPECT_EQ(document.stored(1)->state, log_entry_state::readable);
    ASSERT_NE(document.stored(2), nullptr);
    EXPECT_EQ(document.stored(2)->state, log_entry_state::missing);
    for (const int32_t beyond : {-1, 0, 3, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(document.stored(beyond), nullptr) << beyond;
    }
    document.set(2, good);
    EXPECT_EQ(document.stored(2)->state, log_entry_state::readable);
}

TEST(LogDocument, DecodesPositionsOfTheIndexOnly) {
    log_document document(1);
    document.load(("<Log><E1>" + good + "</E1><E2>" + good + "</E2></Log>").c_str());
    log_record record;
    EXPECT_EQ(document.decode(1, record), log_entry_state::readable);
    EXPECT_EQ(document.decode(2, record), log_entry_state::missing);
    EXPECT_EQ(document.decode(0, record), log_entry_state::missing);
}

TEST(LogDocument, TextThatDoesNotParseGivesAnEmptyOrPartialLog) {
    log_document document(3);
    document.load(("<Log><E1>" + good + "</E1><E2>" + good + "</E3></Log>").c_str());
    EXPECT_LE(document.element_count(), 2);
    document.load("");
    EXPECT_EQ(document.element_count(), 0);
    document.load("no XML at all");
    EXPECT_EQ(document.element_count(), 0);
    document.set(1, good);
    EXPECT_EQ(document.element_count(), 1);
}

TEST(LogDocument, LoadsInPlaceOfWhatItHeld) {
    log_document document(3);
    document.load(("<Log><E1>" + good + "</E1><E2>" + good + "</E2></Log>").c_str());
    EXPECT_NE(document.file_text(), "");
    document.load("<Log><E2>x</E2></Log>");
    log_entry entry{.state = log_entry_state::readable};
    ASSERT_TRUE(document.read(1, entry));
    EXPECT_EQ(entry.state, log_entry_state::missing);
    document.set(1, good);
    EXPECT_EQ(document.file_text(), "<Log>\n    <E2>x</E2>\n    <E1>" + good + "</E1>\n</Log>\n");
}

// Files that the service would not write, and what its own look like.
TEST(LogDocument, AgreesWithWalkingOddDocuments) {
    const std::string e = "<E1>" + good + "</E1>";
    const std::vector<std::string> texts = {
        "<Log>\n</Log>",
        "<Log/>",
        "<Log>" + e + "</Log>",
        "<Log>" + e + "<E2>x</E2><E3/><E4>" + good + "</E4></Log>",
        "<Log>text only</Log>",
        "<Log>" + e + "text" + "<E2>a</E2></Log>",
        "<Log><!-- c -->" + e + "</Log>",
        "<Log a='1' b='x&#x0A;y'>" + e + "</Log>",
        "<?xml version='1.0'?><Log>" + e + "</Log>",
        "\xEF\xBB\xBF<Log>" + e + "<E2>b</E2></Log>",
        "<!-- before --><Log>" + e + "</Log><!-- behind -->",
        "<Log>" + e + e + "<E1>2" + good.substr(1) + "</E1></Log>",
        "<Log><E5>a</E5><E3>b</E3>" + e + "</Log>",
        "<Log><E01>" + good + "</E01><E+1>a</E+1><E>b</E><E1x>c</E1x><E0>d</E0></Log>",
        "<Log><E-1>" + good + "</E-1><E0>" + good + "</E0></Log>",
        "<Log><Log>" + e + "</Log></Log>",
        "<Other>" + e + "</Other>",
        "<Other><E2>a</E2></Other><Log>" + e + "</Log>",
        "<Log><E2>a</E2></Log><Log>" + e + "<E2>b</E2></Log>",
        "<Log/><Log>" + e + "</Log>",
        "<log>" + e + "</log>",
        "<Log><E1><!-- c -->" + good + "</E1></Log>",
        "<Log><E1><x/>" + good + "</E1><E2>a<x/>b</E2></Log>",
        "<Log><E1><![CDATA[" + good + "]]></E1><E2>x</E2></Log>",
        "<Log><E1 a='1'>" + good + "</E1><E2>x</E2></Log>",
        "<Log>" + e + "<X><Y>1</Y></X><E2>x</E2></Log>",
        "<Log>" + e + "<E2>x</E2>",
        "no XML",
        "<Log><E99999999999>x</E99999999999></Log>",
    };
    std::mt19937 random(20);
    for (const std::string& text : texts) {
        for (const int32_t capacity : {-5, 0, 1, 3, 6}) {
            for (int round = 0; round < 4; ++round) {
                expect_same_while_setting(text, capacity, random);
                if (HasFatalFailure()) {
                    return;
                }
            }
        }
    }
}

std::string any_child(std::mt19937& random) {
    const auto name = [&] {
        static const char* const names[] = {"E1", "E2", "E3", "E4", "E5", "E-1", "E0", "X", "Log"};
        return std::string(names[random() % std::size(names)]);
    };
    const std::string element = name();
    switch (random() % 10) {
        case 0:
            return "<" + element + "/>";
        case 1:
            return "<!-- c -->";
        case 2:
            return "text";
        case 3:
            return "<" + element + "><" + name() + ">" + good + "</" + name() + "></" + element +
                   ">";
        case 4:
            return "<" + element + "><!-- c -->" + good + "</" + element + ">";
        case 5:
            return "<" + element + ">words</" + element + ">";
        default:
            return "<" + element + ">" + good + "</" + element + ">";
    }
}

TEST(LogDocument, AgreesWithWalkingRandomDocuments) {
    std::mt19937 random(21);
    for (int round = 0; round < 1500; ++round) {
        std::string text;
        for (auto tops = random() % 3 + (random() % 4 == 0 ? 0 : 1); tops > 0; --tops) {
            const std::string top = random() % 4 == 0 ? "Other" : "Log";
            text += "<" + top + ">";
            for (auto children = random() % 7; children > 0; --children) {
                text += any_child(random);
            }
            text += "</" + top + ">";
        }
        expect_same_while_setting(text, static_cast<int32_t>(random() % 7), random);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST(LogDocument, AgreesWithWalkingALongLog) {
    std::mt19937 random(22);
    walked_document walked("<Log>\n</Log>");
    log_document document(1000);
    document.load("<Log>\n</Log>");
    for (int32_t i = 0; i < 2500; ++i) {
        const std::string entry = std::to_string(random()) + good.substr(1) + "<&\"'>";
        walked.set(i % 1000 + 1, entry);
        document.set(i % 1000 + 1, entry);
        if (i % 97 == 0) {
            ASSERT_EQ(document.file_text(), walked.file_text()) << i;
        }
    }
    expect_same(document, walked, "a long log");
}

}  // namespace
}  // namespace veltrancord
