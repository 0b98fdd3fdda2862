// What a function does whose job the stage cannot do yet: say so once, by name, and fail.
#pragma once

#include <atomic>

#include "api/api.h"
#include "kit/message.h"

namespace stage {

inline miBoolean report_unsupported(std::atomic<bool>& reported, const char* function) {
    if (!reported.load(std::memory_order_relaxed) && !reported.exchange(true, std::memory_order_relaxed))
        send_message(MessageLevel::error, "%s is not supported yet", function);
    return miFALSE;
}

} // namespace stage

// For the body of such a function.
#define STAGE_UNSUPPORTED()                                                                                  \
    static std::atomic<bool> reported{false};                                                                \
    return stage::report_unsupported(reported, __func__)
