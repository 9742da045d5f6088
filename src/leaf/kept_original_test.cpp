#include "leaf/kept_original.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "leaf/file_replacer.h"
#include "leaf/result.h"
#include "support/replaced_files.h"

namespace veltrancord {
namespace {

namespace fs = std::filesystem;

constexpr char kept_name[] = ".veltrancord-kept.A";

class KeptOriginal : public FileReplacer {
  protected:
    [[nodiscard]] int32_t keep() const { return keep_original(path("A").c_str()); }
    [[nodiscard]] ino_t inode(const char* name) const {
        struct stat status {};
        EXPECT_EQ(stat(path(name).c_str(), &status), 0) << name;
        return status.st_ino;
    }
};

TEST_F(KeptOriginal, IsTheFileItselfUnderAnotherName) {
    put("A", "damaged");
    EXPECT_EQ(keep(), result_ok);
    EXPECT_EQ(inode(kept_name), inode("A"));
    EXPECT_EQ(replace_file(path("A").c_str(), "new"), result_ok);
    EXPECT_EQ(get("A"), "new");
    EXPECT_EQ(get(kept_name), "damaged");
    EXPECT_EQ(names(), (std::vector<std::string>{kept_name, "A"}));
}

TEST_F(KeptOriginal, IsTheNewest) {
    put(kept_name, "older");
    put("A", "damaged");
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(keep(), result_ok);
        EXPECT_EQ(get(kept_name), "damaged");
        EXPECT_EQ(names(), (std::vector<std::string>{kept_name, "A"}));
    }
}

TEST_F(KeptOriginal, IsACopyOfWhatASymbolicLinkLeadsTo) {
    fs::create_directory(path("elsewhere"));
    put("elsewhere/real", "damaged");
    fs::create_symlink(path("elsewhere/real"), path("A"));
    EXPECT_EQ(keep(), result_ok);
    EXPECT_EQ(get(kept_name), "damaged");
    EXPECT_FALSE(fs::is_symlink(path(kept_name)));
    EXPECT_NE(inode(kept_name), inode("elsewhere/real"));
    EXPECT_EQ(mode(kept_name), 0600U);
}

// A directory in the temporary file's place leaves only the way to write in place.
TEST_F(KeptOriginal, StaysWhatItIsWhereTheFileIsWrittenInPlace) {
    put("A", "damaged");
    fs::create_directory(path(".veltrancord-new.A"));
    EXPECT_EQ(keep(), result_ok);
    const ino_t before = inode("A");
    EXPECT_EQ(replace_file(path("A").c_str(), "new"), result_ok);
    EXPECT_EQ(inode("A"), before);
    EXPECT_EQ(get("A"), "new");
    EXPECT_EQ(get(kept_name), "damaged");
}

TEST_F(KeptOriginal, AFileWithAnotherNameIsWrittenInPlaceAsItIs) {
    put("A", "old");
    fs::create_hard_link(path("A"), path("B"));
    fs::create_directory(path(".veltrancord-new.A"));
    EXPECT_EQ(replace_file(path("A").c_str(), "new"), result_ok);
    EXPECT_EQ(get("B"), "new");
}

TEST_F(KeptOriginal, SaysSoWhereNothingCanBeKept) {
    put("A", "damaged");
    fs::create_directory(path(kept_name));
    testing::internal::CaptureStderr();
    EXPECT_EQ(keep(), result_failed);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "keep_original " + path("A") + " error : " + strerror(EISDIR) + "\n");
    EXPECT_EQ(names(), (std::vector<std::string>{kept_name, "A"}));
}

TEST_F(KeptOriginal, WhatIsMissingNeedsNoKeeping) {
    EXPECT_EQ(keep(), result_ok);
    EXPECT_EQ(keep_original(path("no/such/directory").c_str()), result_ok);
    EXPECT_TRUE(names().empty());
}

TEST_F(KeptOriginal, WhatIsEmptyNeedsNoKeeping) {
    put("A", "");
    EXPECT_EQ(keep(), result_ok);
    EXPECT_EQ(names(), std::vector<std::string>{"A"});
}

TEST_F(KeptOriginal, AVeryLongNameIsCut) {
    const std::string name(255, 'n');
    put(name, "damaged");
    EXPECT_EQ(keep_original(path(name).c_str()), result_ok);
    EXPECT_EQ(get(".veltrancord-kept." + name.substr(18)), "damaged");
}

TEST_F(KeptOriginal, IsToldByItsName) {
    EXPECT_TRUE(is_kept_original(kept_name));
    for (const char* name :
         {"A", ".veltrancord-kept.", ".veltrancord-new.A", "x.veltrancord-kept.A"}) {
        EXPECT_FALSE(is_kept_original(name)) << name;
    }
    EXPECT_FALSE(is_replacement_leftover(kept_name));
}

}  // namespace
}  // namespace veltrancord
