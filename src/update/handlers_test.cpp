#include "update/handlers.h"

#include "leaf/result.h"
#include "support/loaded_directory.h"
#include "update/program_queue.h"
#include "update/saving.h"

namespace veltrancord {
namespace {

class WriteHandlers : public LoadedDirectory {
  protected:
    void SetUp() override {
        LoadedDirectory::SetUp();
        load({{"a", "<a><b>0</b><c Level=\"1\">0</c></a>"}, {"d", "<d><e>0</e></d>"}});
    }
};

TEST_F(WriteHandlers, CountAppliedLines) {
    EXPECT_EQ(run(write_handle, "a.b=1"), 1);
    EXPECT_EQ(value("a.b"), "1");
    EXPECT_EQ(run(write_handle, "a.b=2\n"), 1);
    EXPECT_EQ(value("a.b"), "2");
    EXPECT_EQ(run(write_handle, "a.b=3\nd.e=4\na.c="), 3);
    EXPECT_EQ(value("a.b"), "3");
    EXPECT_EQ(value("d.e"), "4");
    EXPECT_EQ(value("a.c"), "");
    EXPECT_EQ(run(writeattr_handle, "a.c.Level=2\na.b.New=3"), 2);
    EXPECT_NE(document("a").find("<b New=\"3\">3</b>"), std::string::npos);
}

TEST_F(WriteHandlers, RefuseAnEmptyOrAbsentArgument) {
    for (command_handler* handler : {write_handle, writedbmem_handle, writeattr_handle}) {
        EXPECT_EQ(run(handler, ""), result_bad_argument);
        EXPECT_EQ(handler(connection_, {}, 0), result_bad_argument);
    }
}

TEST_F(WriteHandlers, ApplyNothingWithoutAnEqualsSign) {
    const std::string before = document("a");
    for (command_handler* handler : {write_handle, writedbmem_handle, writeattr_handle}) {
        EXPECT_EQ(run(handler, "a.b"), 0);
        EXPECT_EQ(run(handler, "\n\n"), 0);
    }
    EXPECT_EQ(document("a"), before);
    EXPECT_EQ(flags("a"), 0U);
}

TEST_F(WriteHandlers, StopAtTheFirstFailureAndKeepWhatCameBefore) {
    EXPECT_EQ(run(write_handle, "a.b=1\nmissing.x=2\nd.e=3"), result_not_found);
    EXPECT_EQ(value("a.b"), "1");
    EXPECT_EQ(value("d.e"), "0");
    EXPECT_EQ(flags("a"), DOC_SAVE_FLASH);
    EXPECT_EQ(flags("d"), 0U);
    save_changed_documents();
    EXPECT_NE(file("a").find("<b>1</b>"), std::string::npos);
    EXPECT_EQ(run(writeattr_handle, "a.b.X=1\na.missing.Y=2\na.b.Z=3"), result_store_failed);
    EXPECT_NE(document("a").find("<b X=\"1\">"), std::string::npos);
}

TEST_F(WriteHandlers, RefuseALineOverItsBounds) {
    EXPECT_EQ(run(write_handle, "a.b=1\na.c=" + std::string(4096, 'v')), result_bad_argument);
    EXPECT_EQ(value("a.b"), "1");
    EXPECT_EQ(value("a.c"), "0");
    EXPECT_EQ(run(write_handle, "a." + std::string(254, 'p') + "=1"), result_bad_argument);
    EXPECT_EQ(run(writeattr_handle, "a.b.X=" + std::string(256, 'v')), result_bad_argument);
    EXPECT_EQ(run(writeattr_handle, "a.b.X=" + std::string(255, 'v')), 1);
}

TEST_F(WriteHandlers, MakeALineWithoutEqualsSignPartOfTheNextPath) {
    EXPECT_EQ(run(write_handle, "junk\na.b=1"), result_not_found);
    EXPECT_EQ(value("a.b"), "0");
    EXPECT_EQ(run(write_handle, "a.b=1\na.x\nd.e=2"), 2);
    EXPECT_EQ(value("d.e"), "0");
    EXPECT_EQ(value("a.x\nd.e"), "2");
}

TEST_F(WriteHandlers, EndTheArgumentAtANulByte) {
    std::string argument("a.b=1\0\na.c=2", 12);
    EXPECT_EQ(write_handle(connection_, {argument.data(), argument.size()}, 0), 1);
    EXPECT_EQ(value("a.b"), "1");
    EXPECT_EQ(value("a.c"), "0");
}

TEST_F(WriteHandlers, CountAChangeForEachCommandWhateverItsResult) {
    run(write_handle, "a.b=1\na.c=2");
    EXPECT_EQ(change_counter_, 1U);
    run(write_handle, "");
    run(write_handle, "missing.x=1");
    run(writeattr_handle, "a.b.X=1");
    run(writeattr_handle, "");
    EXPECT_EQ(change_counter_, 5U);
    run(writedbmem_handle, "a.b=1");
    EXPECT_EQ(change_counter_, 5U);
}

TEST_F(WriteHandlers, ChangeMemoryOnlyWithWritedbmem) {
    const std::string before = file("a");
    EXPECT_EQ(run(writedbmem_handle, "a.b=memory"), 1);
    save_changed_documents();
    EXPECT_EQ(value("a.b"), "memory");
    EXPECT_EQ(file("a"), before);
    EXPECT_EQ(run(write_handle, "a.c=flash"), 1);
    save_changed_documents();
    EXPECT_NE(file("a").find("<b>memory</b>"), std::string::npos);
    EXPECT_NE(file("a").find(">flash</c>"), std::string::npos);
}

TEST_F(WriteHandlers, CreateElementsButNoneForAttributes) {
    EXPECT_EQ(run(writeattr_handle, "a.new.part.X=1"), result_store_failed);
    EXPECT_EQ(document("a").find("new"), std::string::npos);
    EXPECT_EQ(run(write_handle, "a.new.part=1"), 1);
    EXPECT_EQ(value("a.new.part"), "1");
}

TEST_F(WriteHandlers, QueueNoProgramForAttributes) {
    EXPECT_EQ(run(writeattr_handle, "a.b.DispatchW=/bin/true\na.b.X=1"), 2);
    EXPECT_EQ(queued_programs(), 0U);
    EXPECT_EQ(run(write_handle, "a.b=1"), 1);
    EXPECT_EQ(queued_programs(), 1U);
    run_program_queue();
}

TEST_F(WriteHandlers, TakeManyLines) {
    std::string argument;
    for (int i = 0; i < 20000; ++i) {
        argument += "a.b=" + std::to_string(i) + "\n";
    }
    EXPECT_EQ(run(write_handle, argument), 20000);
    EXPECT_EQ(value("a.b"), "19999");
}

}  // namespace
}  // namespace veltrancord
