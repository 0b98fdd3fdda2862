/*
 * Render to texture. The lens takes the picture for the texture square of an object: it finds the triangle
 * that covers a sample and lets the renderer shade that point as if an eye were just above it. The output
 * shader extends what is covered by a border.
 *
 * Both rely on the renderer's record of a tessellated object. The object stays accessed from the first sample
 * to the lens's exit.
 */
#include "orl_rtt.h"
#include "orl_context.h"
#include "rttgridaccelerator.h"
#include "vectors.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

namespace orl {
namespace {

// ---- instance record

enum Status : miInteger { untried, ready, failed };

// Zero until the first sample; read-only once the status tells that it was tried.
struct RttLensInstance {
    miBoolean warned; // that something hides texels
    miInteger status;
    miInteger border;
    miTag instance;
    miScalar size;           // of the object, internal space: the unit of the offset
    const miTriangles* mesh; // of the grid's object
    RttGridAccelerator grid;
};

// ---- mathematics

miVector weighted(const context::Corners& corners, const CornerWeights& w) {
    // From the first corner, so that weights whose sum is not quite 1 leave the point in the triangle.
    miVector at = corners.a;
    at = along(at, difference(corners.b, corners.a), w.b);
    return along(at, difference(corners.c, corners.a), w.c);
}

} // namespace

miVector rtt_view_normal(const miVector& geometric, const miVector& interpolated) {
    constexpr miScalar least_cosine = 0.1f; // flatter rays would meet other triangles
    const miScalar cosine = mi_vector_dot(&geometric, &interpolated);
    if (mi_vector_dot(&geometric, &geometric) == 0.0f)
        return interpolated;
    if (cosine > least_cosine)
        return interpolated;
    return cosine < -least_cosine ? scaled(interpolated, -1.0f) : geometric;
}

namespace {

// Calls visit(x, y) for the neighbours of a texel; there is none beyond the edge of the picture.
template <class Visit> void for_each_neighbour(int x, int y, int width, int height, Visit visit) {
    for (int v = std::max(y - 1, 0); v <= std::min(y + 1, height - 1); ++v)
        for (int u = std::max(x - 1, 0); u <= std::min(x + 1, width - 1); ++u)
            if (u != x || v != y)
                visit(u, v);
}

std::size_t place(int x, int y, int width) {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
}

} // namespace

void rtt_mark_border(unsigned char* map, int width, int height, int border) {
    bool grows = true;
    for (int step = 1; step <= border && grows; ++step) {
        grows = false;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                unsigned char& own = map[place(x, y, width)];
                if (own != 0)
                    continue;
                for_each_neighbour(x, y, width, height, [&](int u, int v) {
                    const int neighbour = map[place(u, v, width)];
                    if (neighbour != 0 && neighbour <= step)
                        own = static_cast<unsigned char>(step + 1);
                });
                grows |= own != 0;
            }
    }
}

namespace {

// ---- the object

// The state stands on an instance while this lives, so that its space can be asked for.
class StandOn {
public:
    StandOn(miState* state, miTag instance) : state_(state), instance_(state->instance), pri_(state->pri) {
        state->instance = instance;
        state->pri = nullptr;
    }
    ~StandOn() {
        state_->instance = instance_;
        state_->pri = pri_;
    }
    StandOn(const StandOn&) = delete;
    StandOn& operator=(const StandOn&) = delete;

