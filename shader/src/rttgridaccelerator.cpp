/*
 * The projection grid that render to texture looks its texels up in. Relies on the renderer's record of a
 * tessellated object, in which every texture vertex has three components.
 */
#include "rttgridaccelerator.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <emmintrin.h>
#include <limits>

namespace orl {

// ---- mathematics

miUint grid_cells_per_side(miUint triangle_count) {
    const miUint cells = triangle_count / 2 / 10 + 1;
    return static_cast<miUint>(std::sqrt(static_cast<miScalar>(cells)));
}

namespace {

miScalar clamp_weight(miScalar weight) {
    return weight < 0.0f ? 0.0f : weight > 1.0f ? 1.0f : weight;
}

} // namespace

CornerWeights texture_weights(const miVector2d& p, const TextureCorners& t) {
    const miScalar area = doubled_area(t);
    const miScalar b = clamp_weight(doubled_area({t.a, p, t.c}) / area);
    const miScalar c = clamp_weight(doubled_area({t.a, t.b, p}) / area);
    return {clamp_weight(1.0f - b - c), b, c};
}

namespace {

// ---- what the build reads

// One texture space of an object's triangles.
class TextureSpace {
public:
    TextureSpace(const RttGridAccelerator& grid, const miTriangles& mesh)
        : indices_(mesh.indices), coordinates_(mesh.vertices + grid.texture_offset),
          stride_(static_cast<std::size_t>(grid.vertex_stride)) {}

    TextureCorners corners(miUint item) const {
        return {point(vertex(item, 0)), point(vertex(item, 1)), point(vertex(item, 2))};
    }

    // Sum of the third coordinates, by which the triangles of a cell are sorted. What is no number comes
    // last.
    miScalar height(miUint item) const {
        const miScalar sum = vertex(item, 0)[2] + vertex(item, 1)[2] + vertex(item, 2)[2];
        return sum == sum ? sum : -std::numeric_limits<miScalar>::infinity();
    }

    // False only where `covers` is; all three edges at once. The point stands in `texel` twice.
    bool may_contain(__m128 texel, miUint item) const {
        const __m128 a = load_point(vertex(item, 0));
        const __m128 ab = _mm_sub_ps(_mm_loadh_pi(a, two_floats(vertex(item, 1))), texel);
        const __m128 c = _mm_sub_ps(load_point(vertex(item, 2)), texel);
        const __m128 u = _mm_shuffle_ps(ab, c, _MM_SHUFFLE(0, 0, 2, 0)); // a, b, c, c
        const __m128 v = _mm_shuffle_ps(ab, c, _MM_SHUFFLE(1, 1, 3, 1));
        const __m128 next_u = _mm_shuffle_ps(u, u, _MM_SHUFFLE(0, 0, 2, 1)); // b, c, a, a
        const __m128 next_v = _mm_shuffle_ps(v, v, _MM_SHUFFLE(0, 0, 2, 1));
        const __m128 sides = _mm_sub_ps(_mm_mul_ps(u, next_v), _mm_mul_ps(v, next_u));
        const int negative = _mm_movemask_ps(_mm_cmplt_ps(sides, _mm_setzero_ps())),
                  positive = _mm_movemask_ps(_mm_cmpgt_ps(sides, _mm_setzero_ps()));
        return negative == 0 || positive == 0;
    }

private:
    const float* vertex(miUint item, std::size_t corner) const {
        return coordinates_ + indices_[item + corner] * stride_;
    }
    static miVector2d point(const float* vertex) { return {vertex[0], vertex[1]}; }
    static __m128 load_point(const float* vertex) {
        return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(vertex)));
    }
    static const __m64* two_floats(const float* vertex) { return reinterpret_cast<const __m64*>(vertex); }

    const miUint* indices_;
    const float* coordinates_;
    std::size_t stride_;
};

// Which triangles are used: one bit for each, lowest bit of a byte first. Triangles beyond the last bit are
// not.
struct Selection {
    const unsigned char* bits = nullptr; // null for all triangles
    std::uint64_t count = 0;

    bool operator[](miUint triangle) const {
        return bits == nullptr || (triangle < count && (bits[triangle / 8] >> triangle % 8 & 1) != 0);
    }
};

// Deliberate: half as many bits as triangles pass, since the host counts faces of two triangles.
Selection read_selection(miState* state, miTag tag, miUint triangle_count) {
    if (tag == miNULLTAG)
        return {};
    void* bits = nullptr;
    int size = 0;
    if (!mi_query(miQ_DATA_PARAM, state, tag, &bits) || bits == nullptr ||
        !mi_query(miQ_DATA_PARAM_SIZE, state, tag, &size) || size < 0)
        size = 0;
    const auto count = std::uint64_t{8} * static_cast<miUint>(size);
    if (count < triangle_count / 2) {
        mi_error("RTT Projection: Invalid triangle selection. Ignoring triangle selection.");
        return {};
    }
    return {static_cast<const unsigned char*>(bits), count};
}

