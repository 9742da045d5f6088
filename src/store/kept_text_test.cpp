#include "store/kept_text.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "store/change.h"
#include "support/rounds.h"
#include "xml/element_text.h"
#include "xml/text.h"

namespace veltrancord {
namespace {

std::unique_ptr<XmlDocument> Load(const char* text) {
    auto document = std::make_unique<XmlDocument>("A");
    document->LoadXMLFile(text);
    EXPECT_FALSE(document->Error()) << text;
    return document;
}

// What store/change.cpp does with a value.
bool Set(KeptText& kept, XmlDocument& document, std::string_view path, std::string_view value) {
    XmlPath list;
    EXPECT_TRUE(SplitXmlPath(path, list));
    const uint64_t before = document.Edition();
    document.NewEdition();
    const TiXmlElement* const element = SetXmlValue(document, list, value);
    if (element != nullptr) {
        kept.Follow(document, before, list, *element);
    }
    return element != nullptr;
}

// What the text of that document becomes by setting that value; "printed anew" is put before it
// where it is not the kept text that followed.
std::string AfterSetting(const char* text, std::string_view path, std::string_view value) {
    const std::unique_ptr<XmlDocument> document = Load(text);
    KeptText kept;
    EXPECT_EQ(kept.Of(*document), SerialiseXmlDoc(*document));
    EXPECT_TRUE(Set(kept, *document, path, value));
    const std::string followed = kept.Holds(*document) ? "" : "printed anew: ";
    EXPECT_EQ(kept.Of(*document), SerialiseXmlDoc(*document));
    return followed + std::string(kept.Of(*document));
}

TEST(KeptText, HoldsOneDocumentUntilItIsChanged) {
    const auto first = Load("<A/>");
    const auto second = Load("<B/>");
    KeptText kept;
    EXPECT_FALSE(kept.Holds(*first));
    EXPECT_EQ(kept.Of(*first), "<A />\n");
    EXPECT_TRUE(kept.Holds(*first));
    EXPECT_EQ(kept.Of(*second), "<B />\n");
    EXPECT_TRUE(kept.Holds(*second));
    EXPECT_FALSE(kept.Holds(*first));
    second->NewEdition();
    EXPECT_FALSE(kept.Holds(*second));
    EXPECT_TRUE(second->LoadXMLFile("<C/>"));
    EXPECT_EQ(kept.Of(*second), "<C />\n");
    EXPECT_TRUE(second->LoadXMLFile("<D/>"));
    EXPECT_EQ(kept.Of(*second), "<D />\n");
}

// A freed document's place in memory may be the next one's.
TEST(KeptText, IsNotTakenForThatOfALaterDocument) {
    KeptText kept;
    for (int i = 0; i < 10; ++i) {
        const std::string name = "A" + std::to_string(i);
        const auto document = Load(("<" + name + "/>").c_str());
        ASSERT_EQ(kept.Of(*document), "<" + name + " />\n");
    }
}

TEST(KeptText, ALongTextIsLetGo) {
    const auto document = Load("<A><B>short</B></A>");
    KeptText kept;
    static_cast<void>(kept.Of(*document));
    kept.LetGoOfLong();
    EXPECT_TRUE(kept.Holds(*document));
    WriteElementText(*document->RootElement()->FirstChildElement(),
                     std::string(KeptText::most_kept, 'x'));
    document->NewEdition();
    static_cast<void>(kept.Of(*document));
    kept.LetGoOfLong();
    EXPECT_FALSE(kept.Holds(*document));
}

TEST(KeptText, FollowsTheChangeOfAValue) {
    EXPECT_EQ(AfterSetting("<A><B>old</B><C>c</C></A>", "A.B", "a longer one"),
              "<A>\n    <B>a longer one</B>\n    <C>c</C>\n</A>\n");
    EXPECT_EQ(AfterSetting("<?xml version='1.0' ?><A><B x='>' y='2'/></A>", "A.B", "<&\n"),
              "<?xml version=\"1.0\" ?>\n<A>\n    <B x=\"&gt;\" y=\"2\">&lt;&amp;&#x0A;</B>\n"
              "</A>\n");
    EXPECT_EQ(AfterSetting("<A>root</A>", "A", ""), "<A></A>\n");
    EXPECT_EQ(AfterSetting("<A><!-- <B>one line</B> --><B>b</B></A>", "A.B", "new"),
              "<A>\n    <!-- <B>one line</B> -->\n    <B>new</B>\n</A>\n");
}

TEST(KeptText, SecretsAreKeptAsTheyAreStored) {
    const std::string text = AfterSetting("<A><Password>x</Password></A>", "A.Password", "secret");
    EXPECT_EQ(text.substr(0, 23), "<A>\n    <Password>enc:6");
}

TEST(KeptText, FindsTheFirstChildOfEachNameAndNothingDeeper) {
    const char* const text =
        "<Z><A><B>z</B></A></Z><A><BB><B>deep</B></BB><G><X><B>no</B></X><B>1</B><B>2</B></G>"
        "<G><B>3</B></G><B>4</B></A>";
    EXPECT_EQ(AfterSetting(text, "A.G.B", "new").find("printed anew"), std::string::npos);
    EXPECT_NE(AfterSetting(text, "A.G.B", "new").find("<B>new</B>\n        <B>2</B>"),
              std::string::npos);
    EXPECT_NE(AfterSetting(text, "A.B", "new").find("    <B>new</B>\n</A>"), std::string::npos);
    EXPECT_EQ(AfterSetting(text, "A.B", "new").find("printed anew"), std::string::npos);
}

TEST(KeptText, IsPrintedAnewWhereALineIsNotTheWholeChange) {
    EXPECT_EQ(AfterSetting("<A><B/></A>", "A.C", "new"),
              "printed anew: <A>\n    <B />\n    <C>new</C>\n</A>\n");
    EXPECT_EQ(AfterSetting("<A><G/><H><B>b</B></H></A>", "A.G.B", "new"),
              "printed anew: <A>\n    <G>\n        <B>new</B>\n    </G>\n    <H>\n"
              "        <B>b</B>\n    </H>\n</A>\n");
    EXPECT_EQ(AfterSetting("<A><B><!-- c --></B></A>", "A.B", "new"),
              "printed anew: <A>\n    <B>new</B>\n</A>\n");
    EXPECT_EQ(AfterSetting("<A><B>x<C/></B></A>", "A.B", "new"),
              "printed anew: <A>\n    <B>\n        <C />new\n    </B>\n</A>\n");
    EXPECT_EQ(AfterSetting("<A><B/>x<C/></A>", "A.B", "new"),
              "printed anew: <A>\n    <B>new</B>x\n    <C />\n</A>\n");
}

TEST(KeptText, IsPrintedAnewWhereLinesTellNothing) {
    for (const char* const text :
         {"<A><!-- \n    <B>c</B>\n --><B>b</B></A>",
          "<A><C><![CDATA[\n    <B>c</B>]]></C><B/></A>",
          "<A><C>&amp;#x\n    &lt;B>c&lt;/B></C><B/></A>", "<!x \n<A>\n    <B/>><A><B>b</B></A>"}) {
        EXPECT_EQ(AfterSetting(text, "A.B", "new").find("printed anew: "), 0U) << text;
    }
    EXPECT_EQ(AfterSetting("<A><B>b</B></A>", "A.B", "&#x41;").find("printed anew: "), 0U);
}

TEST(KeptText, AValueThatIsRefusedLeavesTheTextTrue) {
    const auto document = Load("<A><B>b</B></A>");
    KeptText kept;
    static_cast<void>(kept.Of(*document));
    EXPECT_FALSE(Set(kept, *document, "A.-1", "x"));
    EXPECT_EQ(kept.Of(*document), SerialiseXmlDoc(*document));
}

TEST(KeptText, TheSecondChangeBeforeASaveLetsItGo) {
    const auto document = Load("<A><B>b</B><C>c</C></A>");
    KeptText kept;
    static_cast<void>(kept.Of(*document));
    for (int save = 0; save < 3; ++save) {
        ASSERT_TRUE(Set(kept, *document, "A.B", "1"));
        EXPECT_TRUE(kept.Holds(*document));
        EXPECT_EQ(kept.Of(*document), SerialiseXmlDoc(*document));
    }
    ASSERT_TRUE(Set(kept, *document, "A.B", "2"));
    ASSERT_TRUE(Set(kept, *document, "A.C", "3"));
    EXPECT_FALSE(kept.Holds(*document));
    EXPECT_EQ(kept.Of(*document), SerialiseXmlDoc(*document));
}

// The mark stands before the first of the two roots, so that the second would be taken for it.
TEST(KeptText, AByteOrderMarkHidesNoRoot) {
    const char* const text = "\xEF\xBB\xBF<A><B>first</B></A><A><B>second</B></A>";
    const std::string changed = AfterSetting(text, "A.B", "new");
    EXPECT_NE(changed.find("<B>new</B>\n</A>\n<A>\n    <B>second</B>"), std::string::npos)
        << changed;
}

// Documents of all that a file can bring in, with few names, so that most paths lead to something.
class generator {
  public:
    explicit generator(unsigned seed) : random_(seed) {}

