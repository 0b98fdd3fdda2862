// The shared library that stands in for the renderer's module: exports every renderer function, counts its
// calls and asks the hook that the test set, or answers from the kit.
#include "scripted_control.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <string>
#include <vector>

#include "kit/color.h"
#include "kit/image.h"
#include "kit/lock.h"
#include "kit/matrix.h"
#include "kit/memory.h"
#include "kit/message.h"
#include "kit/random.h"
#include "kit/shader_state.h"

namespace scripted {

namespace {

// ---- answers without a script; a function that is not here gives 0 and writes nothing ----

std::array<stage::ShaderStateRecords, 256> records; // for each thread

stage::ShaderStateRecords& records_of(const miState* state) {
    return records[state ? static_cast<std::size_t>(state->thread) % records.size() : 0];
}

double radical_inverse(int number, int base) {
    double result = 0.0, digit = 1.0 / base;
    for (; number > 0; number /= base, digit /= base)
        result += digit * (number % base);
    return result;
}

void mirror(miVector* dir, miState* state) {
    const miScalar twice = 2.0f * mi_vector_dot(&state->dir, &state->normal);
    *dir = {state->dir.x - twice * state->normal.x, state->dir.y - twice * state->normal.y,
            state->dir.z - twice * state->normal.z};
}

// Snell's law.
miBoolean refract(miVector* dir, miState* state, miScalar ior_in, miScalar ior_out) {
    const double ratio = static_cast<double>(ior_in) / static_cast<double>(ior_out);
    const double cosine = -static_cast<double>(mi_vector_dot(&state->dir, &state->normal));
    const double square = 1.0 - ratio * ratio * (1.0 - cosine * cosine);
    if (!(square >= 0.0))
        return miFALSE;
    const auto along = static_cast<miScalar>(ratio);
    const auto normal = static_cast<miScalar>(ratio * cosine - std::sqrt(square));
    *dir = {along * state->dir.x + normal * state->normal.x, along * state->dir.y + normal * state->normal.y,
            along * state->dir.z + normal * state->normal.z};
    return miTRUE;
}

void set_memory_fallbacks(Hooks& hooks) {
    hooks.mi_shaderstate_set.fallback = [](miState* state, const char* key, void* value, int size,
                                           int lifetime) -> miBoolean {
        return records_of(state).set(key, value, size, lifetime);
    };
    hooks.mi_shaderstate_get.fallback = [](miState* state, const char* key, int* size) -> void* {
        return records_of(state).get(key, size);
    };
    hooks.mi_mem_int_allocate.fallback = [](const char* file, int line, miUint size) -> void* {
        return stage::allocate(file, line, size);
    };
    hooks.mi_mem_int_test_allocate.fallback = [](const char* file, int line, miUint size) -> void* {
        return stage::test_allocate(file, line, size);
    };
    hooks.mi_mem_int_release.fallback = [](const char* file, int line, void* mem) {
        stage::release(file, line, mem);
    };
    hooks.mi_mem_int_strdup.fallback = [](const char* file, int line, const char* text) -> char* {
        return stage::duplicate(file, line, text);
    };
    hooks.mi_init_lock.fallback = [](miLock* lock) { *lock = stage::create_lock(); };
    hooks.mi_delete_lock.fallback = [](miLock* lock) {
        stage::destroy_lock(*lock);
        *lock = nullptr;
    };
    hooks.mi_lock.fallback = [](miLock lock) { stage::acquire_lock(lock); };
    hooks.mi_unlock.fallback = [](miLock lock) { stage::release_lock(lock); };
    hooks.mi_erandom.fallback = [](unsigned short* seed) -> miScalar { return stage::next_random(seed); };
}

void set_matrix_fallbacks(Hooks& hooks) {
    hooks.mi_matrix_ident.fallback = [](miScalar* r) { stage::matrix_identity(r); };
    hooks.mi_matrix_invert.fallback = [](miScalar* r, const miScalar* a) -> miBoolean {
        return stage::matrix_invert(r, a);
    };
    hooks.mi_matrix_prod.fallback = [](miScalar* r, const miScalar* a, const miScalar* b) {
        stage::matrix_product(r, a, b);
    };
    hooks.mi_point_transform.fallback = [](miVector* r, const miVector* v, const miScalar* m) {
        *r = stage::transform_point(*v, m);
    };
    hooks.mi_vector_transform.fallback = [](miVector* r, const miVector* v, const miScalar* m) {
        *r = stage::transform_vector(*v, m);
    };
    hooks.mi_vector_transform_T.fallback = [](miVector* r, const miVector* v, const miScalar* m) {
        *r = stage::transform_vector_transposed(*v, m);
    };
}

void set_image_fallbacks(Hooks& hooks) {
    hooks.mi_luminance.fallback = [](miState* state, miColor* color) -> miScalar {
        return state && state->options ? stage::luminance(*color, state->options->luminance_weight)
                                       : stage::luminance(*color);
    };
    hooks.mi_colorprofile_ciexyz_to_render.fallback = [](miColor* rgb, miColor* xyz) {
        *rgb = stage::color_of_ciexyz(*xyz);
    };
    hooks.mi_img_get_color.fallback = [](miImg_image* image, miColor* color, int x, int y) {
        *color = stage::image_color(image, x, y);
    };
    hooks.mi_img_put_color.fallback = [](miImg_image* image, miColor* color, int x, int y) {
        stage::put_image_color(image, *color, x, y);
    };
    hooks.mi_img_get_width.fallback = [](miImg_image* image) -> int { return image ? image->width : 0; };
    hooks.mi_img_get_height.fallback = [](miImg_image* image) -> int { return image ? image->height : 0; };
    hooks.mi_img_pyramid_get_level.fallback = [](miImg_image* image, int level) -> miImg_image* {
        return stage::image_level(image, level);
    };
}

// Direction samplers without randomness: the centre of the lobe.
void set_direction_fallbacks(Hooks& hooks) {
    hooks.mi_reflection_dir.fallback = [](miVector* dir, miState* state) { mirror(dir, state); };
    hooks.mi_reflection_dir_specular.fallback = [](miVector* dir, miState* state) { mirror(dir, state); };
    hooks.mi_reflection_dir_glossy.fallback = [](miVector* dir, miState* state, miScalar) {
        mirror(dir, state);
    };
    hooks.mi_reflection_dir_anisglossy.fallback = [](miVector* dir, miState* state, miVector*, miVector*,
                                                     miScalar, miScalar) { mirror(dir, state); };
    hooks.mi_reflection_dir_diffuse.fallback = [](miVector* dir, miState* state) { *dir = state->normal; };
    hooks.mi_reflection_dir_diffuse_x.fallback = [](miVector* dir, miState* state, miScalar*) {
        *dir = state->normal;
    };
    hooks.mi_refraction_dir.fallback = [](miVector* dir, miState* state, miScalar ior_in,
                                          miScalar ior_out) -> miBoolean {
        return refract(dir, state, ior_in, ior_out);
    };
    hooks.mi_transmission_dir_specular.fallback = [](miVector* dir, miState* state, miScalar ior_in,
                                                     miScalar ior_out) -> miBoolean {
        return refract(dir, state, ior_in, ior_out);
    };
    hooks.mi_transmission_dir_glossy.fallback = [](miVector* dir, miState* state, miScalar ior_in,
                                                   miScalar ior_out, miScalar) -> miBoolean {
        return refract(dir, state, ior_in, ior_out);
    };
    hooks.mi_transmission_dir_anisglossy.fallback =
        [](miVector* dir, miState* state, miScalar ior_in, miScalar ior_out, miVector*, miVector*, miScalar,
           miScalar) -> miBoolean { return refract(dir, state, ior_in, ior_out); };
    hooks.mi_transmission_dir_diffuse.fallback = [](miVector* dir, miState* state) {
        *dir = state->normal;
        mi_vector_neg(dir);
    };
    hooks.mi_scattering_dir_diffuse.fallback = [](miVector* dir, miState* state) { *dir = state->dir; };
    hooks.mi_scattering_dir_directional.fallback = [](miVector* dir, miState* state, miScalar) {
        *dir = state->dir;
    };
    // The median path.
    hooks.mi_scattering_pathlength.fallback = [](miState*, miScalar k) -> miScalar {
        return 0.693147181f / k;
    };
}

void set_reflection_fallbacks(Hooks& hooks) {
    hooks.mi_phong_specular.fallback = [](miScalar exponent, miState* state, miVector* dir) -> miScalar {
        miVector reflected;
        mirror(&reflected, state);
        const miScalar cosine = mi_vector_dot(&reflected, dir);
        return cosine > 0.0f ? std::pow(cosine, exponent) : 0.0f;
    };
    // Fresnel's equations for a dielectric, unpolarised light.
    hooks.mi_fresnel_reflection.fallback = [](miState* state, miScalar ior_in, miScalar ior_out) -> miScalar {
        miVector dir;
        if (!refract(&dir, state, ior_in, ior_out))
            return 1.0f;
        const miScalar cos_in = -mi_vector_dot(&state->dir, &state->normal);
        const miScalar cos_out = -mi_vector_dot(&dir, &state->normal);
        const miScalar s = (ior_in * cos_in - ior_out * cos_out) / (ior_in * cos_in + ior_out * cos_out);
        const miScalar p = (ior_out * cos_in - ior_in * cos_out) / (ior_out * cos_in + ior_in * cos_out);
        return 0.5f * (s * s + p * p);
    };
    // Everything is absorbed.
    hooks.mi_choose_lobe.fallback = [](miState*, miScalar, miScalar, miScalar) -> miRay_type {
        return miPHOTON_ABSORB;
    };
    hooks.mi_choose_scatter_type.fallback = [](miState*, miScalar, miColor*, miColor*,
                                               miColor*) -> miRay_type { return miPHOTON_ABSORB; };
    hooks.mi_choose_simple_scatter_type.fallback = [](miState*, miColor*, miColor*, miColor*,
                                                      miColor*) -> miRay_type { return miPHOTON_ABSORB; };
}

void set_sample_fallbacks(Hooks& hooks) {
    // Halton's points; a single sample is the centre.
    hooks.mi_sample.fallback = [](double* sample, int* instance, miState*, miUshort dim,
                                  const miUint* n) -> miBoolean {
        constexpr std::array primes = {2, 3, 5, 7, 11, 13, 17, 19};
        if (instance && n && static_cast<miUint>(*instance) >= *n)
            return miFALSE;
        for (std::size_t i = 0; i < dim; ++i)
            sample[i] = instance ? radical_inverse(*instance + 1, primes[i % primes.size()]) : 0.5;
        if (instance)
            ++*instance;
        return miTRUE;
    };
    hooks.mi_texture_interpolate.fallback = [](miState* state, miUint space, miScalar* result) -> miBoolean {
        if (!state->tex_list)
            return miFALSE;
        const miVector& coordinate = state->tex_list[space];
        result[0] = coordinate.x;
        result[1] = coordinate.y;
        result[2] = coordinate.z;
        return miTRUE;
    };
}

// The fallback of a function that has none of its own.
template <class Result, class... Arguments> Result nothing(Arguments...) {
    return Result();
}

template <class Result, class... Arguments> void prepare(Hook<Result(Arguments...)>& hook, const char* name) {
    hook.name = name;
    hook.fallback = &nothing<Result, Arguments...>;
}

void set_fallbacks(Hooks& hooks) {
#define RENDERER_FUNCTION(result, name, parameters, arguments) prepare(hooks.name, #name);
#define RENDERER_MESSAGE(name) prepare(hooks.name, #name);
#include "renderer_functions.inc"
    set_memory_fallbacks(hooks);
    set_matrix_fallbacks(hooks);
    set_image_fallbacks(hooks);
    set_direction_fallbacks(hooks);
    set_reflection_fallbacks(hooks);
    set_sample_fallbacks(hooks);
}

// ---- control ----

struct CallLog {
    std::atomic<bool> on{false};
    std::mutex mutex;
    std::vector<const char*> names;
};
CallLog call_log;

Control control;

template <class Signature> void note(Hook<Signature>& hook) {
    hook.calls.fetch_add(1, std::memory_order_relaxed);
    if (call_log.on.load(std::memory_order_relaxed)) {
        const std::lock_guard guard(call_log.mutex);
        call_log.names.push_back(hook.name);
    }
}

template <class Signature> void clear(Hook<Signature>& hook) {
    hook.call = nullptr;
    hook.context = nullptr;
    hook.calls.store(0);
}

void reset() {
#define RENDERER_FUNCTION(result, name, parameters, arguments) clear(control.hooks.name);
#define RENDERER_MESSAGE(name) clear(control.hooks.name);
#include "renderer_functions.inc"
    for (auto& table : records)
        table.clear_rect();
    stage::fail_allocations_after(-1);
    const std::lock_guard guard(call_log.mutex);
    call_log.on = false;
    call_log.names.clear();
}

Resources resources() {
    const stage::MemoryCounts counts = stage::memory_counts();
    return {counts.live_blocks, counts.live_bytes, counts.allocations, counts.bad_releases,
            stage::live_locks()};
}

void log_calls(bool on) {
    const std::lock_guard guard(call_log.mutex);
    call_log.names.clear();
    call_log.on = on;
}

int logged_calls() {
    const std::lock_guard guard(call_log.mutex);
    return static_cast<int>(call_log.names.size());
}

const char* logged_call(int number) {
    const std::lock_guard guard(call_log.mutex);
    return call_log.names.at(static_cast<std::size_t>(number));
}

Control* prepared_control() {
    set_fallbacks(control.hooks);
    control.reset = reset;
    control.resources = resources;
    control.fail_allocations_after = stage::fail_allocations_after;
    control.log_calls = log_calls;
    control.logged_calls = logged_calls;
    control.logged_call = logged_call;
    return &control;
}

// Ready before the library can be called.
Control* const ready = prepared_control();

} // namespace
} // namespace scripted

// ---- what the library exports ----

extern "C" {

DLLEXPORT scripted::Control* scripted_renderer() {
    return scripted::ready;
}

// What follows the first argument of a call, from a list of arguments in parentheses.
#define AND_ARGUMENTS(...) __VA_OPT__(, ) __VA_ARGS__

#define RENDERER_FUNCTION(result, name, parameters, arguments)                                               \
    DLLEXPORT result name parameters {                                                                       \
        auto& hook = scripted::control.hooks.name;                                                           \
        scripted::note(hook);                                                                                \
        return hook.call ? hook.call(hook.context AND_ARGUMENTS arguments) : hook.fallback arguments;        \
    }
#define RENDERER_MESSAGE(name)                                                                               \
    DLLEXPORT void name(const char* format, ...) {                                                           \
        std::va_list arguments;                                                                              \
        va_start(arguments, format);                                                                         \
        const std::string text = stage::format_message(format, arguments);                                   \
        va_end(arguments);                                                                                   \
        auto& hook = scripted::control.hooks.name;                                                           \
        scripted::note(hook);                                                                                \
        if (hook.call)                                                                                       \
            hook.call(hook.context, text.c_str());                                                           \
    }
#include "renderer_functions.inc"
}
