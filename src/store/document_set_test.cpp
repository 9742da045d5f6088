#include "store/document_set.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "leaf/owned_fd.h"
#include "store/value.h"

namespace veltrancord {
namespace {

int g_loaded = 0;
int g_freed = 0;

class document_set : public testing::Test {
  protected:
    document_set() {
        std::string name = testing::TempDir() + "document_set-XXXXXX";
        dir_ = ::mkdtemp(name.data());
        g_loaded = g_freed = 0;
        g_storeHooks.loaded = [] { ++g_loaded; };
        g_storeHooks.freed = [] { ++g_freed; };
    }
    ~document_set() override {
        FreeXmlDocs();
        g_storeHooks = {};
        std::filesystem::remove_all(dir_);
    }

    [[nodiscard]] std::string Path(std::string_view name) const {
        return dir_ + "/" + std::string(name);
    }

    void Write(std::string_view name, std::string_view content) const {
        std::ofstream(Path(name)) << content;
    }

    // Loads the directory and gives what was printed.
    struct printed {
        std::string out;
        std::string err;
    };
    [[nodiscard]] printed Load() const {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        EXPECT_EQ(LoadXmlDir(dir_.c_str()), 0);
        printed result;
        result.out = testing::internal::GetCapturedStdout();
        result.err = testing::internal::GetCapturedStderr();
        return result;
    }

    // What LoadFile2Buf prints to standard output and gives.
    static std::string Read(const std::string& path, int32_t expected,
                            std::string* text = nullptr) {
        testing::internal::CaptureStdout();
        file_text buffer;
        EXPECT_EQ(LoadFile2Buf(path.c_str(), buffer), expected);
        EXPECT_EQ(buffer != nullptr, expected == 0);
        if (text != nullptr && buffer != nullptr) {
            *text = buffer.get();
        }
        return testing::internal::GetCapturedStdout();
    }

    static std::vector<std::string> Names() {
        std::vector<std::string> names;
        const XmlDocNode* prev = nullptr;
        for (const XmlDocNode* node = g_xmlDocList; node != nullptr; node = node->next) {
            EXPECT_EQ(node->prev, prev);
            prev = node;
            if (node->doc != nullptr) {
                names.emplace_back(node->name);
            }
        }
        return names;
    }

    static XmlDocNode* Add(const char* name, const std::string& path, const char* text = "<A/>") {
        auto doc = std::make_unique<XmlDocument>(name);
        static_cast<void>(doc->LoadXMLFile(text));
        return AddXmlDocNode(name, path, std::move(doc));
    }

    static std::string Value(std::string_view path) {
        XmlValue out;
        return ReadXmlValue(path, out) < 0 ? "none" : std::string(out.text);
    }

