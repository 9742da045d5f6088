#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>

#include "eventlog/event_log.h"
#include "leaf/result.h"
#include "support/event_log_fixture.h"
#include "support/log_model.h"

namespace veltrancord {
namespace {

using test::event;
using test::EventLog;

// Long random sequences of everything, against the rules written down a second time.
class EventLogModel : public EventLog, public testing::WithParamInterface<int32_t> {
  protected:
    std::string any_detail() {
        std::string text;
        for (auto length = random_() % 17; length > 0; --length) {
            text += "ab<&:\"\xC3"[random_() % (random_() % 4 == 0 ? 7 : 2)];
        }
        return text.substr(0, 15);
    }

    std::mt19937 random_{static_cast<uint32_t>(GetParam()) + 77};
};

TEST_P(EventLogModel, AgreesOverLongSequences) {
    const int32_t capacity = GetParam();
    auto log = std::make_unique<event_log>();
    ASSERT_EQ(log->start_with_capacity(path_.c_str(), capacity), 0);
    test::log_model model(capacity);
    int64_t now = 1700000000;
    for (int step = 0; step < 6000; ++step) {
        const auto what = random_() % 1000;
        if (what < 450) {
            now += static_cast<int64_t>(random_() % 3);
            if (random_() % 60 == 0) {
                now -= 5000;  // the clock is set back
            }
            const auto type = static_cast<int32_t>(random_() % 8) - 1;
            const auto first = static_cast<int32_t>(random_() % 256);
            const auto second = static_cast<int32_t>(random_() % 256);
            const std::string detail = any_detail();
            ASSERT_EQ(log->add(event(type, first, detail, second), local_log_time(now)), result_ok);
            model.write(type, now, first, detail, second);
        } else if (what < 980) {
            const auto mode = random_() % 12 == 0 ? static_cast<int32_t>(random_() % 6) - 1
                                                  : static_cast<int32_t>(random_() % 3) + 1;
            const int32_t mask = random_() % 3 == 0 ? static_cast<int32_t>(random_() % 8) : -1;
            const auto limit = static_cast<int32_t>(random_() % 7) - 1;
            ASSERT_EQ(read(*log, mode, mask, limit), model.read(mode, mask, limit))
                << "step " << step << " mode " << mode << " mask " << mask << " limit " << limit;
        } else if (what < 990) {
            ASSERT_EQ(log->clean(), result_ok);
            model.clean();
        } else {
            log = std::make_unique<event_log>();
            ASSERT_EQ(log->start_with_capacity(path_.c_str(), capacity), 0);
            model.restart();
        }
        ASSERT_EQ(log->count(), model.count()) << "step " << step;
        if (step % 500 == 0) {
            messages();
        }
    }
    TiXmlDocument saved;
    TiXmlElement root("Log");
    for (const auto& [name, text] : model.elements()) {
        TiXmlElement element(name.c_str());
        element.InsertEndChild(TiXmlText(text.c_str()));
        root.InsertEndChild(element);
    }
    saved.InsertEndChild(root);
    const std::string expected = directory_ + "/expected";
    ASSERT_TRUE(saved.SaveFile(expected.c_str()));
    ASSERT_TRUE(log->save());
    std::ostringstream text;
    text << std::ifstream(expected).rdbuf();
    EXPECT_EQ(file(), text.str());
}

INSTANTIATE_TEST_SUITE_P(Capacities, EventLogModel,
                         testing::Values(-512, -1, 0, 1, 2, 3, 4, 5, 8, 17),
                         [](const auto& capacity) {
                             return capacity.param < 0 ? std::string("Minus").append(
                                                             std::to_string(-capacity.param))
                                                       : std::to_string(capacity.param);
                         });

}  // namespace
}  // namespace veltrancord
