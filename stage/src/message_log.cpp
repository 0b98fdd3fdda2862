#include "message_log.h"

#include <sstream>

namespace stage {

void MessageLog::take(MessageLevel level, std::string_view text) {
    const std::lock_guard guard(mutex_);
    if (level == MessageLevel::fatal)
        summarise_locked(); // the process ends behind this message
    if (level == MessageLevel::fatal || level > MessageLevel::info) {
        sink_(level, text);
        return;
    }
    Line* line = find_or_add(level, text);
    if (!line)
        ++left_out_;
    else if (++line->count <= shown)
        sink_(level, text);
}

MessageLog::Line* MessageLog::find_or_add(MessageLevel level, std::string_view text) {
    auto& known = find_[static_cast<std::size_t>(level)];
    if (const auto found = known.find(text); found != known.end())
        return found->second;
    if (lines_.size() == most_texts)
        return nullptr;
    Line& line = lines_.emplace_back(Line{level, std::string(text)});
    known.emplace(line.text, &line);
    return &line;
}

std::string MessageLog::hand_over() {
    const std::lock_guard guard(mutex_);
    std::ostringstream text;
    text << left_out_ << '\n';
    for (const Line& line : lines_)
        text << static_cast<int>(line.level) << ' ' << line.count << ' ' << line.text.size() << '\n'
             << line.text;
    clear();
    return text.str();
}

void MessageLog::take_over(const std::string& handed_over) {
    const std::lock_guard guard(mutex_);
    std::istringstream stream(handed_over);
    std::uint64_t left_out = 0;
    stream >> left_out;
    left_out_ += left_out;
    int level = 0;
    std::uint64_t count = 0;
    std::size_t length = 0;
    while (stream >> level >> count >> length && stream.get() == '\n') {
        std::string text(length, ' ');
        stream.read(text.data(), static_cast<std::streamsize>(length));
        Line* line = find_or_add(static_cast<MessageLevel>(level), text);
        if (!line) {
            left_out_ += count;
            continue;
        }
        if (line->count == 0)
            sink_(line->level, text);
        line->count += count;
    }
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
    clear();
}

void MessageLog::clear() {
    for (auto& known : find_)
        known.clear();
    lines_.clear();
    left_out_ = 0;
}

} // namespace stage
