#include "eventlog/notification.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>

namespace veltrancord {
namespace {

class fixed_settings : public notification_settings {
  public:
    std::map<std::string, std::string, std::less<>> values;
    int32_t gate = 0;
    int gate_reads = 0;

    std::string_view value(std::string_view path) override {
        const auto found = values.find(path);
        if (found == values.end()) {
            return {};
        }
        last_ = found->second;  // as short-lived as promised
        return last_;
    }

    std::vector<int32_t> definitions(int32_t highest) override {
        std::vector<int32_t> numbers;
        for (int32_t n = 1; n <= highest; ++n) {
            numbers.push_back(n);
        }
        return numbers;
    }

    int32_t push_gate() override {
        ++gate_reads;
        return gate;
    }

    void define(int32_t number, const std::string& bits, const std::string& name) {
        const std::string base = "Notification.Log.BitDefine.Def" + std::to_string(number);
        values["Notification.Log.BitDefine.Num"] = std::to_string(number);
        values[base + ".Bit"] = bits;
        values[base + ".Name"] = name;
    }

    void email(const std::string& name, const std::string& action = "ON") {
        values["Notification.Log.Email.Action"] = action;
        values["Notification.Log.Email.Events." + name] = "ON";
    }

    void push(const std::string& name, const std::string& action = "ON") {
        values["Notification.Log.Push.Action"] = action;
        values["Notification.Log.Push.Events." + name] = "ON";
    }

