// A shader library for the tests of loading: it notes the order in which its functions are called.
#include "shader.h"

extern "C" {

DLLEXPORT void* test_module_handle = nullptr;
DLLEXPORT int test_calls = 0;
DLLEXPORT const char* test_call[16] = {};

static void note(const char* name) {
    if (test_calls < 16)
        test_call[test_calls++] = name;
}

DLLEXPORT void miSetModuleHandle(void* handle) {
    test_module_handle = handle;
}

DLLEXPORT miBoolean library_a(miColor*, miState*, void*) {
    return miTRUE;
}
DLLEXPORT int library_a_version() {
    return 3;
}
DLLEXPORT void library_a_init(miState*, void*, miBoolean*) {}
DLLEXPORT void library_a_exit(miState* state, void* params) {
    note(!params ? "a" : params == state->shader->parameters ? "a instance" : "a wrong");
}

DLLEXPORT miBoolean library_b(miColor*, miState*, void*) {
    return miTRUE;
}
DLLEXPORT void library_b_exit(miState* state, void* params) {
    note(!params ? "b" : params == state->shader->parameters ? "b instance" : "b wrong");
}
}
