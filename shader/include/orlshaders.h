/*
 * Helper interface of the shader module `orlshaders` for other shader libraries. C99 and C++.
 *
 * The functions read what the host attaches to a scene (one scene record on the options, one node record on
 * each instance, one object record on each object, data words on each triangle) and run materials on the
 * host's behalf. They may be called from shaders and from their instance init, on any number of threads.
 * The readers allocate nothing. A null state reads as a scene without any of this, and null places for
 * results are left out. Records are owned by the renderer and are read-only; one that is shorter than its
 * type here, or whose arrays leave its block, reads as missing.
 */
#ifndef ORLSHADERS_H
#define ORLSHADERS_H

#include "shader.h"

#ifdef _WIN32
#ifdef ORLSHADERS_BUILD
#define ORLSHADERS_API __declspec(dllexport)
#else
#define ORLSHADERS_API __declspec(dllimport)
#endif
#else
#define ORLSHADERS_API __attribute__((visibility("default")))
#endif

/* An array in a record; the elements lie at elements[first] to elements[first + count - 1], behind the
   record's fixed part. */
typedef struct orl_TagArray {
    miInteger first;
    miInteger count;
    miTag elements[1];
} orl_TagArray;

typedef struct orl_IntegerArray {
    miInteger first;
    miInteger count;
    miInteger elements[1];
} orl_IntegerArray;

/*
 * Scene record, version 5, user data of the options. Fields that only the host reads are named by their
 * place, counted from 1.
 */
typedef struct orl_SceneData {
    miBoolean material_editor; /* 1: the scene is a sample of the material editor */
    miInteger field_2;
    miInteger field_3;
    miInteger field_4;
    miInteger field_5;
    miInteger field_6;
    miInteger field_7;
    miInteger field_8;
    miBoolean force_two_sided; /* 9: every standard material shades both sides */
    miBoolean flip_sky;        /* 10: spherical environments have their pole along y */
    miScalar display_gamma;    /* 11: exponent that takes displayed colours to linear ones */
    miInteger field_12;
    miInteger field_13;
    miInteger field_14;
    miInteger field_15;
    miBoolean material_switch_16; /* 16 and 22: together decide a switch of the standard material */
    miInteger field_17;
    miInteger field_18;
    miInteger field_19;
    miInteger field_20;
    miInteger field_21;
    miBoolean material_switch_22;
    miInteger field_23;
    miBoolean map_channel_ids; /* 24: ids of texture channels are channel numbers rather than positions */
} orl_SceneData;

/* Node record, version 2, user data of an instance. */
typedef struct orl_NodeData {
    miScalar color_r; /* wire colour */
    miScalar color_g;
    miScalar color_b;
    miScalar visibility; /* 0 to 1, multiplies opacity */
    miInteger node_id;
    miInteger node_render_id;
    orl_TagArray shadow_lights;        /* lights, or groups of lights, for which the node casts shadows */
    miBoolean shadows_from_all_lights; /* the list is ignored */
    orl_TagArray lights;               /* lights that light the node in render elements */
    miBoolean all_lights;              /* all lights of the scene instead of the list */
} orl_NodeData;

/* Object record, version 5, user data of an object. Fields that only the host reads are named by their place,
   counted from 1. */
typedef struct orl_ObjectData {
    miInteger field_1;
    miInteger field_2;
    miInteger field_3;
    miInteger field_4;
    miInteger field_5;
    miInteger field_6;
    miInteger field_7;
    miInteger field_8;
    miInteger field_9;
    miTag particle_data;          /* 10: user data block of the particles, null for other objects */
    orl_IntegerArray uv_channels; /* for each texture space the number of the host's map channel */
} orl_ObjectData;

#ifdef __cplusplus
extern "C" {
#endif

/* The scene record, or null. */
ORLSHADERS_API const orl_SceneData* GetSceneData(miState* state);

/* The node record of an instance; null for the null tag and when the instance has none. */
ORLSHADERS_API const orl_NodeData* GetNodeData(miTag instance);

/* The record of the object at hand, or null. */
ORLSHADERS_API const orl_ObjectData* GetObjectData(miState* state);

/* The record of the object that an instance shows, or null. */
ORLSHADERS_API const orl_ObjectData* GetObjectDataFromInstance(miTag instance);

/* The particle record that an object record names, or null. */
ORLSHADERS_API const void* GetParticleData(miState* state, const orl_ObjectData* object);

/* Material id (0 to 65535) of the triangle that was hit; 0 when it has none. */
ORLSHADERS_API miInteger GetMaterialID(miState* state);

/* Which edges of the triangle that was hit belong to the polygon; all of them when the triangle does not
   say. Edge 0 leads from corner 0 to 1, edge 1 from 1 to 2, edge 2 from 2 to 0. */
ORLSHADERS_API void GetEdgeVisibility(miState* state, miBoolean* edge_0, miBoolean* edge_1,
                                      miBoolean* edge_2);

/* Smoothing groups of the triangle as bits, and the particle that it belongs to; 0 when it has none. */
ORLSHADERS_API miInteger GetFaceSmoothingGroup(miState* state);
ORLSHADERS_API miInteger GetParticleID(miState* state);

/* The tangent basis of texture space 0, object space. miFALSE and null vectors when the geometry has none. */
ORLSHADERS_API miBoolean GetTangentBasisVectors(miState* state, miVector* u, miVector* v);

/*
 * Leads from a texture channel to a texture space. With `map_channel_ids` of the scene record the result is
 * the place of `id` in the object's channel table, without it the table's element at place `id`; -1 when
 * there is none. A null `object` stands for the object at hand.
 */
ORLSHADERS_API miInteger GetUVChannelIndexFromID(miState* state, const orl_ObjectData* object, miInteger id);

/* Whether the node casts a shadow for the light that is being sampled. Its list may name lights, instances of
   lights and groups of either. miTRUE for a null node and for a state without an instance; miFALSE for a list
   when no light is being sampled. */
ORLSHADERS_API miBoolean IsInstanceShadowMakerForLight(miState* state, const orl_NodeData* node);

/*
 * Runs a material or shader for the kind of call that is in progress and returns its answer. `result` has
 * room for a colour, whatever the kind of call. It starts as transparent black, except for shadow rays,
 * photons and light maps, which hold a value already. `warned` keeps the message about an unsupported call
 * from being sent again; when it is null, the first word of the running shader's instance data does. The
 * volume of a material that was run stays installed in the state. miFALSE for a null result or state.
 */
ORLSHADERS_API miBoolean CallMaterial(miColor* result, miState* state, miTag material, miBoolean* warned);

/*
 * Maps a colour with the tone operator that is active for the eye ray at hand, in place. 1 when it did; 0
 * without an operator, and when `final_phase` is set and the operator leaves backgrounds alone.
 */
ORLSHADERS_API miBoolean ToneOpScaledToRGB(miState* state, miColor* color, miBoolean final_phase);

/* The way back: 1 when the active operator has an inverse and the colour was mapped with it, otherwise 0. */
ORLSHADERS_API miBoolean ApplyInverseToneOperator(miState* state, miColor* color);

#ifdef __cplusplus
}
#endif

#endif
