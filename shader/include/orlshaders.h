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
    orl_TagArray lights;               /* lights, or groups of lights, that light the node */
    miBoolean all_lights;              /* those of the scene as well; off: the list alone */
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

/* Camera record, version 1, user data of a camera. Fields that only the host reads are named by their place,
   counted from 1. */
typedef struct orl_CameraData {
    miInteger field_1;
    miInteger field_2;
    miInteger field_3;
    miInteger field_4;
    miInteger field_5;
    miInteger field_6;
    miInteger field_7;
    miInteger field_8;
    miInteger field_9;
    miInteger field_10;
    miInteger field_11;
    miScalar near_range; /* distances between which fog grows */
    miScalar far_range;
} orl_CameraData;

enum { orl_gizmo_sphere = 0, orl_gizmo_cylinder = 1, orl_gizmo_box = 2, orl_gizmo_hemisphere = 3 };

/* Gizmo record, version 1, user data of the instance of a gizmo: a space for volume fog or fire, in the
   instance's own space, whose z axis points up. Sizes of 0 and below make an empty space. */
typedef struct orl_GizmoData {
    miInteger kind;  /* orl_gizmo_ constants */
    miScalar radius; /* sphere, cylinder and hemisphere */
    miScalar height; /* cylinder */
    miScalar size_x; /* box: from face to face */
    miScalar size_y;
    miScalar size_z;
    miInteger seed; /* gizmos of different seeds hold different fog */
} orl_GizmoData;

/*
 * What the light loop and a light tell each other about one light (shader-state key "KEY_5"). The loop resets
 * all but `ambientOnly` before each light.
 */
typedef struct orl_LightShapingRecord {
    miInteger valid;       /* 1: shapedCosine is the light's, and takes the place of N.L */
    miScalar shapedCosine; /* diffuse factor */
    miInteger ambientOnly; /* the light counts as ambient light */
    miInteger affectFlags; /* 1 diffuse, 2 specular */
} orl_LightShapingRecord;

/* Called for each light; the record is the one that lights write to. */
typedef void (*orl_LightFunction)(miState* state, miTag light, orl_LightShapingRecord* record, void* context);

/* Illuminance that ComputeIlluminance adds up. */
typedef struct orl_Illuminance {
    miColor color;     /* the sum, added to; alpha becomes 1 */
    miBoolean diffuse; /* count lights that affect diffuse shading */
    miBoolean ambient; /* count ambient-only lights */
} orl_Illuminance;

enum { orl_channel_count = 24, orl_element_channel_count = 32, orl_slot_count = 16 };

/* Components that elements weight by the opacity, because the material has not done so itself. */
enum { orl_weight_reflection = 1, orl_weight_refraction = 2 };

/* What a material was given for the shading point. */
typedef struct orl_PostIllumInputs {
    miScalar opacity; /* by which ambient, diffuse and self-illumination count in the picture */
    miScalar reflectionAmount;
    miScalar refractionAmount;
    miInteger weightByOpacity; /* orl_weight_ bits */
    miBoolean shadowIsSet;     /* the material knows its shadow colour */
} orl_PostIllumInputs;

/* What came of it. Reflection, refraction and shadow stand in the record itself. */
typedef struct orl_PostIllumOutputs {
    miColor ambient;
    miColor diffuse; /* with back-lighting */
    miColor specular;
    miColor selfIllumination;
    miColor ink; /* of materials that draw lines and fill areas */
    miColor paint;
    miColor transparency;     /* by which what lies behind shows through */
    miBoolean elementReplace; /* set by an element shader: its colour takes the place of what lies behind */
} orl_PostIllumOutputs;

/* What a material hands to the render elements. */
typedef struct orl_PostIllumData {
    miInteger kind; /* 0: all components are filled in; otherwise most elements stay black */
    orl_PostIllumInputs inputs;
    orl_PostIllumOutputs outputs;
    miColor channel[orl_element_channel_count];
    const miInteger* slots; /* orl_slot_count channels, one for each map slot; -1 for none */
    miInteger materialId;
    miColor shadow;
    miColor reflection;
    miColor refraction;
} orl_PostIllumData;

enum { orl_phase_post_illumination = 0, orl_phase_final = 1 };

/* Data of the final phase: in and out. */
typedef struct orl_ElementFinal {
    miColor color;     /* what the element has gathered */
    miScalar distance; /* of the eye ray; 0 when it hit nothing */
    miInteger zero;
} orl_ElementFinal;

/* Fourth argument of an element shader: orl_PostIllumData or orl_ElementFinal. */
typedef struct orl_RenderElementCall {
    miInteger phase;
    void* data;
} orl_RenderElementCall;

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

/* The particle record that an object record names, or null. The bitmap reads how it begins: with an array
   (orl_IntegerArray) that has an entry for each particle. */
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

/*
 * Calls the function for every light of the node: those of its list and, when it asks for them, all lights of
 * the scene; without a node record all lights of the scene. A light of both counts twice: switch all_lights
 * off to light by the list alone. Groups stand for their members. Nothing for light and shadow rays, for
 * displacement, without an instance, and for a null function.
 */
ORLSHADERS_API void IllumAccumulate(miState* state, orl_LightFunction function, void* context);

/* Adds up the light that arrives at the point, without indirect light. Nothing for null data. */
ORLSHADERS_API void ComputeIlluminance(miState* state, orl_Illuminance* data);

/* How much of the light reaches the point: 1 unshadowed, 0 in full shadow. */
ORLSHADERS_API miScalar IllumShadow(miState* state);

/* 1 when what is shaded here feeds render elements: along an eye ray, also through transparent surfaces. */
ORLSHADERS_API miBoolean RenderElementsAreBeingUsed(miState* state);

/* Sets all of the record to nothing, with the identity as slot table. These three leave null data alone. */
ORLSHADERS_API void InitializeRenderElementPostIllumData(miState* state, orl_PostIllumData* data);
ORLSHADERS_API void ClearInputs(orl_PostIllumData* data);
ORLSHADERS_API void ClearOutputs(orl_PostIllumData* data);

/* Hands the components of a shading point to the element shaders; once for each point. 0 when an element is
   being computed already, and for null data. */
ORLSHADERS_API miBoolean orl_CallRenderElementShaders_PostIllum(miState* state, orl_PostIllumData* data);

/* This thread's colours of the active elements; null without elements. `count` may be null. */
ORLSHADERS_API miColor* orl_GetRenderElementResults(miState* state, miInteger* count);

#ifdef __cplusplus
}
#endif

#endif
