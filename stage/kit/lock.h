// The renderer's mutual exclusion object. Not recursive. A null lock stands for no exclusion at all.
#pragma once

#include "shader.h"

namespace stage {

[[nodiscard]] miLock create_lock();
void destroy_lock(miLock lock);
void acquire_lock(miLock lock);
void release_lock(miLock lock);

// Locks created and not yet destroyed.
[[nodiscard]] long long live_locks() noexcept;

} // namespace stage
