// Messages of the renderer and of shaders.
#include "kit/message.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace stage {

namespace {

std::atomic<MessageLevel> least_urgent{MessageLevel::info};

struct Router {
    std::mutex mutex;
    MessageSink sink;
};

// Kept until the process is gone: shader modules send messages while they are unloaded.
Router& router() {
    static auto* const instance = new Router;
    return *instance;
}

} // namespace

const char* name_of(MessageLevel level) {
    static constexpr std::array names = {"fatal", "error", "warning", "info", "progress", "debug"};
    return names[static_cast<std::size_t>(level)];
}

void set_message_sink(MessageSink sink) {
    const std::lock_guard guard(router().mutex);
    router().sink = std::move(sink);
}

void write_message(MessageLevel level, std::string_view text) {
    std::string line = name_of(level);
    line.append(": ").append(text).append("\n");
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void set_message_level(MessageLevel least) {
    least_urgent.store(least, std::memory_order_relaxed);
}

std::string format_message(const char* format, std::va_list arguments) {
    if (!format)
        return {};
    std::va_list again;
    va_copy(again, arguments);
    std::array<char, 512> buffer;
    const int length = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
    std::string text;
    if (length >= static_cast<int>(buffer.size())) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    } else if (length > 0) {
        text.assign(buffer.data(), static_cast<std::size_t>(length));
    }
    va_end(again);
    return text;
}

void send_text(MessageLevel level, std::string_view text) {
    if (level > least_urgent.load(std::memory_order_relaxed) && level != MessageLevel::fatal)
        return;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    {
        const std::lock_guard guard(router().mutex);
        if (router().sink)
            router().sink(level, text);
        else
            write_message(level, text);
    }
    if (level == MessageLevel::fatal)
        std::abort();
}

void send_message_v(MessageLevel level, const char* format, std::va_list arguments) {
    if (level <= least_urgent.load(std::memory_order_relaxed) || level == MessageLevel::fatal)
        send_text(level, format_message(format, arguments));
}

void send_message(MessageLevel level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    send_message_v(level, format, arguments);
    va_end(arguments);
}

} // namespace stage