    std::string dir_;
};

using names = std::vector<std::string>;

TEST_F(document_set, loads_each_file_under_its_name) {
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

TEST_F(document_set, tells_when_everything_is_loaded) {
    static_cast<void>(Load());
    EXPECT_EQ(g_loaded, 1);
    EXPECT_EQ(g_freed, 0);
}

TEST_F(document_set, names_are_compared_exactly) {
    Write("Account", "<A/>");
    static_cast<void>(Load());
    for (const char* const name : {"account", "Accoun", "Account ", "Account1", ""}) {
        EXPECT_EQ(FindXmlDoc(name), nullptr) << name;
        EXPECT_EQ(FindXmlDocNode(name), nullptr) << name;
    }
}

TEST_F(document_set, last_file_read_is_the_head) {
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

TEST_F(document_set, empty_file_is_reported_and_skipped) {
    Write("Empty", "");
    const printed text = Load();
    EXPECT_EQ(text.out, "(ifilesize <= 0)");
    EXPECT_EQ(text.err, "skip strxmlPath=" + Path("Empty") + "\n");
    EXPECT_EQ(g_xmlDocList, nullptr);
}

TEST_F(document_set, what_cannot_be_opened_for_writing_is_reported_and_skipped) {
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

TEST_F(document_set, fifo_and_socket_block_nothing) {
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

TEST_F(document_set, file_that_does_not_parse_is_kept_under_its_name) {
    Write("Bad", "<Bad><A>1</A><B>");
    Write("Worse", "no markup at all");
    Write("Nul", std::string_view("\0<Nul/>", 7));
    const printed text = Load();
    EXPECT_EQ(text.out + text.err, "");
    EXPECT_EQ(Names().size(), 3U);
    ASSERT_NE(FindXmlDoc("Worse"), nullptr);
    EXPECT_TRUE(FindXmlDoc("Worse")->NoChildren());
    EXPECT_EQ(Value("Worse.A"), "none");
    ASSERT_NE(FindXmlDoc("Nul"), nullptr);
    EXPECT_TRUE(FindXmlDoc("Nul")->NoChildren());
    EXPECT_NE(FindXmlDoc("Bad"), nullptr);
}

TEST_F(document_set, text_behind_a_nul_is_ignored) {
    Write("A", std::string_view("<A><B>1</B></A>\0<C/>", 20));
    static_cast<void>(Load());
    EXPECT_EQ(Value("A.B"), "1");
    EXPECT_EQ(FindXmlDoc("A")->RootElement()->NextSibling(), nullptr);
}

TEST_F(document_set, line_ends_make_no_difference) {
    Write("Lf", "<Lf>\n<A>one\ntwo</A>\n</Lf>\n");
    Write("CrLf", "<CrLf>\r\n<A>one\r\ntwo</A>\r\n</CrLf>\r\n");
    Write("Cr", "<Cr>\r<A>one\rtwo</A>\r</Cr>\r");
    static_cast<void>(Load());
    EXPECT_EQ(Value("Lf.A"), "one two");
    EXPECT_EQ(Value("CrLf.A"), "one two");
    EXPECT_EQ(Value("Cr.A"), "one two");
}

TEST_F(document_set, file_with_a_dot_in_its_name_is_loaded_but_not_addressed) {
    Write("Account.xml", "<Account><A>1</A></Account>");
    static_cast<void>(Load());
    EXPECT_EQ(Names(), names{"Account.xml"});
    EXPECT_EQ(Value("Account.xml.A"), "none");
    EXPECT_EQ(Value("Account.A"), "none");
}

TEST_F(document_set, names_up_to_63_bytes_are_loaded_and_longer_ones_skipped) {
    const std::string longest(63, 'n');
    const std::string longer(64, 'n');
    Write(longest, "<A/>");
    Write(longer, "<B/>");
    const printed text = Load();
    EXPECT_EQ(Names(), names{longest});
    EXPECT_EQ(text.out, "");
    EXPECT_EQ(text.err, "LoadXmlDir name too long, skip strxmlPath=" + Path(longer) + "\n");
}

TEST_F(document_set, paths_up_to_127_bytes_are_loaded_and_longer_ones_skipped) {
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

TEST_F(document_set, what_an_interrupted_replacement_left_is_swept_and_never_loaded) {
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

TEST_F(document_set, directory_that_cannot_be_opened_gives_an_empty_set_and_one_line) {
    const std::string missing = Path("missing");
    testing::internal::CaptureStderr();
    EXPECT_EQ(LoadXmlDir(missing.c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "LoadXmlDir can't open " + missing + " : No such file or directory\n");
    EXPECT_EQ(g_xmlDocList, nullptr);
    EXPECT_EQ(g_loaded, 1);
    EXPECT_STREQ(XmlConfigDir(), missing.c_str());
}

TEST_F(document_set, reads_a_whole_file_with_a_nul_behind_it) {
    std::string content(200000, 'x');
    Write("Big", content);
    std::string text;
    EXPECT_EQ(Read(Path("Big"), 0, &text), "");
    EXPECT_EQ(text, content);
}

// A file may end before the size that it had when it was measured; a file of /sys always does. What
// is missing reads as zero bytes and not as what memory happened to hold.
TEST_F(document_set, early_end_of_file_is_reported_and_reads_as_zero) {
    const char* const file = "/sys/kernel/mm/transparent_hugepage/enabled";
    if (::access(file, R_OK | W_OK) != 0) {
        GTEST_SKIP() << "no file here ends before its size";
    }
    testing::internal::CaptureStderr();
    std::string text;
    EXPECT_EQ(Read(file, 0, &text), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "LoadFile2Buf error Success\n");
    EXPECT_GT(text.size(), 0U);
    EXPECT_LT(text.size(), 4096U);
}

TEST_F(document_set, most_recent_of_two_records_of_one_name_is_found) {
    Add("A", "/old", "<A><B>old</B></A>");
    XmlDocNode* const recent = Add("A", "/new", "<A><B>new</B></A>");
    EXPECT_EQ(FindXmlDocNode("A"), recent);
    EXPECT_EQ(Value("A.B"), "new");
    EXPECT_EQ(RemoveXmlDocNode(recent), 0);
    EXPECT_EQ(Value("A.B"), "old");
}

TEST_F(document_set, new_record_is_put_at_the_head_with_bounded_fields) {
    Add("A", "/a");
    XmlDocNode* const node = Add("B", "/b");
    EXPECT_EQ(g_xmlDocList, node);
    EXPECT_EQ(Names(), (names{"B", "A"}));
    XmlDocNode* const cut = Add(std::string(70, 'n').c_str(), std::string(200, 'p'));
    EXPECT_EQ(std::string(cut->name), std::string(63, 'n'));
    EXPECT_EQ(std::string(cut->path), std::string(127, 'p'));
}

TEST_F(document_set, removing_a_record_relinks_the_list) {
    XmlDocNode* const a = Add("A", "/a");
    XmlDocNode* const b = Add("B", "/b");
    XmlDocNode* const c = Add("C", "/c");
    XmlDocNode* const d = Add("D", "/d");
    XmlDocNode stranger;
    EXPECT_EQ(RemoveXmlDocNode(&stranger), 0);
    EXPECT_EQ(RemoveXmlDocNode(nullptr), 0);
    EXPECT_EQ(Names(), (names{"D", "C", "B", "A"}));
    EXPECT_EQ(RemoveXmlDocNode(c), 0);
    EXPECT_EQ(Names(), (names{"D", "B", "A"}));
    EXPECT_EQ(RemoveXmlDocNode(d), 0);
    EXPECT_EQ(g_xmlDocList, b);
    EXPECT_EQ(Names(), (names{"B", "A"}));
    EXPECT_EQ(RemoveXmlDocNode(a), 0);
    EXPECT_EQ(Names(), names{"B"});
    EXPECT_EQ(RemoveXmlDocNode(b), 0);
    EXPECT_EQ(g_xmlDocList, nullptr);
}

TEST_F(document_set, pruning_drops_records_whose_file_is_gone) {
    Write("A", "<A/>");
    Write("C", "<C/>");
    Add("A", Path("A"));
    Add("B", Path("B"));
    Add("C", Path("C"));
    PruneXmlDocs();
    EXPECT_EQ(Names(), (names{"C", "A"}));
}

TEST_F(document_set, pruning_keeps_records_whose_file_cannot_be_looked_at) {
    std::filesystem::create_symlink("Circle", Path("Circle"));
    Write("File", "<File/>");
    Add("Circle", Path("Circle"));
    Add("Below", Path("File/Below"));
    Add("A", Path("A"));
    Write("A", "<A/>");
    PruneXmlDocs();
    EXPECT_EQ(Names(), (names{"A", "Circle"}));
}

TEST_F(document_set, pruned_head_stays_where_it_is_and_is_found_by_nothing) {
    Write("A", "<A/>");
    Add("A", Path("A"), "<A><X>1</X></A>");
    Add("B", Path("B"));
    XmlDocNode* const head = Add("C", Path("C"));
    head->saveFlags = DOC_SAVE_FLASH;
    PruneXmlDocs();
    EXPECT_EQ(g_xmlDocList, head);
    EXPECT_EQ(head->doc, nullptr);
    EXPECT_EQ(head->saveFlags, 0U);
    EXPECT_EQ(FindXmlDocNode("C"), nullptr);
    EXPECT_EQ(FindXmlDocNode(""), nullptr);
    EXPECT_EQ(Names(), names{"A"});
    EXPECT_EQ(Value("A.X"), "1");
    PruneXmlDocs();
    EXPECT_EQ(g_xmlDocList, head);
    // Behind a newer head it can go.
    Add("A", Path("A"));
    PruneXmlDocs();
    EXPECT_EQ(Names(), (names{"A", "A"}));
    EXPECT_EQ(g_xmlDocList->next->name, std::string("A"));
}

// Whatever has been looked up before, it is the first record of a name with a document that counts.
TEST_F(document_set, name_is_found_as_a_walk_finds_it_after_any_change) {
    std::mt19937 random(1);
    const auto below = [&random](int end) {
        return std::uniform_int_distribution<int>(0, end - 1)(random);
    };
    const auto name = [&below] { return "N" + std::to_string(below(8)); };
    const auto nth = [](int place) {
        XmlDocNode* node = g_xmlDocList;
        for (; node != nullptr && place > 0; --place) {
            node = node->next;
        }
        return node;
    };
    for (int i = 0; i < 5000; ++i) {
        const int kind = below(100);
        if (kind < 45) {
            AddXmlDocNode(name(), below(2) == 0 ? dir_ : "/missing",
                          below(8) == 0 ? nullptr : std::make_unique<XmlDocument>("D"));
        } else if (kind < 90) {
            RemoveXmlDocNode(nth(below(12)));
        } else if (kind < 98) {
            PruneXmlDocs();
        } else {
            FreeXmlDocs();
        }
        const std::string wanted = name();
        XmlDocNode* first = g_xmlDocList;
        while (first != nullptr && (first->doc == nullptr || wanted != first->name)) {
            first = first->next;
        }
        ASSERT_EQ(FindXmlDocNode(wanted), first) << i;
    }
}

TEST_F(document_set, pruning_an_empty_list_does_nothing) {
    PruneXmlDocs();
    EXPECT_EQ(g_xmlDocList, nullptr);
}

TEST_F(document_set, freeing_empties_the_list_and_tells_so) {
    Add("A", "/a");
    Add("B", "/b");
    EXPECT_EQ(FreeXmlDocs(), 0);
    EXPECT_EQ(g_xmlDocList, nullptr);
    EXPECT_EQ(g_freed, 1);
}

TEST_F(document_set, file_exists_if_it_can_be_looked_at) {
    EXPECT_EQ(XmlFileExists(dir_.c_str()), 1);
    EXPECT_EQ(XmlFileExists(Path("missing").c_str()), 0);
    EXPECT_EQ(XmlFileExists(""), 0);
}

}  // namespace
}  // namespace veltrancord
