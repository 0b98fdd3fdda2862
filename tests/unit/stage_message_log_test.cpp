// Messages that repeat themselves.
#include <gtest/gtest.h>

#include <thread>

#include "message_log.h"

namespace {

using stage::MessageLog;

TEST(MessageLog, WritesATextThreeTimesAndThenHowOftenItCame) {
    std::vector<std::string> lines;
    MessageLog log([&](stage::MessageLevel, std::string_view text) { lines.emplace_back(text); });
    const auto send = [&] {
        for (int i = 0; i < 500; ++i)
            log.take(stage::MessageLevel::warning, "no light");
    };
    std::thread other(send);
    send();
    other.join();
    EXPECT_EQ(lines, std::vector<std::string>(3, "no light"));
    log.summarise();
    EXPECT_EQ(lines.back(), "no light ... repeated 1000 times");
    lines.clear();
    send(); // counted from 0 again
    EXPECT_EQ(lines.size(), 3u);

    for (int i = 0; i < 1500; ++i) { // of these, 999 get through beside the one above
        log.take(stage::MessageLevel::info, "at " + std::to_string(i));
        log.take(stage::MessageLevel::debug, "asked for");
    }
    EXPECT_EQ(lines.size(), 3u + 999u + 1500u);
    log.summarise();
    EXPECT_EQ(lines.back(), "... 501 more messages, of other texts, are left out");
}

// Of two processes one tells the user.
TEST(MessageLog, TellsOfTextsOfAnotherLogOnceAndCountsBoth) {
    std::vector<std::string> lines;
    MessageLog log([&](stage::MessageLevel, std::string_view text) { lines.emplace_back(text); });
    MessageLog other([](stage::MessageLevel, std::string_view) {});
    for (int i = 0; i < 4; ++i)
        other.take(stage::MessageLevel::error, "of both\n2 lines");
    other.take(stage::MessageLevel::warning, "");
    other.take(stage::MessageLevel::warning, "there alone");
    log.take(stage::MessageLevel::error, "of both\n2 lines");
    log.take_over(other.hand_over());
    log.take_over(other.hand_over()); // nothing new
    log.summarise();
    EXPECT_EQ(lines, (std::vector<std::string>{"of both\n2 lines", "", "there alone",
                                               "of both\n2 lines ... repeated 5 times"}));
}

} // namespace
