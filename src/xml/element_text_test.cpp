#include "xml/element_text.h"

#include <gtest/gtest.h>

#include <string>

#include "xml/document.h"

namespace veltrancord {
namespace {

// What the element becomes under each rule, in the order of the header; "-" where it is left alone.
struct Rules {
    std::string write, sync, restore;
    bool operator==(const Rules&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Rules& rules) {
    return stream << rules.write << " | " << rules.sync << " | " << rules.restore;
}

template <class Rule>
std::string After(const std::string& children, Rule rule) {
    XmlDocument document("A");
    document.LoadXMLFile(("<A>" + children + "</A>").c_str());
    rule(*document.RootElement());
    TiXmlPrinter printer;
    printer.SetStreamPrinting();
    document.Accept(&printer);
    const std::string text = printer.Str();
    return text.substr(3, text.size() - 7);
}

Rules Setting(const std::string& children) {
    return {After(children, [](TiXmlElement& a) { WriteElementText(a, "new"); }),
            After(children, [](TiXmlElement& a) { SyncElementText(a, "new"); }),
            After(children, [&](TiXmlElement& a) {
                const bool set = RestoreElementText(a, "new");
                EXPECT_EQ(set, XmlElementText(a) == "new");
            })};
}

TEST(ElementText, IsTheFirstChildOrNothing) {
    XmlDocument document("A");
    document.LoadXMLFile("<A><B>x<C/></B><D><C/>x</D><E/></A>");
    const auto text = [&](const char* name) {
        return XmlElementText(*document.RootElement()->FirstChildElement(name));
    };
    EXPECT_EQ(text("B"), "x");
    EXPECT_EQ(text("D").data(), nullptr);
    EXPECT_EQ(text("E").data(), nullptr);
}

TEST(ElementText, IsSetByThreeRules) {
    EXPECT_EQ(Setting(""), (Rules{"new", "new", "new"}));
    EXPECT_EQ(Setting("old"), (Rules{"new", "new", "new"}));
    EXPECT_EQ(Setting("<![CDATA[old]]>"), (Rules{"new", "new", "<![CDATA[new]]>"}));
    EXPECT_EQ(Setting("old<B />"), (Rules{"<B />new", "new<B />", "new<B />"}));
    EXPECT_EQ(Setting("<B /><C />"), (Rules{"<C />new", "<C />new", "<B /><C />"}));
    EXPECT_EQ(Setting("<!--c-->old"), (Rules{"oldnew", "oldnew", "<!--c-->old"}));
}

}  // namespace
}  // namespace veltrancord
