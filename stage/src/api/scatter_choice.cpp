// What happens to a photon at a surface, by Russian roulette: one way is drawn with a probability that
// follows its coefficient, and the coefficient is divided by it, so that the mean of what goes on is what all
// ways together would have carried. Jensen, "Realistic Image Synthesis Using Photon Mapping", 2001,
// section 5.2.
#include <algorithm>
#include <array>
#include <numeric>
#include <span>

#include "api/api.h"

namespace {

// A way that light can take: `share` of the colour goes along it.
struct Way {
    miRay_type type;
    float share;
    miColor* color;
    [[nodiscard]] float weight() const {
        return std::max(0.0f, share * (color->r + color->g + color->b) / 3.0f);
    }
};

// Draws an index by the probabilities, which are scaled down when they add up to more than 1; their size when
// nothing is drawn. `scale` receives the factor that they were scaled by.
std::size_t draw(miState* state, std::span<const float> weights, float& scale) {
    const float sum = std::accumulate(weights.begin(), weights.end(), 0.0f);
    scale = sum > 1.0f ? 1.0f / sum : 1.0f;
    float rest = stage::context_of(state).next_random();
    for (std::size_t i = 0; i < weights.size(); ++i) {
        const float probability = scale * weights[i];
        if (rest < probability)
            return i;
        rest -= probability;
    }
    return weights.size();
}

template <std::size_t n> miRay_type choose(miState* state, const std::array<Way, n>& ways) {
    std::array<float, n> weights;
    std::transform(ways.begin(), ways.end(), weights.begin(), [](const Way& way) { return way.weight(); });
    float scale;
    const std::size_t drawn = draw(state, weights, scale);
    if (drawn == n)
        return miPHOTON_ABSORB;
    const Way& way = ways[drawn];
    const float factor = way.share / (scale * weights[drawn]);
    way.color->r *= factor;
    way.color->g *= factor;
    way.color->b *= factor;
    return way.type;
}

} // namespace

// The weights are probabilities; what is missing to 1 is absorbed. When they add up to more, they are brought
// down to 1 together, and the caller has to multiply what goes on by their sum.
STAGE_API miRay_type mi_choose_lobe(miState* state, miScalar diffuse, miScalar glossy, miScalar specular) {
    constexpr std::array types = {miPHOTON_REFLECT_DIFFUSE, miPHOTON_REFLECT_GLOSSY,
                                  miPHOTON_REFLECT_SPECULAR, miPHOTON_ABSORB};
    const std::array weights = {std::max(diffuse, 0.0f), std::max(glossy, 0.0f), std::max(specular, 0.0f)};
    float scale;
    return types[draw(state, weights, scale)];
}

// `transparency` of each coefficient is transmitted, the rest reflected. Scales the coefficient of the way
// that is returned.
STAGE_API miRay_type mi_choose_scatter_type(miState* state, miScalar transparency, miColor* diffuse,
                                            miColor* glossy, miColor* specular) {
    const float through = std::clamp(transparency, 0.0f, 1.0f);
    const float back = 1.0f - through;
    return choose(state, std::array{Way{miPHOTON_REFLECT_DIFFUSE, back, diffuse},
                                    Way{miPHOTON_REFLECT_GLOSSY, back, glossy},
                                    Way{miPHOTON_REFLECT_SPECULAR, back, specular},
                                    Way{miPHOTON_TRANSMIT_DIFFUSE, through, diffuse},
                                    Way{miPHOTON_TRANSMIT_GLOSSY, through, glossy},
                                    Way{miPHOTON_TRANSMIT_SPECULAR, through, specular}});
}

STAGE_API miRay_type mi_choose_simple_scatter_type(miState* state, miColor* refl_diffuse,
                                                   miColor* refl_specular, miColor* trans_diffuse,
                                                   miColor* trans_specular) {
    return choose(state, std::array{Way{miPHOTON_REFLECT_DIFFUSE, 1.0f, refl_diffuse},
                                    Way{miPHOTON_REFLECT_SPECULAR, 1.0f, refl_specular},
                                    Way{miPHOTON_TRANSMIT_DIFFUSE, 1.0f, trans_diffuse},
                                    Way{miPHOTON_TRANSMIT_SPECULAR, 1.0f, trans_specular}});
}
