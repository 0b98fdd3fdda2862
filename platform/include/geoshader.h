/*
 * Records of the renderer's scene database as shaders see them through mi_db_access: options, camera,
 * light, material, instance, group, object, user data, image and declarations. C and C++.
 *
 * Fields stand in the order in which they are published. Members marked "P" are settled by this
 * edition. All records are read-only for shaders.
 */
#include "shader.h" /* before the guard: shader.h includes this file once its basic types are known */

#ifndef GEOSHADER_H
#define GEOSHADER_H

/* ---- database types, 1 to 255 ---------------------------------------------------------------- */

typedef enum miScene_type {
    miSCENE_FUNCTION_DECL = 1,
    miSCENE_FUNCTION = 2,
    miSCENE_MATERIAL = 3,
    miSCENE_LIGHT = 4,
    miSCENE_CAMERA = 5,
    miSCENE_OPTIONS = 6,
    miSCENE_OBJECT = 7,
    miSCENE_INSTANCE = 8,
    miSCENE_GROUP = 9,
    miSCENE_USERDATA = 10,
    miSCENE_STRING = 11,       /* P: text of a string parameter, char[] */
    miSCENE_FRAMEBUFFERS = 12, /* P: the frame buffers of a camera */
    miSCENE_IMAGE = 13,
    miSCENE_LIGHTPROFILE = 14,
    miSCENE_TAGS = 15,        /* P: array of tags, for example the materials of an instance */
    miSCENE_COLORPROFILE = 16 /* P: what the colour profile of a texture says */
} miScene_type;

#define miSCENE_FUNCDECL miSCENE_FUNCTION_DECL

/* ---- options --------------------------------------------------------------------------------- */

typedef struct miApprox {
    miScalar cnst[4]; /* constants of the approximation */
    int style;        /* kind of approximation */
} miApprox;

typedef struct miOptions {
    miBoolean trace;       /* ray tracing is on */
    int scanline;          /* 0 off, 1 on, 'o' graphics library, 'r' rasterizer */
    miUint motion;         /* motion blur is on */
    miBoolean shadow_sort; /* obsolete */
    miBoolean preview_mode;
    int reflection_depth; /* largest number of reflections of a path */
    int refraction_depth; /* largest number of refractions of a path */
    int trace_depth;      /* largest sum of both */
    int min_samples;      /* 4^n samples each pixel at least */
    int max_samples;      /* 4^n samples each pixel at most */
    miColor contrast;     /* difference of neighbouring samples that calls for more */
    miColor time_contrast;
    miTag contour_contrast;
    miTag contour_store;
    miBoolean caustic;
    miBoolean globillum;
    int caustic_accuracy;
    float caustic_radius;
    int globillum_accuracy;
    float globillum_radius;
    float caustic_filter_const;
    float filter_size_x; /* pixels */
    float filter_size_y;
    float jitter;  /* 0 to 1 */
    float shutter; /* closing time */
    short grid_res[3];
    int grid_max_size;
    int grid_max_depth;
    miSint1 def_min_samples;
    miSint1 def_max_samples;
    int space_max_size;
    int space_max_depth;

    miBoolean samplelock;
    char render_space; /* 'c' camera space, 'o' object space */
    int task_size;     /* edge of a bucket in pixels, 0 for the renderer's choice */
    miCBoolean pixel_preview;
    miCBoolean task_preview;
    miCBoolean visible_lights;
    miBoolean strips;
    miCBoolean no_lens;
    miCBoolean no_volume;
    miCBoolean no_geometry;
    miCBoolean no_displace;
    miUint1 no_output;
    miCBoolean no_merge;
    miCBoolean no_hair;
    miCBoolean no_pass;
    miCBoolean no_predisplace;
    miTag userdata; /* first user data block */
    miApprox approx;
    miApprox approx_displace;
    miTag inh_funcdecl;
    miUint1 diagnostic_mode;
    float diag_photon_density;
    float diag_grid_size;
    miBoolean desaturate;
    miBoolean dither;
    miBoolean nopremult;
    int colorclip; /* 0 rgb, 1 alpha, 2 raw */
    float gamma;
    miColor luminance_weight; /* of red, green, blue */
    int no_images;            /* highest frame buffer index + 1 */
    miTag images_info;
    miTag fb_dir;

    int shadow;                  /* 0 off, 1 simple, 'l' sorted, 's' segments (P codes but for 's') */
    int face;                    /* 'f' front, 'b' back, 'a' all (P) */
    int filter;                  /* 'b' box, 't' triangle, 'g' Gauss, 'm' Mitchell, 'l' Lanczos (P) */
    int finalgather;             /* 0 off, 1 on (P) */
    int finalgather_rays;        /* P */
    int photon_reflection_depth; /* P */
    int photon_refraction_depth; /* P */
    int photon_trace_depth;      /* P */
    int photonvol_accuracy;      /* P */
    float photonvol_radius;      /* P */
} miOptions;

