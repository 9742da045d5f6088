#include "store/attribute_query.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "leaf/result.h"
#include "store/document_set.h"
#include "store/handlers.h"
#include "store/read_query.h"
#include "store/reply_capacity.h"

namespace veltrancord {
namespace {

uint32_t g_lengthWord = 0;

std::string Joined(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (const std::string_view part : parts) {
        text += part;
    }
    return text;
}

class AttributeQuery : public testing::Test {
  protected:
    AttributeQuery() {
        Load("Account",
             "<Account Level='9' Owner='o'>"
             "<User1 Level='3' AllowToShow='YES'><Name Level='1' Empty=''>n</Name><Leaf/></User1>"
             "<User2 Level='4'/><Bare><Deep Level='5'/></Bare></Account>");
    }
    ~AttributeQuery() override {
        FreeXmlDocs();
        g_storeHooks = {};
    }

    static void Load(const char* name, const std::string& text) {
        auto doc = std::make_unique<XmlDocument>(name);
        EXPECT_TRUE(doc->LoadXMLFile(text.c_str()));
        AddXmlDocNode(name, "", std::move(doc));
    }

    static std::string Single(std::string_view path) {
        std::string_view value;
        const int32_t result = ReadSingleAttr(path, value);
        if (result < 0) {
            return Joined({"-", std::to_string(-result)});
        }
        EXPECT_EQ(static_cast<std::size_t>(result), value.size());
        return std::string(value);
    }

