// The rasterizer's way through surfaces. Materials do not trace what lies behind them: they tell their
// opacity, and the next surface along the eye ray is shaded as one more primary hit, until nothing is left to
// be seen through.
#include <algorithm>

#include "render/renderer.h"
#include "render/shading.h"

namespace stage {

namespace {

constexpr int most_layers = 1000; // more are a surface that is met again and again
constexpr miColor clear{0.0f, 0.0f, 0.0f, 0.0f}, solid{1.0f, 1.0f, 1.0f, 1.0f};

bool equal(const miColor& a, const miColor& b) {
    return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a;
}

// What is seen through a layer.
miColor rest(const miColor& opacity) {
    const auto open = [](float o) { return std::clamp(1.0f - o, 0.0f, 1.0f); };
    return {open(opacity.r), open(opacity.g), open(opacity.b), open(opacity.a)};
}

void put_behind(miColor& front, const miColor& behind, const miColor& open) {
    front.r += behind.r * open.r;
    front.g += behind.g * open.g;
    front.b += behind.b * open.b;
    front.a += behind.a * open.a;
}

// One surface on the way of an eye ray, or the end of the way.
struct Layer {
    RayFrame& frame;
    const Layer* front; // null for the first
    // Where the part of the ray begins that its volume acts on, and how far along the ray.
    miVector start;
    double from;
    double far; // where the eye ray ends
    int number;
};

// What the shaders of a layer wrote into the frame buffers, while those behind it write theirs.
class FrontBuffers {
public:
    explicit FrontBuffers(ThreadContext& context)
        : context_(context), count_(context.buffers.values.size() > 1 ? context.buffers.values.size() : 0) {
        if (count_ == 0)
            return;
        values_ = static_cast<miColor*>(context.arena.allocate(count_ * sizeof(miColor), alignof(miColor)));
        written_ = static_cast<bool*>(context.arena.allocate(count_, 1));
        SampleBuffers& now = context_.buffers;
        std::copy(now.values.begin(), now.values.end(), values_);
        std::copy(now.written.begin(), now.written.end(), written_);
        std::fill(now.values.begin(), now.values.end(), miColor{});
        std::fill(now.written.begin(), now.written.end(), false);
    }

    // A buffer has the value of the first layer that writes it; one that follows the opacity has all of them,
    // each as far as it is seen.
    void put_over(const miColor& open) const {
        SampleBuffers& now = context_.buffers;
        for (std::size_t b = 0; b < count_; ++b) {
            const FrameBuffer& buffer = context_.renderer->buffers()[b];
            if (buffer.desc.useopacity && buffer.type->is_color()) {
                miColor sum = values_[b];
                put_behind(sum, now.values[b], open);
                now.values[b] = sum;
                now.written[b] = now.written[b] || written_[b];
            } else if (written_[b]) {
                now.values[b] = values_[b];
                now.written[b] = true;
            }
        }
    }

private:
    ThreadContext& context_;
    std::size_t count_;
    miColor* values_ = nullptr;
    bool* written_ = nullptr;
};

// The volume behind a layer; volume_behind() for layers, which are not each other's parents.
miTag volume_past(const Layer& layer) {
    const miState& state = layer.frame.state;
    if (!state.inv_normal)
        return state.refraction_volume;
    for (const Layer* l = layer.front; l; l = l->front)
        if (l->frame.state.instance == state.instance && !l->frame.state.inv_normal)
            return l->frame.state.volume;
    return context_of(&state).world->camera->volume;
}

// The volume sees the part of the ray that lies between the layer and the one before it.
miBoolean apply_volume_before(miColor* result, const Layer& layer, miBoolean lit) {
    miState& state = layer.frame.state;
    if (!layer.front)
        return apply_volume(result, &state, lit);
    const miVector org = state.org, point = state.point;
    const double dist = state.dist;
    state.org = layer.start;
    if (state.pri)
        state.dist -= layer.from;
    else
        state.point = layer.start;
    lit = apply_volume(result, &state, lit);
    state.org = org;
    state.point = point;
    state.dist = dist;
    return lit;
}

// Runs environment or material of a layer and finds its opacity: what the material told, or the alpha of its
// colour. When several told, as the parts of a compound material do, nobody knows their shares, which the
// alpha of the whole has. A material without a shader only bounds a volume.
miBoolean shade_one(miColor* result, const Layer& layer, miColor& opacity, bool& bounds_volume) {
    miState& state = layer.frame.state;
    ThreadContext& context = context_of(&state);
    const MaterialSlots slots(context.world->scene, state.material);
    bounds_volume = state.pri && !slots[miSHADER_MATERIAL];
    opacity = bounds_volume ? clear : solid;
    if (bounds_volume)
        return miFALSE;
    context.opacities_told = 0;
    const miBoolean lit = shade_surface(result, layer.frame);
    if (state.pri && !slots.is_opaque())
        opacity = context.opacities_told == 1 ? context.opacity
                                              : miColor{result->a, result->a, result->a, result->a};
    return lit;
}

miBoolean shade_layer(miColor* result, const Layer& layer);

// What is seen behind a layer, whose surface the state still stands on.
miBoolean shade_behind(miColor* result, const Layer& layer, bool is_clear) {
    miState& state = layer.frame.state;
    const double step = std::max(start_distance(&state), state.dist * 1e-5);
    RayFrame& frame = new_ray(&state, miRAY_EYE);
    const RayInFlight in_flight(frame);
    frame.state.parent = state.parent;
    frame.state.environment = miNULLTAG; // behind the picture, not around the surface
    if (!is_clear)
        frame.state.volume = volume_past(layer);
    cast(frame, state.dist + step, layer.far, RayMask::primary);
    const Layer behind{frame,
                       is_clear ? layer.front : &layer,
                       is_clear ? layer.start : state.point,
                       is_clear ? layer.from : state.dist,
                       layer.far,
                       layer.number + 1};
    const miBoolean lit = shade_layer(result, behind);
    // A surface that leaves no trace is as if it were not there.
    if (is_clear)
        hand_back(&state, frame.state);
    return lit;
}

miBoolean shade_layer(miColor* result, const Layer& layer) {
    miState& state = layer.frame.state;
    ThreadContext& context = context_of(&state);
    *result = {};
    miColor opacity;
    bool bounds_volume = false;
    miBoolean lit = shade_one(result, layer, opacity, bounds_volume);
    const WorldInstance* surface = instance_of(&state);
    const miColor open = rest(opacity);
    if (equal(open, clear) || !surface || !surface->receives_transparency || layer.number >= most_layers)
        return apply_volume_before(result, layer, lit);

    miState* const child = state.child;
    const ArenaScope scope(context.arena);
    const FrontBuffers front(context);
    const bool is_clear = !bounds_volume && equal(opacity, clear) && equal(*result, clear);
    miColor behind{};
    lit = shade_behind(&behind, layer, is_clear) || lit;
    put_behind(*result, behind, open);
    front.put_over(open);
    state.child = child;
    return is_clear ? lit : apply_volume_before(result, layer, lit);
}

} // namespace

miBoolean shade_layers(miColor* result, RayFrame& frame, double far) {
    return shade_layer(result, {frame, nullptr, frame.state.org, 0.0, far, 1});
}

} // namespace stage
