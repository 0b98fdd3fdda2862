/*
 * The tables behind the noise and behind cellular patterns. noiseTablesInit fills them; before, all is 0.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

struct NoiseTables {
    static constexpr int size = 512; // cells until the noise repeats
    static constexpr int mask = size - 1;
    static constexpr int entries = 2 * size + 2; // indices are sums of two, and their neighbours

    /* A permutation of 0 to size - 1, and the gradients: numbers of [-1, 1), then unit vectors. Entries from
       `size` on repeat those from 0 on. */
    miInteger perm[entries];
    miScalar grad1[entries];
    miScalar grad2[entries][2];
    miScalar grad3[entries][3];
    miScalar grad4[entries][4];

    /* How likely a cell has at most k points, of a mean of 3. */
    miScalar cellPoissonTable[9];
    /* Equally distributed in [0, 1]. */
    miScalar cellRandomTable[10000];

    /* grad3 (and a 0) and grad4 in the order of perm, which saves the last step of a look-up: the gradients
       of two corners that differ in the last coordinate lie side by side. */
    alignas(16) miScalar corners3[entries][4];
    alignas(16) miScalar corners4[entries][4];
};

extern NoiseTables noise_tables;

} // namespace orl
