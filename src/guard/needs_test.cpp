#include "guard/needs.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "store/change.h"
#include "store/path.h"
#include "support/loaded_directory.h"

namespace veltrancord {
namespace {

class Needs : public LoadedDirectory {
  protected:
    // The needs of a command on three documents, each as "class document".
    static std::vector<std::string> of(std::string_view command, std::string_view argument) {
        std::vector<std::string> found;
        EXPECT_TRUE(each_need(*traits_of(command), argument, [&](const access_need& need) {
            found.push_back(std::string(class_name(need.which)) + " " + std::string(need.document));
            return true;
        }));
        return found;
    }
    static std::vector<std::string> paths_of(std::string_view command, std::string_view argument) {
        std::vector<std::string> found;
        each_path(*traits_of(command), argument,
                  [&](std::string_view path, std::string_view value) {
                      found.push_back(std::string(path) + "|" + std::string(value));
                      return true;
                  });
        return found;
    }

    void SetUp() override {
        LoadedDirectory::SetUp();
        load({{"A", "<A><B>1</B></A>"}, {"C", "<C/>"}, {"D", "<D/>"}});
    }
};

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST_F(Needs, OfReadingAreTheDocumentOfThePath) {
    for (const std::string_view command :
         {"read", "readAndFilter", "readvalue", "readattr", "readsingleattr"}) {
        EXPECT_THAT(of(command, "A.B"), ElementsAre("read A")) << command;
        EXPECT_THAT(of(command, "..A..B.*"), ElementsAre("read A")) << command;
        EXPECT_THAT(of(command, "No such"), ElementsAre("read No_20such")) << command;
        EXPECT_THAT(of(command, ""), ElementsAre("read ")) << command;
    }
    EXPECT_THAT(of("readwithlevel", "A.x&y.B&3"), ElementsAre("read A"));
    EXPECT_THAT(of("readwithlevel", "A.B"), ElementsAre("read "));
}

TEST_F(Needs, OfReadingEverythingAreAllDocuments) {
    for (const std::string_view command : {"read", "readAndFilter"}) {
        EXPECT_THAT(of(command, "*"), UnorderedElementsAre("read A", "read C", "read D"))
            << command;
        EXPECT_THAT(of(command, ".*"), ElementsAre("read *")) << "which is a document's name there";
    }
    EXPECT_THAT(of("readwithlevel", "*&0"), UnorderedElementsAre("read A", "read C", "read D"));
    EXPECT_THAT(of("readvalue", "*"), ElementsAre("read *"));
}

TEST_F(Needs, OfWritingAreTheDocumentsOfAllLines) {
    EXPECT_THAT(of("write", "A.B=1\nC.D=2\nA.B=3"), ElementsAre("write A", "write C", "write A"));
    EXPECT_THAT(of("write", "no line\nA.B=3"), ElementsAre("write no_20line_0AA"));
    EXPECT_THAT(of("write", ""), ElementsAre("write "));
    EXPECT_THAT(of("writedbmem", "A.B=DispatchW"), ElementsAre("memory A"));
}

TEST_F(Needs, OfWritingAProgramsNameAreAdminToo) {
    EXPECT_THAT(of("writeattr", "A.B.Level=1"), ElementsAre("write A"));
    EXPECT_THAT(of("writeattr", "A.B.Level=1\nA.DispatchW=x"),
                ElementsAre("write A", "write A", "admin "));
    EXPECT_THAT(of("writeattr", "DispatchW=x"), ElementsAre("write DispatchW", "admin "));
    EXPECT_THAT(of("writeattr", "A.DispatchW.x=1"), ElementsAre("write A"));
}

TEST_F(Needs, OfRemovingAreTheDocumentOrAll) {
    EXPECT_THAT(of("remove", "A.B\n"), ElementsAre("remove A"));
    EXPECT_THAT(of("remove", "A.*"), ElementsAre("remove A"));
    EXPECT_THAT(of("remove", ".*\n"), UnorderedElementsAre("remove A", "remove C", "remove D"));
    EXPECT_THAT(of("remove", "*"), ElementsAre("remove *"));
}

TEST_F(Needs, OfSavingMemoryAreTheDocumentsThatAreChangedThere) {
    EXPECT_THAT(of("syncmemtoflash", ""), ElementsAre("memory "));
    XmlPath path;
    ASSERT_TRUE(SplitXmlPath("C.x", path));
    ASSERT_NE(ChangeValue(*FindXmlDocNode("C"), path, "1", DOC_SAVE_MEMORY), nullptr);
    EXPECT_THAT(of("syncmemtoflash", "A.B"), ElementsAre("memory C"));
}

TEST_F(Needs, OfOtherCommandsHaveNoDocument) {
    EXPECT_THAT(of("CheckSession", "A.B"), ElementsAre("sessions "));
    EXPECT_THAT(of("getGroupName", "A"), ElementsAre("permits "));
    EXPECT_THAT(of("cleanlog", ""), ElementsAre("log-clear "));
    EXPECT_THAT(of("XMLDBCallBack", "x"), ElementsAre("admin "));
}

TEST_F(Needs, AreNotLookedForBehindOneThatIsRefused) {
    int calls = 0;
    EXPECT_FALSE(each_need(*traits_of("write"), "A.B=1\nC.D=2", [&](const access_need&) {
        ++calls;
        return false;
    }));
    EXPECT_EQ(calls, 1);
}

TEST_F(Needs, HavePathsForTheTrailButNotOfWhatMayBeSecret) {
    EXPECT_THAT(paths_of("write", "A.B=1\nC.D=2"), ElementsAre("A.B|1", "C.D|2"));
    EXPECT_THAT(paths_of("write", "A.Password:mine\nA.B=1"), ElementsAre("A.B|1"));
    EXPECT_THAT(paths_of("remove", "A.B\n"), ElementsAre("A.B|"));
    EXPECT_THAT(paths_of("upload", "/tmp/x"), ElementsAre("/tmp/x|"));
    EXPECT_THAT(paths_of("SetSession", "token"), IsEmpty());
    EXPECT_THAT(paths_of("syncmemtoflash", "token"), IsEmpty());
    EXPECT_TRUE(names_secret("A.passWORD"));
    EXPECT_FALSE(names_secret("A.Password.B"));
}

}  // namespace
}  // namespace veltrancord
