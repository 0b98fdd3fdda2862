// Messages: whole text, whole lines, levels.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kit/message.h"

namespace {

using stage::MessageLevel;

TEST(Message, TextOfAnyLengthArrivesWholeAndLevelsFilter) {
    std::vector<std::string> received;
    stage::set_message_sink([&](MessageLevel, std::string_view text) { received.emplace_back(text); });
    // Lengths around the size of the buffer on the stack.
    std::vector<std::string> expected;
    for (const std::size_t length : {0, 511, 512, 513, 5000}) {
        const std::string text(length, 'x');
        stage::send_message(MessageLevel::error, "%s%d", text.c_str(), 7);
        expected.push_back(text + "7");
    }
    stage::send_message(MessageLevel::warning, "%s", "50%d of %s\n");
    stage::send_text(MessageLevel::warning, "two\nlines\r\n\n");
    expected.insert(expected.end(), {"50%d of %s", "two\nlines"});
    const MessageLevel levels[] = {MessageLevel::error, MessageLevel::warning, MessageLevel::info,
                                   MessageLevel::progress, MessageLevel::debug};
    for (std::size_t least = 0; least < 5; ++least) {
        stage::set_message_level(levels[least]);
        for (std::size_t level = 0; level < 5; ++level) {
            stage::send_message(levels[level], "%zu", level);
            if (level <= least)
                expected.push_back(std::to_string(level));
        }
    }
    stage::set_message_sink(nullptr);
    stage::set_message_level(MessageLevel::info);
    EXPECT_EQ(received, expected);
}

} // namespace