    // Whether the rendered scene has the instance.
    bool is_there() const {
        const miScalar* to_object = nullptr;
        return mi_query(miQ_TRANS_INTERNAL_TO_OBJECT, state_, miNULLTAG, &to_object) && to_object != nullptr;
    }
    miVector point(miVector v) const {
        miVector result;
        mi_point_from_object(state_, &result, &v);
        return result;
    }
    // Of length 1. A normal's product with a direction is the same in both spaces, so its component along an
    // axis is the product with that axis, taken to the object.
    miVector normal(const miVector& v) const {
        const auto component = [&](miVector axis) {
            miVector to_object;
            mi_vector_to_object(state_, &to_object, &axis);
            return mi_vector_dot(&v, &to_object);
        };
        miVector result{component({1, 0, 0}), component({0, 1, 0}), component({0, 0, 1})};
        mi_vector_normalize(&result);
        return result;
    }

private:
    miState* state_;
    miTag instance_;
    void* pri_;
};

// One triangle's values of `offset` floats into a vertex.
context::Corners corner_values(const miTriangles& mesh, miUint item, miInteger offset) {
    const auto vertex = [&](miUint corner) {
        const float* const v = mesh.vertices +
                               mesh.indices[item + corner] * static_cast<std::size_t>(mesh.vertex_stride) +
                               offset;
        return miVector{v[0], v[1], v[2]};
    };
    return {vertex(0), vertex(1), vertex(2)};
}

// The object of an instance, null for anything else.
miTag object_of(miState* state, miTag instance) {
    miTag item = miNULLTAG;
    if (instance == miNULLTAG || mi_db_type(instance) != miSCENE_INSTANCE ||
        !mi_query(miQ_INST_ITEM, state, instance, &item) || item == miNULLTAG)
        return miNULLTAG;
    return mi_db_type(item) == miSCENE_OBJECT ? item : miNULLTAG;
}

// Not below what single precision tells apart where the object stands.
miScalar size_of(const StandOn& place, const miObject& object) {
    constexpr miScalar least = 0.1f;
    const miVector low = place.point(object.bbox_min), high = place.point(object.bbox_max);
    const miScalar farthest = std::max(mi_vector_norm(&low), mi_vector_norm(&high));
    return std::max(mi_vector_dist(&low, &high), farthest * least);
}

Status prepare(miState* state, const RttLensParams* params, RttLensInstance& data) {
    data.instance = eval(state, params->object);
    data.grid.object = object_of(state, data.instance);
    data.grid.texture_set = static_cast<miUint>(eval(state, params->textureSpace));
    data.grid.selection = eval(state, params->selection);
    if (data.grid.object == miNULLTAG) {
        mi_error("Render to Texture: Shader '%s' requires the instance of an object.", shader_name(state));
        return failed;
    }
    if (!StandOn(state, data.instance).is_there()) {
        mi_error("Render to Texture: Shader '%s' is to bake an object that the rendered scene does not have.",
                 shader_name(state));
        return failed;
    }
    build_grid(data.grid, state); // reports why it fails
    if (!is_built(data.grid))
        return failed;
    const auto* const object = static_cast<const miObject*>(mi_db_access(data.grid.object));
    data.mesh = object->triangles;
    data.size = size_of(StandOn(state, data.instance), *object);
    return ready;
}

// Whether the instance can bake. The first sample finds out, once, whatever comes of it.
bool is_ready(miState* state, const RttLensParams* params, RttLensInstance& data) {
    const std::atomic_ref<miInteger> status(data.status);
    miInteger now = status.load(std::memory_order_acquire);
    if (now == untried) {
        miLock* lock = nullptr;
        if (!mi_query(miQ_FUNC_LOCK, state, miNULLTAG, &lock) || lock == nullptr)
            return false;
        mi_lock(*lock);
        now = status.load(std::memory_order_relaxed);
        if (now == untried)
            status.store(now = prepare(state, params, data), std::memory_order_release);
        mi_unlock(*lock);
    }
    return now == ready;
}

// ---- one sample

// A point of the surface, internal space.
struct Texel {
    miVector point;
    miVector normal;                 // towards the eye; null where the surface has none
    ProjectionContext to_neighbours; // the way to the texels on the right and above
};

Texel texel_at(miState* state, const RttLensInstance& data, const TexelTriangle& found) {
    const StandOn place(state, data.instance);
    const miTriangles& mesh = *data.mesh;
    const context::Corners own = corner_values(mesh, found.item, 0);
    const context::Corners points = {place.point(own.a), place.point(own.b), place.point(own.c)};
    const miVector b = difference(own.b, own.a), c = difference(own.c, own.a);
    miVector edges;
    mi_vector_prod(&edges, &b, &c);
    mi_vector_normalize(&edges);
    miVector normal = place.normal(edges);
    if (mesh.normal_offset >= 0)
        normal = rtt_view_normal(
            normal,
            place.normal(weighted(corner_values(mesh, found.item, mesh.normal_offset), found.weights)));
    context::Tangents tangents;
    context::tangents(points, corner_values(mesh, found.item, data.grid.texture_offset), tangents);
    const auto width = static_cast<miScalar>(state->camera->x_resolution),
               height = static_cast<miScalar>(state->camera->y_resolution);
    return {weighted(points, found.weights),
            normal,
            {scaled(tangents.along_u, 1.0f / width), scaled(tangents.along_v, 1.0f / height)}};
}

bool is_same(const miVector& a, const miVector& b) {
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

bool is_triangle(miState* state, const context::Corners& points) {
    miVector *a = nullptr, *b = nullptr, *c = nullptr;
    return mi_tri_vectors(state, 'p', 0, &a, &b, &c) && is_same(*a, points.a) && is_same(*b, points.b) &&
           is_same(*c, points.c);
}

/* Whether the ray ended where it was sent. Either at that point, where at an edge the neighbour's triangle
   may count as hit, or at least on that triangle: a material that lets rays pass leaves a point behind it. */
bool met_texel(miState* state, const RttLensInstance& data, const Texel& texel, miUint item,
               miScalar tolerance) {
    return state->instance == data.instance && (mi_vector_dist(&state->point, &texel.point) <= tolerance ||
                                                is_triangle(state, corner_values(*data.mesh, item, 0)));
}

miBoolean shade_texel(miColor* result, miState* state, const RttLensParams* params, RttLensInstance& data,
                      const TexelTriangle& found) {
    constexpr miScalar usual_offset = 1e-4f;
    const Texel texel = texel_at(state, data, found);
    const miVector outward = eval(state, params->backSide) ? scaled(texel.normal, -1.0f) : texel.normal;
    const miScalar asked = eval(state, params->offset);
    miVector org = along(texel.point, outward, asked > 0.0f ? asked : usual_offset * data.size);
    miVector dir = scaled(outward, -1.0f);
    if (!(mi_vector_dot(&dir, &dir) > 0.0f))
        return miFALSE;
    const ScopedRecord texel_size(state, keys::projection, texel.to_neighbours);
    const miBoolean lit = mi_trace_eye(result, state, &org, &dir);
    if (met_texel(state, data, texel, found.item, 0.5f * usual_offset * data.size)) {
        result->a = 1.0f;
        guard_nan(state, *result);
        return lit;
    }
    // Its colour would be another surface's: the border fills the texel instead.
    *result = transparent_black;
    if (!test_and_set(data.warned))
        mi_warning("Render to Texture: Shader '%s' leaves out texels whose surface is hidden or not visible "
                   "to the eye.",
                   shader_name(state));
    return miFALSE;
}

// Baked is what stands there when the shutter opens, for that is how the texture lies on the object.
class AtShutterOpen {
public:
    explicit AtShutterOpen(miState* state) : state_(state), time_(state->time) { state->time = 0.0f; }
    ~AtShutterOpen() { state_->time = time_; }
    AtShutterOpen(const AtShutterOpen&) = delete;
    AtShutterOpen& operator=(const AtShutterOpen&) = delete;

private:
    miState* state_;
    float time_;
};

// ---- the border

// The camera's baking lens; null when it has none or has taken no sample.
const RttLensInstance* lens_of_camera(miState* state) {
    constexpr int most_lenses = 64; // a longer list contains itself
    miTag lens = state->camera->lens;
    for (int k = 0; k < most_lenses && lens != miNULLTAG; ++k) {
        const char* name = nullptr;
        void** slot = nullptr;
        if (mi_query(miQ_DECL_NAME, state, lens, &name) && name != nullptr &&
            std::strcmp(name, "orl_rtt_lens") == 0)
            return mi_query(miQ_FUNC_USERPTR, state, lens, &slot) && slot != nullptr
                       ? static_cast<const RttLensInstance*>(*slot)
                       : nullptr;
        if (!mi_query(miQ_FUNC_NEXT, state, lens, &lens))
            break;
    }
    return nullptr;
}

// Marks covered texels; those that samples have covered in part get the colour of that part.
void take_coverage(miImg_image* image, unsigned char* map, int width, int height) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            miColor c;
            mi_img_get_color(image, &c, x, y);
            map[place(x, y, width)] = c.a > 0.0f;
            if (!(c.a > 0.0f && c.a < 1.0f))
                continue;
            const miScalar gain = 1.0f / c.a;
            c = {c.r * gain, c.g * gain, c.b * gain, 1.0f};
            mi_img_put_color(image, &c, x, y);
        }
}

