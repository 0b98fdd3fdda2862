/*
 * The renderer's shader interface: basic types, ray and call types, the state that every shader
 * receives, queries, and the prototypes of the functions that shaders call.
 *
 * C and C++. Records of the scene database (options, camera, light, instance, object, image and
 * so on) are in geoshader.h, which this file includes. What the publisher of the interface leaves
 * open and this edition had to settle is in shader_proposed.h, and is marked "P" here where it is
 * a member of a published structure.
 *
 * All points, vectors and normals are in the renderer's internal space, matrices are row-major
 * with the translation in elements 12 to 14 and act on row vectors (p' = p M).
 */
#ifndef SHADER_H
#define SHADER_H

#include <math.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>

#ifndef DLLEXPORT
#ifdef _WIN32
#define DLLEXPORT __declspec(dllexport)
#else
#define DLLEXPORT __attribute__((visibility("default")))
#endif
#endif

/* ---- basic types ---------------------------------------------------------------------------- */

typedef int miBoolean;           /* truth value of parameters and results */
typedef char miCBoolean;         /* truth value inside records */
typedef signed char miSint1;     /* 8 bit signed */
typedef unsigned char miUint1;   /* 8 bit unsigned */
typedef unsigned char miUchar;   /* 8 bit unsigned */
typedef short miSint2;           /* 16 bit signed */
typedef unsigned short miUshort; /* 16 bit unsigned */
typedef unsigned short miUint2;  /* 16 bit unsigned */
typedef int miInteger;           /* 32 bit signed parameter */
typedef unsigned int miUint;     /* 32 bit unsigned */
typedef float miScalar;          /* parameters and state */
typedef float miGeoScalar;       /* coordinates of geometry */
typedef miUint miGeoIndex;       /* index into lists of geometry */
typedef miUint miTag;            /* name of a database item on every host; miNULLTAG names none */
typedef ptrdiff_t miIntptr;      /* signed integer as wide as a pointer */

#define miFALSE 0
#define miTRUE 1
#define miNULLTAG ((miTag)0)
#define miNULL_TAG miNULLTAG

typedef struct miColor {
    miScalar r, g, b, a;
} miColor;

typedef struct miVector {
    miScalar x, y, z;
} miVector;

typedef struct miVector2d {
    miScalar u, v;
} miVector2d;

typedef miScalar miMatrix[16];

typedef struct miRange {
    float min, max;
} miRange;

typedef miRange miGeoRange;

/* A handle of the renderer's mutual exclusion object; see mi_init_lock. */
typedef struct miLock_record* miLock;

/* Parameter and result types of declarations. */
typedef enum miParam_type {
    miTYPE_BOOLEAN = 0,
    miTYPE_INTEGER,
    miTYPE_SCALAR,
    miTYPE_STRING,
    miTYPE_COLOR,
    miTYPE_VECTOR,
    miTYPE_TRANSFORM,
    miTYPE_SHADER,
    miTYPE_SCALAR_TEX,
    miTYPE_COLOR_TEX,
    miTYPE_VECTOR_TEX,
    miTYPE_LIGHT,
    miTYPE_STRUCT,
    miTYPE_ARRAY,
    miTYPE_TEX,
    miTYPE_MATERIAL,
    miTYPE_GEOMETRY,
    miTYPE_LIGHTPROFILE,
    miTYPE_DATA,
    miTYPE_SPECTRUM,
    miNTYPES
} miParam_type;

/* ---- ray types ------------------------------------------------------------------------------ */

/* Why a ray was cast: the state's `type`. Code 27 is a photon-class type without a published name. */
typedef enum miRay_type {
    miRAY_EYE = 0,
    miRAY_TRANSPARENT = 1,
    miRAY_REFLECT = 2,
    miRAY_REFRACT = 3,
    miRAY_LIGHT = 4,
    miRAY_SHADOW = 5,
    miRAY_ENVIRONMENT = 6,
    miRAY_NONE = 7,
    miPHOTON_LIGHT = 8,
    miPHOTON_ABSORB = 9,
    miPHOTON_REFLECT_SPECULAR = 10,
    miPHOTON_REFLECT_GLOSSY = 11,
    miPHOTON_REFLECT_DIFFUSE = 12,
    miPHOTON_TRANSMIT_SPECULAR = 13,
    miPHOTON_TRANSMIT_GLOSSY = 14,
    miPHOTON_TRANSMIT_DIFFUSE = 15,
    miRAY_DISPLACE = 16,
    miRAY_OUTPUT = 17,
    miPHOTON_TRANSPARENT = 18,
    miPHOTON_SCATTER_VOLUME = 19,
    miRAY_FINALGATHER = 20,
    miRAY_LM_VERTEX = 21,
    miRAY_LM_MESH = 22,
    miPHOTON_EMIT_CAUSTIC = 23,
    miPHOTON_EMIT_GLOBILLUM = 24,
    miRAY_PROBE = 25,
    miPHOTON_IMPORTON = 27,
    miNRAYTYPES = 28
} miRay_type;

/* The photon-class codes as a bit mask: 8 to 15, 18, 19, 23, 24 and 27. */
#define miRAY_PHOTON_MASK 0x98CFF00u