/* ---- camera ---------------------------------------------------------------------------------- */

typedef struct miCamera {
    miBoolean orthographic;
    float focal;    /* distance from the eye to the image plane */
    float aperture; /* width of the image plane */
    float aspect;   /* width / height of the image plane */
    miRange clip;   /* hither and yon */
    int x_resolution;
    int y_resolution;
    struct {
        int xl, yl, xh, yh; /* pixels, inclusive */
    } window;
    miTag volume;
    miTag environment;
    miTag lens;   /* first lens shader */
    miTag output; /* first output shader */
    int frame;
    float frame_time; /* seconds */
    int frame_field;  /* 0 frame, 1 even or first field, 2 odd or second field */
    float x_offset;   /* pixels */
    float y_offset;
    miTag userdata;     /* first user data block */
    miTag framebuffers; /* P: the camera's frame buffers, for accessFramebuffer */
} miCamera;

/* ---- light ----------------------------------------------------------------------------------- */

typedef enum miLight_type { miLIGHT_ORIGIN = 0, miLIGHT_DIRECTION = 1, miLIGHT_SPOT = 2 } miLight_type;

typedef enum miLight_area {
    miLIGHT_NONE = 0,
    miLIGHT_RECTANGLE,
    miLIGHT_DISC,
    miLIGHT_SPHERE,
    miLIGHT_CYLINDER,
    miLIGHT_OBJECT,
    miLIGHT_USER
} miLight_area;

typedef struct miLight {
    miLight_type type;
    miLight_area area;
    miScalar exponent; /* falloff of photons is 1 / r^(2 exponent) */
    miUint caustic_store_photons;
    miUint global_store_photons;
    miColor energy; /* of photons */
    miTag shader;   /* first light shader */
    miTag emitter;
    miVector origin;    /* light space */
    miVector direction; /* normalised */
    float spread;       /* cosine */
    union {
        struct {
            miVector edge_u, edge_v; /* half edges from the centre */
        } rectangle;
        struct {
            miVector normal;
            miScalar radius;
        } disc;
        struct {
            miScalar radius;
        } sphere;
        struct {
            miVector axis; /* half axis */
            miScalar radius;
        } cylinder;
        struct {
            miTag object;
        } object;
    } primitive;
    short samples_u, samples_v;
    short low_samples_u, low_samples_v;
    short low_level; /* trace level from which the low counts hold, 0 for never */
    miUint1 shadowmap_flags;
    miUint1 dirlight_has_org;
    miBoolean use_shadow_maps;
    miTag shadowmap_file;
    int shadowmap_resolution;
    float shadowmap_softness;
    int shadowmap_samples;
    miBoolean visible;           /* P */
    miUint caustic_emit_photons; /* P */
    miUint global_emit_photons;  /* P */
    miTag userdata;              /* P: first user data block */
    miUint label;                /* P */
} miLight;

/* ---- material -------------------------------------------------------------------------------- */

