#include "render/photons.h"

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "kit/color.h"
#include "kit/message.h"
#include "render/demands.h"
#include "render/photon_emission.h"
#include "render/photon_path.h"
#include "render/progress.h"
#include "render/renderer.h"
#include "render/sampling.h"
#include "render/vector.h"

namespace stage {

namespace {

constexpr std::uint32_t batch_size = 256;          // emissions that one thread makes in a row
constexpr std::uint32_t most_batches = 1024;       // in one round
constexpr std::uint32_t photon_rows = 0x80000000u; // of pixels, above those of all pictures

// A light that does not say how often it emits gives up after so many photons for each one asked for, and
// much earlier when none has been kept.
constexpr std::uint64_t usual_limit = 1000, most_in_vain = 200000;

// The photons of one kind of one light.
struct Pass {
    const WorldLight* light;
    miTag emitter;
    PhotonKinds kind;
    std::uint64_t wanted, limit; // photons to keep, photons to emit
    bool limited;                // by the scene
    bool keeps_volume;
    std::uint32_t column, row; // its own place among the pixels: of the sequences that it draws from
};

std::uint64_t emission_limit(std::uint64_t wanted, miUint given) {
    return given ? given : std::min<std::uint64_t>(usual_limit * wanted + most_in_vain, UINT32_MAX);
}

// What falls into volumes is kept once: by the global photons of a light where it has any, else by the
// caustic ones.
std::vector<Pass> passes_of(const World& world) {
    const miOptions& options = *world.options;
    std::vector<Pass> passes;
    for (std::uint32_t i = 0; i < world.lights.size(); ++i) {
        const WorldLight& light = world.lights[i];
        const miLight& l = *light.light;
        const miUint caustic = options.caustic ? l.caustic_store_photons : 0;
        const miUint global = options.globillum ? l.global_store_photons : 0;
        if (!caustic && !global)
            continue;
        if (is_black(l.energy)) {
            warn_once(world.scene, *world.scene.database.find(light.light_tag),
                      "a light without energy emits no photons");
            continue;
        }
        const miTag emitter = emitter_of(world.scene, l);
        if (caustic)
            passes.push_back({&light, emitter, caustic_photons, caustic,
                              emission_limit(caustic, l.caustic_emit_photons), l.caustic_emit_photons != 0,
                              !global, i, photon_rows + caustic_photons});
        if (global)
            passes.push_back({&light, emitter, global_photons, global,
                              emission_limit(global, l.global_emit_photons), l.global_emit_photons != 0, true,
                              i, photon_rows + global_photons});
    }
    return passes;
}

// All that has been kept so far.
struct Collection {
    std::vector<Photon> caustic, global, volume;
};

class Tracer {
public:
    Tracer(Renderer& renderer, const std::vector<Pass>& passes);
    [[nodiscard]] float scene_radius() const { return sphere_.radius; }
    [[nodiscard]] std::uint64_t all_emitted() const { return all_emitted_; }
    bool run(const Pass& pass, Collection& all);

private:
    void trace_batch(const Pass& pass, std::uint64_t first, std::uint64_t count, PhotonPath& path);
    void emit(ThreadContext& context, const Pass& pass, std::uint32_t index);
    std::uint64_t next_round(const Pass& pass) const;
    void take(const Pass& pass, const PhotonPath& path, std::uint64_t count, std::vector<Photon>& surface,
              std::vector<Photon>& volume);
    void tell(const Pass& pass) const;

