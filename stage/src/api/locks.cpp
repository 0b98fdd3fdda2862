// Lock functions of the interface.
#include "api/api.h"
#include "kit/lock.h"

STAGE_API void mi_init_lock(miLock* lock) {
    *lock = stage::create_lock();
}

STAGE_API void mi_delete_lock(miLock* lock) {
    stage::destroy_lock(*lock);
    *lock = nullptr;
}

STAGE_API void mi_lock(miLock lock) {
    stage::acquire_lock(lock);
}

STAGE_API void mi_unlock(miLock lock) {
    stage::release_lock(lock);
}
