#include "message_log.h"

namespace stage {

void MessageLog::take(MessageLevel level, std::string_view text) {
    const std::lock_guard guard(mutex_);
    if (level == MessageLevel::fatal)
        summarise_locked(); // the process ends behind this message
    if (level == MessageLevel::fatal || level > MessageLevel::info) {
        sink_(level, text);
        return;
    }
    auto& known = find_[static_cast<std::size_t>(level)];
    auto found = known.find(text);
    if (found == known.end()) {
        if (lines_.size() == most_texts) {
            ++left_out_;
            return;
        }
        Line& line = lines_.emplace_back(Line{level, std::string(text)});
        found = known.emplace(line.text, &line).first;
    }
    if (++found->second->count <= shown)
        sink_(level, text);
}

void MessageLog::summarise() {
    const std::lock_guard guard(mutex_);
    summarise_locked();
}

void MessageLog::summarise_locked() {
    for (const Line& line : lines_)
        if (line.count > shown)
            sink_(line.level, line.text + " ... repeated " + std::to_string(line.count) + " times");
    if (left_out_ > 0)
        sink_(MessageLevel::warning,
              "... " + std::to_string(left_out_) + " more messages, of other texts, are left out");
    for (auto& known : find_)
        known.clear();
    lines_.clear();
    left_out_ = 0;
}

} // namespace stage
