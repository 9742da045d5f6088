#include "service/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrancord {
namespace {

struct parsed {
    service_options options;
    command_line outcome;
    std::string printed;
};

parsed parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "Veltrancord");
    std::vector<char*> vector;
    for (std::string& argument : arguments) {
        vector.push_back(argument.data());
    }
    vector.push_back(nullptr);
    parsed result;
    testing::internal::CaptureStderr();
    result.outcome =
        parse_options(static_cast<int>(arguments.size()), vector.data(), result.options);
    result.printed = testing::internal::GetCapturedStderr();
    return result;
}

TEST(Options, HaveTheirDefaults) {
    const parsed result = parse({});
    EXPECT_EQ(result.outcome, command_line::run);
    EXPECT_STREQ(result.options.xml_path, "/mnt/database/xml");
    EXPECT_STREQ(result.options.event_log_path, "/mnt/database/eventlog/log");
    EXPECT_EQ(result.options.backup_interval, 300);
    EXPECT_FALSE(result.options.restart);
    EXPECT_EQ(result.printed, "");
}

TEST(Options, SetThePaths) {
    const parsed result = parse({"-P", "/a", "-E/b/c"});
    EXPECT_STREQ(result.options.xml_path, "/a");
    EXPECT_STREQ(result.options.event_log_path, "/b/c");
}

TEST(Options, TakeAPathOf62Characters) {
    const std::string path(62, 'p');
    const parsed result = parse({"-P", path, "-E", path});
    EXPECT_EQ(result.options.xml_path, path);
    EXPECT_EQ(result.options.event_log_path, path);
}

TEST(Options, IgnoreAPathOf63CharactersWithoutAWord) {
    const std::string path(63, 'p');
    const parsed result = parse({"-P", path, "-E", path});
    EXPECT_STREQ(result.options.xml_path, "/mnt/database/xml");
    EXPECT_STREQ(result.options.event_log_path, "/mnt/database/eventlog/log");
    EXPECT_EQ(result.printed, "");
}

TEST(Options, LeaveNothingOfALongerPathInTheField) {
    const parsed result = parse({"-P", "/a"});
    EXPECT_EQ(std::string(result.options.xml_path, sizeof result.options.xml_path),
              "/a" + std::string(62, '\0'));
}

TEST(Options, BoundTheBackupIntervalFromBelow) {
    EXPECT_EQ(parse({"-t", "299"}).options.backup_interval, 300);
    EXPECT_EQ(parse({"-t", "100"}).options.backup_interval, 300);
    EXPECT_EQ(parse({"-t", "300"}).options.backup_interval, 300);
    EXPECT_EQ(parse({"-t", "301"}).options.backup_interval, 301);
    EXPECT_EQ(parse({"-t", "-5"}).options.backup_interval, 300);
}

TEST(Options, ReadTheBackupIntervalAsFarAsItIsANumber) {
    EXPECT_EQ(parse({"-t", "often"}).options.backup_interval, 300);
    EXPECT_EQ(parse({"-t", ""}).options.backup_interval, 300);
    EXPECT_EQ(parse({"-t", "600s"}).options.backup_interval, 600);
    EXPECT_EQ(parse({"-t", "99999999999999999999"}).options.backup_interval, 2147483647);
}

TEST(Options, TurnRestartingOn) {
    EXPECT_TRUE(parse({"-L"}).options.restart);
    EXPECT_TRUE(parse({"-l"}).options.restart);
}

TEST(Options, AskForTheUsage) {
    EXPECT_EQ(parse({"-h"}).outcome, command_line::usage);
    EXPECT_EQ(parse({"-L", "-H"}).outcome, command_line::usage);
}

TEST(Options, PassOverAnUnknownOneAfterGetoptSMessage) {
    const parsed result = parse({"-z", "-t", "400"});
    EXPECT_EQ(result.outcome, command_line::run);
    EXPECT_EQ(result.options.backup_interval, 400);
    EXPECT_EQ(result.printed, "Veltrancord: invalid option -- 'z'\n");
}

TEST(Options, PassOverOneThatLacksItsArgument) {
    const parsed result = parse({"-P"});
    EXPECT_EQ(result.outcome, command_line::run);
    EXPECT_STREQ(result.options.xml_path, "/mnt/database/xml");
    EXPECT_EQ(result.printed, "Veltrancord: option requires an argument -- 'P'\n");
}

TEST(Options, UsageNamesTheProgram) {
    testing::internal::CaptureStderr();
    print_usage("./V");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "./V -t[databse backup time] -P[xml path] -h[help]\n");
}

}  // namespace
}  // namespace veltrancord
