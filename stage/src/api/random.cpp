// Random number functions of the interface.
#include "kit/random.h"
#include "api/api.h"

STAGE_API miScalar mi_random() {
    return stage::shared_random();
}

STAGE_API void mi_srandom(long seed) {
    stage::seed_shared_random(seed);
}

STAGE_API miScalar mi_erandom(unsigned short seed[3]) {
    return stage::next_random(seed);
}

// The sample's own stream: the same numbers whatever thread renders the sample, and when.
STAGE_API miScalar mi_par_random(miState* state) {
    return stage::context_of(state).next_random();
}
