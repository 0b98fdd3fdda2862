// Message functions of the interface, and the question whether the user wants rendering to stop.
#include "api/api.h"
#include "kit/message.h"

using stage::MessageLevel;

#define SEND(level)                                                                                          \
    std::va_list arguments;                                                                                  \
    va_start(arguments, format);                                                                             \
    stage::send_message_v(MessageLevel::level, format, arguments);                                           \
    va_end(arguments)

STAGE_API void mi_debug(const char* format, ...) {
    SEND(debug);
}

STAGE_API void mi_info(const char* format, ...) {
    SEND(info);
}

STAGE_API void mi_progress(const char* format, ...) {
    SEND(progress);
}

STAGE_API void mi_warning(const char* format, ...) {
    SEND(warning);
}

STAGE_API void mi_error(const char* format, ...) {
    SEND(error);
}

STAGE_API void mi_fatal(const char* format, ...) {
    SEND(fatal);
}

STAGE_API miBoolean mi_par_aborted() {
    const stage::Renderer* renderer = stage::current_renderer();
    return renderer && renderer->aborted() ? miTRUE : miFALSE;
}