#define miRAY_PRIMARY(t) ((t) == miRAY_EYE)
#define miRAY_SECONDARY(t) ((t) == miRAY_TRANSPARENT || (t) == miRAY_REFLECT || (t) == miRAY_REFRACT)
#define miRAY_PHOTON(t) ((unsigned)(t) < 28u && ((miRAY_PHOTON_MASK >> (unsigned)(t)) & 1u) != 0u)

/* ---- call types ----------------------------------------------------------------------------- */

/* What a shader is called as: the type argument of mi_call_shader, read back with miQ_FUNC_CALLTYPE. */
typedef enum miShader_type {
    miSHADER_LENS = 0,
    miSHADER_MATERIAL = 1,
    miSHADER_LIGHT = 2,
    miSHADER_SHADOW = 3,
    miSHADER_ENVIRONMENT = 4,
    miSHADER_VOLUME = 5,
    miSHADER_TEXTURE = 6,
    miSHADER_PHOTON = 7,
    miSHADER_GEOMETRY = 8,
    miSHADER_DISPLACE = 9,
    miSHADER_PHOTONEMIT = 10,
    miSHADER_OUTPUT = 11,
    miSHADER_DEFAULT = 12,
    miSHADER_LIGHTMAP = 13,
    miSHADER_PHOTONVOL = 14,
    miSHADER_STATE = 15,
    miSHADER_CONTOUR = 16,
    miNSHADERTYPES
} miShader_type;

/* ---- the running shader --------------------------------------------------------------------- */

typedef enum miFunction_type {
    miFUNCTION_C = 0,
    miFUNCTION_PHEN,
    miFUNCTION_C_REQ,
    miFUNCTION_OUTFILE,
    miFUNCTION_DATA,
    miFUNCTION_PASS_SAVE,
    miFUNCTION_PASS_PREP,
    miFUNCTION_PASS_MERGE,
    miFUNCTION_PASS_DELETE,
    miFUNCTION_HARDWARE
} miFunction_type;

/* One shader instance: a shader's name together with one set of parameter values. */
typedef struct miFunction {
    void* reserved[7];          /* the renderer's own */
    miFunction_type type;       /* C shader, phenomenon, ... */
    miUint out_typemap;         /* the renderer's own */
    miUint out_interpmap;       /* the renderer's own */
    miTag function_decl;        /* declaration */
    miTag next_function;        /* next shader of a list, for example of lens shaders */
    miTag parameter_indirect;   /* take the parameters from that function instead */
    miTag interfacephen;        /* enclosing phenomenon instance */
    miLock lock;                /* shared by all calls of this instance */
    miUint parameter_size;      /* P: bytes of the parameter block */
    miIntptr connection_offset; /* P: bytes from a parameter to its connection entry, 0 when nothing of this
                                   instance is connected; see mi_connection_entry */
    double parameters[1];       /* the parameter block; more follows */
} miFunction;

/* ---- the state ------------------------------------------------------------------------------ */

struct miOptions;
struct miCamera;
struct miRc_intersection;

typedef struct miState {
    /* frame: constant while a frame is rendered; contents of options and camera are never written */
    int version;               /* interface version, at least 2 */
    miTag camera_inst;         /* instance of the camera */
    struct miCamera* camera;   /* camera record */
    struct miOptions* options; /* options record; a copy with other values may be put here for a trace */

    /* image sample: handed on unchanged to everything called for the sample */
    miScalar raster_x, raster_y; /* pixels, (0, 0) lower left */
    miFunction* shader;          /* the running shader */
    miLock global_lock;          /* common to all shaders */
    short thread;                /* number of the calling thread, from 0 */

    /* ray */
    struct miState* parent; /* state of the ray that cast this one */
    struct miState* child;  /* state of the latest ray cast from here */
    miRay_type type;        /* why the ray was cast */
    miCBoolean scanline;    /* the hit was found by the scanline renderer or rasterizer */
    void* cache;            /* intersection cache; clear before casting from an artificial point */
    miVector org;           /* start of the ray */
    miVector dir;           /* direction, normalised */
    float time;             /* shutter time */
    miTag volume;           /* volume shader that acts along the ray */
    miTag environment;      /* environment shader */
    int reflection_level;   /* depth so far */
    int refraction_level;   /* depth so far */
    int face;               /* sides that sub-rays meet, of those that objects show: 'f', 'b', 'a' all (P) */

    /* intersection */
    miTag refraction_volume; /* volume on the far side of the surface */
    miUint label;            /* label of the object that was hit */
    miTag instance;          /* leaf instance that was hit */
    miTag light_instance;    /* light instance, for light rays and emitters */
    miScalar bary[4];        /* barycentric coordinates of the hit; corner weights are b0, b1, 1-b0-b1 */
    miVector point;          /* end of the ray */
    miVector normal;         /* interpolated normal, turned towards the start of the ray */
    miVector normal_geom;    /* geometric normal, turned likewise */
    miCBoolean inv_normal;   /* both normals had to be turned: the back side was hit */
    miScalar dot_nd;         /* normal . dir, not above 0; for a light ray the cosine to the light */
    double dist;             /* length of the ray; 0 when nothing was hit */
    miTag material;          /* material of the surface */
    void* pri;               /* identifies the primitive; restore it after changing it */
    double shadow_tol;       /* hits nearer than this do not shadow */
    miScalar ior;            /* index of refraction of the medium of the ray */
    miScalar ior_in;         /* index of refraction of the medium before it */
    miScalar importance;     /* weight of the ray in the picture, from 1 down to 0 */

    /* texture, motion, derivatives */
    miVector* tex_list;    /* texture coordinates at the hit, one for each texture space */
    miVector* bump_x_list; /* bump basis vectors, object space, null when the geometry has none */
    miVector* bump_y_list;
    miVector tex;        /* the coordinate that a texture shader is to evaluate */
    miVector motion;     /* motion of the point during the shutter interval */
    miVector* derivs[5]; /* first and second surface derivatives, null where not known */

    /* free for shaders: handed to the shaders called from here, reset on return */
    void* user;
    int user_size;

    /* the renderer's own, copied along when a shader copies a state */
    miShader_type call_type; /* P: what the running shader was called as; ask with miQ_FUNC_CALLTYPE */
    void* renderer;          /* P: rendering context of the thread */
} miState;