    int Below(int bound) { return static_cast<int>(random_() % static_cast<unsigned>(bound)); }

    std::string AnyText() {
        static constexpr std::string_view pieces[] = {"a", "&lt;", "&amp;", "\n", "\n    &lt;B>",
                                                      " ", "b",    "&#10;", ">",  "&amp;#x"};
        std::string text;
        for (int i = Below(4); i > 0; --i) {
            text += pieces[Below(Below(20) == 0 ? static_cast<int>(std::size(pieces)) : 3)];
        }
        return text;
    }

    std::string Name() { return std::string(1, static_cast<char>('A' + Below(3))); }

    std::string Content(int depth) {
        switch (Below(depth > 0 ? 12 : 6)) {
            case 0:
                return "<!-- " + AnyText() + " -->";
            case 1:
                return "<![CDATA[" + AnyText() + "]]>";
            case 2:
            case 3:
            case 4:
                return AnyText();
            default:
                return Element(Name(), depth);
        }
    }

    std::string Element(const std::string& name, int depth) {
        std::string text = "<" + name + (Below(3) == 0 ? " x='" + AnyText() + "'" : "") + ">";
        for (int i = Below(2) == 0 ? Below(6) : 1; i > 0; --i) {
            text += Content(depth - 1);
        }
        return text + "</" + name + ">";
    }

    std::string Path() {
        std::string path = "A";
        for (int i = Below(5); i > 0; --i) {
            path.append(".").append(Name());
        }
        return path;
    }

  private:
    std::mt19937 random_;
};

TEST(KeptText, IsAlwaysWhatWouldBePrinted) {
    int followed = 0;
    const int last = rounds(3000);
    for (int seed = 0; seed < last; ++seed) {
        generator any(static_cast<unsigned>(seed));
        XmlDocument document("A");
        static_cast<void>(document.LoadXMLFile(any.Element("A", 5).c_str()));
        KeptText kept;
        for (int i = 0; i < 8; ++i) {
            ASSERT_EQ(kept.Of(document), SerialiseXmlDoc(document)) << seed;
            for (int change = any.Below(3); change >= 0; --change) {
                static_cast<void>(Set(kept, document, any.Path(), any.AnyText()));
                followed += kept.Holds(document) ? 1 : 0;
            }
        }
    }
    EXPECT_GT(followed, 1000);  // else little was tried here
}

}  // namespace
}  // namespace veltrancord
