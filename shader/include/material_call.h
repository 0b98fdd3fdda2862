/*
 * One call of the standard material, as its parts share it: what the entry found out, and the steps that the
 * ways of eye rays, shadow rays and photons have in common.
 *
 * While the illumination model runs, the renderer takes the model for the running shader. The steps here
 * evaluate the material's own parameters and maps, so they want the material in its place: ActsAsMaterial.
 */
#pragma once

#include "hit_visit.h"
#include "illumination.h"
#include "orl_material.h"
#include "orlshaderapi.h"

namespace orl {

struct StandardMaterialInstance {
    miBoolean warned;
    miBoolean warnedOfModel;
    miBoolean mapsOn; /* the scene may switch all maps off */
    const orl_SceneData* scene;
    int mtlIdBuffer;
};

/* Measures how deep a shadow ray runs through an object: while `instance` is set, shadow rays pass its
   surfaces and raise `largest` to their distance from `origin`. The models here do not need the depth; one
   that does arms it through the call that its record points to, for the time in which it casts its rays. */
struct ShadowDistanceProbe {
    miTag instance;
    miVector origin;
    miScalar largest;
};

/* Of a thread. */
struct StandardMaterialThread {
    HitVisit visit;
    ShadowDistanceProbe probe;
};

/* What `material` of the illumination record points to. */
struct MaterialCall {
    const StandardMaterialParams* params;
    const StandardMaterialInstance* instance;
    ShadowDistanceProbe* probe; /* null where threads have no data */
    miFunction* shader;         /* the material itself */
    MaterialValues values;
    ArraySpan<miBoolean> enabled;
    ArraySpan<miTag> map;
    ArraySpan<miScalar> amount;

    MaterialCall(miState* state, const StandardMaterialParams* params,
                 const StandardMaterialInstance* instance, ShadowDistanceProbe* probe);
};

inline const MaterialCall& call_of(const IllumRecord& record) {
    return *static_cast<const MaterialCall*>(record.material);
}

/* Makes the material the running shader while it lives. */
class ActsAsMaterial {
public:
    ActsAsMaterial(miState* state, const IllumRecord& record) : state_(state), running_(state->shader) {
        state->shader = call_of(record).shader;
    }
    ~ActsAsMaterial() { state_->shader = running_; }
    ActsAsMaterial(const ActsAsMaterial&) = delete;
    ActsAsMaterial& operator=(const ActsAsMaterial&) = delete;

private:
    miState* state_;
    miFunction* running_;
};

/* Keeps what the renderer overwrites in the state when a ray is cast from it. */
class KeepsHit {
public:
    explicit KeepsHit(miState* state)
        : state_(state), label_(state->label), point_(state->point), normal_(state->normal),
          dist_(state->dist), motion_(state->motion) {}
    ~KeepsHit() {
        state_->label = label_;
        state_->point = point_;
        state_->normal = normal_;
        state_->dist = dist_;
        state_->motion = motion_;
    }
    KeepsHit(const KeepsHit&) = delete;
    KeepsHit& operator=(const KeepsHit&) = delete;

private:
    miState* state_;
    miUint label_;
    miVector point_, normal_;
    double dist_;
    miVector motion_;
};

// ---- wire frame

/* Whether the hit lies on a visible edge. Geometry without triangles has no edges and stays whole. */
bool is_on_wire(miState* state, const StandardMaterialParams* params);

// ---- maps. Channels outside the table and maps that fail change nothing.

/* The map of a channel, null when it is off; how much it counts. */
miTag active_map(const MaterialCall& call, int channel);
miScalar map_amount(const MaterialCall& call, int channel);
/* The same from 0 to 1, for what a refracted ray takes off the opacity, which cannot become negative. */
miScalar refraction_amount(const MaterialCall& call, int channel);

/* Opacity and, for models that ask for it, filter colour as the parameters give them. */
void set_own_channels(miState* state, IllumRecord* record);

/* Evaluates the map of one channel, or of all, into them. */
void map_channel(miState* state, IllumRecord* record, int channel);
void map_all_channels(miState* state, IllumRecord* record);

/* The normal to shade with, in record and state: flat or interpolated, bent by the bump map. */
void set_normal(miState* state, IllumRecord* record);
void bend_normal(miState* state, IllumRecord* record);

/* Opacity from its channel, the node's visibility and the falloff; marks the record when it is transparent.
   False when the surface is opaque for certain. */
bool set_opacity(miState* state, IllumRecord* record, const orl_NodeData* node);

/* Evaluates the map of a reflected or refracted ray: while it runs the state has the direction `dir`, and a
   record tells the map where the ray came from and what type of ray it acts for. */
bool call_ray_map(miColor* result, miState* state, miTag map, const miVector& dir, miRay_type type);

/* Direction behind the surface; the mirror direction where light is reflected totally. */
miVector refracted_dir(miState* state);

// ---- the three ways, which models continue with

miBoolean shade_surface(miColor* result, miState* state, IllumRecord* record, const void* model_params);
miBoolean shade_shadow(miColor* result, miState* state, IllumRecord* record, const void* model_params);
miBoolean shade_photon(miColor* result, miState* state, IllumRecord* record, const void* model_params);

} // namespace orl
