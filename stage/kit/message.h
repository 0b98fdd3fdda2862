// Messages of the renderer and of shaders: formatted, filtered by level, handed on as whole lines.
// Thread-safe; one message at a time reaches the sink.
#pragma once

#include <cstdarg>
#include <functional>
#include <string>
#include <string_view>

namespace stage {

// From the most to the least urgent.
enum class MessageLevel { fatal, error, warning, info, progress, debug };

// "error" and so on.
[[nodiscard]] const char* name_of(MessageLevel level);

// A sink gets the text without line ends at its end. It must not send messages itself.
using MessageSink = std::function<void(MessageLevel, std::string_view)>;

// Null puts the standard one back: a line "level: text" on the standard error stream.
void set_message_sink(MessageSink sink);

// What the standard sink does, for other sinks.
void write_message(MessageLevel level, std::string_view text);

// Messages less urgent than `least` are dropped. As the program starts: info.
void set_message_level(MessageLevel least);

// The text of a printf-style format, of any length. A null format gives an empty text.
[[nodiscard]] std::string format_message(const char* format, std::va_list arguments);

// Ends the process after a fatal message.
void send_message_v(MessageLevel level, const char* format, std::va_list arguments);
#ifdef __MINGW32__
__attribute__((format(__MINGW_PRINTF_FORMAT, 2, 3)))
#elif defined(__GNUC__)
__attribute__((format(printf, 2, 3)))
#endif
void send_message(MessageLevel level, const char* format, ...);
void send_text(MessageLevel level, std::string_view text);

} // namespace stage
