/*
 * The bitmap: a texture map that shows an image of the scene, cropped or placed, one of a list or the only
 * one. It relies on its coordinate generator, which tiles and calls back, on the filters of bmm_filter.h for
 * the images, and on its output stage.
 */
#include "tex_bitmap.h"
#include "bmm_filter.h"
#include "host_random.h"
#include "map_frame.h"
#include "orlshaderapi.h"
#include "uv_map.h"

#include <algorithm>
#include <climits>

namespace orl {

// ---- geometry

namespace {

// A coordinate as number of its tile and place in it. Deliberate: below 0 the tile is the one left of the
// truncated number, so that whole numbers there have the fraction 1 rather than 0; all maps of the host tile
// like that. Coordinates too large to have a fraction count as 0.
struct Tile {
    miInteger number;
    miScalar fraction;
};

Tile tile(miScalar coordinate) {
    constexpr miScalar last_with_fraction = 8388608.0f;
    if (!(std::fabs(coordinate) < last_with_fraction))
        return {0, 0};
    const miInteger number = static_cast<miInteger>(coordinate) - (coordinate < 0.0f ? 1 : 0);
    return {number, coordinate - static_cast<miScalar>(number)};
}

// Where (u, v) lies in the image, whose edges are at 0 and 1. Placed images leave room around them.
struct ImagePoint {
    miScalar u, v;
};

ImagePoint image_point(const Placement& placement, miScalar u, miScalar v) {
    const miScalar across = tile(u).fraction, up = tile(v).fraction;
    if (!placement.on)
        return {across, up};
    const miScalar lower_edge = 1.0f - placement.v - placement.height;
    if (placement.place)
        return {(across - placement.u) / placement.width, (up - lower_edge) / placement.height};
    return {tile(across * placement.width + placement.u).fraction,
            tile(lower_edge + placement.height * up).fraction};
}

// Moves the middle of an interval into that of its part between 0 and 1 and returns the part's share: of one
// without length all or nothing.
miScalar clip(miScalar& middle, miScalar length) {
    const miScalar whole = length > 0.0f ? length : 0.0f;
    const miScalar low = std::max(middle - 0.5f * whole, 0.0f);
    const miScalar high = std::min(middle + 0.5f * whole, 1.0f);
    if (!(low <= high))
        return 0;
    middle = 0.5f * (low + high);
    return whole > 0.0f ? (high - low) / whole : 1.0f;
}

} // namespace

// Deliberate: a cropped image is averaged over as wide a footprint as a placed one of that size, though it is
// enlarged rather than reduced. The host's pictures are as soft.
Footprint image_footprint(const Placement& placement, miScalar u, miScalar v, miScalar du, miScalar dv) {
    const ImagePoint point = image_point(placement, u, v);
    if (!placement.on)
        return {point.u, point.v, du, dv, 1};
    if (!(placement.width > 0.0f && placement.height > 0.0f))
        return {};
    Footprint part{point.u, point.v, du / placement.width, dv / placement.height, 0};
    part.coverage = clip(part.u, part.du) * clip(part.v, part.dv);
    return part;
}

namespace {

constexpr miColor default_color{0, 0, 0, 0}; // of samples beside the image

// ---- instance record

struct FilterList {
    BitmapFilter** filters; // null for empty elements
    miInteger count;
};

struct BitmapInstance {
    miBoolean warned;
    int mtlIdBuffer; // index of fb_mtl_id, for the host's own use of the record
    BitmapFilter* image;
    FilterList list;
    FilterList hostList;
};

// Scenes from before version 4 of the declaration have a block without the gamma.
float input_gamma(miState* state, const BitmapParams* params) {
    int version = 0;
    const bool declared = mi_query(miQ_DECL_VERSION, state, miNULLTAG, &version) && version >= 4;
    const miScalar own = declared ? eval(state, params->gamma) : 0.0f;
    const miScalar gamma = own > 0.0f || state->options == nullptr ? own : state->options->gamma;
    return gamma > 0.0f ? gamma : 1.0f;
}

FilterList make_filters(miState* state, const ArraySpan<miTag>& images, float gamma, bool tiles) {
    constexpr auto most = static_cast<miInteger>(INT_MAX / sizeof(BitmapFilter*));
    if (images.size() < 1 || images.size() > most)
        return {};
    const auto size = static_cast<miUint>(images.size()) * static_cast<miUint>(sizeof(BitmapFilter*));
    auto* const filters = static_cast<BitmapFilter**>(mi_mem_int_test_allocate("tex_bitmap", __LINE__, size));
    if (filters == nullptr)
        return {};
    for (miInteger k = 0; k < images.size(); ++k)
        filters[k] = create_filter(state, images[k], gamma, tiles);
    return {filters, images.size()};
}

void destroy(const FilterList& list) {
    for (miInteger k = 0; k < list.count; ++k)
        if (list.filters[k] != nullptr)
            destroy_filter(list.filters[k]);
    if (list.filters != nullptr)
        mi_mem_int_release("tex_bitmap", __LINE__, list.filters);
}

// ---- choice of the image

// The record of an object's particles, as far as it matters here, begins with an array of one entry for each
// of them. 0 for other objects, and for a record too short to tell.
miInteger particle_entries(miState* state) {
    const orl_ObjectData* const object = GetObjectData(state);
    const auto* const particles = static_cast<const orl_IntegerArray*>(GetParticleData(state, object));
    int size = 0;
    if (particles == nullptr || !mi_query(miQ_DATA_PARAM_SIZE, state, object->particle_data, &size) ||
        size < static_cast<int>(offsetof(orl_IntegerArray, elements)))
        return 0;
    return particles->count;
}

// Null for an image that is missing. Indices go round, those below 0 too.
BitmapFilter* choose_filter(miState* state, const BitmapParams* params, const BitmapInstance& instance) {
    const bool from_host = eval(state, params->hostImages) && instance.hostList.count > 0;
    const FilterList& list = from_host ? instance.hostList : instance.list;
    if (list.count < 1)
        return instance.image;
    const miInteger entries = eval(state, params->perParticleImage) ? particle_entries(state) : 0;
    const miInteger index =
        entries > 0
            ? static_cast<miInteger>(static_cast<miUint>(GetParticleID(state)) % static_cast<miUint>(entries))
        : from_host ? eval(state, params->hostImageIndex)
                    : eval(state, params->imageIndex);
    const miInteger element = index % list.count;
    return list.filters[element < 0 ? element + list.count : element];
}

// ---- sampling

// What the samplers get: they run while the state's shader is the coordinate generator.
struct Image {
    BitmapFilter* filter;
    Placement placement;
};

enum class Channels { color, mono, alpha };

template <Channels channels> void sample(miColor* result, miState* state, const Image& image, Footprint at) {
    *result = default_color;
    if (!(at.coverage > 0.0f))
        return;
    look_up(result, state, image.filter, at.u, at.v, at.du, at.dv);
    result->a *= at.coverage;
    if constexpr (channels == Channels::alpha)
        result->r = result->g = result->b = result->a;
    if constexpr (channels == Channels::mono)
        result->r = result->g = result->b = intensity(*result);
}

template <Channels channels>
void sample_filtered(miColor* result, miState* state, void* data, miScalar u, miScalar v, miScalar du,
                     miScalar dv) {
    const Image& image = *static_cast<const Image*>(data);
    sample<channels>(result, state, image, image_footprint(image.placement, u, v, du, dv));
}

template <Channels channels>
void sample_plain(miColor* result, miState* state, void* data, miScalar u, miScalar v) {
    sample_filtered<channels>(result, state, data, u, v, 0, 0);
}

template <Channels channels> UvMap uv_map(Image& image, bool filtered) {
    return {sample_plain<channels>, sample_filtered<channels>, filtered, &image};
}

struct Jitter {
    miScalar u, v; // to the right and down
};

// By which share of the range, 0 to 1, the image in a tile is moved. Deliberate: the second number and the
// third are drawn for nothing, and rows count against columns; tiles of older scenes lie where they always
// lay.
Jitter tile_jitter(miInteger column, miInteger row) {
    // Without a sign the sum wraps around, which its last 15 bits do not show.
    const miUint seed =
        (static_cast<miUint>(column) * 14693u - static_cast<miUint>(row) * 3251u - 1328u) & 0x7FFFu;
    HostRandom random(seed);
    constexpr miScalar unit = 3.051851e-5f;
    const int first = random();
    random();
    random();
    return {static_cast<miScalar>(first) * unit, static_cast<miScalar>(random()) * unit};
}

// How far the image is moved in the tile at hand. A generator that tiles leaves no trace of the tile in what
// it hands to a sampler; the coordinate that it gives on its own still has it.
Jitter jitter_of(miState* state, const BitmapParams* params, miTag generator) {
    const Jitter range{eval(state, params->jitterU), eval(state, params->jitterV)};
    miColor coordinate{0, 0, 0, 0}; // u, v and w
    if ((range.u == 0.0f && range.v == 0.0f) ||
        !call_in_slot(&coordinate, state, miSHADER_TEXTURE, generator))
        return {0, 0};
    const Jitter share = tile_jitter(tile(coordinate.r).number, tile(coordinate.g).number);
    return {share.u * range.u, share.v * range.v};
}

Placement placement(miState* state, const BitmapParams* params, miTag generator) {
    if (!eval(state, params->cropOn))
        return {0, 0, 1, 1, false, false};
    const bool place = eval(state, params->cropPlace);
    const Jitter moved = place ? jitter_of(state, params, generator) : Jitter{0, 0};
    return {eval(state, params->cropU) + moved.u,
            eval(state, params->cropV) + moved.v,
            eval(state, params->cropWidth),
            eval(state, params->cropHeight),
            true,
            place};
}

// A bump is the slope of the intensity, which the generator takes from the colour.
UvMap map_of(miState* state, const BitmapParams* params, Image& image, OutputRequest request) {
    const bool filtered = eval(state, params->filterType) != no_filtering;
    if (eval(state, params->alphaAsGray))
        return uv_map<Channels::alpha>(image, filtered);
    if (request == OutputRequest::mono)
        return uv_map<Channels::mono>(image, filtered);
    return uv_map<Channels::color>(image, filtered);
}

// Value of the map in front of its output stage; false without a generator.
bool sample_map(miColor* result, miState* state, const BitmapParams* params, BitmapFilter* filter,
                OutputRequest request, miBoolean& warned) {
    *result = default_color;
    const miTag generator = eval(state, params->uvGenerator);
    if (generator == miNULLTAG) {
        report_missing(state, MissingInput::uv_coordinates, warned);
        return false;
    }
    Image image{filter, placement(state, params, generator)};
    const UvMap map = map_of(state, params, image, request);
    if (request == OutputRequest::vector) {
        const miVector bump = bump_uv_map(state, generator, map);
        *result = {bump.x, bump.y, bump.z, 0};
    } else
        sample_uv_map(result, state, generator, map, request);
    return true;
}

// Deliberate: grey is the alpha as it leaves the output stage, which hardly touches it.
void finish(miColor* color, miState* state, const BitmapParams* params) {
    if (eval(state, params->alphaAsGray)) {
        color->r = color->g = color->b = color->a;
    } else if (!eval(state, params->premultipliedOff)) {
        color->r *= color->a;
        color->g *= color->a;
        color->b *= color->a;
    }
}

} // namespace

// ---- entry points

ORL_VERSION(tex_bitmap, orl_Bitmap);

ORL_EXPORT void orl_Bitmap_init(miState* state, const BitmapParams* params,
                                miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    auto* const instance = new_instance_data<BitmapInstance>(state);
    if (instance == nullptr)
        return;
    instance->mtlIdBuffer = frame_buffer_index(state, "fb_mtl_id");
    const float gamma = input_gamma(state, params);
    const bool tiles = !eval(state, params->cropOn);
    instance->image = create_filter(state, eval(state, params->image), gamma, tiles);
    instance->list = make_filters(state, span(state, params, &BitmapParams::imageList), gamma, tiles);
    instance->hostList = make_filters(state, span(state, params, &BitmapParams::hostImageList), gamma, tiles);
}

ORL_EXPORT miBoolean orl_Bitmap(miColor* result, miState* state, const BitmapParams* params,
                                OutputRequest* callers_request) {
    const CallerRequest request(callers_request);
    const OutputRequest wanted = *request;
    if (wanted < OutputRequest::color || wanted > OutputRequest::vector)
        return miTRUE;
    auto* const instance = instance_data<BitmapInstance>(state);
    BitmapFilter* const filter = instance ? choose_filter(state, params, *instance) : nullptr;
    if (filter == nullptr) {
        *result = default_color;
        return miTRUE;
    }
    miColor value;
    const bool has_coordinates = sample_map(&value, state, params, filter, wanted, instance->warned);
    run_output(&value, state, eval(state, params->output), request);
    if (wanted == OutputRequest::vector) {
        answer_vector(result, value);
        return has_coordinates;
    }
    finish(&value, state, params);
    *result = wanted == OutputRequest::mono ? miColor{value.r, value.r, value.r, value.r} : value;
    return miTRUE;
}

ORL_EXPORT void orl_Bitmap_exit(miState* state, const BitmapParams* params) {
    if (params == nullptr)
        return;
    if (const auto* const instance = instance_data<BitmapInstance>(state)) {
        destroy(instance->hostList);
        destroy(instance->list);
        if (instance->image != nullptr)
            destroy_filter(instance->image);
    }
    delete_instance_data(state);
}

} // namespace orl
