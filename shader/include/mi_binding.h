/*
 * The renderer functions that this library uses, and their forwarding.
 *
 * The library is not linked against the renderer. Each function below is found by name in the module that
 * miSetModuleHandle was given, at its first call, and remembered in a table of entry points. Everything else
 * calls mi_* functions as if they were ordinary ones.
 */
#pragma once

#include "shader.h"

/* Marks a function of this library that others find by its name. */
#ifdef _WIN32
#define ORL_EXPORT extern "C" __declspec(dllexport)
#else
#define ORL_EXPORT extern "C" __attribute__((visibility("default")))
#endif

/*
 * FORWARD(result, name, parameters, arguments): passes its arguments on unchanged.
 * MESSAGE(name): a message function, which formats before it passes on.
 *
 * The position in this list is the function's slot in the table of entry points.
 */
// clang-format off
#define ORL_RENDERER_FUNCTIONS(FORWARD, MESSAGE)                                                           \
    /* name lookup and database */                                                                         \
    FORWARD(miTag, mi_api_name_lookup, (char* name), (name))                                               \
    FORWARD(void*, mi_db_access, (miTag tag), (tag))                                                       \
    FORWARD(void*, mi_db_access_type, (miTag tag, int* type), (tag, type))                                 \
    FORWARD(int, mi_db_type, (miTag tag), (tag))                                                           \
    FORWARD(void, mi_db_unpin, (miTag tag), (tag))                                                         \
    FORWARD(miShader_interface*, mi_get_shader_interface, (int version), (version))                        \
    /* queries */                                                                                          \
    FORWARD(miBoolean, mi_vquery, (const miQ_type code, miState* state, const miTag tag, void* result,     \
            va_list args),                                                                                 \
            (code, state, tag, result, args))                                                              \
    /* calling other shaders */                                                                            \
    FORWARD(miBoolean, mi_call_shader, (miColor* result, miShader_type type, miState* state, miTag tag),   \
            (result, type, state, tag))                                                                    \
    FORWARD(miBoolean, mi_call_shader_x, (miColor* result, miShader_type type, miState* state,             \
            miTag tag, void* arg),                                                                         \
            (result, type, state, tag, arg))                                                               \
    FORWARD(miBoolean, mi_call_material, (miColor* result, miState* state), (result, state))               \
    FORWARD(miBoolean, mi_call_shadow_material, (miColor* result, miState* state), (result, state))        \
    FORWARD(miBoolean, mi_call_photon_material, (miColor* result, miState* state), (result, state))        \
    FORWARD(miBoolean, mi_call_photonvol_material, (miColor* result, miState* state), (result, state))     \
    FORWARD(miBoolean, mi_call_volume_material, (miColor* result, miState* state), (result, state))        \
    FORWARD(miBoolean, mi_call_environment_material, (miColor* result, miState* state), (result, state))   \
    FORWARD(miBoolean, mi_call_contour_material, (void* result, void* info_near, void* info_far,           \
            miState* state),                                                                               \
            (result, info_near, info_far, state))                                                          \
    FORWARD(void*, mi_phen_eval, (miState* state, void* param), (state, param))                            \
    /* tracing rays */                                                                                     \
    FORWARD(miBoolean, mi_trace_reflection, (miColor* result, miState* state, miVector* dir),              \
            (result, state, dir))                                                                          \
    FORWARD(miBoolean, mi_trace_refraction, (miColor* result, miState* state, miVector* dir),              \
            (result, state, dir))                                                                          \
    FORWARD(miBoolean, mi_trace_transparent, (miColor* result, miState* state), (result, state))           \
    FORWARD(miBoolean, mi_trace_environment, (miColor* result, miState* state, miVector* dir),             \
            (result, state, dir))                                                                          \
    FORWARD(miBoolean, mi_trace_eye, (miColor* result, miState* state, miVector* org, miVector* dir),      \
            (result, state, org, dir))                                                                     \
    FORWARD(miBoolean, mi_trace_probe, (miState* state, miVector* dir, miVector* org),                     \
            (state, dir, org))                                                                             \
    FORWARD(miBoolean, mi_trace_shadow, (miColor* result, miState* state), (result, state))                \
    FORWARD(miBoolean, mi_trace_shadow_seg, (miColor* result, miState* state), (result, state))            \
    FORWARD(miBoolean, mi_trace_continue, (miColor* result, miState* state), (result, state))              \
    /* ray directions and falloff */                                                                       \
    FORWARD(void, mi_reflection_dir, (miVector* dir, miState* state), (dir, state))                        \
    FORWARD(void, mi_reflection_dir_specular, (miVector* dir, miState* state), (dir, state))               \
    FORWARD(void, mi_reflection_dir_glossy, (miVector* dir, miState* state, miScalar shiny),               \
            (dir, state, shiny))                                                                           \
    FORWARD(void, mi_reflection_dir_anisglossy, (miVector* dir, miState* state, miVector* u,               \
            miVector* v, miScalar shiny_u, miScalar shiny_v),                                              \
            (dir, state, u, v, shiny_u, shiny_v))                                                          \
    FORWARD(void, mi_reflection_dir_diffuse, (miVector* dir, miState* state), (dir, state))                \
    FORWARD(void, mi_reflection_dir_diffuse_x, (miVector* dir, miState* state, miScalar* samples),         \
            (dir, state, samples))                                                                         \
    FORWARD(miBoolean, mi_refraction_dir, (miVector* dir, miState* state, miScalar ior_in,                 \
            miScalar ior_out),                                                                             \
            (dir, state, ior_in, ior_out))                                                                 \
    FORWARD(miBoolean, mi_transmission_dir_specular, (miVector* dir, miState* state, miScalar ior_in,      \
            miScalar ior_out),                                                                             \
            (dir, state, ior_in, ior_out))                                                                 \
    FORWARD(miBoolean, mi_transmission_dir_glossy, (miVector* dir, miState* state, miScalar ior_in,        \
            miScalar ior_out, miScalar shiny),                                                             \
            (dir, state, ior_in, ior_out, shiny))                                                          \
    FORWARD(miBoolean, mi_transmission_dir_anisglossy, (miVector* dir, miState* state, miScalar ior_in,    \
            miScalar ior_out, miVector* u, miVector* v, miScalar shiny_u, miScalar shiny_v),               \
            (dir, state, ior_in, ior_out, u, v, shiny_u, shiny_v))                                         \
    FORWARD(void, mi_transmission_dir_diffuse, (miVector* dir, miState* state), (dir, state))              \
    FORWARD(void, mi_scattering_dir_diffuse, (miVector* dir, miState* state), (dir, state))                \
    FORWARD(void, mi_scattering_dir_directional, (miVector* dir, miState* state,                           \
            miScalar directionality),                                                                      \
            (dir, state, directionality))                                                                  \
    FORWARD(miScalar, mi_scattering_pathlength, (miState* state, miScalar k), (state, k))                  \
    FORWARD(miBoolean, mi_ray_falloff, (miState* state, double* start, double* stop),                      \
            (state, start, stop))                                                                          \
    /* light sampling */                                                                                   \
    FORWARD(miBoolean, mi_global_lights_info, (miState* state, int* count, miTag** lights),                \
            (state, count, lights))                                                                        \
    FORWARD(miBoolean, mi_sample_light, (miColor* result, miVector* dir, miScalar* dot_nl,                 \
            miState* state, miTag light_inst, miInteger* samples),                                         \
            (result, dir, dot_nl, state, light_inst, samples))                                             \
    FORWARD(miBoolean, mi_compute_irradiance, (miColor* result, miState* state), (result, state))          \
    FORWARD(miBoolean, mi_compute_irradiance_backside, (miColor* result, miState* state),                  \
            (result, state))                                                                               \
    FORWARD(miBoolean, mi_compute_avg_radiance, (miColor* result, miState* state, miUchar face,            \
            void* irrad_options),                                                                          \
            (result, state, face, irrad_options))                                                          \
    FORWARD(miBoolean, mi_compute_directional_irradiance, (miColor* result, miVector* dir,                 \
            miState* state),                                                                               \
            (result, dir, state))                                                                          \
    FORWARD(miBoolean, mi_compute_volume_irradiance, (miColor* result, miState* state), (result, state))   \
    FORWARD(miScalar, mi_lightprofile_value, (miState* state, miTag profile, miVector* dir),               \
            (state, profile, dir))                                                                         \
    /* reflection models */                                                                                \
    FORWARD(miScalar, mi_fresnel_reflection, (miState* state, miScalar ior_in, miScalar ior_out),          \
            (state, ior_in, ior_out))                                                                      \
    FORWARD(miScalar, mi_phong_specular, (miScalar exponent, miState* state, miVector* dir),               \
            (exponent, state, dir))                                                                        \
    FORWARD(miScalar, mi_ward_glossy, (miVector* in, miVector* out, miVector* normal, miScalar shiny),     \
            (in, out, normal, shiny))                                                                      \
    FORWARD(miScalar, mi_ward_anisglossy, (miVector* in, miVector* out, miVector* normal, miVector* u,     \
            miVector* v, miScalar shiny_u, miScalar shiny_v),                                              \
            (in, out, normal, u, v, shiny_u, shiny_v))                                                     \
    FORWARD(miScalar, mi_schlick_scatter, (miVector* in, miVector* out, miScalar directionality),          \
            (in, out, directionality))                                                                     \
    FORWARD(miRay_type, mi_choose_lobe, (miState* state, miScalar diffuse, miScalar glossy,                \
            miScalar specular),                                                                            \
            (state, diffuse, glossy, specular))                                                            \
    FORWARD(miRay_type, mi_choose_scatter_type, (miState* state, miScalar transparency,                    \
            miColor* diffuse, miColor* glossy, miColor* specular),                                         \
            (state, transparency, diffuse, glossy, specular))                                              \
    FORWARD(miRay_type, mi_choose_simple_scatter_type, (miState* state, miColor* refl_diffuse,             \
            miColor* refl_specular, miColor* trans_diffuse, miColor* trans_specular),                      \
            (state, refl_diffuse, refl_specular, trans_diffuse, trans_specular))                           \
    FORWARD(miScalar, mi_luminance, (miState* state, miColor* color), (state, color))                      \
    /* photons */                                                                                          \
    FORWARD(miBoolean, mi_photon_light, (miColor* energy, miState* state), (energy, state))                \
    FORWARD(miBoolean, mi_photon_reflection_diffuse, (miColor* energy, miState* state, miVector* dir),     \
            (energy, state, dir))                                                                          \
    FORWARD(miBoolean, mi_photon_reflection_glossy, (miColor* energy, miState* state, miVector* dir),      \
            (energy, state, dir))                                                                          \
    FORWARD(miBoolean, mi_photon_reflection_specular, (miColor* energy, miState* state, miVector* dir),    \
            (energy, state, dir))                                                                          \
    FORWARD(miBoolean, mi_photon_transmission_diffuse, (miColor* energy, miState* state, miVector* dir),   \
            (energy, state, dir))                                                                          \
    FORWARD(miBoolean, mi_photon_transmission_glossy, (miColor* energy, miState* state, miVector* dir),    \
            (energy, state, dir))                                                                          \
    FORWARD(miBoolean, mi_photon_transmission_specular, (miColor* energy, miState* state,                  \
            miVector* dir),                                                                                \
            (energy, state, dir))                                                                          \
    FORWARD(miBoolean, mi_photon_transparent, (miColor* energy, miState* state), (energy, state))          \
    FORWARD(miBoolean, mi_photon_volume_scattering, (miColor* energy, miState* state, miVector* dir),      \
            (energy, state, dir))                                                                          \
    FORWARD(miBoolean, mi_store_photon, (miColor* energy, miState* state), (energy, state))                \
    FORWARD(miBoolean, mi_store_volume_photon, (miColor* energy, miState* state), (energy, state))         \
    /* opacity and frame buffers */                                                                        \
    FORWARD(miBoolean, mi_opacity_set, (miState* state, miColor* opacity), (state, opacity))               \
    FORWARD(miBoolean, mi_fb_put, (miState* state, int index, void* value), (state, index, value))         \
    FORWARD(miBoolean, mi_sample, (double* sample, int* instance, miState* state, const miUshort dim,      \
            const miUint* n),                                                                              \
            (sample, instance, state, dim, n))                                                             \
    /* transforms */                                                                                       \
    FORWARD(void, mi_point_to_world, (miState* state, miVector* r, miVector* v), (state, r, v))            \
    FORWARD(void, mi_point_to_camera, (miState* state, miVector* r, miVector* v), (state, r, v))           \
    FORWARD(void, mi_point_to_object, (miState* state, miVector* r, miVector* v), (state, r, v))           \
    FORWARD(void, mi_point_to_light, (miState* state, miVector* r, miVector* v), (state, r, v))            \
    FORWARD(void, mi_point_to_raster, (miState* state, miVector* r, miVector* v), (state, r, v))           \
    FORWARD(void, mi_point_from_world, (miState* state, miVector* r, miVector* v), (state, r, v))          \
    FORWARD(void, mi_point_from_camera, (miState* state, miVector* r, miVector* v), (state, r, v))         \
    FORWARD(void, mi_point_from_object, (miState* state, miVector* r, miVector* v), (state, r, v))         \
    FORWARD(void, mi_point_from_light, (miState* state, miVector* r, miVector* v), (state, r, v))          \
    FORWARD(void, mi_point_transform, (miVector* r, const miVector* v, const miScalar* m), (r, v, m))      \
    FORWARD(void, mi_vector_to_world, (miState* state, miVector* r, miVector* v), (state, r, v))           \
    FORWARD(void, mi_vector_to_camera, (miState* state, miVector* r, miVector* v), (state, r, v))          \
    FORWARD(void, mi_vector_to_object, (miState* state, miVector* r, miVector* v), (state, r, v))          \
    FORWARD(void, mi_vector_to_light, (miState* state, miVector* r, miVector* v), (state, r, v))           \
    FORWARD(void, mi_vector_from_world, (miState* state, miVector* r, miVector* v), (state, r, v))         \
    FORWARD(void, mi_vector_from_camera, (miState* state, miVector* r, miVector* v), (state, r, v))        \
    FORWARD(void, mi_vector_from_object, (miState* state, miVector* r, miVector* v), (state, r, v))        \
    FORWARD(void, mi_vector_from_light, (miState* state, miVector* r, miVector* v), (state, r, v))         \
    FORWARD(void, mi_vector_transform, (miVector* r, const miVector* v, const miScalar* m), (r, v, m))     \
    FORWARD(void, mi_vector_transform_T, (miVector* r, const miVector* v, const miScalar* m), (r, v, m))   \
    FORWARD(void, mi_normal_to_world, (miState* state, miVector* r, miVector* v), (state, r, v))           \
    FORWARD(void, mi_normal_to_camera, (miState* state, miVector* r, miVector* v), (state, r, v))          \
    FORWARD(void, mi_normal_to_object, (miState* state, miVector* r, miVector* v), (state, r, v))          \
    FORWARD(void, mi_normal_to_light, (miState* state, miVector* r, miVector* v), (state, r, v))           \
    FORWARD(void, mi_matrix_ident, (miScalar* r), (r))                                                     \
    FORWARD(miBoolean, mi_matrix_invert, (miScalar* r, const miScalar* a), (r, a))                         \
    FORWARD(void, mi_matrix_prod, (miScalar* r, const miScalar* a, const miScalar* b), (r, a, b))          \
    FORWARD(miBoolean, mi_tri_vectors, (miState* state, int which, int ntex, miVector** a,                 \
            miVector** b, miVector** c),                                                                   \
            (state, which, ntex, a, b, c))                                                                 \
    /* textures and images */                                                                              \
    FORWARD(miBoolean, mi_lookup_color_texture, (miColor* result, miState* state, miTag tag,               \
            miVector* coord),                                                                              \
            (result, state, tag, coord))                                                                   \
    FORWARD(miBoolean, mi_texture_interpolate, (miState* state, miUint space, miScalar* result),           \
            (state, space, result))                                                                        \
    FORWARD(void, mi_img_get_color, (struct miImg_image* image, miColor* color, int x, int y),             \
            (image, color, x, y))                                                                          \
    FORWARD(void, mi_img_put_color, (struct miImg_image* image, miColor* color, int x, int y),             \
            (image, color, x, y))                                                                          \
    FORWARD(int, mi_img_get_width, (struct miImg_image* image), (image))                                   \
    FORWARD(int, mi_img_get_height, (struct miImg_image* image), (image))                                  \
    FORWARD(struct miImg_image*, mi_img_pyramid_get_level, (struct miImg_image* image, int level),         \
            (image, level))                                                                                \
    FORWARD(void, mi_colorprofile_ciexyz_to_render, (miColor* rgb, miColor* xyz), (rgb, xyz))              \
    FORWARD(struct miImg_image*, mi_lightmap_edit, (void** handle, miTag texture), (handle, texture))      \
    FORWARD(void, mi_lightmap_edit_end, (void* handle), (handle))                                          \
    /* shader state records */                                                                             \
    FORWARD(void*, mi_shaderstate_get, (miState* state, const char* key, int* size), (state, key, size))   \
    FORWARD(miBoolean, mi_shaderstate_set, (miState* state, const char* key, void* value, int size,        \
            int lifetime),                                                                                 \
            (state, key, value, size, lifetime))                                                           \
    /* memory */                                                                                           \
    FORWARD(void*, mi_mem_int_allocate, (const char* file, int line, const miUint size),                   \
            (file, line, size))                                                                            \
    FORWARD(void, mi_mem_int_release, (const char* file, int line, void* mem), (file, line, mem))          \
    FORWARD(char*, mi_mem_int_strdup, (const char* file, int line, const char* text),                      \
            (file, line, text))                                                                            \
    FORWARD(void*, mi_mem_int_test_allocate, (const char* file, int line, const miUint size),              \
            (file, line, size))                                                                            \
    /* locks */                                                                                            \
    FORWARD(void, mi_init_lock, (miLock* lock), (lock))                                                    \
    FORWARD(void, mi_lock, (miLock lock), (lock))                                                          \
    FORWARD(void, mi_unlock, (miLock lock), (lock))                                                        \
    FORWARD(void, mi_delete_lock, (miLock* lock), (lock))                                                  \
    /* random numbers */                                                                                   \
    FORWARD(miScalar, mi_erandom, (unsigned short seed[3]), (seed))                                        \
    /* messages and progress */                                                                            \
    MESSAGE(mi_debug)                                                                                      \
    MESSAGE(mi_info)                                                                                       \
    MESSAGE(mi_progress)                                                                                   \
    MESSAGE(mi_warning)                                                                                    \
    MESSAGE(mi_error)                                                                                      \
    FORWARD(miBoolean, mi_par_aborted, (), ())

// clang-format on

namespace orl {

/* Slots of the table of entry points: as many as the renderer numbers, of which this library uses the first.
 */
enum Slot : unsigned {
#define ORL_SLOT(result, name, parameters, arguments) slot_##name,
#define ORL_MESSAGE_SLOT(name) slot_##name,
    ORL_RENDERER_FUNCTIONS(ORL_SLOT, ORL_MESSAGE_SLOT)
#undef ORL_SLOT
#undef ORL_MESSAGE_SLOT
        used_slots
};

inline constexpr unsigned renderer_slots = 689;
inline constexpr int message_size = 1024; // characters of a message, with its end

static_assert(used_slots == 127);
static_assert(used_slots <= renderer_slots);

/* Warned flag of the instances that keep no data. It lives as long as the renderer's module. */
extern miBoolean shared_warned_flag;

} // namespace orl

/*
 * Names the renderer's module, a handle as the system's loader gives it, and forgets every entry point found
 * so far and what the former renderer was warned of. To be called before any shader runs, and again for
 * another module, while no shader runs.
 */
ORL_EXPORT void miSetModuleHandle(void* handle);
