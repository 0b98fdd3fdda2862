/*
 * Utility and pass-through shaders: the glue that the host's translator puts between its own shaders, the
 * lens that writes the host's buffers, and shaders that show what the host attached to a node. They rely on
 * the records of orl_support.
 */
#include "utilshaders.h"
#include "numeric.h"
#include "orl_context.h"
#include "orl_support.h"
#include "orlshaderapi.h"
#include "output_request.h"
#include "system.h"

#include <cstring>

namespace orl {

// ---- instance records

namespace {

struct MaterialToShaderInstance {
    miBoolean warned;
    miInteger spare;
};
static_assert(sizeof(MaterialToShaderInstance) == 8);

struct GBufferLensInstance {
    int node_id;
    int node_render_id;
    int u;
    int v;
    int velocity;
    std::uint64_t hold_handle;
};

struct GammaInstance {
    float gamma;
    float (*table)[GammaTable::size]; // null: colours stay as they are
};

} // namespace

// ---- mathematics

void GammaTable::fill(float (&entries)[size], float gamma) {
    for (int i = 0; i < size; ++i)
        entries[i] = numeric::pow(static_cast<float>(i) / static_cast<float>(size - 1), gamma);
}

float GammaTable::apply(const float (&entries)[size], float gamma, float component) {
    if (component > 1.0f)
        return numeric::pow(component, gamma);
    if (component >= 0.0f) {
        const float place = component * static_cast<float>(size - 1) + 0.5f;
        return entries[static_cast<int>(place)];
    }
    return std::isnan(component) ? component : entries[0];
}

TextureCoordinate cube_face_coordinate(const miVector& dir) {
    const float x = std::fabs(dir.x), y = std::fabs(dir.y), z = std::fabs(dir.z);
    float right, up, major;
    if (x >= y && x >= z) {
        major = x;
        right = dir.x > 0.0f ? dir.z : -dir.z;
        up = dir.y;
    } else if (y >= z) {
        major = y;
        right = dir.x;
        up = dir.y > 0.0f ? dir.z : -dir.z;
    } else {
        major = z;
        right = dir.z > 0.0f ? -dir.x : dir.x;
        up = dir.y;
    }
    const TextureCoordinate at{(right / major + 1.0f) * 0.5f, (up / major + 1.0f) * 0.5f};
    return std::isfinite(at.u) && std::isfinite(at.v) ? at : TextureCoordinate{0.5f, 0.5f};
}

// Five colours, not two: the host's background shows diagonal bands, deliberately.
const miColor background_colors[background_bands] = {
    {128.0f / 255.0f, 128.0f / 255.0f, 128.0f / 255.0f, 0.0f},
    {128.0f / 255.0f, 0.0f, 0.0f, 0.0f},
    {0.0f, 128.0f / 255.0f, 0.0f, 0.0f},
    {0.0f, 0.0f, 128.0f / 255.0f, 0.0f},
    {0.0f, 0.0f, 0.0f, 0.0f},
};

int background_band(TextureCoordinate at) {
    constexpr float limit = 1e6f; // far outside every picture; keeps the conversion to int defined
    const auto cell = [](float x) { return std::fabs(x) < limit ? static_cast<int>(x * 8.0f) : 0; };
    // Deliberate: cells and remainder are cut off towards zero, as in the host's own background; a negative
    // remainder is moved into the table.
    const int remainder = (cell(at.u) + cell(at.v)) % background_bands;
    return remainder < 0 ? remainder + background_bands : remainder;
}

miColor apply_visibility(const miColor& color, float visibility, bool as_opacity) {
    const auto fade = [=](float c) { return as_opacity ? 1.0f - (1.0f - c) * visibility : c * visibility; };
    return {fade(color.r), fade(color.g), fade(color.b), fade(color.a)};
}

miColor mix_by_wire_color(const miColor& a, const miColor& b, const float (&weight)[3]) {
    const auto mix = [](float x, float y, float t) { return x * t + y * (1.0f - t); };
    return {mix(a.r, b.r, weight[0]), mix(a.g, b.g, weight[1]), mix(a.b, b.b, weight[2]), a.a};
}

std::uint64_t join_handle(miInteger low, miInteger high) {
    return std::uint64_t{static_cast<std::uint32_t>(high)} << 32 | static_cast<std::uint32_t>(low);
}

namespace {

// ---- gamma-corrected look-ups

void init_gamma(miState* state) {
    auto* const data = new_instance_data<GammaInstance>(state);
    const orl_SceneData* const scene = GetSceneData(state);
    if (data == nullptr || scene == nullptr || scene->display_gamma == 1.0f)
        return;
    data->gamma = scene->display_gamma;
    void* const memory = mi_mem_int_allocate("utilshaders", __LINE__, sizeof *data->table);
    data->table = static_cast<float(*)[GammaTable::size]>(memory);
    GammaTable::fill(*data->table, data->gamma);
}

void exit_gamma(miState* state) {
    const auto* const data = instance_data<GammaInstance>(state);
    if (data != nullptr && data->table != nullptr)
        mi_mem_int_release("utilshaders", __LINE__, data->table);
    delete_instance_data(state);
}

void apply_gamma(miState* state, miColor& color) {
    const auto* const data = instance_data<GammaInstance>(state);
    if (data == nullptr || data->table == nullptr)
        return;
    color.r = GammaTable::apply(*data->table, data->gamma, color.r);
    color.g = GammaTable::apply(*data->table, data->gamma, color.g);
    color.b = GammaTable::apply(*data->table, data->gamma, color.b);
}

// An image that is missing reads as transparent black, whatever the gamma.
void look_up(miColor* result, miState* state, miTag texture, miVector coordinate) {
    const auto run = [&](miColor* color) {
        return mi_lookup_color_texture(color, state, texture, &coordinate);
    };
    if (texture != miNULLTAG && with_room(result, run)) // a texture may be a shader, too
        apply_gamma(state, *result);
    else
        *result = {0, 0, 0, 0};
}

// ---- editor background

// The picture's own coordinates, or for the environment of an ordinary scene those of a cube around it.
TextureCoordinate background_coordinate(miState* state) {
    if (state->type == miRAY_ENVIRONMENT && !is_material_editor(state)) {
        miVector dir;
        mi_vector_to_world(state, &dir, &state->dir);
        return cube_face_coordinate(dir);
    }
    const context::RasterPosition at = context::raster_position(state);
    return {at.u, at.v};
}

// ---- buffer lens

// The host may hold the render until it is ready.
void wait_for_host(std::uint64_t handle) {
    constexpr unsigned patience = 100; // milliseconds between two looks at whether rendering was aborted
    while (handle != 0 && system::wait_times_out(handle, patience))
        if (mi_par_aborted())
            return;
}

template <class Value> void put(miState* state, int buffer, Value value) {
    if (buffer != -1)
        mi_fb_put(state, buffer, &value);
}

// Deliberate: either switch writes both ids, each into its own buffer; the host tells them apart by the
// buffers that its camera has.
void put_node(miState* state, const GBufferLensParams* params, const GBufferLensInstance& buffers) {
    if (!eval(state, params->node_id) && !eval(state, params->node_render_id))
        return;
    const orl_NodeData* const node = GetNodeData(state->instance);
    if (node == nullptr)
        return;
    put(state, buffers.node_id, node->node_id);
    put(state, buffers.node_render_id, node->node_render_id);
}

void put_texture_coordinates(miState* state, const GBufferLensInstance& buffers) {
    constexpr std::size_t most_dimensions = 16; // a texture space has two or three, with derivatives nine
    int spaces = 0;
    miScalar coordinate[most_dimensions] = {};
    if (!mi_query(miQ_NUM_TEXTURES, state, miNULLTAG, &spaces) || spaces < 1 ||
        !mi_texture_interpolate(state, 0, coordinate))
        return;
    put(state, buffers.u, coordinate[0]);
    put(state, buffers.v, coordinate[1]);
}

// Raster position of a point; false for one that is not in front of the camera, which has none.
bool project(miState* state, miVector point, miVector& raster) {
    miVector at;
    mi_point_to_camera(state, &at, &point);
    if (!(at.z < 0.0f))
        return false;
    mi_point_to_raster(state, &raster, &point);
    return std::isfinite(raster.x) && std::isfinite(raster.y);
}

// The state's motion vector is the way of the point during the shutter interval, so the difference of its two
// ends in raster space is the velocity in pixels for each shutter interval; none when an end is out of sight.
// Four components, for buffers of vectors and of colours.
miColor raster_velocity(miState* state) {
    miVector target, from, to;
    mi_vector_add(&target, &state->point, &state->motion);
    if (!project(state, state->point, from) || !project(state, target, to))
        return {};
    return {to.x - from.x, to.y - from.y, 0.0f, 0.0f};
}

} // namespace
} // namespace orl

