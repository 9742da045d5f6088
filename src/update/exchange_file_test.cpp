#include "update/exchange_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "leaf/owned_fd.h"
#include "leaf/result.h"
#include "support/loaded_directory.h"

namespace veltrancord {
namespace {

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
    EXPECT_EQ(write_exchange_file(path("out").c_str()), result_ok);
    EXPECT_EQ(get(base_ / "out"), "<ROOT>\n</ROOT>");
}

TEST_F(ExchangeFile, WritesDocumentsInListOrderAsTheLibraryPrintsThem) {
    load_in_order({{"A", "<?xml version=\"1.0\"?><A x=\"1\"><B>1</B><C/></A>"},
                   {"D", "<!-- c --><D>text</D>"},
                   {"E", ""}});
    EXPECT_EQ(write_exchange_file(path("out").c_str()), result_ok);

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
    EXPECT_EQ(write_exchange_file(path("out").c_str()), result_ok);
    EXPECT_TRUE(loads(get(base_ / "out")));
    EXPECT_GT(get(base_ / "out").size(), 200000U);
}

TEST_F(ExchangeFile, WritesIntoTheFileThatIsThere) {
    put(base_ / "out", std::string(1000, 'o'));
    ASSERT_EQ(chmod(path("out").c_str(), 0600), 0);
    const owned_fd held(open(path("out").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(write_exchange_file(path("out").c_str()), result_ok);
    char content[64];
    EXPECT_EQ(read(held.get(), content, sizeof content), 14);
    struct stat status {};
    ASSERT_EQ(stat(path("out").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

TEST_F(ExchangeFile, FailsWhereNothingCanBeCreated) {
    EXPECT_EQ(write_exchange_file(""), result_failed);
    EXPECT_EQ(write_exchange_file(path("missing/out").c_str()), result_failed);
    EXPECT_EQ(write_exchange_file(base_.c_str()), result_failed);
}

TEST_F(ExchangeFile, FailsWhereNotAllCanBeWritten) {
    load_in_order({{"A", "<A>1</A>"}});
    CaptureStderr();
    EXPECT_EQ(write_exchange_file("/dev/full"), result_failed);
    EXPECT_EQ(GetCapturedStderr(),
              std::string("write_exchange_file /dev/full error : ") + strerror(ENOSPC) + "\n");
}

}  // namespace
}  // namespace veltrancord
