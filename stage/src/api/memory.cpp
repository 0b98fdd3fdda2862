// Memory functions of the interface.
#include "kit/memory.h"
#include "api/api.h"

STAGE_API void* mi_mem_int_allocate(const char* file, int line, const miUint size) {
    return stage::allocate(file, line, size);
}

STAGE_API void* mi_mem_int_test_allocate(const char* file, int line, const miUint size) {
    return stage::test_allocate(file, line, size);
}

STAGE_API void* mi_mem_int_reallocate(const char* file, int line, void* mem, const miUint size) {
    return stage::reallocate(file, line, mem, size);
}

STAGE_API void mi_mem_int_release(const char* file, int line, void* mem) {
    stage::release(file, line, mem);
}

STAGE_API char* mi_mem_int_strdup(const char* file, int line, const char* text) {
    return stage::duplicate(file, line, text);
}
