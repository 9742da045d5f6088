#include "guard/exchange_place.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace veltrancord {
namespace {

namespace fs = std::filesystem;

class ExchangePlace : public testing::Test {
  protected:
    ExchangePlace() {
        char name[] = "/tmp/exchange_place-XXXXXX";
        top_ = ::mkdtemp(name);
        ::chmod(top_.c_str(), 0755);
        fs::create_directories(top_ / "in/deep");
        fs::create_directory(top_ / "inside");
        below_ = {(top_ / "in").string()};
    }
    ~ExchangePlace() override { fs::remove_all(top_); }

    std::string write(const fs::path& name, const std::string& text) const {
        std::ofstream(top_ / name) << text;
        return (top_ / name).string();
    }
    bool copied(const std::string& path) {
        file_ = {};
        return copy_guarded_file(path, below_, file_);
    }
    std::string place(const fs::path& name) const {
        return guarded_place((top_ / name).string(), below_, ::geteuid());
    }

    fs::path top_;
    std::vector<std::string> below_;
    guarded_file file_;
};

TEST_F(ExchangePlace, GivesACopyWithItsDocuments) {
    ASSERT_TRUE(copied(write("in/deep/file", "<R><A/><B><C/></B><A/></R>")));
    EXPECT_THAT(file_.documents, testing::ElementsAre("A", "B", "A"));
    EXPECT_FALSE(file_.sets_programs);
    write("in/deep/file", "something else");
    std::ifstream copy(file_.path);
    std::string text;
    std::getline(copy, text);
    EXPECT_EQ(text, "<R><A/><B><C/></B><A/></R>");
}

TEST_F(ExchangePlace, SeesAProgramWhereverItIsNamed) {
    for (const std::string text :
         {"<R><A DispatchW=''/></R>", "<R><A><B><C DispatchW='x'/></B></A></R>",
          "<R><A><B/>text<!-- --><C/></A><D><E/><F DispatchW='x'>t</F></D></R>"}) {
        ASSERT_TRUE(copied(write("in/file", text)));
        EXPECT_TRUE(file_.sets_programs) << text;
    }
    ASSERT_TRUE(copied(write("in/file", "<R DispatchW='x'><A dispatchw='x'>DispatchW</A></R>")));
    EXPECT_FALSE(file_.sets_programs) << "the root element is no document's";
}

TEST_F(ExchangePlace, OfAFileThatDoesNotParseHasNoDocuments) {
    for (const std::string text : {"", "<R><A>", "no XML"}) {
        EXPECT_TRUE(copied(write("in/file", text)));
        EXPECT_THAT(file_.documents, testing::IsEmpty());
    }
    EXPECT_TRUE(copied((top_ / "in/missing").string()));
    EXPECT_TRUE(file_.copy);
}

TEST_F(ExchangePlace, LiesBelowOneOfTheDirectories) {
    const std::string outside = write("outside", "<R/>");
    write("inside/file", "<R/>");
    write("in/file", "<R/>");
    fs::create_symlink(outside, top_ / "in/link");
    fs::create_directory_symlink(top_ / "inside", top_ / "in/away");
    fs::create_directory_symlink("../../inside", top_ / "in/deep/up");
    for (const char* const name :
         {"outside", "inside/file", "in/link", "in/away/file", "in/../outside", "in/deep/../file",
          "in/deep/up/file", "in/./file", "in", "in/", "in/deep", "in/deep/..",
          "in/nowhere/file"}) {
        EXPECT_FALSE(copied((top_ / name).string())) << name;
    }
    EXPECT_FALSE(copied(""));
    EXPECT_FALSE(copied("in/file"));
    EXPECT_TRUE(copied((top_ / "in/file").string()));
    below_ = {(top_ / "nowhere").string()};
    EXPECT_FALSE(copied((top_ / "in/file").string()));
    below_ = {};
    EXPECT_FALSE(copied((top_ / "in/file").string()));
    fs::create_directory_symlink(top_ / "in", top_ / "named");
    below_ = {(top_ / "named").string()};
    EXPECT_TRUE(copied((top_ / "in/file").string())) << "the directory itself may be a link";
    below_ = {"/"};
    EXPECT_TRUE(copied((top_ / "in/file").string()));
}

TEST_F(ExchangePlace, HoldsNoFileWithASecondNameNorOneOfAnotherKind) {
    fs::create_hard_link(write("outside", "<R/>"), top_ / "in/second");
    EXPECT_FALSE(copied((top_ / "in/second").string()));
    ASSERT_EQ(::mkfifo((top_ / "in/fifo").c_str(), 0600), 0);
    EXPECT_FALSE(copied((top_ / "in/fifo").string()));
}

TEST_F(ExchangePlace, LeavesNothingToReadOfWhatCannotBeLookedInto) {
    guarded_file damaged;
    ASSERT_TRUE(copy_guarded_file(write("in/damaged", "<R><Network/></S>"), below_, damaged));
    EXPECT_TRUE(damaged.documents.empty());
    EXPECT_EQ(::lseek(damaged.copy.get(), 0, SEEK_END), 0);
    guarded_file sound;
    ASSERT_TRUE(copy_guarded_file(write("in/sound", "<R><Network/></R>"), below_, sound));
    EXPECT_EQ(sound.documents, std::vector<std::string>{"Network"});
    EXPECT_EQ(::lseek(sound.copy.get(), 0, SEEK_END), 17);
}

TEST_F(ExchangePlace, TakesAFileUpToItsBound) {
    const std::string path = write("in/file", "");
    fs::resize_file(path, max_guarded_file);
    EXPECT_TRUE(copied(path));
    fs::resize_file(path, max_guarded_file + 1);
    EXPECT_FALSE(copied(path));
}

TEST_F(ExchangePlace, IsWrittenToWhereNobodyElseMayWrite) {
    EXPECT_EQ(place("in/new"), (top_ / "in/new").string());
    EXPECT_EQ(place("in//new"), (top_ / "in/new").string());
    write("in/old", "x");
    EXPECT_EQ(place("in/old"), (top_ / "in/old").string());
    fs::create_symlink(top_ / "target", top_ / "in/link");
    EXPECT_EQ(place("in/link"), "");
    EXPECT_EQ(place("in/deep"), "");
    EXPECT_EQ(place("in/../new"), "");
    EXPECT_EQ(place("inside/new"), "");
    ASSERT_EQ(::chmod((top_ / "in/deep").c_str(), 0777), 0);
    EXPECT_EQ(place("in/deep/new"), "");
    if (::geteuid() == 0) {
        ASSERT_EQ(::chmod((top_ / "in/deep").c_str(), 0755), 0);
        ASSERT_EQ(::chown((top_ / "in/deep").c_str(), 54321, 54321), 0);
        EXPECT_EQ(place("in/deep/new"), "");
    }
}

}  // namespace
}  // namespace veltrancord
