// Messages: whole text, whole lines, levels, and the end after a fatal one.
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kit/message.h"

namespace {

using stage::MessageLevel;

class Message : public testing::Test {
protected:
    Message() {
        stage::set_message_sink(
            [this](MessageLevel level, std::string_view text) { received.emplace_back(level, text); });
    }
    ~Message() override {
        stage::set_message_sink(nullptr);
        stage::set_message_level(MessageLevel::info);
    }
    std::vector<std::pair<MessageLevel, std::string>> received;
};

TEST_F(Message, TextOfAnyLengthArrivesWhole) {
    // Lengths around the size of the buffer on the stack.
    for (const std::size_t length : {0, 1, 511, 512, 513, 5000}) {
        const std::string text(length, 'x');
        received.clear();
        stage::send_message(MessageLevel::error, "%s%d", text.c_str(), 7);
        ASSERT_EQ(received.size(), 1u);
        EXPECT_EQ(received[0].second, text + "7");
    }
}

TEST_F(Message, PercentSignsOfArgumentsAndLineEndsAtTheEnd) {
    stage::send_message(MessageLevel::warning, "%s", "50%d of %s\n");
    stage::send_text(MessageLevel::warning, "two\nlines\r\n\n");
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].second, "50%d of %s");
    EXPECT_EQ(received[1].second, "two\nlines");
}

TEST_F(Message, LevelsFilter) {
    const MessageLevel levels[] = {MessageLevel::error, MessageLevel::warning, MessageLevel::info,
                                   MessageLevel::progress, MessageLevel::debug};
    for (std::size_t least = 0; least < 5; ++least) {
        stage::set_message_level(levels[least]);
        received.clear();
        for (const MessageLevel level : levels)
            stage::send_message(level, "text");
        ASSERT_EQ(received.size(), least + 1);
        EXPECT_EQ(received.back().first, levels[least]);
    }
}

TEST_F(Message, OneAtATime) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([thread] {
            for (int i = 0; i < 500; ++i)
                stage::send_message(MessageLevel::info, "%d says %d", thread, i);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(received.size(), 2000u); // a sink without a lock of its own kept every one
}

#ifndef _WIN32
TEST(MessageDeathTest, FatalEndsTheProcessWithALineOnStandardError) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(stage::send_message(MessageLevel::fatal, "no %s left", "memory"),
                 "^fatal: no memory left\n");
}
#endif

} // namespace
