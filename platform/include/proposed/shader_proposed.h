/*
 * What the published interface leaves open and this edition settles: numbers, names and behaviour that a
 * build against the renderer's own headers has to look at first. Members of published structures that are
 * settled here are marked "P" beside their declaration in shader.h and geoshader.h; the published functions
 * whose argument lists are settled here are listed at the end.
 */
#include "shader.h" /* before the guard: shader.h includes this file once its types are known */

#ifndef SHADER_PROPOSED_H
#define SHADER_PROPOSED_H

/*
 * Connections. A shader instance with a connected parameter has a table of ints that lies
 * `connection_offset` bytes behind its parameter block: the entry of a parameter is found at its own
 * address plus that distance. Entry 0: not connected; miCONNECTION_NONE: was connected once, the literal
 * holds; anything else: the value comes from mi_phen_eval.
 */
#define miCONNECTION_NONE (-2)

static inline int mi_connection_entry(const miFunction* shader, const void* param) {
    return shader->connection_offset == 0 ? 0 : *(const int*)((const char*)param + shader->connection_offset);
}

static inline miBoolean mi_parameter_is_connected(const miFunction* shader, const void* param) {
    const int entry = mi_connection_entry(shader, param);
    return entry != 0 && entry != miCONNECTION_NONE;
}

/*
 * miQ_PRI_DATA, the data words of the current triangle. Result: int, the number of slots. Extra arguments:
 * const int** receives the address of one index for each slot (-1 for a slot that is absent), const miUint**
 * that of the data words; slot k's word is words[index[k]]. miFALSE where the triangle has no data.
 */

/*
 * Derived from the state: names the primitive and triangle for a light-map shader. `pri` comes from a state,
 * `pri_idx` is the number of the triangle in the object's tessellation.
 */
#ifdef __cplusplus
extern "C" {
#endif
void mi_state_set_pri(miState* state, const struct miRc_intersection* pri, miUint pri_idx);
#ifdef __cplusplus
}
#endif

/*
 * The extra argument of a light-map shader in mesh mode: one instance with the triangles that its material is
 * on, and what the shader gave for their vertices. A light map is called in vertex mode for all vertices of
 * all its instances before it is called in mesh mode, once for each instance.
 */
typedef struct miLightmap_mesh {
    const struct miRc_intersection* pri; /* with one of `triangles`, for mi_state_set_pri */
    miUint triangle_count;
    const miUint* triangles; /* numbers in the object's tessellation */
    const miUint* corners;   /* three for each triangle: the numbers of their vertices' results */
    miUint vertex_count;
    miUint result_size;  /* bytes of a result */
    const void* results; /* vertex_count of them, one after another */
    miUint remaining;    /* calls in mesh mode that this light map has yet to come; 0: this is the last */
} miLightmap_mesh;

/*
 * State shaders, which the options name. Their extra argument points to a miState_event. "state" is the
 * sample's first state, before its first shader and after its last; "sample" is each call of a lens,
 * material, environment or volume shader that a ray brings about, with the result that this shader is given.
 */
typedef enum miState_call {
    miSTATE_CALL_INIT,
    miSTATE_CALL_EXIT,
    miSTATE_CALL_SAMPLE_INIT,
    miSTATE_CALL_SAMPLE_EXIT
} miState_call;

typedef struct miState_event {
    int call;   /* miSTATE_CALL_* */
    int shader; /* miSHADER_* of the call that a sample event belongs to, else miSHADER_STATE */
} miState_event;

/*
 * The tone-map functions of the renderer's architectural library: photographic exposure. A block is filled,
 * handed to mia_tonemap_api_init, used on any number of threads, and handed to mia_tonemap_api_exit. Raster
 * positions are in pixels from the lower left corner.
 */
typedef struct mia_tonemap_parameters {
    miScalar cm2_factor;      /* candela per square metre that a colour of 1 stands for */
    miColor whitepoint;       /* colour that becomes white */
    miScalar film_iso;        /* speed of the film, ISO; 0: cm2_factor alone is the exposure */
    miScalar camera_shutter;  /* 1 / exposure time, 1/s */
    miScalar f_number;        /* focal length / aperture */
    miScalar vignetting;      /* exponent of the darkening towards the corners, 0 none */
    miScalar burn_highlights; /* 0 all highlights are kept, 1 none */
    miScalar gamma;
    miScalar x_resolution, y_resolution; /* pixels; 0 where unknown: no vignetting */
    miScalar derived[8];                 /* the library's own */
} mia_tonemap_parameters;

typedef void mia_tonemap_api_init_function(mia_tonemap_parameters* params);
typedef void mia_tonemap_api_exit_function(mia_tonemap_parameters* params);
typedef void mia_tonemap_api_map_function(const mia_tonemap_parameters* params, miColor* color, miScalar x,
                                          miScalar y);

/*
 * Argument lists settled here: mi_api_name_lookup, mi_get_shader_interface, mi_phen_eval, mi_trace_continue,
 * mi_trace_probe, mi_trace_shadow, mi_trace_shadow_seg, mi_sample_light, mi_call_contour_material, the
 * direction samplers, mi_ray_falloff, mi_global_lights_info, mi_lightprofile_value, the irradiance functions,
 * mi_ward_glossy, mi_ward_anisglossy, mi_schlick_scatter, mi_choose_lobe and its kin, mi_luminance, the
 * photon functions, mi_opacity_set, mi_fb_put, mi_point_transform and its kin, mi_tri_vectors, the image
 * functions other than mi_img_put_color, mi_colorprofile_ciexyz_to_render, mi_shaderstate_set and _get, the
 * mi_mem_int family, locks and messages; of the interface object, open_output_image, createLightList.
 */

#endif