using namespace orl;

// ---- trivial shaders

ORL_VERSION(utilshaders, orl_empty);

ORL_EXPORT miBoolean orl_empty(miColor* result, miState* state, const void* params) {
    if (state == nullptr && params == nullptr)
        return miFALSE;
    *result = {0, 0, 0, 1};
    return miTRUE;
}

ORL_VERSION(utilshaders, orl_unknown);

// Deliberate: white and fully transparent, so that what could not be translated is found in the picture.
ORL_EXPORT miBoolean orl_unknown(miColor* result, miState* state, const void* params) {
    if (state == nullptr && params == nullptr)
        return miFALSE;
    *result = {1, 1, 1, 0};
    return miTRUE;
}

ORL_VERSION(utilshaders, orl_procedural_dummy);

ORL_EXPORT miBoolean orl_procedural_dummy(miColor* result, miState* state, const void* params) {
    if (result == nullptr && state == nullptr && params == nullptr)
        return miFALSE;
    if (result != nullptr)
        *result = {0.7f, 0.7f, 0.7f, 1};
    return miTRUE;
}

ORL_VERSION(utilshaders, orl_passthru);

ORL_EXPORT miBoolean orl_passthru(void* result, miState*, const PassthruParams* params) {
    // Deliberate: the bytes are copied, not the numbers. The host sends values of any type through here.
    static_assert(sizeof *params == 8);
    std::memcpy(result, params, sizeof *params);
    return miTRUE;
}

