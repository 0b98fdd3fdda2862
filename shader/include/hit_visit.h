/*
 * Materials that run other shaders may be made part of themselves: by a map, a model or a sub-material that
 * leads back to them. A visit finds that out at the first return, so that the scene renders, and such a
 * material fails, instead of running out of stack.
 */
#pragma once

#include "shader.h"

namespace orl {

/* The hit that an instance is shading in this thread; part of its thread data. */
struct HitVisit {
    miBoolean busy;
    const miState* parent;
    const void* pri;
    double dist;
};

/* Enters the hit at hand into the thread data, null for none, while it lives. A copied state has the same
   hit; a ray cast from here has another. */
class ScopedVisit {
public:
    ScopedVisit(const miState* state, HitVisit* visit) : visit_(visit) {
        if (visit == nullptr)
            return;
        outer_ = *visit;
        is_recursive = visit->busy && visit->parent == state->parent && visit->pri == state->pri &&
                       visit->dist == state->dist;
        *visit = {miTRUE, state->parent, state->pri, state->dist};
    }
    ~ScopedVisit() {
        if (visit_ != nullptr)
            *visit_ = outer_;
    }
    ScopedVisit(const ScopedVisit&) = delete;
    ScopedVisit& operator=(const ScopedVisit&) = delete;

    bool is_recursive = false;

private:
    HitVisit* visit_;
    HitVisit outer_{};
};

} // namespace orl