// ---- cells

struct CellRectangle {
    miUint first_column, last_column, first_row, last_row;

    std::uint64_t cells() const {
        return std::uint64_t{last_column - first_column + 1} * (last_row - first_row + 1);
    }
};

CellRectangle touched_cells(miUint n, const TextureCorners& t) {
    const auto [first_column, last_column] =
        std::minmax({grid_cell(n, t.a.u), grid_cell(n, t.b.u), grid_cell(n, t.c.u)});
    const auto [first_row, last_row] =
        std::minmax({grid_cell(n, t.a.v), grid_cell(n, t.b.v), grid_cell(n, t.c.v)});
    return {first_column, last_column, first_row, last_row};
}

template <class Visit> void for_each_cell(miUint n, const CellRectangle& r, Visit visit) {
    for (miUint column = r.first_column; column <= r.last_column; ++column)
        for (miUint row = r.first_row; row <= r.last_row; ++row)
            visit(column * n + row);
}

// ---- the build

enum class BuildResult { built, no_memory, failed };

// Blocks of the renderer's are counted in 32 bits.
constexpr std::uint64_t most_entries = std::numeric_limits<miUint>::max() / sizeof(miUint);

miUint* allocate_entries(miUint count) {
    return static_cast<miUint*>(
        mi_mem_int_test_allocate("rttgridaccelerator", __LINE__, count * sizeof(miUint)));
}

// Whether the mesh has triangles with that texture set, whose positions an item can hold, and no index beyond
// its vertices.
bool is_usable(const miTriangles* mesh, miUint texture_set) {
    if (mesh == nullptr || mesh->texture_count <= 0 || mesh->texture_offset < 0 ||
        texture_set >= static_cast<miUint>(mesh->texture_count) || mesh->triangle_count < 2 ||
        mesh->triangle_count > std::numeric_limits<miUint>::max() / 3)
        return false;
    const miUint* const end = mesh->indices + std::size_t{3} * mesh->triangle_count;
    return std::all_of(mesh->indices, end, [=](miUint index) { return index < mesh->vertex_count; });
}

class Builder {
public:
    Builder(RttGridAccelerator& grid, const miTriangles& mesh, const Selection& selection)
        : grid_(grid), space_(grid, mesh), selection_(selection), triangle_count_(mesh.triangle_count) {}

    // Adds each cell's number of items to its entry. False when the items are too many for one block.
    bool count() {
        std::uint64_t sum = 0;
        for (miUint t = 0; t < triangle_count_; ++t) {
            if (!selection_[t])
                continue;
            const CellRectangle cells = touched_cells(grid_.cells_per_side, space_.corners(3 * t));
            sum += cells.cells();
            if (sum > most_entries)
                return false;
            for_each_cell(grid_.cells_per_side, cells, [this](miUint c) { ++grid_.cells[c]; });
            watch_height(space_.height(3 * t));
        }
        grid_.item_count = static_cast<miUint>(sum);
        return true;
    }

    // Turns the counts into the cells' ends.
    void add_up() {
        const miUint last = grid_.cells_per_side * grid_.cells_per_side;
        for (miUint c = 1; c <= last; ++c)
            grid_.cells[c] += grid_.cells[c - 1];
    }

    // Moves each cell's entry from its end to its start. From the last triangle to the first, so that a
    // cell's items come to lie in the order in which equal heights have to be.
    void fill() {
        for (miUint t = triangle_count_; t-- > 0;)
            if (selection_[t])
                for_each_cell(grid_.cells_per_side,
                              touched_cells(grid_.cells_per_side, space_.corners(3 * t)),
                              [this, t](miUint c) { grid_.items[--grid_.cells[c]] = 3 * t; });
    }

    // Sorts each cell's items by height, largest first.
    void sort() {
        if (is_flat_)
            return;
        const miUint end = grid_.cells_per_side * grid_.cells_per_side;
        for (miUint c = 0; c < end; ++c)
            sort_cell(grid_.items + grid_.cells[c], grid_.items + grid_.cells[c + 1]);
    }

private:
    void sort_cell(miUint* first, miUint* last) const {
        if (last - first <= most_ranked)
            rank_cell(first, static_cast<miUint>(last - first));
        else
            std::sort(first, last, [this](miUint x, miUint y) {
                const miScalar at_x = space_.height(x), at_y = space_.height(y);
                return at_x > at_y || (at_x == at_y && x < y);
            });
    }

    // Counts for each item how many of the cell's stand before it. The square of some tens of comparisons in
    // straight lines takes less time than sorting, whose every comparison is a branch.
    void rank_cell(miUint* items, miUint count) const {
        std::array<miScalar, most_ranked> heights;
        std::array<miUint, most_ranked> unsorted;
        for (miUint i = 0; i < count; ++i)
            heights[i] = space_.height(unsorted[i] = items[i]);
        for (miUint i = 0; i < count; ++i) {
            miUint place = 0;
            for (miUint k = 0; k < i; ++k)
                place += heights[k] >= heights[i];
            for (miUint k = i + 1; k < count; ++k)
                place += heights[k] > heights[i];
            items[place] = unsorted[i];
        }
    }