/* ---- queries -------------------------------------------------------------------------------- */

/*
 * Code of mi_query; the value's type, and what `tag` names, stand beside each. The names are published; of
 * the numbers, 4, 14, 15, 43 to 51, 70, 71, 82, 102, 105, 109, 114, 124, 126, 127, 140, 142, 146, 154 and 161
 * are the renderer's, the others this edition's own.
 */
typedef enum miQ_type {
    /* instances */
    miQ_INST_ITEM = 2,            /* instance: miTag, the instanced element */
    miQ_INST_PARENT = 3,          /* instance: miTag, instance of the group that it is in (P) */
    miQ_INST_GLOBAL_TO_LOCAL = 4, /* instance: miScalar*, the stored matrix */
    miQ_INST_LOCAL_TO_GLOBAL = 5, /* instance: miScalar*, the stored matrix */
    miQ_INST_MATERIAL = 6,        /* instance: miTag, inherited material */
    miQ_INST_LABEL = 7,           /* instance: miUint */
    miQ_INST_NAME = 8,            /* instance: const char*, null when it has none (P) */
    /* groups */
    miQ_GROUP_NKIDS = 14, /* group: int; miFALSE when the tag is no group */
    miQ_GROUP_KID = 15,   /* group: miTag, extra argument int k */
    miQ_GROUP_DATA = 16,  /* group: miTag, first user data block */
    /* objects */
    miQ_OBJ_TYPE = 20, /* object: int, miObject_type */
    /* lights */
    miQ_LIGHT_TYPE = 30,      /* light or its instance: int, miLight_type */
    miQ_LIGHT_AREA = 31,      /* light or its instance: int, miLight_area */
    miQ_LIGHT_EXPONENT = 32,  /* light or its instance: miScalar */
    miQ_LIGHT_ORIGIN = 33,    /* light or its instance: miVector, light space */
    miQ_LIGHT_DIRECTION = 34, /* light or its instance: miVector, light space */
    miQ_LIGHT_SPREAD = 35,    /* light or its instance: miScalar, cosine */
    miQ_LIGHT_ENERGY = 36,    /* light or its instance: miColor */
    miQ_LIGHT_SHADER = 37,    /* light or its instance: miTag */
    /* materials */
    miQ_MTL_OPAQUE = 42, /* material: int */
    miQ_MTL_SHADER = 43, /* material: miTag, null when the slot is empty; likewise below */
    miQ_MTL_DISPLACE = 44,
    miQ_MTL_SHADOW = 45,
    miQ_MTL_VOLUME = 46,
    miQ_MTL_ENVIRONMENT = 47,
    miQ_MTL_CONTOUR = 48,
    miQ_MTL_PHOTON = 49,
    miQ_MTL_PHOTONVOL = 50,
    miQ_MTL_LIGHTMAP = 146,
    /* shader functions: null tag for the running shader of the state, or the function's tag */
    miQ_FUNC_USERPTR = 51,     /* void**, address of the instance's user pointer */
    miQ_FUNC_TAG = 52,         /* miTag */
    miQ_FUNC_DECL = 53,        /* miTag, declaration */
    miQ_FUNC_INDIRECT = 54,    /* miTag */
    miQ_FUNC_NEXT = 55,        /* miTag, next shader of the list */
    miQ_FUNC_LOCK = 56,        /* miLock*, the instance's lock */
    miQ_FUNC_NAME = 57,        /* const char*, name of the shader instance */
    miQ_FUNC_PARAM = 58,       /* void*, parameter block */
    miQ_FUNC_PARAM_SIZE = 59,  /* int, bytes */
    miQ_FUNC_PARAM_VALUE = 60, /* value of an input parameter; extra arguments char* name, miParam_type (P) */
    miQ_FUNC_TLS_GET = 124,    /* void*, this thread's pointer of the running instance */
    miQ_FUNC_TLS_SET = 126,    /* result: address of the void* to store */
    miQ_FUNC_TLS_GETALL = 127, /* void***, address of the array; extra argument int* count */
    miQ_FUNC_CALLTYPE = 140,   /* int, miShader_type */
    /* declarations: null tag for the running shader, or a function's or declaration's tag */
    miQ_DECL_LOCK = 61,        /* miLock*, common to all instances of the shader */
    miQ_DECL_NAME = 62,        /* const char* */
    miQ_DECL_PARAM = 63,       /* const char*, parameter declaration as text */
    miQ_DECL_RESULT_SIZE = 64, /* int, 4 unless the result is a structure; in scalars (P) */
    miQ_DECL_TYPE = 65,        /* int, miParam_type of the result */
    miQ_DECL_VERSION = 66,     /* int */
    /* scene */
    miQ_NUM_GLOBAL_LIGHTS = 70, /* int, light instances of the scene */
    miQ_GLOBAL_LIGHTS = 71,     /* miTag*, the list */
    miQ_NUM_TEXTURES = 82,      /* int, texture spaces at the hit */
    miQ_RENDERER_VERSION = 90,  /* const char* (P) */
    miQ_DATE = 91,              /* const char*, build date */
    miQ_SAMPLE_MOVING = 92,     /* int, motion was detected for the sample */
    /* user data */
    miQ_INST_DATA = 102,       /* instance: miTag, first block */
    miQ_DATA_NEXT = 103,       /* data: miTag, next block or null */
    miQ_DATA_DECL = 104,       /* data: miTag, declaration or null */
    miQ_DATA_PARAM = 105,      /* data: void*, contents */
    miQ_DATA_LABEL = 106,      /* data: miUint */
    miQ_DATA_NEEDSWAP = 107,   /* data: miBoolean */
    miQ_DATA_PARAM_SIZE = 109, /* data: int, bytes */
    miQ_OBJ_DATA = 114,        /* object, or null for the current one: miTag, first block */
    /* images */
    miQ_IMAGE_WIDTH = 120,  /* image: int */
    miQ_IMAGE_HEIGHT = 121, /* image: int */
    /* matrices of the state: const miScalar* */
    miQ_TRANS_INTERNAL_TO_WORLD = 130,
    miQ_TRANS_INTERNAL_TO_CAMERA = 131,
    miQ_TRANS_INTERNAL_TO_OBJECT = 132,
    miQ_TRANS_WORLD_TO_INTERNAL = 133,
    miQ_TRANS_CAMERA_TO_INTERNAL = 134,
    miQ_TRANS_OBJECT_TO_INTERNAL = 135,
    /* sample */
    miQ_SAMPLE_OVERRIDE = 142,  /* void*, only its presence matters (P) */
    miQ_PRI_DATA = 154,         /* int, number of data slots of the triangle; see shader_proposed.h (P) */
    miQ_FINALGATHER_STATE = 161 /* int: 0 none, 1 below a final gather ray, 2 final gather precomputation */
} miQ_type;

