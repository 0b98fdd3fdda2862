// Messages that repeat themselves.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "message_log.h"

namespace {

using stage::MessageLevel;
using stage::MessageLog;

TEST(MessageLog, WritesATextThreeTimesAndThenHowOftenItCame) {
    std::vector<std::string> lines;
    MessageLog log([&](MessageLevel level, std::string_view text) {
        lines.push_back(std::string(stage::name_of(level)) + ": " + std::string(text));
    });
    const auto send = [&] {
        for (int i = 0; i < 500; ++i) {
            log.take(MessageLevel::warning, "no light");
            log.take(MessageLevel::error, "no light"); // another message
        }
    };
    std::thread other(send);
    send();
    other.join();
    for (int i = 0; i < 3; ++i)
        log.take(MessageLevel::info, "just three");
    EXPECT_EQ(lines.size(), 9u);
    lines.clear();
    log.summarise();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (std::vector<std::string>{"error: no light ... repeated 1000 times",
                                               "warning: no light ... repeated 1000 times"}));
    log.summarise();
    log.take(MessageLevel::warning, "no light"); // counted from 0 again
    EXPECT_EQ(lines.size(), 3u);

    lines.clear();
    for (std::size_t i = 0; i < MessageLog::most_texts + 500; ++i) {
        log.take(MessageLevel::info, "at " + std::to_string(i));
        log.take(MessageLevel::debug, "asked for");
    }
    EXPECT_EQ(lines.size(), MessageLog::most_texts - 1 + MessageLog::most_texts + 500); // one text from above
    log.summarise();
    EXPECT_EQ(lines.back(), "warning: ... 501 more messages, of other texts, are left out");
}

} // namespace