// The mean of the neighbours that were there before that step.
void fill_texel(miImg_image* image, const unsigned char* map, int width, int height, int x, int y) {
    const int own = map[place(x, y, width)];
    miColor sum = transparent_black;
    miScalar count = 0.0f;
    for_each_neighbour(x, y, width, height, [&](int u, int v) {
        const int neighbour = map[place(u, v, width)];
        if (neighbour == 0 || neighbour >= own)
            return;
        miColor c;
        mi_img_get_color(image, &c, u, v);
        sum = {sum.r + c.r, sum.g + c.g, sum.b + c.b, sum.a + c.a};
        count += 1.0f;
    });
    sum = {sum.r / count, sum.g / count, sum.b / count, sum.a / count};
    mi_img_put_color(image, &sum, x, y);
}

void fill_border(miImg_image* image, unsigned char* map, int width, int height, int border) {
    take_coverage(image, map, width, height);
    rtt_mark_border(map, width, height, border);
    for (int step = 1; step <= border; ++step)
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                if (map[place(x, y, width)] == step + 1)
                    fill_texel(image, map, width, height, x, y);
}

miBoolean fill_border(miImg_image* image, int border) {
    const int width = mi_img_get_width(image), height = mi_img_get_height(image);
    const auto texels = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height);
    auto* const map = texels > std::numeric_limits<miUint>::max()
                          ? nullptr
                          : static_cast<unsigned char*>(
                                mi_mem_int_test_allocate("orl_rtt", __LINE__, static_cast<miUint>(texels)));
    if (map == nullptr) {
        mi_error("Render to Texture: Failed to fill the border (not enough memory).");
        return miFALSE;
    }
    fill_border(image, map, width, height, border);
    mi_mem_int_release("orl_rtt", __LINE__, map);
    return miTRUE;
}

} // namespace
} // namespace orl

