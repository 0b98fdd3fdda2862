// Message functions of the interface, and the question whether the user wants rendering to stop.
#include "api/api.h"
#include "kit/message.h"
#include "render/shading.h"

using stage::MessageLevel;

namespace {

// A shader's own text, with the place of its instance behind it: the scene is where the user can mend things.
void send_complaint(MessageLevel level, const char* format, std::va_list arguments) {
    std::string text = stage::format_message(format, arguments);
    text.erase(text.find_last_not_of("\r\n") + 1);
    if (const stage::Element* const shader = stage::running_shader())
        text.append(" (").append(shader->place.text()).append(")");
    stage::send_text(level, text);
}

} // namespace

#define SEND(send, level)                                                                                    \
    std::va_list arguments;                                                                                  \
    va_start(arguments, format);                                                                             \
    send(MessageLevel::level, format, arguments);                                                            \
    va_end(arguments)

STAGE_API void mi_debug(const char* format, ...) {
    SEND(stage::send_message_v, debug);
}

STAGE_API void mi_info(const char* format, ...) {
    SEND(stage::send_message_v, info);
}

STAGE_API void mi_progress(const char* format, ...) {
    SEND(stage::send_message_v, progress);
}

STAGE_API void mi_warning(const char* format, ...) {
    SEND(send_complaint, warning);
}

STAGE_API void mi_error(const char* format, ...) {
    SEND(send_complaint, error);
}

STAGE_API void mi_fatal(const char* format, ...) {
    SEND(stage::send_message_v, fatal);
}

STAGE_API miBoolean mi_par_aborted() {
    const stage::Renderer* renderer = stage::current_renderer();
    return renderer && renderer->aborted() ? miTRUE : miFALSE;
}
