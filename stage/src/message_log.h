// Keeps shaders that complain at every sample from flooding the terminal.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "kit/message.h"

namespace stage {

// Hands messages on to a sink, of each text the first `shown` only; summarise() tells how often it came in
// all. Of texts that are all different (with coordinates in them, say) the first `most_texts` get through.
// Progress and debugging messages are not bounded: whoever turns them on wants them. Thread-safe.
class MessageLog {
public:
    static constexpr std::uint64_t shown = 3;
    static constexpr std::size_t most_texts = 1000;

    explicit MessageLog(MessageSink sink) : sink_(std::move(sink)) {}
    void take(MessageLevel level, std::string_view text);
    void summarise(); // and counts from 0 again

    // For the log of another process, which tells of these messages in this one's place: what was counted
    // since the last summary, as text; and counts from 0 again.
    [[nodiscard]] std::string hand_over();
    // Texts that are known here are only counted.
    void take_over(const std::string& handed_over);

private:
    struct Line {
        MessageLevel level;
        std::string text;
        std::uint64_t count = 0;
    };
    Line* find_or_add(MessageLevel level, std::string_view text); // null beyond most_texts
    void summarise_locked();
    void clear();

    MessageSink sink_;
    std::mutex mutex_;
    std::deque<Line> lines_;                                // in the order of their first appearance
    std::array<std::map<std::string_view, Line*>, 6> find_; // [level]; the texts are those of lines_
    std::uint64_t left_out_ = 0;                            // messages beyond most_texts
};

} // namespace stage
