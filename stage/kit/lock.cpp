// The renderer's mutual exclusion object.
#include "kit/lock.h"

#include <atomic>
#include <mutex>

struct miLock_record {
    std::mutex mutex;
};

namespace stage {

namespace {
std::atomic<long long> count;
}

miLock create_lock() {
    ++count;
    return new miLock_record;
}

void destroy_lock(miLock lock) {
    if (!lock)
        return;
    --count;
    delete lock;
}

void acquire_lock(miLock lock) {
    if (lock)
        lock->mutex.lock();
}

void release_lock(miLock lock) {
    if (lock)
        lock->mutex.unlock();
}

long long live_locks() noexcept {
    return count.load();
}

} // namespace stage