    // The listing, or "-" and the result; what was printed goes before it.
    static std::string List(std::string_view path, std::size_t capacity = 10000) {
        reply_text out;
        EXPECT_TRUE(out.open(capacity + reply_key_slack));
        testing::internal::CaptureStderr();
        const int32_t result = ReadAttributeHandleFun(path, out);
        const std::string printed = testing::internal::GetCapturedStderr();
        if (result < 0) {
            EXPECT_EQ(out.size(), 0U);
            return Joined({printed, "-", std::to_string(-result)});
        }
        EXPECT_EQ(static_cast<std::size_t>(result), out.size());
        return printed + std::string(out.view());
    }
};

TEST_F(AttributeQuery, SingleAttributeIsItsBareValue) {
    EXPECT_EQ(Single("Account.User1.Level"), "3");
    EXPECT_EQ(Single("Account.User1.AllowToShow"), "YES");
    EXPECT_EQ(Single("Account.User1.Name.Empty"), "");
    EXPECT_EQ(Single("Account.Level"), "9");
}

TEST_F(AttributeQuery, SingleAttributeThatIsNotThere) {
    EXPECT_EQ(Single("Account.User1.Color"), "-4");
    EXPECT_EQ(Single("Account.User1.level"), "-4");
    EXPECT_EQ(Single("Account.User3.Level"), "-4");
    EXPECT_EQ(Single("Nope.Level"), "-4");
    EXPECT_EQ(Single("Account"), "-4");
}

TEST_F(AttributeQuery, OnlyComponentNamesTheAttributeOfTheRoot) {
    Load("R", "<R R='self'/>");
    EXPECT_EQ(Single("R"), "self");
    EXPECT_EQ(List("R"), "R.R=self\n");
}

TEST_F(AttributeQuery, SingleAttributeRefusesWildcards) {
    EXPECT_EQ(Single("Account.User1.*"), "-7");
    EXPECT_EQ(Single("Account.*.Level"), "-7");
    EXPECT_EQ(Single("Account.User1.#"), "-7");
    EXPECT_EQ(Single(".*"), "-7");
    EXPECT_EQ(Single(""), "-7");
    EXPECT_EQ(Single("..."), "-7");
    EXPECT_EQ(Single("Nope.*"), "-4");
    EXPECT_EQ(Single("*"), "-4");
}

TEST_F(AttributeQuery, PathFaultsOfAListing) {
    EXPECT_EQ(List(""), "-7");
    EXPECT_EQ(List(".."), "-7");
    EXPECT_EQ(List(".*"), "-7");
    EXPECT_EQ(List("*"), "-4");
    EXPECT_EQ(List("#"), "-4");
    EXPECT_EQ(List("Nope.*"), "-4");
    EXPECT_EQ(List("Account.User3.*"), "-4");
    EXPECT_EQ(List("Account.User3.#"), "-4");
    EXPECT_EQ(List("Account.User3.*.Level"), "-4");
    EXPECT_EQ(List("Account.User3.Level"), "-4");
}

TEST_F(AttributeQuery, OneAttribute) {
    EXPECT_EQ(List("Account.User1.Level"), "Account.User1.Level=3\n");
    EXPECT_EQ(List("Account.Level"), "Account.Level=9\n");
    EXPECT_EQ(List("Account.User1.Name.Empty"), "Account.User1.Name.Empty=\n");
    EXPECT_EQ(List("Account.User1.Color"), "");
}

TEST_F(AttributeQuery, OwnAttributes) {
    EXPECT_EQ(List("Account.User1.#"), "Account.User1.Level=3\nAccount.User1.AllowToShow=YES\n");
    EXPECT_EQ(List("Account.#"), "Account.Level=9\nAccount.Owner=o\n");
    EXPECT_EQ(List("Account.User1.Leaf.#"), "");
}

TEST_F(AttributeQuery, NumberSignIsKnownAsTheClientWroteIt) {
    Load("S", "<S a='1'><x _23='2' _5F23='3'/></S>");
    EXPECT_EQ(List("S.#"), "S.a=1\n");
    EXPECT_EQ(List("S.x._23"), "S.x._5F23=3\n");
}

TEST_F(AttributeQuery, AllAttributesBelow) {
    const std::string all =
        "Account.User1.Level=3\nAccount.User1.AllowToShow=YES\nAccount.User1.Name.Level=1\n"
        "Account.User1.Name.Empty=\nAccount.User2.Level=4\nAccount.Bare.Deep.Level=5\n";
    EXPECT_EQ(List("Account.*"), all);
    EXPECT_EQ(List("Account.*.*"), all);
    EXPECT_EQ(List("Account.User1.*"), "Account.User1.Name.Level=1\nAccount.User1.Name.Empty=\n");
    // An element without child elements lists its own.
    EXPECT_EQ(List("Account.User2.*"), "Account.User2.Level=4\n");
    EXPECT_EQ(List("Account.User1.Name.*"),
              "Account.User1.Name.Level=1\nAccount.User1.Name.Empty=\n");
    EXPECT_EQ(List("Account.User1.Leaf.*"), "");
    EXPECT_EQ(List("Account.*.*.*"), "-4");
}

TEST_F(AttributeQuery, OneAttributeInASubtree) {
    EXPECT_EQ(List("Account.*.Level"),
              "Account.User1.Level=3\nAccount.User1.Name.Level=1\nAccount.User2.Level=4\n"
              "Account.Bare.Deep.Level=5\n");
    EXPECT_EQ(List("Account.*.AllowToShow"), "Account.User1.AllowToShow=YES\n");
    EXPECT_EQ(List("Account.User2.*.Level"), "Account.User2.Level=4\n");
    EXPECT_EQ(List("Account.*.Color"), "");
    EXPECT_EQ(List("Account.*.#"), "-4");
    EXPECT_EQ(List("Account.User1.*.#"), "-4");
    EXPECT_EQ(List("*.#"), "-4");
}

TEST_F(AttributeQuery, LengthOfASubtreeListingIsStoredWhereTheSegmentIsAttached) {
    EXPECT_NE(List("Account.*.Level"), "");
    g_storeHooks.reply_length_word = []() -> uint32_t* { return nullptr; };
    EXPECT_NE(List("Account.*.Level"), "");
    g_storeHooks.reply_length_word = [] { return &g_lengthWord; };
    g_lengthWord = 77;
    for (const char* const path : {"Account.*", "Account.#", "Account.Level",
                                   "Account.User2.*.Level", "Account.Nope.*.Level"}) {
        static_cast<void>(List(path));
        EXPECT_EQ(g_lengthWord, 77U) << path;
    }
    EXPECT_EQ(List("Account.*.AllowToShow").size(), g_lengthWord);
    EXPECT_EQ(List("Account.*.Color").size(), g_lengthWord);
    EXPECT_EQ(g_lengthWord, 0U);
}

TEST_F(AttributeQuery, ElementNamesAreNotDecoded) {
    Load("S", "<S><a_20b x='1'><c_20d y='2'/></a_20b></S>");
    EXPECT_EQ(List("S.*"), "S.a_20b.x=1\nS.a_20b.c_20d.y=2\n");
    EXPECT_EQ(List("S.a b.#"), "S.a_20b.x=1\n");
    EXPECT_EQ(List("S.*.y"), "S.a_20b.c_20d.y=2\n");
}

TEST_F(AttributeQuery, AttributeNameOfAPathIsCutAt63Bytes) {
    const std::string name(63, 'a');
    Load("L", Joined({"<L ", name, "='cut' ", name, "a='whole'><M ", name, "='m'/></L>"}));
    EXPECT_EQ(Single(Joined({"L.", name})), "cut");
    EXPECT_EQ(Single(Joined({"L.", name, "a"})), "cut");
    EXPECT_EQ(List(Joined({"L.", name, "abc"})), Joined({"L.", name, "=cut\n"}));
    EXPECT_EQ(List(Joined({"L.*.", name, "abc"})), Joined({"L.M.", name, "=m\n"}));
}

TEST_F(AttributeQuery, KeysAreCutAt511BytesAndPrefixesAt255) {
    const std::string part(200, 'p');
    Load("L",
         Joined({"<L><", part, "><", part, "><", part, " a='1'/></", part, "></", part, "></L>"}));
    const std::string key = Joined({"L.", part, ".", part, ".", part});
    EXPECT_EQ(List("L.*"), Joined({key.substr(0, 511), "=1\n"}));
    const std::string path = Joined({"L.", part, ".", part});
    EXPECT_EQ(List(Joined({path, ".*"})), Joined({path.substr(0, 255), ".", part, ".a=1\n"}));
}

TEST_F(AttributeQuery, ListingOfOneElementThatDoesNotFitIsRefused) {
    // "Account.Level=9\n" is 16 bytes, "Account.Owner=o\n" too.
    EXPECT_EQ(List("Account.#", 32), "Account.Level=9\nAccount.Owner=o\n");
    EXPECT_EQ(List("Account.#", 31), "-7");
    EXPECT_EQ(List("Account.Level", 16), "Account.Level=9\n");
    EXPECT_EQ(List("Account.Level", 15), "ERR_PARAMETER\n-7");
    EXPECT_EQ(List("Account.User2.*", 21), "ERR_PARAMETER\n-7");
    EXPECT_EQ(List("Account.User2.*.Level", 21), "ERR_PARAMETER\n-7");
}

TEST_F(AttributeQuery, LineOfATreeThatDoesNotFitIsDroppedWithItsElementOnly) {
    Load("T", "<T><A long='0123456789' s='1'/><B s='2'/><C s='3'/></T>");
    EXPECT_EQ(List("T.*", 100), "T.A.long=0123456789\nT.A.s=1\nT.B.s=2\nT.C.s=3\n");
    EXPECT_EQ(List("T.*", 16), "T.B.s=2\nT.C.s=3\n");
    EXPECT_EQ(List("T.*", 15), "T.B.s=2\n");
    EXPECT_EQ(List("T.*.s", 8), "T.A.s=1\n");
    EXPECT_EQ(List("T.*", 7), "");
}

std::string Handle(command_handler& handler, std::string argument) {
    connection_record connection;
    const int32_t result = handler(connection, {argument.data(), argument.size()}, 0);
    return result < 0 ? Joined({"-", std::to_string(-result)})
                      : Joined({std::to_string(result), ":", connection.reply.view()});
}

TEST_F(AttributeQuery, Handlers) {
    EXPECT_EQ(Handle(readsingleattr_handle, "Account.User1.Level"), "1:3");
    EXPECT_EQ(Handle(readsingleattr_handle, "Account.User1.Name.Empty"), "0:");
    EXPECT_EQ(Handle(readsingleattr_handle, "Account.User1.*"), "-7");
    EXPECT_EQ(Handle(readattr_handle, "Account.User1.Level"), "22:Account.User1.Level=3\n");
    EXPECT_EQ(Handle(readattr_handle, "Account.User1.Color"), "0:");
    EXPECT_EQ(Handle(readattr_handle, ""), "-7");
    connection_record connection;
    EXPECT_EQ(readattr_handle(connection, {}, 0), result_bad_argument);
}

TEST_F(AttributeQuery, AttributeLongerThanTheCapacityIsRefused) {
    Load("B", "<B v='" + std::string(GetReadBufSize(), 'v') + "' w='" +
                  std::string(GetReadBufSize() + 1, 'w') + "'/>");
    EXPECT_EQ(Handle(readsingleattr_handle, "B.v").substr(0, 8), "262144:v");
    EXPECT_EQ(Handle(readsingleattr_handle, "B.w"), "-8");
}

}  // namespace
}  // namespace veltrancord