typedef struct miMaterial {
    miBoolean opaque; /* does not cast transparency into shadows or the alpha channel */
    miTag shader;
    miTag displace;
    miTag shadow;
    miTag volume;
    miTag environment;
    miTag contour;
    miTag photon;
    miTag photonvol;
    miTag lightmap;
    miTag hardware;
} miMaterial;

/* ---- instances and groups -------------------------------------------------------------------- */

typedef struct miTransform {
    miTag function; /* shader that computes the matrices */
    miScalar time;
    miMatrix global_to_local; /* from the parent's space into the item's */
    miMatrix local_to_global;
    miCBoolean identity;
    miCBoolean spare[3];
    int id;
} miTransform;

typedef struct miInstance {
    miTransform tf;
    miMatrix motion_transform;
    miTag item;     /* what is instanced */
    miTag material; /* inherited material or array of materials */
    miTag parent;   /* instance of the group that it is in (P), null in the root group */
    miTag boxes;
    miTag next;
    miTag prev;
    int mtl_array_size; /* 0 for a single material */
    miTag light_obj_ring;
    miTag userdata; /* first user data block */
    miUint label;
    miTag geogroup;
    miCBoolean off;            /* hidden */
    miUint1 gen_motion;        /* 0 inherit, 1 transform, 2 off */
    miUint1 override_material; /* P: the material replaces those of the item */
    miUint1 visible;           /* P: 0 off, 1 on, 4 inherit; likewise trace */
    miUint1 shadow;            /* P: modes as of objects, 4 inherit; likewise below */
    miUint1 trace;
    miUint1 reflection;
    miUint1 refraction;
    miUint1 transparency;
    miUint1 caustic;
    miUint1 globillum;
    miUint1 finalgather;
    miUint1 face;                    /* P: 'f', 'b', 'a' or 0 */
    miUint1 exclusive_lights;        /* P: the light list names the lights that do not act */
    miTag light_list;                /* P: array of light instances, or null for all lights of the scene */
    int light_list_size;             /* P */
    miTag parameters;                /* P: user data block with the instance's parameters */
    miTag shadow_light_list;         /* P: array of the lights whose shadows it casts, or null for all */
    int shadow_light_list_size;      /* P */
    miUint1 exclusive_shadow_lights; /* P: that list names the lights whose shadows it does not cast */
} miInstance;

typedef struct miGroup {
    int merge;
    int placeholder;
    int spare0;
    int merge_group;
    int max_kids;
    int no_kids;
    int max_connections;
    int no_connections;
    miTag userdata;
    miUint label;
    int spare[3];
    miTag kids[1]; /* no_kids instances */
} miGroup;

/* ---- objects --------------------------------------------------------------------------------- */

typedef enum miObject_type {
    miOBJECT_POLYGONS = 0,
    miOBJECT_FACES,
    miOBJECT_BOXES,
    miOBJECT_SPACECURVES,
    miOBJECT_SUBDIVSURFS,
    miOBJECT_PLACEHOLDER,
    miOBJECT_HAIR,
    miOBJECT_INTERSECT_FUNC
} miObject_type;

typedef struct miObject {
    int spare[3];
    miUint volume_id;
    miTag finalgather_file;
    miObject_type type;
    miUint1 visible;
    miUint1 shadow; /* bit 0 casts, bit 1 receives; likewise below */
    miUint1 reflection;
    miUint1 refraction;
    miUint1 transparency;
    miUint1 caustic;
    miUint1 globillum;
    miUint1 finalgather;
    miUint1 select;
    miUint1 trace;                 /* P */
    miUint1 tagged;                /* P: polygons carry labels that index the instance's materials */
    miUint1 face;                  /* P: 'f', 'b', 'a' or 0 */
    miTag userdata;                /* P: first user data block */
    miUint label;                  /* P */
    miVector bbox_min;             /* P: of the tessellation, object space */
    miVector bbox_max;             /* P */
    struct miTriangles* triangles; /* P: the tessellation, null when there is none */
    miRange falloff;               /* P: for mi_ray_falloff; max 0 when none is set */
} miObject;