    Renderer& renderer_;
    SceneSphere sphere_;
    Progress progress_;
    std::uint64_t emitted_ = 0, kept_ = 0; // of the pass
    std::uint64_t all_emitted_ = 0;        // that share the energies of the lights
};

std::size_t all_wanted(const std::vector<Pass>& passes) {
    std::size_t sum = 0;
    for (const Pass& pass : passes)
        sum += pass.wanted;
    return sum;
}

Tracer::Tracer(Renderer& renderer, const std::vector<Pass>& passes)
    : renderer_(renderer), sphere_(sphere_about(renderer.world())),
      progress_(all_wanted(passes), renderer.settings().progress && renderer.leads(), "photons") {}

// Emits until enough is kept. Rounds and batches follow from what was kept before, never from the threads.
bool Tracer::run(const Pass& pass, Collection& all) {
    std::vector<Photon>& surface = pass.kind == caustic_photons ? all.caustic : all.global;
    const std::size_t first_surface = surface.size(), first_volume = all.volume.size();
    emitted_ = kept_ = 0;
    while (kept_ < pass.wanted && emitted_ < pass.limit && (kept_ > 0 || emitted_ < most_in_vain)) {
        const std::uint64_t start = emitted_, count = next_round(pass);
        const auto size_of = [&](std::uint64_t b) {
            return std::min<std::uint64_t>(batch_size, count - b * batch_size);
        };
        std::vector<PhotonPath> paths((count + batch_size - 1) / batch_size);
        tbb::parallel_for(std::size_t{0}, paths.size(), [&](std::size_t b) {
            trace_batch(pass, start + b * batch_size, size_of(b), paths[b]);
        });
        if (renderer_.aborted())
            return false;
        const std::uint64_t before = kept_;
        bool endless = false;
        for (std::size_t b = 0; b < paths.size() && kept_ < pass.wanted && !endless; ++b) {
            take(pass, paths[b], size_of(b), surface, all.volume);
            endless = paths[b].endless;
        }
        progress_.advance(kept_ - before);
        // The other photons would take as long. What was kept is used.
        if (endless)
            break;
    }
    // Each carries its share of the light's energy.
    const float share = 1.0f / static_cast<float>(std::max<std::uint64_t>(emitted_, 1));
    for (std::size_t i = first_surface; i < surface.size(); ++i)
        surface[i].power = surface[i].power * share;
    for (std::size_t i = first_volume; i < all.volume.size(); ++i)
        all.volume[i].power = all.volume[i].power * share;
    all_emitted_ += emitted_;
    tell(pass);
    return true;
}

// So many emissions as should do, a little more than the share that was kept suggests.
std::uint64_t Tracer::next_round(const Pass& pass) const {
    std::uint64_t count = std::max<std::uint64_t>(emitted_, batch_size);
    if (emitted_ == 0)
        count = std::max<std::uint64_t>(pass.wanted / 4, batch_size);
    else if (kept_ > 0)
        count = static_cast<std::uint64_t>(1.05 * static_cast<double>(pass.wanted - kept_) *
                                           static_cast<double>(emitted_) / static_cast<double>(kept_)) +
                batch_size;
    return std::min({count, std::uint64_t{batch_size} * most_batches, pass.limit - emitted_});
}

void Tracer::trace_batch(const Pass& pass, std::uint64_t first, std::uint64_t count, PhotonPath& path) {
    ThreadContext& context =
        *renderer_.contexts()[static_cast<std::size_t>(tbb::this_task_arena::current_thread_index())];
    if (renderer_.settings().statistics)
        context.statistics.start_clock();
    const FamilyScope scope(context.statistics, Family::renderer);
    path.pass = pass.kind;
    path.keeps_volume = pass.keeps_volume;
    // A beam does not fall off, so it has no law to change.
    path.exponent =
        pass.light->light->type == miLIGHT_DIRECTION ? 0.0f : 2.0f - 2.0f * pass.light->light->exponent;
    context.photon = &path;
    for (std::uint64_t i = first; i < first + count && !renderer_.aborted() && !path.endless; ++i)
        emit(context, pass, static_cast<std::uint32_t>(i));
    context.photon = nullptr;
    context.records.clear_rect();
}

// Multiples of the golden ratio spread over the shutter interval for any number of emissions; the small
// random part keeps them from falling into step with what moves.
float emission_time(std::uint64_t seed, std::uint32_t index) {
    const double turn = 0.6180339887498949 * index + 0.001 * static_cast<double>(unit_float(mix_bits(seed)));
    return std::min(static_cast<float>(turn - std::floor(turn)), below_one);
}

void Tracer::emit(ThreadContext& context, const Pass& pass, std::uint32_t index) {
    context.pixel_x = pass.column;
    context.pixel_y = pass.row;
    context.sample = index;
    context.sample_seed = mix_bits(pixel_seed(pass.column, pass.row, context.seed) + index);
    context.sample_dimension = 0;
    context.random_state = mix_bits(context.sample_seed);
    context.photon->emission = index;
    context.photon->rays = 0;

    miState& state = context.eye.state;
    copy_state(state, renderer_.frame_state());
    state.thread = context.thread;
    state.renderer = &context;
    state.child = nullptr;
    state.type = pass.kind == caustic_photons ? miPHOTON_EMIT_CAUSTIC : miPHOTON_EMIT_GLOBILLUM;
    state.volume = miNULLTAG; // the camera's is for rays
    state.light_instance = pass.light->instance;
    const World& world = *context.world;
    state.time = world.moving ? emission_time(context.sample_seed, index) * world.options->shutter : 0.0f;
    const ArenaScope scope(context.arena);
    emit_photon(&state, *pass.light, pass.emitter, sphere_);
    context.records.clear_eye_ray();
}

// Takes a batch over: all of it, or what was kept up to the emission that completed the number.
void Tracer::take(const Pass& pass, const PhotonPath& path, std::uint64_t count, std::vector<Photon>& surface,
                  std::vector<Photon>& volume) {
    auto s = path.surface.begin();
    auto v = path.volume.begin();
    while (kept_ < pass.wanted && (s != path.surface.end() || v != path.volume.end())) {
        std::uint32_t emission = UINT32_MAX;
        if (s != path.surface.end())
            emission = s->emission;
        if (v != path.volume.end())
            emission = std::min(emission, v->emission);
        for (; s != path.surface.end() && s->emission == emission; ++s, ++kept_)
            surface.push_back(s->photon);
        for (; v != path.volume.end() && v->emission == emission; ++v, ++kept_)
            volume.push_back(v->photon);
        if (kept_ >= pass.wanted) {
            emitted_ = std::uint64_t{emission} + 1;
            return;
        }
    }
    emitted_ += count;
}

// A scene without a limit wants all the photons that it asks for.
void Tracer::tell(const Pass& pass) const {
    if (kept_ >= pass.wanted || (pass.limited && kept_ > 0))
        return;
    warn_once(
        renderer_.world().scene, *renderer_.world().scene.database.find(pass.light->light_tag),
        std::string(pass.kind == caustic_photons ? "of the caustic photons " : "of the global photons ") +
            std::to_string(kept_) + " of " + std::to_string(pass.wanted) + " were kept, after " +
            std::to_string(emitted_) + " were emitted");
}

} // namespace

std::shared_ptr<const PhotonMaps> trace_photons(Renderer& renderer) {
    const World& world = renderer.world();
    if (!world.options->caustic && !world.options->globillum)
        return nullptr;
    const std::vector<Pass> passes = passes_of(world);
    if (passes.empty()) {
        send_message(MessageLevel::warning, "caustic or globillum is on, but no light emits such photons");
        return nullptr;
    }
    Tracer tracer(renderer, passes);
    Collection all;
    for (const Pass& pass : passes)
        if (!tracer.run(pass, all))
            return nullptr;
    // Every process traces all of them: the sum over the processes counts them once.
    if (renderer.leads()) {
        Statistics& statistics = renderer.contexts().front()->statistics;
        statistics.photons_emitted += tracer.all_emitted();
        statistics.photons_kept += all.caustic.size() + all.global.size() + all.volume.size();
    }
    return std::shared_ptr<const PhotonMaps>(
        new PhotonMaps{PhotonMap(std::move(all.caustic)), PhotonMap(std::move(all.global)),
                       PhotonMap(std::move(all.volume)), tracer.scene_radius()});
}

// ---- looking up

namespace {

// Parts of the scene's radius that stand in for radii that the options do not give. Caustics are sharp.
constexpr float caustic_part = 0.02f, global_part = 0.2f, volume_part = 0.2f;

// Memory for the photons that are found, from the thread's arena.
DensityQuery query_of(ThreadContext& context, const PhotonMap& map, int accuracy, float radius, float usual) {
    const auto photons = std::min(static_cast<std::size_t>(std::max(accuracy, 1)), map.size());
    auto* buffer = static_cast<Neighbour*>(context.arena.allocate((photons + 1) * sizeof(Neighbour)));
    return {radius > 0.0f ? radius : usual, photons, 0.0f, buffer};
}

const PhotonMaps* maps_of(const miState* state) {
    const Renderer* renderer = context_of(state).renderer;
    return renderer ? renderer->photon_maps() : nullptr;
}

} // namespace

miBoolean photon_irradiance(miColor* result, miState* state, bool backside, PhotonKinds kinds) {
    *result = {};
    const PhotonMaps* maps = maps_of(state);
    if (!maps)
        return miFALSE;
    ThreadContext& context = context_of(state);
    const ArenaScope scope(context.arena);
    const miOptions& o = *state->options;
    const miVector normal = backside ? -state->normal_geom : state->normal_geom;
    bool found = false;
    const auto add = [&](const PhotonMap& map, const DensityQuery& query) {
        miColor density;
        if (!surface_density(&density, map, state->point, normal, query))
            return;
        found = true;
        *result = {result->r + density.r, result->g + density.g, result->b + density.b, 1.0f};
    };
    if ((kinds & caustic_photons) && o.caustic && maps->caustic.size() > 0) {
        DensityQuery query = query_of(context, maps->caustic, o.caustic_accuracy, o.caustic_radius,
                                      caustic_part * maps->scene_radius);
        query.cone = o.caustic_filter_const >= 1.0f ? o.caustic_filter_const : 0.0f;
        add(maps->caustic, query);
    }
    if ((kinds & global_photons) && o.globillum && maps->global.size() > 0)
        add(maps->global, query_of(context, maps->global, o.globillum_accuracy, o.globillum_radius,
                                   global_part * maps->scene_radius));
    return found ? miTRUE : miFALSE;
}

miBoolean photon_volume_irradiance(miColor* result, miState* state) {
    *result = {};
    const PhotonMaps* maps = maps_of(state);
    const miOptions& o = *state->options;
    if (!maps || (!o.caustic && !o.globillum) || maps->volume.size() == 0)
        return miFALSE;
    ThreadContext& context = context_of(state);
    const ArenaScope scope(context.arena);
    const DensityQuery query = query_of(context, maps->volume, o.photonvol_accuracy, o.photonvol_radius,
                                        volume_part * maps->scene_radius);
    return volume_density(result, maps->volume, state->point, query) ? miTRUE : miFALSE;
}

} // namespace stage
