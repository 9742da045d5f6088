// Loading the files of the configuration directory: which ones, under which name, with which words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "leaf/owned_fd.h"
#include "store/document_set.h"
#include "support/document_set_fixture.h"

namespace veltrancord {
namespace {

TEST_F(DocumentSet, LoadsEachFileUnderItsName) {
    Write("Account", "<Account><A>1</A></Account>");
    Write("Network", "<Network><B>2</B></Network>");
    const printed text = Load();
    EXPECT_EQ(text.out, "");
    EXPECT_EQ(text.err, "");
    names loaded = Names();
    std::sort(loaded.begin(), loaded.end());
    EXPECT_EQ(loaded, (names{"Account", "Network"}));
    const XmlDocNode* const node = FindXmlDocNode("Account");
    ASSERT_NE(node, nullptr);
    EXPECT_EQ(node->path, Path("Account"));
    EXPECT_STREQ(node->name, "Account");
    EXPECT_STREQ(node->doc->Value(), "Account");
    EXPECT_EQ(node->saveFlags, 0U);
    EXPECT_EQ(FindXmlDoc("Account"), node->doc.get());
    EXPECT_EQ(Value("Network.B"), "2");
    EXPECT_EQ(std::string(XmlConfigDir()), dir_);
}

TEST_F(DocumentSet, TellsWhenEverythingIsLoaded) {
    static_cast<void>(Load());
    EXPECT_EQ(g_loaded, 1);
    EXPECT_EQ(g_freed, 0);
}

TEST_F(DocumentSet, NamesAreComparedExactly) {
    Write("Account", "<A/>");
    static_cast<void>(Load());
    for (const char* const name : {"account", "Accoun", "Account ", "Account1", ""}) {
        EXPECT_EQ(FindXmlDoc(name), nullptr) << name;
        EXPECT_EQ(FindXmlDocNode(name), nullptr) << name;
    }
}

TEST_F(DocumentSet, LastFileReadIsTheHead) {
    for (const char* const name : {"A", "B", "C", "D"}) {
        Write(name, "<X/>");
    }
    names read;
    for (const auto& entry : std::filesystem::directory_iterator(dir_)) {
        read.insert(read.begin(), entry.path().filename());
    }
    static_cast<void>(Load());
    EXPECT_EQ(Names(), read);
}

TEST_F(DocumentSet, EmptyFileIsReportedAndSkipped) {
    Write("Empty", "");
    const printed text = Load();
    EXPECT_EQ(text.out, "(ifilesize <= 0)");
    EXPECT_EQ(text.err, "skip strxmlPath=" + Path("Empty") + "\n");
    EXPECT_EQ(g_xmlDocList, nullptr);
}

TEST_F(DocumentSet, WhatCannotBeOpenedForWritingIsReportedAndSkipped) {
    std::filesystem::create_directory(Path("Folder"));
    const printed text = Load();
    EXPECT_EQ(text.out, "open file is failed\n");
    EXPECT_EQ(text.err, "skip strxmlPath=" + Path("Folder") + "\n");
    EXPECT_EQ(Read(Path("missing"), -1), "open file is failed\n");
    std::filesystem::create_symlink(Path("nowhere"), Path("Dangling"));
    EXPECT_EQ(Read(Path("Dangling"), -1), "open file is failed\n");
    if (::geteuid() != 0) {
        Write("ReadOnly", "<A/>");
        ASSERT_EQ(::chmod(Path("ReadOnly").c_str(), 0444), 0);
        EXPECT_EQ(Read(Path("ReadOnly"), -1), "open file is failed\n");
    }
}

TEST_F(DocumentSet, FifoAndSocketBlockNothing) {
    ASSERT_EQ(::mkfifo(Path("Fifo").c_str(), 0600), 0);
    printed text = Load();
    EXPECT_EQ(text.out, "(ifilesize <= 0)");
    EXPECT_EQ(text.err, "skip strxmlPath=" + Path("Fifo") + "\n");
    std::filesystem::remove(Path("Fifo"));

    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string path = Path("S");
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    path.copy(address.sun_path, path.size());
    const owned_fd listener(::socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    text = Load();
    EXPECT_EQ(text.out, "open file is failed\n");
    EXPECT_EQ(Names(), names{});
}

TEST_F(DocumentSet, FileThatDoesNotParseIsKeptUnderItsName) {
    Write("Bad", "<Bad><A>1</A><B>");
    Write("Worse", "no markup at all");
    Write("Nul", std::string_view("\0<Nul/>", 7));
    const printed text = Load();
    EXPECT_EQ(text.out, "");
    for (const char* const name : {"Bad", "Worse", "Nul"}) {
        EXPECT_THAT(text.err, testing::HasSubstr("LoadXmlDir damaged, not read from line 1 on, "
                                                 "strxmlPath=" +
                                                 Path(name) + "\n"));
        EXPECT_TRUE(FindXmlDocNode(name)->damaged) << name;
    }
    EXPECT_EQ(Names().size(), 3U);
    ASSERT_NE(FindXmlDoc("Worse"), nullptr);
    EXPECT_TRUE(FindXmlDoc("Worse")->NoChildren());
    EXPECT_EQ(Value("Worse.A"), "none");
    ASSERT_NE(FindXmlDoc("Nul"), nullptr);
    EXPECT_TRUE(FindXmlDoc("Nul")->NoChildren());
    EXPECT_NE(FindXmlDoc("Bad"), nullptr);
}

TEST_F(DocumentSet, FileOfWhiteSpaceAloneIsEmptyAndNotDamaged) {
    Write("Blank", " \r\n\t\n");
    const printed text = Load();
    EXPECT_EQ(text.out + text.err, "");
    ASSERT_NE(FindXmlDocNode("Blank"), nullptr);
    EXPECT_FALSE(FindXmlDocNode("Blank")->damaged);
    EXPECT_TRUE(FindXmlDoc("Blank")->NoChildren());
}

TEST_F(DocumentSet, TheLineOfADamageIsTold) {
    Write("A", std::string_view("<A>\n<B>1</B>\n<C>2\0</C>\n</A>", 28));
    EXPECT_EQ(Load().err,
              "LoadXmlDir damaged, not read from line 3 on, strxmlPath=" + Path("A") + "\n");
    EXPECT_EQ(Value("A.B"), "1");
}

TEST_F(DocumentSet, TextBehindANulIsIgnored) {
    Write("A", std::string_view("<A><B>1</B></A>\0<C/>", 20));
    static_cast<void>(Load());
    EXPECT_EQ(Value("A.B"), "1");
    EXPECT_EQ(FindXmlDoc("A")->RootElement()->NextSibling(), nullptr);
}

TEST_F(DocumentSet, LineEndsMakeNoDifference) {
    Write("Lf", "<Lf>\n<A>one\ntwo</A>\n</Lf>\n");
    Write("CrLf", "<CrLf>\r\n<A>one\r\ntwo</A>\r\n</CrLf>\r\n");
    Write("Cr", "<Cr>\r<A>one\rtwo</A>\r</Cr>\r");
    static_cast<void>(Load());
    EXPECT_EQ(Value("Lf.A"), "one two");
    EXPECT_EQ(Value("CrLf.A"), "one two");
    EXPECT_EQ(Value("Cr.A"), "one two");
}

TEST_F(DocumentSet, FileWithADotInItsNameIsLoadedButNotAddressed) {
    Write("Account.xml", "<Account><A>1</A></Account>");
    static_cast<void>(Load());
    EXPECT_EQ(Names(), names{"Account.xml"});
    EXPECT_EQ(Value("Account.xml.A"), "none");
    EXPECT_EQ(Value("Account.A"), "none");
}

TEST_F(DocumentSet, NamesUpTo63BytesAreLoadedAndLongerOnesSkipped) {
    const std::string longest(63, 'n');
    const std::string longer(64, 'n');
    Write(longest, "<A/>");
    Write(longer, "<B/>");
    const printed text = Load();
    EXPECT_EQ(Names(), names{longest});
    EXPECT_EQ(text.out, "");
    EXPECT_EQ(text.err, "LoadXmlDir name too long, skip strxmlPath=" + Path(longer) + "\n");
}

TEST_F(DocumentSet, PathsUpTo127BytesAreLoadedAndLongerOnesSkipped) {
    ASSERT_LT(dir_.size(), 100U);
    dir_ += "/" + std::string(122 - dir_.size() - 1, 'd');
    std::filesystem::create_directory(dir_);
    Write("1234", "<A/>");
    Write("12345", "<B/>");
    const printed text = Load();
    EXPECT_EQ(Names(), names{"1234"});
    EXPECT_EQ(FindXmlDocNode("1234")->path, Path("1234"));
    EXPECT_EQ(text.err, "LoadXmlDir name too long, skip strxmlPath=" + Path("12345") + "\n");
    dir_.resize(dir_.rfind('/'));
}

TEST_F(DocumentSet, WhatAnInterruptedReplacementLeftIsSweptAndNeverLoaded) {
    Write("Account", "<Account/>");
    Write(".veltrancord-new.Account", "<Account><A>torn");
    const printed text = Load();
    EXPECT_EQ(Names(), names{"Account"});
    EXPECT_EQ(text.out + text.err, "");
    EXPECT_FALSE(std::filesystem::exists(Path(".veltrancord-new.Account")));
    // One that cannot be swept is not loaded either.
    std::filesystem::create_symlink(Path("Account"), Path(".veltrancord-new.Link"));
    FreeXmlDocs();
    static_cast<void>(Load());
    EXPECT_EQ(Names(), names{"Account"});
}

TEST_F(DocumentSet, DirectoryThatCannotBeOpenedGivesAnEmptySetAndOneLine) {
    const std::string missing = Path("missing");
    testing::internal::CaptureStderr();
    EXPECT_EQ(LoadXmlDir(missing.c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "LoadXmlDir can't open " + missing + " : No such file or directory\n");
    EXPECT_EQ(g_xmlDocList, nullptr);
    EXPECT_EQ(g_loaded, 1);
    EXPECT_STREQ(XmlConfigDir(), missing.c_str());
}

}  // namespace
}  // namespace veltrancord