using namespace orl;

ORL_VERSION(orl_rtt, orl_rtt_lens);

ORL_EXPORT void orl_rtt_lens_init(miState* state, const RttLensParams* params,
                                  miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    if (auto* const data = new_instance_data<RttLensInstance>(state))
        data->border = std::clamp(eval(state, params->border), 0, rtt_most_border);
}

ORL_EXPORT miBoolean orl_rtt_lens(miColor* result, miState* state, const RttLensParams* params) {
    *result = transparent_black;
    auto* const data = instance_data<RttLensInstance>(state);
    const AtShutterOpen still(state);
    if (data == nullptr || !is_ready(state, params, *data))
        return miFALSE;
    const context::RasterPosition at = context::raster_position(state);
    TexelTriangle found;
    return find_texel_triangle(data->grid, *data->mesh, {at.u, at.v}, found)
               ? shade_texel(result, state, params, *data, found)
               : miFALSE;
}

ORL_EXPORT void orl_rtt_lens_exit(miState* state, const RttLensParams* params) {
    if (params == nullptr)
        return;
    if (auto* const data = instance_data<RttLensInstance>(state)) {
        release_grid(data->grid);
        if (data->status == ready)
            mi_db_unpin(data->grid.object);
    }
    delete_instance_data(state);
}

ORL_VERSION(orl_rtt, orl_rtt_output);

ORL_EXPORT miBoolean orl_rtt_output(miColor*, miState* state, const void*) {
    constexpr int main_image = 0;
    const RttLensInstance* const lens = lens_of_camera(state);
    miShader_interface* const renderer = mi_get_shader_interface(3);
    miImg_image* const image = renderer ? renderer->open_output_image(state, main_image) : nullptr;
    miBoolean filled = miFALSE;
    if (lens == nullptr)
        mi_error("Render to Texture: Shader '%s' requires a camera with the lens orl_rtt_lens.",
                 shader_name(state));
    else if (image != nullptr)
        filled = fill_border(image, lens->border);
    if (image != nullptr)
        renderer->close_output_image(state, main_image);
    if (renderer != nullptr)
        renderer->release();
    return filled;
}