  private:
    std::string last_;
};

TEST(EventBits, AreOneToEightHexadecimalDigits) {
    EXPECT_EQ(parse_event_bits("1"), 1U);
    EXPECT_EQ(parse_event_bits("0010"), 0x10U);
    EXPECT_EQ(parse_event_bits("aBcDeF09"), 0xABCDEF09U);
    EXPECT_EQ(parse_event_bits("ffffffff"), 0xFFFFFFFFU);
}

TEST(EventBits, OtherCharactersOnlyShift) {
    EXPECT_EQ(parse_event_bits("1g1"), 0x101U);
    EXPECT_EQ(parse_event_bits("1 "), 0x10U);
    EXPECT_EQ(parse_event_bits("z"), 0U);
    EXPECT_EQ(parse_event_bits("x1"), 1U);
    EXPECT_EQ(parse_event_bits("1\xFF"), 0x10U);
}

TEST(EventBits, EmptyAndLongerTextsAreReported) {
    for (const char* text : {"", "123456789", "000000001"}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(parse_event_bits(text), 0U);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Data is overflow!!\n") << text;
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(parse_event_bits("12345678"), 0x12345678U);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Switch, IsOnWhenItBeginsWithOnOrYes) {
    for (const char* on :
         {"ON", "on", "On", "oN", "ONLINE", "only", "YES", "yes", "Yes", "yesterday"}) {
        EXPECT_TRUE(is_switched_on(on)) << on;
    }
    for (const char* off : {"", "O", "OFF", "Y", "YE", "y", "NO", "1", "true", " on", "nYES"}) {
        EXPECT_FALSE(is_switched_on(off)) << off;
    }
}

TEST(ShouldNotify, PassesEverythingWithoutSettings) {
    fixed_settings settings;
    for (const int32_t type : {0, 1, -1, INT32_MIN}) {
        EXPECT_TRUE(should_notify(type, settings));
    }
    EXPECT_EQ(settings.gate_reads, 0);
}

TEST(ShouldNotify, PassesTypesThatNoDefinitionMatches) {
    fixed_settings settings;
    settings.define(1, "0x1", "Door");
    EXPECT_TRUE(should_notify(2, settings));
    EXPECT_TRUE(should_notify(0, settings));
    EXPECT_FALSE(should_notify(1, settings));
    EXPECT_FALSE(should_notify(3, settings));
    EXPECT_FALSE(should_notify(-1, settings));
}

TEST(ShouldNotify, HighestBitMatchesNegativeTypes) {
    fixed_settings settings;
    settings.define(1, "0x80000000", "Door");
    EXPECT_FALSE(should_notify(INT32_MIN, settings));
    EXPECT_FALSE(should_notify(-1, settings));
    EXPECT_TRUE(should_notify(INT32_MAX, settings));
}

// The table: which switches are on, which channels want the event, the gate, and the decision.
TEST(ShouldNotify, DecidesByChannelsAndGate) {
    for (int bits = 0; bits < 64; ++bits) {
        const bool email_on = (bits & 1) != 0;
        const bool push_on = (bits & 2) != 0;
        const bool email_wants = (bits & 4) != 0;
        const bool push_wants = (bits & 8) != 0;
        const int32_t gate = bits / 16 - 1;  // -1, 0, 1, 2
        fixed_settings settings;
        settings.define(1, "0x1", "Door");
        settings.gate = gate;
        settings.values["Notification.Log.Email.Action"] = email_on ? "YES" : "NO";
        settings.values["Notification.Log.Push.Action"] = push_on ? "on" : "off";
        settings.values["Notification.Log.Email.Events.Door"] = email_wants ? "ON" : "OFF";
        settings.values["Notification.Log.Push.Events.Door"] = push_wants ? "yes" : "no";
        const bool email_hit = email_on && email_wants;
        const bool push_hit = push_on && push_wants;
        EXPECT_EQ(should_notify(1, settings), email_hit || (push_hit && gate >= 1)) << bits;
        EXPECT_EQ(settings.gate_reads, push_hit && !email_hit ? 1 : 0) << bits;
        EXPECT_TRUE(should_notify(2, settings)) << bits;
    }
}

TEST(ShouldNotify, AbsentSwitchesAreOff) {
    fixed_settings settings;
    settings.define(1, "0x1", "Door");
    settings.values["Notification.Log.Email.Events.Door"] = "ON";
    EXPECT_FALSE(should_notify(1, settings));
    settings.values["Notification.Log.Email.Action"] = "ON";
    EXPECT_TRUE(should_notify(1, settings));
}

TEST(ShouldNotify, OneOfSeveralMatchesIsEnough) {
    fixed_settings settings;
    settings.define(1, "0x3", "Door");
    settings.define(2, "0x1", "Window");
    settings.define(3, "0x4", "Roof");
    settings.email("Window");
    EXPECT_TRUE(should_notify(1, settings));
    EXPECT_FALSE(should_notify(2, settings));
    EXPECT_FALSE(should_notify(4, settings));
    EXPECT_TRUE(should_notify(5, settings));
    EXPECT_TRUE(should_notify(8, settings));
}

TEST(ShouldNotify, PushOfOneAndEmailOfAnotherDefinitionNeedNoGate) {
    fixed_settings settings;
    settings.define(1, "0x1", "Door");
    settings.define(2, "0x1", "Window");
    settings.push("Door");
    EXPECT_FALSE(should_notify(1, settings));
    settings.email("Window");
    EXPECT_TRUE(should_notify(1, settings));
}

TEST(ShouldNotify, DefinitionsWithoutBitsNeverMatch) {
    fixed_settings settings;
    settings.define(3, "0x4", "Roof");
    settings.define(1, "", "Door");
    settings.define(2, "12", "Window");  // no "x"
    settings.values["Notification.Log.BitDefine.Num"] = "4";
    settings.values["Notification.Log.BitDefine.Def4.Bit"] = "0X2";  // nor is this one
    EXPECT_TRUE(should_notify(1, settings));
    EXPECT_TRUE(should_notify(2, settings));
    EXPECT_FALSE(should_notify(4, settings));
}

TEST(ShouldNotify, BitsBeginBehindTheFirstX) {
    fixed_settings settings;
    settings.define(1, "value x2", "Door");
    EXPECT_FALSE(should_notify(2, settings));
    settings.define(1, "0xx2", "Door");  // the second "x" only shifts
    EXPECT_FALSE(should_notify(2, settings));
    EXPECT_TRUE(should_notify(1, settings));
}

TEST(ShouldNotify, OverlongBitsNeverMatch) {
    fixed_settings settings;
    settings.define(1, "0xFFFFFFFFF", "Door");
    settings.define(2, "0x", "Window");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(should_notify(-1, settings));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Data is overflow!!\nData is overflow!!\n");
}

TEST(ShouldNotify, NumberBoundsTheDefinitions) {
    fixed_settings settings;
    settings.define(2, "0x1", "Window");
    settings.values["Notification.Log.BitDefine.Num"] = "1";
    EXPECT_TRUE(should_notify(1, settings));
    settings.values["Notification.Log.BitDefine.Num"] = "2 of them";
    EXPECT_FALSE(should_notify(1, settings));
    for (const char* none : {"0", "-3", "two"}) {
        settings.values["Notification.Log.BitDefine.Num"] = none;
        EXPECT_TRUE(should_notify(1, settings)) << none;
    }
    settings.values.erase("Notification.Log.BitDefine.Num");
    EXPECT_TRUE(should_notify(1, settings));
}

TEST(ShouldNotify, ADefinitionWithoutANameMatchesAndIsNotWanted) {
    fixed_settings settings;
    settings.define(1, "0x1", "");
    settings.email("");
    EXPECT_FALSE(should_notify(1, settings));
}

TEST(ShouldNotify, NamesAreCutTo127Characters) {
    for (const std::size_t length : {126U, 127U, 128U}) {
        fixed_settings settings;
        settings.define(1, "0x1", std::string(length, 'n'));
        settings.email(std::string(std::min<std::size_t>(length, 127), 'n'));
        EXPECT_TRUE(should_notify(1, settings)) << length;
    }
}

}  // namespace
}  // namespace veltrancord