/* ---- user data ------------------------------------------------------------------------------- */

typedef struct miUserdata {
    miTag data_decl; /* null for data given as bytes or as a file */
    miTag next_data; /* next block of the chain */
    miUint label;
    int parameter_size; /* bytes of the contents */
    short one;          /* 1 in the order of bytes in which the contents are */
    short spare[3];
    double parameters[1]; /* the contents */
} miUserdata;

/* ---- images ---------------------------------------------------------------------------------- */

typedef enum miImg_type {
    miIMG_TYPE_UNDEF = -1,
    miIMG_TYPE_RGBA = 0,
    miIMG_TYPE_RGBA_16,
    miIMG_TYPE_RGBA_FP,
    miIMG_TYPE_RGB,
    miIMG_TYPE_RGB_16,
    miIMG_TYPE_RGB_FP,
    miIMG_TYPE_A,
    miIMG_TYPE_A_16,
    miIMG_TYPE_A_FP,
    miIMG_TYPE_S,
    miIMG_TYPE_S_16,
    miIMG_TYPE_S_FP,
    miIMG_TYPE_VTA,
    miIMG_TYPE_VTS,
    miIMG_TYPE_Z,
    miIMG_TYPE_N,
    miIMG_TYPE_M,
    miIMG_TYPE_TAG,
    miIMG_TYPE_BIT,
    miIMG_TYPE_COVERAGE
} miImg_type;

typedef struct miImg_image {
    miBoolean filter; /* pyramid levels are wanted */
    int dirsize;      /* number of filter levels */
    miIntptr dir[20]; /* bytes from this record to that of each level */
    int width;
    int height;
    int bits; /* 8, 16 or 32 (float) for each component */
    int comp; /* 1 to 4 */
    miCBoolean local;
    miCBoolean writable;
    miCBoolean cacheable;
    miCBoolean remap;
    int type;        /* miImg_type */
    miTag real_name; /* string */
    miTag colorprofile;
    miIntptr c[1]; /* bytes from this record to each scanline of each component, c[y * comp + component] */
} miImg_image;

/* ---- declarations ---------------------------------------------------------------------------- */

typedef struct miFunction_decl {
    miFunction_type type; /* C shader or phenomenon */
    miParam_type result_type;
    int result_size; /* bytes */
    int version;
    int n_subtags; /* elements of a phenomenon */
    miTag root;
    miTag lens;
    miTag output;
    miTag volume;
    miTag environment;
    miTag name;         /* P: string */
    miUint apply;       /* P: bit n is set for miShader_type n */
    int parameter_size; /* P: bytes of a block without its arrays */
} miFunction_decl;

/* ---- tessellation ---------------------------------------------------------------------------- */

/*
 * P: the triangles of an object. A vertex is a run of `vertex_stride` floats that starts with the position;
 * the other offsets are in floats from the start of the vertex, -1 where the geometry has no such value.
 */
typedef struct miTriangles {
    miUint triangle_count;
    miUint vertex_count;
    int vertex_stride;
    int normal_offset;     /* three floats */
    int motion_offset;     /* three floats: displacement during the shutter interval */
    int texture_count;     /* texture spaces */
    int texture_offset;    /* three floats for each space */
    int bump_count;        /* texture spaces with basis vectors */
    int bump_offset;       /* six floats for each space: x then y vector */
    int data_count;        /* data words of each triangle */
    const float* vertices; /* vertex_count * vertex_stride */
    const miUint* indices; /* three for each triangle */
    const miTag*
        materials;      /* one for each triangle, null for a single one; labels when the object is tagged */
    miTag material;     /* of all triangles, when materials is null */
    const miUint* data; /* data_count for each triangle, null when there are none */
} miTriangles;

#endif