ORL_VERSION(utilshaders, LumeTools);

ORL_EXPORT miBoolean LumeTools(miColor* result, miState*, const void*) {
    *result = {0, 0, 0, 1};
    return miTRUE;
}

ORL_VERSION(utilshaders, orl_is_material_editor);

ORL_EXPORT miBoolean orl_is_material_editor(miInteger* result, miState* state, const void*) {
    *result = is_material_editor(state);
    return miTRUE;
}

// ---- materials and lists of shaders

ORL_VERSION(utilshaders, orl_MaterialToShader);

ORL_EXPORT void orl_MaterialToShader_init(miState* state, const MaterialToShaderParams* params,
                                          miBoolean* instance_init_required) {
    if (wants_instance(params, instance_init_required))
        new_instance_data<MaterialToShaderInstance>(state);
}

ORL_EXPORT miBoolean orl_MaterialToShader(miColor* result, miState* state,
                                          const MaterialToShaderParams* params) {
    const miTag material = eval(state, params->material);
    return material ? CallMaterial(result, state, material, nullptr) : miFALSE;
}

ORL_EXPORT void orl_MaterialToShader_exit(miState* state, const MaterialToShaderParams* params) {
    if (params != nullptr)
        delete_instance_data(state);
}

ORL_VERSION(utilshaders, orl_ShaderList);

ORL_EXPORT miBoolean orl_ShaderList(miColor* result, miState* state, const ShaderListParams* params) {
    const auto shaders = span(state, params, &ShaderListParams::shaders);
    if (shaders.size() < 1)
        return miFALSE;
    const int called_as = call_type(state);
    const auto type = called_as < 0 ? miSHADER_DEFAULT : static_cast<miShader_type>(called_as);
    miBoolean any = miFALSE;
    for (miInteger k = 0; k < shaders.size(); ++k)
        if (mi_call_shader(result, type, state, shaders[k]))
            any = miTRUE;
    return any;
}

ORL_VERSION(utilshaders, orl_ShadowWrapper);

ORL_EXPORT miBoolean orl_ShadowWrapper(miColor* result, miState* state, const ShadowWrapperParams* params) {
    constexpr int segments = 's';
    const orl_NodeData* const node = GetNodeData(state->instance);
    if (node != nullptr && !IsInstanceShadowMakerForLight(state, node))
        return state->options->shadow == segments ? mi_trace_shadow_seg(result, state) : miTRUE;
    const miTag shadow = eval(state, params->shadow);
    return shadow ? call_in_slot(result, state, miSHADER_SHADOW, shadow) : miFALSE;
}

// ---- buffer lens

ORL_VERSION(utilshaders, orl_base_GBuffer_lens);

