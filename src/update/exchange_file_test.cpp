#include "update/exchange_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "support/loaded_directory.h"
#include "update/handlers.h"
#include "update/saving.h"
#include "update/write_lines.h"

namespace veltrancord {
namespace {

using texts = std::vector<std::string>;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class ExchangeFile : public LoadedDirectory {
  protected:
    [[nodiscard]] std::string path(const char* name) const { return (base_ / name).string(); }

    [[nodiscard]] bool loads(const std::string& content) const {
        put(base_ / "in", content);
        XmlDocument exchange("in");
        const bool loaded = load_exchange_file(path("in").c_str(), exchange);
        TiXmlDocument expected;
        EXPECT_EQ(loaded, expected.LoadFile(path("in").c_str())) << content;
        if (loaded) {
            TiXmlPrinter ours;
            TiXmlPrinter theirs;
            exchange.Accept(&ours);
            expected.Accept(&theirs);
            EXPECT_EQ(ours.Str(), theirs.Str());
        }
        return loaded;
    }
};

TEST_F(ExchangeFile, LoadsWhatTheLibraryLoads) {
    EXPECT_TRUE(loads("<ROOT><A>1</A></ROOT>"));
    EXPECT_TRUE(loads("<ROOT>\r\n<A>x\ry</A>\r</ROOT>\r\n"));
    EXPECT_TRUE(loads("<?xml version=\"1.0\"?><!-- c --><ROOT/>"));
    EXPECT_TRUE(loads(std::string("<ROOT/>\0<broken", 15)));
    EXPECT_TRUE(loads("\xEF\xBB\xBF<ROOT>\xC3\xA9</ROOT>"));
    EXPECT_TRUE(loads("<!-- no element at all -->"));
}

TEST_F(ExchangeFile, RefusesWhatTheLibraryRefuses) {
    for (const char* text :
         {"", " ", "\n", "text", "<ROOT>", "<ROOT><A></ROOT>", "<ROOT", "<ROOT></ROOT"}) {
        EXPECT_FALSE(loads(text)) << text;
    }
    EXPECT_FALSE(loads(std::string("\0<ROOT/>", 8)));
}

TEST_F(ExchangeFile, RefusesWhatCannotBeRead) {
    XmlDocument exchange("in");
    EXPECT_FALSE(load_exchange_file("", exchange));
    EXPECT_FALSE(load_exchange_file(path("missing").c_str(), exchange));
    EXPECT_FALSE(load_exchange_file(base_.c_str(), exchange));
    EXPECT_FALSE(load_exchange_file("/dev/null", exchange));
    EXPECT_FALSE(load_exchange_file("/dev/zero", exchange));
}

TEST_F(ExchangeFile, WaitsForNoWriterOfAPipe) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    XmlDocument exchange("pipe");
    EXPECT_FALSE(load_exchange_file(path("pipe").c_str(), exchange));
}

TEST_F(ExchangeFile, NeedsNoRightToWrite) {
    put(base_ / "in", "<ROOT/>");
    ASSERT_EQ(chmod(path("in").c_str(), 0444), 0);
    XmlDocument exchange("in");
    EXPECT_TRUE(load_exchange_file(path("in").c_str(), exchange));
}

TEST_F(ExchangeFile, RefusesTextThatNestsTooDeep) {
    const auto nested = [](int depth) {
        std::string text;
        for (int i = 0; i < depth; ++i) {
            text += "<a>";
        }
        for (int i = 0; i < depth; ++i) {
            text += "</a>";
        }
        return text;
    };
    EXPECT_TRUE(loads(nested(512)));
    for (const int depth : {513, 50000}) {
        put(base_ / "in", nested(depth));
        XmlDocument exchange("in");
        EXPECT_FALSE(load_exchange_file(path("in").c_str(), exchange));
    }
}

TEST_F(ExchangeFile, WritesAnEmptySet) {
    EXPECT_EQ(download_documents(path("out")), result_ok);
    EXPECT_EQ(get(base_ / "out"), "<ROOT>\n</ROOT>");
}

TEST_F(ExchangeFile, WritesDocumentsInListOrderAsTheLibraryPrintsThem) {
    load_in_order({{"A", "<?xml version=\"1.0\"?><A x=\"1\"><B>1</B><C/></A>"},
                   {"D", "<!-- c --><D>text</D>"},
                   {"E", ""}});
    EXPECT_EQ(download_documents(path("out")), result_ok);

    FILE* const expected = fopen(path("expected").c_str(), "w+");
    ASSERT_NE(expected, nullptr);
    fputs("<ROOT>\n", expected);
    for (const char* name : {"E", "D", "A"}) {
        FindXmlDoc(name)->Print(expected, 1);
    }
    fputs("</ROOT>", expected);
    fclose(expected);
    EXPECT_EQ(get(base_ / "out"), get(base_ / "expected"));
    EXPECT_TRUE(get(base_ / "out").ends_with("    </A>\n</ROOT>"));
}

TEST_F(ExchangeFile, WritesWhatIsLongerThanOneBlock) {
    const std::string text = "<A><B>" + std::string(100000, 'x') + "</B></A>";
    load_in_order({{"A", text.c_str()}, {"C", text.c_str()}});
    EXPECT_EQ(download_documents(path("out")), result_ok);
    EXPECT_TRUE(loads(get(base_ / "out")));
    EXPECT_GT(get(base_ / "out").size(), 200000U);
}

TEST_F(ExchangeFile, ReplacesTheFileThatIsThereInOneStep) {
    put(base_ / "out", std::string(1000, 'o'));
    ASSERT_EQ(chmod(path("out").c_str(), 0600), 0);
    const owned_fd held(open(path("out").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(download_documents(path("out")), result_ok);
    EXPECT_EQ(get(base_ / "out"), "<ROOT>\n</ROOT>");
    char content[64];
    EXPECT_EQ(read(held.get(), content, sizeof content), 64);  // who reads the old one reads on
    EXPECT_EQ(content[0], 'o');
    struct stat status {};
    ASSERT_EQ(stat(path("out").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(ExchangeFile, WritesWhatIsNoRegularFileAsItStands) {
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const owned_fd reader(open(path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    EXPECT_EQ(download_documents(path("pipe")), result_ok);
    char content[64];
    EXPECT_EQ(read(reader.get(), content, sizeof content), 14);
    EXPECT_EQ(download_documents("/dev/null"), result_ok);
    EXPECT_EQ(names(base_), (texts{"pipe", "xml"}));
}

TEST_F(ExchangeFile, FailsWhereNothingCanBeCreated) {
    EXPECT_EQ(download_documents(""), result_failed);
    EXPECT_EQ(download_documents(path("missing/out").c_str()), result_failed);
    EXPECT_EQ(download_documents(base_.c_str()), result_failed);
}

TEST_F(ExchangeFile, FailsWhereNotAllCanBeWritten) {
    load_in_order({{"A", "<A>1</A>"}});
    CaptureStderr();
    EXPECT_EQ(download_documents("/dev/full"), result_failed);
    EXPECT_EQ(GetCapturedStderr(),
              std::string("replace_file /dev/full error : ") + strerror(ENOSPC) + "\n");
}

class ExchangeCommands : public LoadedDirectory {
  protected:
    // An exchange file with this content. Return: its path.
    [[nodiscard]] std::string exchange(const std::string& content) const {
        put(base_ / "exchange", content);
        return (base_ / "exchange").string();
    }

    // A directory of a document's name: no file can be created in its place.
    void block(const char* name) const { std::filesystem::create_directory(config_ / name); }
};

TEST_F(ExchangeCommands, UploadReplacesAndCreatesDocuments) {
    load_in_order({{"A", "<A><Old>1</Old></A>"}, {"B", "<B>2</B>"}});
    EXPECT_EQ(run(upload_handle, exchange("<any><A><New x=\"y\">3</New></A><C>4</C></any>")),
              result_ok);
    EXPECT_EQ(loaded(), (texts{"C", "A", "B"}));
    EXPECT_EQ(file("A"), "    <A>\n        <New x=\"y\">3</New>\n    </A>");
    EXPECT_EQ(file("C"), "    <C>4</C>");
    EXPECT_EQ(document("A"), "<A>\n    <New x=\"y\">3</New>\n</A>\n");
    EXPECT_EQ(value("A.Old"), "(none)");
    EXPECT_EQ(names(config_), (texts{"A", "B", "C"}));
    EXPECT_EQ(flags("A"), 0U);
    EXPECT_EQ(change_counter_, 0U);
}

TEST_F(ExchangeCommands, UploadedDocumentsCanBeFoundByTheNextStart) {
    EXPECT_EQ(LoadXmlDir(config_.c_str()), 0);
    EXPECT_EQ(run(upload_handle, exchange("<R><A><V>1</V></A></R>")), result_ok);
    FreeXmlDocs();
    EXPECT_EQ(LoadXmlDir(config_.c_str()), 0);
    EXPECT_EQ(value("A.V"), "1");
}

TEST_F(ExchangeCommands, UploadForgetsWhatWasNotSaved) {
    load_in_order({{"A", "<A><V>1</V></A>"}});
    ASSERT_EQ(set_element_value("A.V", "2", false), result_ok);
    EXPECT_EQ(run(upload_handle, exchange("<R><A><V>3</V></A></R>")), result_ok);
    EXPECT_EQ(flags("A"), 0U);
    EXPECT_EQ(value("A.V"), "3");
}

// Such a file could not be read at the start, or memory did not suffice for it.
TEST_F(ExchangeCommands, UploadKeepsAFileThatIsThereWithoutBeingServed) {
    load_in_order({{"A", "<A>1</A>"}});
    put(config_ / "B", "<B>unread</B>");
    EXPECT_EQ(run(upload_handle, exchange("<R><A>2</A><B>3</B></R>")), result_ok);
    EXPECT_EQ(file("B"), "    <B>3</B>");
    EXPECT_EQ(file(".veltrancord-kept.B"), "<B>unread</B>");
    EXPECT_EQ(names(config_), (texts{".veltrancord-kept.B", "A", "B"}));
}

TEST_F(ExchangeCommands, UploadKeepsModeAndFollowsLinks) {
    put(base_ / "real", "<A>1</A>");
    std::filesystem::create_symlink(base_ / "real", config_ / "A");
    ASSERT_EQ(chmod((base_ / "real").c_str(), 0600), 0);
    ASSERT_EQ(LoadXmlDir(config_.c_str()), 0);
    EXPECT_EQ(run(upload_handle, exchange("<R><A>2</A></R>")), result_ok);
    EXPECT_TRUE(std::filesystem::is_symlink(config_ / "A"));
    EXPECT_EQ(get(base_ / "real"), "    <A>2</A>");
    struct stat status {};
    ASSERT_EQ(stat((base_ / "real").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(ExchangeCommands, AllRefuseFilesThatDoNotLoad) {
    load_in_order({{"A", "<A>1</A>"}});
    for (command_handler* handler : {upload_handle, restore_handle, syncxml_handle}) {
        EXPECT_EQ(run(handler, (base_ / "missing").string()), result_unparsable);
        EXPECT_EQ(run(handler, ""), result_unparsable);
        EXPECT_EQ(handler(connection_, {}, 0), result_unparsable);
        EXPECT_EQ(run(handler, exchange("<R><A>2</A>")), result_unparsable);
        EXPECT_EQ(run(handler, exchange("")), result_unparsable);
    }
    EXPECT_EQ(file("A"), "<A>1</A>");
    EXPECT_EQ(value("A"), "1");
}

TEST_F(ExchangeCommands, AllDoNothingWithoutElements) {
    load_in_order({{"A", "<A>1</A>"}});
    for (command_handler* handler : {upload_handle, restore_handle, syncxml_handle}) {
        EXPECT_EQ(run(handler, exchange("<R/>")), result_ok);
        EXPECT_EQ(run(handler, exchange("<R>text<!-- c --></R>")), result_ok);
        EXPECT_EQ(run(handler, exchange("<!-- c -->")), result_ok);
    }
    EXPECT_EQ(loaded(), texts{"A"});
    EXPECT_EQ(file("A"), "<A>1</A>");
}

// A path of exactly `length` characters to the file `base_`/exchange.
std::string padded(const std::filesystem::path& base, std::size_t length) {
    std::string path = base.string();
    while (path.size() + sizeof("/exchange") - 1 < length) {
        path += '/';
    }
    return path + "/exchange";
}

TEST_F(ExchangeCommands, BoundPathsEachInItsWay) {
    ASSERT_EQ(LoadXmlDir(config_.c_str()), 0);
    static_cast<void>(exchange("<R><A>1</A></R>"));
    EXPECT_EQ(run(upload_handle, padded(base_, 255)), result_ok);
    EXPECT_EQ(run(upload_handle, padded(base_, 256)), result_unparsable);
    EXPECT_EQ(run(restore_handle, padded(base_, 127)), result_ok);
    EXPECT_EQ(run(restore_handle, padded(base_, 128)), result_unparsable);
    EXPECT_EQ(run(restore_handle, padded(base_, 127) + "what is behind does not count"), result_ok);
    EXPECT_EQ(run(syncxml_handle, padded(base_, 127)), result_ok);
    EXPECT_EQ(run(syncxml_handle, padded(base_, 127) + "what is behind does not count"), result_ok);
    EXPECT_EQ(run(download_handle, padded(base_, 255)), result_ok);
    EXPECT_EQ(run(download_handle, padded(base_, 256)), result_failed);
    EXPECT_EQ(run(download_handle, ""), result_failed);
}

TEST_F(ExchangeCommands, SkipElementsWhoseFileCannotBeCreated) {
    load_in_order({{"A", "<A>1</A>"}});
    block("B");
    const std::string path = exchange("<R><B>2</B><A>3</A></R>");
    for (command_handler* handler : {upload_handle, restore_handle, syncxml_handle}) {
        CaptureStderr();
        EXPECT_EQ(run(handler, path), result_ok);
        EXPECT_EQ(GetCapturedStderr(), "");
        EXPECT_EQ(loaded(), texts{"A"});
    }
    EXPECT_TRUE(std::filesystem::is_directory(config_ / "B"));
}

TEST_F(ExchangeCommands, AnOldDocumentStaysWhereItsFileCannotBeCreated) {
    load_in_order({{"A", "<A>1</A>"}});
    std::filesystem::remove(config_ / "A");
    block("A");
    EXPECT_EQ(run(upload_handle, exchange("<R><A>2</A></R>")), result_ok);
    EXPECT_EQ(value("A"), "1");
}

TEST_F(ExchangeCommands, OldFileAndDocumentStayWhereTheNewOneHasNoRoom) {
    load_in_order({{"A", "<A>1</A>"}, {"B", "<B>1</B>"}});
    const std::string path =
        exchange("<R><B>2</B><A>" + std::string(3000, 'x') + "</A><B>3</B></R>");
    const auto run_out_of_room = [&](int32_t (*command)(std::string_view)) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) {
            _exit(1);
        }
        const int32_t result = command(path);
        _exit(result == result_failed && file("A") == "<A>1</A>" && file("B") == "    <B>2</B>" &&
                      names(config_) == texts{"A", "B"}
                  ? 0
                  : 2);
    };
    const std::string line =
        "replace_file " + (config_ / "A").string() + " error : " + strerror(EFBIG) + "\n";
    EXPECT_EXIT(run_out_of_room(upload_documents), ::testing::ExitedWithCode(0), "^" + line + "$");
    put(config_ / "B", "<B>1</B>");
}

// A name that agrees with a loaded one in all that a record holds must not touch that document.
TEST_F(ExchangeCommands, SkipNamesThatTheNextStartWouldSkip) {
    const std::string fits(63, 'n');
    const std::string longer = fits + "n";
    load_in_order({{fits.c_str(), ("<" + fits + ">old</" + fits + ">").c_str()}});
    const std::string path = exchange("<R><" + longer + ">1</" + longer + "><A>2</A></R>");
    for (command_handler* handler : {upload_handle, restore_handle, syncxml_handle}) {
        CaptureStderr();
        EXPECT_EQ(run(handler, path), result_ok);
        EXPECT_EQ(GetCapturedStderr(), "create_document name too long, skip strxmlPath=" +
                                           (config_ / longer).string() + "\n");
        EXPECT_EQ(file(fits.c_str()), "<" + fits + ">old</" + fits + ">");
        EXPECT_EQ(value(fits.c_str()), "old");
        EXPECT_EQ(value("A"), "2");
        EXPECT_EQ(names(config_), (texts{"A", fits}));
    }
}

TEST_F(ExchangeCommands, KeepTheOriginalOfADamagedFile) {
    for (command_handler* handler : {upload_handle, restore_handle}) {
        put(config_ / "A", "<A><V>1</V><A");
        ASSERT_EQ(LoadXmlDir(config_.c_str()), 0);
        ASSERT_TRUE(FindXmlDocNode("A")->damaged);
        EXPECT_EQ(run(handler, exchange("<R><A><W>2</W></A></R>")), result_ok);
        EXPECT_EQ(file(".veltrancord-kept.A"), "<A><V>1</V><A");
        EXPECT_FALSE(FindXmlDocNode("A")->damaged);
        EXPECT_EQ(run(handler, exchange("<R><A><W>3</W></A></R>")), result_ok);
        EXPECT_EQ(file(".veltrancord-kept.A"), "<A><V>1</V><A");  // the next one is no original
        FreeXmlDocs();
    }
}

TEST_F(ExchangeCommands, ReplaceNoDamagedFileThatCannotBeKept) {
    put(config_ / "A", "<A><V>1</V><A");
    ASSERT_EQ(LoadXmlDir(config_.c_str()), 0);
    std::filesystem::create_directory(config_ / ".veltrancord-kept.A");
    EXPECT_EQ(run(upload_handle, exchange("<R><A><W>2</W></A></R>")), result_failed);
    EXPECT_EQ(file("A"), "<A><V>1</V><A");
    EXPECT_EQ(value("A.V"), "1");
    EXPECT_EQ(names(config_), (texts{".veltrancord-kept.A", "A"}));
}

TEST_F(ExchangeCommands, RestoreKeepsCurrentSettingsAndAddsWhatTheFileHas) {
    load_in_order({{"A", "<A><Same>current</Same><Mine>1</Mine></A>"}});
    EXPECT_EQ(run(restore_handle, exchange("<R><A><Same>file</Same><Theirs>2</Theirs></A>"
                                           "<B>3</B></R>")),
              result_ok);
    EXPECT_EQ(document("A"),
              "<A>\n    <Same>current</Same>\n    <Theirs>2</Theirs>\n    <Mine>1</Mine>\n</A>\n");
    EXPECT_EQ(file("A"),
              "    <A>\n        <Same>current</Same>\n        <Theirs>2</Theirs>\n"
              "        <Mine>1</Mine>\n    </A>");
    EXPECT_EQ(value("B"), "3");
    EXPECT_EQ(loaded(), (texts{"B", "A"}));
    EXPECT_EQ(flags("A"), 0U);
    EXPECT_EQ(change_counter_, 0U);
}

TEST_F(ExchangeCommands, RestoreMergesNothingBehindADeclaration) {
    load_in_order({{"A", "<?xml version=\"1.0\"?><A><Same>current</Same></A>"}});
    EXPECT_EQ(run(restore_handle, exchange("<R><A><Same>file</Same></A></R>")), result_ok);
    EXPECT_EQ(value("A.Same"), "file");
}

TEST_F(ExchangeCommands, RestoreDropsRecordsWithoutFiles) {
    load_in_order({{"A", "<A>1</A>"}, {"B", "<B>2</B>"}, {"C", "<C>3</C>"}});
    std::filesystem::remove(config_ / "B");
    std::filesystem::remove(config_ / "C");
    EXPECT_EQ(run(restore_handle, exchange("<R><D>4</D></R>")), result_ok);
    EXPECT_EQ(loaded(), (texts{"D", "A"}));
    std::filesystem::remove(config_ / "D");
    EXPECT_EQ(run(upload_handle, exchange("<R><E>5</E></R>")), result_ok);
    EXPECT_EQ(loaded(), (texts{"E", "D", "A"}));
}

TEST_F(ExchangeCommands, RestoreSurvivesTheLossOfTheHead) {
    load_in_order({{"A", "<A>1</A>"}, {"B", "<B>2</B>"}});
    std::filesystem::remove(config_ / "B");
    block("X");
    EXPECT_EQ(run(restore_handle, exchange("<R><X>1</X><A>2</A><C>3</C></R>")), result_ok);
    EXPECT_EQ(loaded(), (texts{"C", "A"}));
    EXPECT_EQ(run(download_handle, (base_ / "out").string()), result_ok);
    // The text of a root element is no setting that is merged.
    EXPECT_EQ(get(base_ / "out"), "<ROOT>\n    <C>3</C>\n    <A>2</A>\n</ROOT>");
    EXPECT_EQ(run(remove_handle, ".*"), result_ok);
    EXPECT_TRUE(loaded().empty());
}

TEST_F(ExchangeCommands, SyncMergesIntoTheLoadedDocumentAndSavesItAfterwards) {
    load_in_order({{"A", "<A><Same>current</Same><Mine>1</Mine></A>"}});
    EXPECT_EQ(run(syncxml_handle, exchange("<R><A><Same>file</Same><New><B>2</B></New></A>"
                                           "<C>3</C></R>")),
              result_ok);
    EXPECT_EQ(value("A.Same"), "file");
    EXPECT_EQ(value("A.Mine"), "1");
    EXPECT_EQ(value("A.New.B"), "2");
    EXPECT_EQ(flags("A"), DOC_SAVE_FLASH);
    EXPECT_EQ(file("A"), "<A><Same>current</Same><Mine>1</Mine></A>");
    save_changed_documents();
    EXPECT_NE(file("A").find("<Same>file</Same>"), std::string::npos);
    EXPECT_EQ(file("C"), "    <C>3</C>");
    EXPECT_EQ(flags("C"), 0U);
    EXPECT_EQ(loaded(), (texts{"C", "A"}));
}

TEST_F(ExchangeCommands, DownloadThenUploadGivesTheSameSettings) {
    load_in_order({{"A", "<A x=\"1\"><B>1</B><C/></A>"}, {"D", "<D><E f='2'>&lt;&amp;</E></D>"}});
    const std::string out = (base_ / "out").string();
    EXPECT_EQ(run(download_handle, out), result_ok);
    const std::string first = get(out);
    const texts before = {document("A"), document("D")};
    EXPECT_EQ(run(upload_handle, out), result_ok);
    EXPECT_EQ((texts{document("A"), document("D")}), before);
    EXPECT_EQ(loaded(), (texts{"A", "D"}));
    EXPECT_EQ(run(download_handle, out), result_ok);
    EXPECT_EQ(run(upload_handle, out), result_ok);
    EXPECT_EQ(run(download_handle, out), result_ok);
    EXPECT_EQ(get(out), first);
}

TEST_F(ExchangeCommands, SyncmemtoflashCountsAsAChange) {
    EXPECT_EQ(run(syncmemtoflash_handle, ""), result_not_found);
    EXPECT_EQ(change_counter_, 1U);
    load_in_order({{"A", "<A><V>1</V></A>"}});
    ASSERT_EQ(set_element_value("A.V", "2", false), result_ok);
    EXPECT_EQ(run(syncmemtoflash_handle, "whatever"), result_ok);
    EXPECT_EQ(change_counter_, 2U);
    EXPECT_EQ(file("A"), "<A>\n    <V>2</V>\n</A>\n");
}

}  // namespace
}  // namespace veltrancord
