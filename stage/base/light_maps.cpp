// Light maps: the light on a surface, as a texture.
#include "base.h"
#include "geoshader.h"

using namespace base;

// ---- base_light_map: measures at the vertices, and fills the texture between them by texture space 0

struct base_light_map_params {
    miTag texture;
    miColor color; // of the surface, which sends back that part of the light
    LightList lights;
};

namespace {

// An instance's own: the texture, from the first mesh of the light map to the last.
struct Baking {
    void* edit;
    miImg_image* image;
};

constexpr miScalar pi = 3.14159265f;
constexpr miScalar border = 1.5f; // texels around a triangle that are filled too, for lookups that blend

// A triangle on the texture, in texels.
struct Chart {
    miScalar x[3], y[3];
    const miColor* color[3];

    // Twice the area to the left of the way from corner a over b to the point.
    [[nodiscard]] miScalar area(int a, int b, miScalar px, miScalar py) const {
        return (x[b] - x[a]) * (py - y[a]) - (y[b] - y[a]) * (px - x[a]);
    }
    // The part of each corner at a point; false further out than `reach`. Those of outer points are of the
    // triangle's rim.
    bool weights(miScalar px, miScalar py, miScalar reach, miScalar (&weight)[3]) const {
        const miScalar whole = area(0, 1, x[2], y[2]);
        if (whole == 0.0f)
            return false;
        miScalar sum = 0.0f;
        for (int k = 0; k < 3; ++k) {
            const int a = (k + 1) % 3, b = (k + 2) % 3;
            const miScalar part = area(a, b, px, py) / whole;
            const miScalar height = std::fabs(whole) / std::hypot(x[b] - x[a], y[b] - y[a]);
            if (!(part * height >= -reach))
                return false;
            weight[k] = std::max(part, 0.0f);
            sum += weight[k];
        }
        for (miScalar& w : weight)
            w /= sum;
        return true;
    }
};

// Texels whose middle is on the triangle or, where nothing is yet, within `reach` of it.
void fill(miImg_image* image, const Chart& chart, miScalar reach) {
    // Within the image.
    const auto texel = [](miScalar place, int size) {
        return static_cast<int>(std::min(std::max(0.0f, std::floor(place)), static_cast<miScalar>(size)));
    };
    const auto first = [&](const miScalar(&c)[3], int size) {
        return texel(std::min({c[0], c[1], c[2]}) - reach, size);
    };
    const auto end = [&](const miScalar(&c)[3], int size) {
        return texel(std::max({c[0], c[1], c[2]}) + reach + 1.0f, size);
    };
    const int width = mi_img_get_width(image), height = mi_img_get_height(image);
    for (int y = first(chart.y, height); y < end(chart.y, height); ++y)
        for (int x = first(chart.x, width); x < end(chart.x, width); ++x) {
            miScalar weight[3];
            if (!chart.weights(static_cast<miScalar>(x) + 0.5f, static_cast<miScalar>(y) + 0.5f, reach,
                               weight))
                continue;
            miColor there{};
            if (reach > 0.0f)
                mi_img_get_color(image, &there, x, y);
            if (there.a > 0.0f)
                continue;
            miColor color =
                *chart.color[0] * weight[0] + *chart.color[1] * weight[1] + *chart.color[2] * weight[2];
            color.a = 1.0f;
            mi_img_put_color(image, &color, x, y);
        }
}

// First what triangles cover, then their borders.
void fill_mesh(miState* state, miImg_image* image, const miLightmap_mesh& mesh) {
    const auto width = static_cast<miScalar>(mi_img_get_width(image));
    const auto height = static_cast<miScalar>(mi_img_get_height(image));
    const auto* results = static_cast<const miColor*>(mesh.results);
    for (const miScalar reach : {0.0f, border})
        for (miUint t = 0; t < mesh.triangle_count; ++t) {
            mi_state_set_pri(state, mesh.pri, mesh.triangles[t]);
            miVector* corner[3];
            if (!mi_tri_vectors(state, 't', 0, &corner[0], &corner[1], &corner[2]))
                return;
            Chart chart{};
            for (int k = 0; k < 3; ++k) {
                chart.x[k] = corner[k]->x * width;
                chart.y[k] = corner[k]->y * height;
                chart.color[k] = results + mesh.corners[3 * t + static_cast<miUint>(k)];
            }
            fill(image, chart, reach);
        }
}

// The light that the surface sends to all sides.
miColor surface_light(miState* state, base_light_map_params* params) {
    const miColor color = *mi_eval_color(&params->color);
    miColor light = direct_light(state, &params->lights,
                                 [&](const miVector&, miScalar cosine) { return color * cosine; });
    miColor indirect{};
    if (mi_compute_irradiance(&indirect, state))
        light += color * indirect * (1.0f / pi);
    return light;
}

Baking* baking_of(miState* state) {
    void** slot = nullptr;
    if (!mi_query(miQ_FUNC_USERPTR, state, miNULLTAG, static_cast<void*>(&slot)))
        return nullptr;
    return static_cast<Baking*>(*slot);
}

void finish(Baking& baking) {
    if (baking.image)
        mi_lightmap_edit_end(baking.edit);
    baking = {};
}

} // namespace

BASE_VERSION(base_light_map, 1)

BASE_EXPORT void base_light_map_init(miState* state, base_light_map_params* params,
                                     miBoolean* wants_instances) {
    if (!params) {
        *wants_instances = miTRUE;
        return;
    }
    void** slot = nullptr;
    if (mi_query(miQ_FUNC_USERPTR, state, miNULLTAG, static_cast<void*>(&slot)))
        *slot = mi_mem_allocate(sizeof(Baking));
}

BASE_EXPORT miBoolean base_light_map(miColor* result, miState* state, base_light_map_params* params,
                                     const miLightmap_mesh* mesh) {
    if (state->type == miRAY_LM_VERTEX) {
        *result = surface_light(state, params);
        return miTRUE;
    }
    Baking* baking = baking_of(state);
    if (state->type != miRAY_LM_MESH || !baking || !mesh)
        return miFALSE;
    if (!baking->image)
        baking->image = mi_lightmap_edit(&baking->edit, *mi_eval_tag(&params->texture));
    if (!baking->image)
        return miFALSE;
    fill_mesh(state, baking->image, *mesh);
    if (mesh->remaining == 0)
        finish(*baking);
    return miTRUE;
}

// A light map that was stopped is finished as it is.
BASE_EXPORT void base_light_map_exit(miState* state, base_light_map_params* params) {
    if (!params)
        return;
    if (Baking* baking = baking_of(state)) {
        finish(*baking);
        mi_mem_release(baking);
    }
}