/* Lifetimes of shader state records. */
#define miSS_LIFETIME_EYERAY 1 /* until the eye ray is done */
#define miSS_LIFETIME_RECT 2   /* at the latest until the rectangle of pixels is done */

/* ---- functions ------------------------------------------------------------------------------ */

#define miSHADER_INTERFACE 3 /* the version of the interface object */

#ifdef __cplusplus
namespace mi {
namespace shader_v3 {
class Interface;
}
} /* namespace mi */
typedef mi::shader_v3::Interface miShader_interface;
extern "C" {
#else
typedef struct miShader_interface miShader_interface;
#endif

struct miImg_image;

/* database and names; every access is matched by one unpin */
miTag mi_api_name_lookup(char* name); /* takes ownership of a string from mi_mem_strdup */
void* mi_db_access(miTag tag);
void* mi_db_access_type(miTag tag, int* type);
int mi_db_type(miTag tag); /* 0 for a tag that names nothing */
int mi_db_size(miTag tag);
void mi_db_unpin(miTag tag);
void mi_db_flush(miTag tag);
#ifdef __cplusplus
miShader_interface* mi_get_shader_interface(int version = miSHADER_INTERFACE);
#else
miShader_interface* mi_get_shader_interface(int version);
#endif

/* queries: miFALSE when the value is not available or the code is not known */
miBoolean mi_query(const miQ_type code, miState* state, const miTag tag, void* result, ...);
miBoolean mi_vquery(const miQ_type code, miState* state, const miTag tag, void* result, va_list args);

/* calls; a null tag gives miFALSE */
miBoolean mi_call_shader(miColor* result, miShader_type type, miState* state, miTag tag);
miBoolean mi_call_shader_x(miColor* result, miShader_type type, miState* state, miTag tag, void* arg);
miBoolean mi_call_material(miColor* result, miState* state);
miBoolean mi_call_shadow_material(miColor* result, miState* state);
miBoolean mi_call_photon_material(miColor* result, miState* state);
miBoolean mi_call_photonvol_material(miColor* result, miState* state);
miBoolean mi_call_volume_material(miColor* result, miState* state);
miBoolean mi_call_environment_material(miColor* result, miState* state);
miBoolean mi_call_contour_material(void* result, void* info_near, void* info_far, miState* state);
void* mi_phen_eval(miState* state, void* param);
void mi_flush_cache(miState* state);

/* rays; miTRUE when a called shader returned miTRUE */
miBoolean mi_trace_eye(miColor* result, miState* state, miVector* org, miVector* dir);
miBoolean mi_trace_reflection(miColor* result, miState* state, miVector* dir);
miBoolean mi_trace_refraction(miColor* result, miState* state, miVector* dir);
miBoolean mi_trace_transparent(miColor* result, miState* state);
miBoolean mi_trace_environment(miColor* result, miState* state, miVector* dir);
miBoolean mi_trace_continue(miColor* result, miState* state);
miBoolean mi_trace_probe(miState* state, miVector* dir, miVector* org);
miBoolean mi_trace_light(miColor* result, miVector* dir, miScalar* dot_nl, miState* state, miTag light_inst);
miBoolean mi_trace_shadow(miColor* result, miState* state);
miBoolean mi_trace_shadow_seg(miColor* result, miState* state);

/* directions; exponents and shininess from 0 (wide) up. The forms with _x take two numbers in [0, 1), as from
   mi_sample, in place of random ones */
void mi_reflection_dir(miVector* dir, miState* state);
void mi_reflection_dir_specular(miVector* dir, miState* state);
void mi_reflection_dir_glossy(miVector* dir, miState* state, miScalar shiny);
void mi_reflection_dir_glossy_x(miVector* dir, miState* state, miScalar shiny, miScalar* samples);
void mi_reflection_dir_anisglossy(miVector* dir, miState* state, miVector* u, miVector* v, miScalar shiny_u,
                                  miScalar shiny_v);
void mi_reflection_dir_anisglossy_x(miVector* dir, miState* state, miVector* u, miVector* v, miScalar shiny_u,
                                    miScalar shiny_v, miScalar* samples);
void mi_reflection_dir_diffuse(miVector* dir, miState* state);
void mi_reflection_dir_diffuse_x(miVector* dir, miState* state, miScalar* samples);
miBoolean mi_refraction_dir(miVector* dir, miState* state, miScalar ior_in, miScalar ior_out);
miBoolean mi_transmission_dir_specular(miVector* dir, miState* state, miScalar ior_in, miScalar ior_out);
miBoolean mi_transmission_dir_glossy(miVector* dir, miState* state, miScalar ior_in, miScalar ior_out,
                                     miScalar shiny);
miBoolean mi_transmission_dir_glossy_x(miVector* dir, miState* state, miScalar ior_in, miScalar ior_out,
                                       miScalar shiny, miScalar* samples);
miBoolean mi_transmission_dir_anisglossy(miVector* dir, miState* state, miScalar ior_in, miScalar ior_out,
                                         miVector* u, miVector* v, miScalar shiny_u, miScalar shiny_v);
miBoolean mi_transmission_dir_anisglossy_x(miVector* dir, miState* state, miScalar ior_in, miScalar ior_out,
                                           miVector* u, miVector* v, miScalar shiny_u, miScalar shiny_v,
                                           miScalar* samples);
void mi_transmission_dir_diffuse(miVector* dir, miState* state);
void mi_transmission_dir_diffuse_x(miVector* dir, miState* state, miScalar* samples);
void mi_scattering_dir_diffuse(miVector* dir, miState* state);
void mi_scattering_dir_diffuse_x(miVector* dir, miState* state, miScalar* samples);
void mi_scattering_dir_directional(miVector* dir, miState* state, miScalar directionality);
void mi_scattering_dir_directional_x(miVector* dir, miState* state, miScalar directionality,
                                     miScalar* samples);
miScalar mi_scattering_pathlength(miState* state, miScalar k);

/* the distances at which rays from the current object fade; miFALSE when it has none */
miBoolean mi_ray_falloff(miState* state, double* start, double* stop);

/* light */
miBoolean mi_global_lights_info(miState* state, int* count, miTag** lights);
miBoolean mi_sample_light(miColor* result, miVector* dir, miScalar* dot_nl, miState* state, miTag light_inst,
                          miInteger* samples);
miBoolean mi_compute_irradiance(miColor* result, miState* state);
miBoolean mi_compute_irradiance_backside(miColor* result, miState* state);
miBoolean mi_compute_avg_radiance(miColor* result, miState* state, miUchar face, void* irrad_options);
miBoolean mi_compute_directional_irradiance(miColor* result, miVector* dir, miState* state);
miBoolean mi_compute_volume_irradiance(miColor* result, miState* state);
miScalar mi_lightprofile_value(miState* state, miTag profile, miVector* dir);

/* reflection models. The factors of mi_fresnel are the cosines of the incoming and of the refracted ray with
   the normal (P), which the formula takes beside the indices; mi_fresnel_reflection works them out */
miScalar mi_fresnel(miScalar ior_in, miScalar ior_out, miScalar factor1, miScalar factor2);
miScalar mi_fresnel_reflection(miState* state, miScalar ior_in, miScalar ior_out);
void mi_fresnel_specular(miScalar* ns, miScalar* ks, miScalar exponent, miState* state, miVector* dir,
                         miScalar ior_in, miScalar ior_out);
miScalar mi_phong_specular(miScalar exponent, miState* state, miVector* dir);
miScalar mi_ward_glossy(miVector* in, miVector* out, miVector* normal, miScalar shiny);
miScalar mi_ward_anisglossy(miVector* in, miVector* out, miVector* normal, miVector* u, miVector* v,
                            miScalar shiny_u, miScalar shiny_v);
miScalar mi_schlick_scatter(miVector* in, miVector* out, miScalar directionality);
miRay_type mi_choose_lobe(miState* state, miScalar diffuse, miScalar glossy, miScalar specular);
miRay_type mi_choose_scatter_type(miState* state, miScalar transparency, miColor* diffuse, miColor* glossy,
                                  miColor* specular);
miRay_type mi_choose_simple_scatter_type(miState* state, miColor* refl_diffuse, miColor* refl_specular,
                                         miColor* trans_diffuse, miColor* trans_specular);
miScalar mi_luminance(miState* state, miColor* color);

/* photons */
miBoolean mi_photon_light(miColor* energy, miState* state);
miBoolean mi_photon_reflection_diffuse(miColor* energy, miState* state, miVector* dir);
miBoolean mi_photon_reflection_glossy(miColor* energy, miState* state, miVector* dir);
miBoolean mi_photon_reflection_specular(miColor* energy, miState* state, miVector* dir);
miBoolean mi_photon_transmission_diffuse(miColor* energy, miState* state, miVector* dir);
miBoolean mi_photon_transmission_glossy(miColor* energy, miState* state, miVector* dir);
miBoolean mi_photon_transmission_specular(miColor* energy, miState* state, miVector* dir);
miBoolean mi_photon_transparent(miColor* energy, miState* state);
miBoolean mi_photon_volume_scattering(miColor* energy, miState* state, miVector* dir);
miBoolean mi_store_photon(miColor* energy, miState* state);
miBoolean mi_store_volume_photon(miColor* energy, miState* state);

/* opacity, frame buffers, sampling; an index that names no buffer is accepted and does nothing */
miBoolean mi_opacity_set(miState* state, miColor* opacity);
miBoolean mi_fb_put(miState* state, int index, void* value);
miBoolean mi_fb_get(miState* state, int index, void* value);
miBoolean mi_sample(double* sample, int* instance, miState* state, const miUshort dim, const miUint* n);

/* spaces: "to" leads from internal space to the named one, "from" leads back */
void mi_point_to_world(miState* state, miVector* r, miVector* v);
void mi_point_to_camera(miState* state, miVector* r, miVector* v);
void mi_point_to_object(miState* state, miVector* r, miVector* v);
void mi_point_to_light(miState* state, miVector* r, miVector* v);
void mi_point_to_raster(miState* state, miVector* r, miVector* v);
void mi_point_from_world(miState* state, miVector* r, miVector* v);
void mi_point_from_camera(miState* state, miVector* r, miVector* v);
void mi_point_from_object(miState* state, miVector* r, miVector* v);
void mi_point_from_light(miState* state, miVector* r, miVector* v);
void mi_vector_to_world(miState* state, miVector* r, miVector* v);
void mi_vector_to_camera(miState* state, miVector* r, miVector* v);
void mi_vector_to_object(miState* state, miVector* r, miVector* v);
void mi_vector_to_light(miState* state, miVector* r, miVector* v);
void mi_vector_from_world(miState* state, miVector* r, miVector* v);
void mi_vector_from_camera(miState* state, miVector* r, miVector* v);
void mi_vector_from_object(miState* state, miVector* r, miVector* v);
void mi_vector_from_light(miState* state, miVector* r, miVector* v);
void mi_normal_to_world(miState* state, miVector* r, miVector* v);
void mi_normal_to_camera(miState* state, miVector* r, miVector* v);
void mi_normal_to_object(miState* state, miVector* r, miVector* v);
void mi_normal_to_light(miState* state, miVector* r, miVector* v);
void mi_normal_from_world(miState* state, miVector* r, miVector* v);
void mi_normal_from_camera(miState* state, miVector* r, miVector* v);
void mi_normal_from_object(miState* state, miVector* r, miVector* v);
void mi_point_transform(miVector* r, const miVector* v, const miScalar* m);
void mi_vector_transform(miVector* r, const miVector* v, const miScalar* m);
void mi_vector_transform_T(miVector* r, const miVector* v, const miScalar* m);

/* matrices; results may be the same matrix as an argument */
void mi_matrix_ident(miScalar* r);
void mi_matrix_null(miScalar* r);
miBoolean mi_matrix_isident(const miScalar* m);
void mi_matrix_copy(miScalar* r, const miScalar* a);
miBoolean mi_matrix_invert(miScalar* r, const miScalar* a); /* miFALSE when singular */
void mi_matrix_prod(miScalar* r, const miScalar* a, const miScalar* b);
void mi_matrix_rotate(miScalar* r, const miScalar xrot, const miScalar yrot, const miScalar zrot);

/* the corner values of the current triangle: 'p' points, 'n' normals, 'm' motion, 't' texture space ntex,
   'x' and 'y' bump basis vectors of space ntex; all in object space */
miBoolean mi_tri_vectors(miState* state, int which, int ntex, miVector** a, miVector** b, miVector** c);

/* textures and images */
miBoolean mi_lookup_color_texture(miColor* result, miState* state, miTag tag, miVector* coord);
miBoolean mi_lookup_color_texture_x(miColor* result, miState* state, miTag tag, miVector* coord,
                                    miScalar filter);
miBoolean mi_lookup_scalar_texture(miScalar* result, miState* state, miTag tag, miVector* coord);
miBoolean mi_lookup_vector_texture(miVector* result, miState* state, miTag tag, miVector* coord);
miBoolean mi_texture_interpolate(miState* state, miUint space, miScalar* result);
void mi_img_get_color(struct miImg_image* image, miColor* color, int x, int y);
void mi_img_put_color(struct miImg_image* image, miColor* color, int x, int y);
int mi_img_get_width(struct miImg_image* image);
int mi_img_get_height(struct miImg_image* image);
struct miImg_image* mi_img_pyramid_get_level(struct miImg_image* image, int level);
void mi_colorprofile_ciexyz_to_render(miColor* rgb, miColor* xyz);
struct miImg_image* mi_lightmap_edit(void** handle, miTag texture);
void mi_lightmap_edit_end(void* handle);

/* shader state records: the bytes are copied; a null value or size 0 removes the record */
miBoolean mi_shaderstate_set(miState* state, const char* key, void* value, int size, int lifetime);
void* mi_shaderstate_get(miState* state, const char* key, int* size);

/* memory, zeroed; mi_mem_allocate never returns null */
void* mi_mem_int_allocate(const char* file, int line, const miUint size);
void* mi_mem_int_test_allocate(const char* file, int line, const miUint size);
void* mi_mem_int_reallocate(const char* file, int line, void* mem, const miUint size);
void mi_mem_int_release(const char* file, int line, void* mem);
char* mi_mem_int_strdup(const char* file, int line, const char* text);
#define mi_mem_allocate(size) mi_mem_int_allocate(__FILE__, __LINE__, (size))
#define mi_mem_test_allocate(size) mi_mem_int_test_allocate(__FILE__, __LINE__, (size))
#define mi_mem_reallocate(mem, size) mi_mem_int_reallocate(__FILE__, __LINE__, (mem), (size))
#define mi_mem_release(mem) mi_mem_int_release(__FILE__, __LINE__, (mem))
#define mi_mem_strdup(text) mi_mem_int_strdup(__FILE__, __LINE__, (text))

/* locks, not recursive; lock and unlock within one shader call */
void mi_init_lock(miLock* lock);
void mi_delete_lock(miLock* lock);
void mi_lock(miLock lock);
void mi_unlock(miLock lock);

/* random numbers in [0, 1) */
miScalar mi_random(void);
void mi_srandom(long seed);
miScalar mi_erandom(unsigned short seed[3]);
miScalar mi_par_random(miState* state);

/* messages, printf-style */
#ifdef __GNUC__
#define miPRINTF_CHECK __attribute__((format(printf, 1, 2)))
#else
#define miPRINTF_CHECK
#endif
void mi_debug(const char* format, ...) miPRINTF_CHECK;
void mi_info(const char* format, ...) miPRINTF_CHECK;
void mi_progress(const char* format, ...) miPRINTF_CHECK;
void mi_warning(const char* format, ...) miPRINTF_CHECK;
void mi_error(const char* format, ...) miPRINTF_CHECK;
void mi_fatal(const char* format, ...) miPRINTF_CHECK; /* does not return */
miBoolean mi_par_aborted(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#include "geoshader.h"
#include "proposed/shader_proposed.h"

/* ---- vectors -------------------------------------------------------------------------------- */

static inline void mi_vector_neg(miVector* r) {
    r->x = -r->x;
    r->y = -r->y;
    r->z = -r->z;
}

static inline void mi_vector_add(miVector* r, const miVector* a, const miVector* b) {
    r->x = a->x + b->x;
    r->y = a->y + b->y;
    r->z = a->z + b->z;
}

static inline void mi_vector_sub(miVector* r, const miVector* a, const miVector* b) {
    r->x = a->x - b->x;
    r->y = a->y - b->y;
    r->z = a->z - b->z;
}

static inline void mi_vector_mul(miVector* r, miScalar f) {
    r->x *= f;
    r->y *= f;
    r->z *= f;
}

/* Divides by f; leaves the vector alone when f is 0. */
static inline void mi_vector_div(miVector* r, miScalar f) {
    if (f != 0.0f)
        mi_vector_mul(r, 1.0f / f);
}

/* Cross product. */
static inline void mi_vector_prod(miVector* r, const miVector* a, const miVector* b) {
    const miScalar x = a->y * b->z - a->z * b->y;
    const miScalar y = a->z * b->x - a->x * b->z;
    const miScalar z = a->x * b->y - a->y * b->x;
    r->x = x;
    r->y = y;
    r->z = z;
}

static inline miScalar mi_vector_dot(const miVector* a, const miVector* b) {
    return a->x * b->x + a->y * b->y + a->z * b->z;
}

static inline miScalar mi_vector_norm(const miVector* a) {
    return sqrtf(mi_vector_dot(a, a));
}

/* Leaves a null vector alone. */
static inline void mi_vector_normalize(miVector* r) {
    mi_vector_div(r, mi_vector_norm(r));
}

static inline void mi_vector_min(miVector* r, const miVector* a, const miVector* b) {
    r->x = a->x < b->x ? a->x : b->x;
    r->y = a->y < b->y ? a->y : b->y;
    r->z = a->z < b->z ? a->z : b->z;
}

static inline void mi_vector_max(miVector* r, const miVector* a, const miVector* b) {
    r->x = a->x > b->x ? a->x : b->x;
    r->y = a->y > b->y ? a->y : b->y;
    r->z = a->z > b->z ? a->z : b->z;
}

static inline miScalar mi_vector_det(const miVector* a, const miVector* b, const miVector* c) {
    return a->x * (b->y * c->z - b->z * c->y) - a->y * (b->x * c->z - b->z * c->x) +
           a->z * (b->x * c->y - b->y * c->x);
}

static inline miScalar mi_vector_dist(const miVector* a, const miVector* b) {
    miVector d;
    mi_vector_sub(&d, a, b);
    return mi_vector_norm(&d);
}

/* ---- parameters ----------------------------------------------------------------------------- */

/* Address of a parameter's value: the parameter itself, or the result of what is connected to it. */
static inline void* mi_eval(miState* state, void* param) {
    return mi_parameter_is_connected(state->shader, param) ? mi_phen_eval(state, param) : param;
}

/* Typed forms; they use the caller's variable `state`. */
#define mi_eval_boolean(param) ((miBoolean*)mi_eval(state, (param)))
#define mi_eval_integer(param) ((miInteger*)mi_eval(state, (param)))
#define mi_eval_scalar(param) ((miScalar*)mi_eval(state, (param)))
#define mi_eval_vector(param) ((miVector*)mi_eval(state, (param)))
#define mi_eval_transform(param) ((miScalar*)mi_eval(state, (param)))
#define mi_eval_color(param) ((miColor*)mi_eval(state, (param)))
#define mi_eval_tag(param) ((miTag*)mi_eval(state, (param)))

/* ---- the interface object (C++ only) --------------------------------------------------------- */

#ifdef __cplusplus
namespace mi {
namespace shader_v3 {

/* The named frame buffers of a camera. Methods return false when a name or parameter is not known. */
class Framebuffer {
public:
    virtual bool get_index(const char* buffer, size_t& index) = 0; /* the index for mi_fb_put */
    virtual bool get_buffercount(size_t& count) = 0;
    virtual bool get_buffername(size_t number, const char*& name) = 0;
    virtual bool get_datatype(size_t number, miImg_type& type) = 0;
    virtual bool map_old_index(unsigned old_index, int& index) = 0;
    virtual bool set(const char* buffer, const char* param, bool value) = 0;
    virtual bool set(const char* buffer, const char* param, float value) = 0;
    virtual bool set(const char* buffer, const char* param, int value) = 0;
    virtual bool set(const char* buffer, const char* param, const char* value) = 0;
    virtual bool get(const char* buffer, const char* param, bool& value) = 0;
    virtual bool get(const char* buffer, const char* param, float& value) = 0;
    virtual bool get(const char* buffer, const char* param, int& value) = 0;
    virtual bool get(const char* buffer, const char* param, const char*& value) = 0;
    virtual bool remove(const char* buffer) = 0;
    virtual bool reset() = 0;          /* removes all; like set and remove not while a frame is rendered */
    virtual void echo(FILE* file) = 0; /* writes them as statements of the scene language */

protected:
    ~Framebuffer() = default;
};

/* P: lights to ask with mi_sample_light, one after the other; no groups are among them. */
class LightList {
public:
    virtual int get_count() const = 0;
    virtual const miTag* get_lights() const = 0;

protected:
    ~LightList() = default;
};

/* What mi_get_shader_interface(3) returns; give it back with release(). */
class Interface {
public:
    virtual Framebuffer* accessFramebuffer(miTag framebuffers) = 0; /* null when the tag is no such set */
    virtual void releaseFramebuffer(Framebuffer* framebuffers) = 0;
    virtual void release() = 0;

    /* The finished picture of a frame buffer, for output shaders; `index` as for mi_fb_put. P: null outside
       of output shaders, for an index that names no buffer and for buffers of integers. What is written to
       the image counts once it is closed. */
    virtual miImg_image* open_output_image(miState* state, int index) = 0; /* P */
    virtual void close_output_image(miState* state, int index) = 0;

    /* The lights of a list, groups opened; without a list those that act on the state's instance, which are
       all of the scene unless the instance has a list of its own. The second form leaves out the lights of
       which no part is seen from the state's point within the cone about `axis`, normalised, that opens to
       the angle with this cosine. P: null without a frame; valid until it is released or the shader that
       asked returns. */
    virtual LightList* createLightList(miState* state, miTag* list = 0, int n = 0) = 0;
    virtual LightList* createLightList(miState* state, const miVector& axis, miScalar cone_cosine,
                                       miTag* list = 0, int n = 0) = 0;
    virtual void releaseLightList(LightList* list) = 0; /* P */

protected:
    ~Interface() = default;
};

/* Holds the interface object as long as it lives. */
class Access_interface {
public:
    Access_interface() : interface_(mi_get_shader_interface(miSHADER_INTERFACE)) {}
    ~Access_interface() {
        if (interface_ != 0)
            interface_->release();
    }
    Interface* operator->() const { return interface_; }
    Interface* get() const { return interface_; }

private:
    Access_interface(const Access_interface&);
    void operator=(const Access_interface&);
    Interface* interface_;
};

} /* namespace shader_v3 */
} /* namespace mi */
#endif

#endif