    void watch_height(miScalar height) {
        if (!any_)
            height_ = height;
        any_ = true;
        is_flat_ &= height == height_;
    }

    static constexpr miUint most_ranked = 256;

    RttGridAccelerator& grid_;
    TextureSpace space_;
    Selection selection_;
    miUint triangle_count_;
    bool any_ = false, is_flat_ = true; // all triangles used so far have the same height
    miScalar height_ = 0.0f;
};

BuildResult build(RttGridAccelerator& grid, miState* state, const miTriangles* mesh) {
    if (!is_usable(mesh, grid.texture_set))
        return BuildResult::failed;
    grid.texture_offset = mesh->texture_offset + 3 * static_cast<miInteger>(grid.texture_set);
    grid.vertex_stride = mesh->vertex_stride;
    grid.cells_per_side = grid_cells_per_side(mesh->triangle_count);
    grid.cells = allocate_entries(grid.cells_per_side * grid.cells_per_side + 1);
    if (grid.cells == nullptr)
        return BuildResult::no_memory;
    Builder builder(grid, *mesh, read_selection(state, grid.selection, mesh->triangle_count));
    if (!builder.count())
        return BuildResult::no_memory;
    builder.add_up();
    if (grid.item_count > 0 && (grid.items = allocate_entries(grid.item_count)) == nullptr)
        return BuildResult::no_memory;
    builder.fill();
    builder.sort();
    return BuildResult::built;
}

// Deliberate: the entry at the table's end is reported as a voxel too.
void report_built(const RttGridAccelerator& grid) {
    const miUint entries = grid.cells_per_side * grid.cells_per_side + 1;
    mi_info("RTT acceleration structure created: %d bytes allocated, %d items in %d voxels.",
            static_cast<int>((grid.item_count + entries) * sizeof(miUint)), static_cast<int>(grid.item_count),
            static_cast<int>(entries));
}

} // namespace

// ---- the grid

void build_grid(RttGridAccelerator& grid, miState* state) {
    if (is_built(grid) || grid.object == miNULLTAG)
        return;
    const auto* const object = static_cast<const miObject*>(mi_db_access(grid.object));
    const bool is_object = mi_db_type(grid.object) == miSCENE_OBJECT;
    const BuildResult result = build(grid, state, is_object ? object->triangles : nullptr);
    mi_db_unpin(grid.object);
    if (result == BuildResult::built) {
        report_built(grid);
        std::atomic_ref<miBoolean>(grid.built).store(miTRUE, std::memory_order_release);
        return;
    }
    release_grid(grid);
    // Deliberate: spelled as the host's other messages of this kind are.
    mi_error(result == BuildResult::no_memory
                 ? "Render to Texture: Failed to allocate acceleration structure (not enough memory)."
                 : "Render to Texture: Failed to create acceleration structure (unkown error).");
}

bool is_built(const RttGridAccelerator& grid) {
    return std::atomic_ref<miBoolean>(const_cast<miBoolean&>(grid.built)).load(std::memory_order_acquire);
}

void release_grid(RttGridAccelerator& grid) {
    for (miUint* const entries : {grid.cells, grid.items})
        if (entries != nullptr)
            mi_mem_int_release("rttgridaccelerator", __LINE__, entries);
    grid.cells = grid.items = nullptr;
    grid.item_count = 0;
    grid.built = miFALSE;
}

namespace {

// A mirrored triangle is asked the other way round, so that its edges belong to it too: texels often lie
// exactly on the diagonal of a chart.
bool covers(const TextureCorners& t, const miVector2d& p) {
    const miScalar area = doubled_area(t);
    return std::isfinite(area) && area != 0.0f &&
           (point_in_triangle(p, t) || point_in_triangle(p, {t.a, t.c, t.b}));
}

} // namespace

bool find_texel_triangle(const RttGridAccelerator& grid, const miTriangles& mesh, const miVector2d& p,
                         TexelTriangle& found) {
    if (!is_built(grid))
        return false;
    const TextureSpace space(grid, mesh);
    const __m128 texel = _mm_setr_ps(p.u, p.v, p.u, p.v);
    const miUint n = grid.cells_per_side;
    const miUint cell = grid_cell(n, p.u) * n + grid_cell(n, p.v);
    const miUint* const end = grid.items + grid.cells[cell + 1];
    for (const miUint* item = grid.items + grid.cells[cell]; item != end; ++item) {
        if (!space.may_contain(texel, *item))
            continue;
        const TextureCorners corners = space.corners(*item);
        if (!covers(corners, p))
            continue;
        found = {*item, texture_weights(p, corners)};
        return true;
    }
    return false;
}

} // namespace orl