ORL_EXPORT void orl_base_GBuffer_lens_init(miState* state, const GBufferLensParams* params,
                                           miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    auto* const data = new_instance_data<GBufferLensInstance>(state);
    if (data == nullptr)
        return;
    data->node_id = frame_buffer_index(state, "fb_node_id");
    data->node_render_id = frame_buffer_index(state, "fb_node_render_id");
    data->u = frame_buffer_index(state, "fb_ucoord");
    data->v = frame_buffer_index(state, "fb_vcoord");
    data->velocity = frame_buffer_index(state, "fb_velocity");
    if (system::host_handles)
        data->hold_handle =
            join_handle(eval(state, params->hold_handle_low), eval(state, params->hold_handle_high));
}

ORL_EXPORT miBoolean orl_base_GBuffer_lens(miColor* result, miState* state, const GBufferLensParams* params) {
    const auto* const data = instance_data<GBufferLensInstance>(state);
    if (data != nullptr)
        wait_for_host(data->hold_handle);
    const miBoolean hit = mi_trace_eye(result, state, &state->org, &state->dir);
    if (data != nullptr && state->instance != miNULLTAG) {
        put_node(state, params, *data);
        if (eval(state, params->texture_coordinates))
            put_texture_coordinates(state, *data);
        if (data->velocity != -1 && eval(state, params->velocity))
            put(state, data->velocity, raster_velocity(state));
    }
    guard_nan(state, *result);
    return hit;
}

ORL_EXPORT void orl_base_GBuffer_lens_exit(miState* state, const GBufferLensParams* params) {
    if (params != nullptr)
        delete_instance_data(state);
}

// ---- editor background and gamma-corrected image

ORL_VERSION(utilshaders, orl_base_MeditBackground);

ORL_EXPORT void orl_base_MeditBackground_init(miState* state, const MeditBackgroundParams* params,
                                              miBoolean* instance_init_required) {
    if (wants_instance(params, instance_init_required))
        init_gamma(state);
}

ORL_EXPORT miBoolean orl_base_MeditBackground(miColor* result, miState* state,
                                              const MeditBackgroundParams* params) {
    if (!eval(state, params->on)) {
        *result = eval(state, params->color);
        return miTRUE;
    }
    const TextureCoordinate at = background_coordinate(state);
    if (const miTag texture = eval(state, params->background))
        look_up(result, state, texture, {at.u, at.v, 0});
    else
        *result = background_colors[background_band(at)];
    return miTRUE;
}

ORL_EXPORT void orl_base_MeditBackground_exit(miState* state, const MeditBackgroundParams* params) {
    if (params != nullptr)
        exit_gamma(state);
}

ORL_VERSION(utilshaders, orl_base_ImageGammaCorrect);

ORL_EXPORT void orl_base_ImageGammaCorrect_init(miState* state, const ImageGammaCorrectParams* params,
                                                miBoolean* instance_init_required) {
    if (wants_instance(params, instance_init_required))
        init_gamma(state);
}

ORL_EXPORT miBoolean orl_base_ImageGammaCorrect(miColor* result, miState* state,
                                                const ImageGammaCorrectParams* params) {
    const miVector coordinate = state->tex_list ? state->tex_list[0] : miVector{};
    look_up(result, state, eval(state, params->texture), coordinate);
    return miTRUE;
}

ORL_EXPORT void orl_base_ImageGammaCorrect_exit(miState* state, const ImageGammaCorrectParams* params) {
    if (params != nullptr)
        exit_gamma(state);
}

// ---- node data

ORL_VERSION(utilshaders, orl_NodeVisibility);

ORL_EXPORT miBoolean orl_NodeVisibility(miColor* result, miState* state, const NodeVisibilityParams* params) {
    *result = eval(state, params->color);
    if (const orl_NodeData* const node = GetNodeData(state->instance))
        *result = apply_visibility(*result, node->visibility, eval(state, params->as_opacity));
    return miTRUE;
}

ORL_VERSION(utilshaders, orl_WireColor);

ORL_EXPORT miBoolean orl_WireColor(miColor* result, miState* state, const WireColorParams* params) {
    const orl_NodeData* const node = GetNodeData(state->instance);
    if (node == nullptr)
        return miFALSE;
    const float wire[3] = {node->color_r, node->color_g, node->color_b};
    const miInteger channel = eval(state, params->channel);
    const miColor a = eval(state, params->a);
    const miColor b = eval(state, params->b);
    if (channel >= 1 && channel <= 3) {
        const float one = wire[channel - 1];
        *result = mix_by_wire_color(a, b, {one, one, one});
    } else {
        *result = mix_by_wire_color(a, b, wire);
    }
    return miTRUE;
}
