// Renderer functions that do nothing worth mentioning, so that a benchmark times the way to them.
#include "shader.h"

extern "C" DLLEXPORT int mi_db_type(miTag tag) {
    return static_cast<int>(tag);
}

extern "C" DLLEXPORT void* mi_phen_eval(miState*, void* param) {
    return param;
}
