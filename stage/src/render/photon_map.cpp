#include "render/photon_map.h"

#include <algorithm>
#include <cmath>
#include <nanoflann.hpp>
#include <numbers>
#include <numeric>

#include "render/vector.h"

namespace stage {

namespace {

constexpr std::size_t leaf_size = 16;

// What the tree sees of the photons.
struct Positions {
    const std::vector<Photon>& photons;

    [[nodiscard]] std::size_t kdtree_get_point_count() const { return photons.size(); }
    [[nodiscard]] float kdtree_get_pt(std::size_t index, std::size_t axis) const {
        return (&photons[index].position.x)[axis];
    }
    template <class Box> bool kdtree_get_bbox(Box&) const { return false; }
};

using Index = nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Positions>, Positions,
                                                  3, std::uint32_t>;

bool is_nearer(const Neighbour& a, const Neighbour& b) {
    return a.squared < b.squared;
}

// A surface takes photons of its own side alone. About a corner it ends where normals part by more than 60
// degrees; what lies steeply above or below the point, by more than 30 degrees, belongs to another surface.
class OnSurface {
public:
    OnSurface(const std::vector<Photon>& photons, const miVector& point, const miVector& normal)
        : photons_(photons), point_(point), normal_(normal),
          rounding_(1e-5f * std::max({std::fabs(point.x), std::fabs(point.y), std::fabs(point.z), 1e-3f})) {}

    bool operator()(float squared, std::uint32_t index) const {
        const Photon& photon = photons_[index];
        if (!(dot(photon.normal, normal_) > 0.5f))
            return false;
        const float height = std::fabs(dot(photon.position - point_, normal_));
        return height <= rounding_ || height * height <= 0.25f * squared;
    }

private:
    const std::vector<Photon>& photons_;
    miVector point_, normal_;
    float rounding_; // of points on one plane
};

struct Everywhere {
    bool operator()(float, std::uint32_t) const { return true; }
};

// Gathers the nearest in a heap with the farthest on top.
template <class Takes> class Nearest {
public:
    Nearest(Neighbour* found, std::size_t capacity, float squared_radius, const Takes& takes)
        : found_(found), capacity_(capacity), worst_(squared_radius), takes_(takes) {}

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool full() const { return size_ == capacity_; }
    [[nodiscard]] float worstDist() const { return worst_; }

    bool addPoint(float squared, std::uint32_t index) {
        if (!(squared < worst_) || !takes_(squared, index))
            return true;
        if (size_ < capacity_) {
            found_[size_++] = {squared, index};
            if (full()) {
                std::make_heap(found_, found_ + size_, is_nearer);
                worst_ = found_->squared;
            }
            return true;
        }
        replace_farthest({squared, index});
        worst_ = found_->squared;
        return true;
    }

private:
    // Nearer ones move up until the new one has its place.
    void replace_farthest(const Neighbour& neighbour) {
        std::size_t hole = 0;
        for (std::size_t child = 1; child < size_; child = 2 * hole + 1) {
            if (child + 1 < size_ && found_[child].squared < found_[child + 1].squared)
                ++child;
            if (found_[child].squared <= neighbour.squared)
                break;
            found_[hole] = found_[child];
            hole = child;
        }
        found_[hole] = neighbour;
    }

    Neighbour* found_;
    std::size_t capacity_, size_ = 0;
    float worst_; // squared
    const Takes& takes_;
};

} // namespace

struct PhotonMap::Tree {
    explicit Tree(const std::vector<Photon>& photons)
        : positions{photons}, index(3, positions, nanoflann::KDTreeSingleIndexAdaptorParams(leaf_size)) {}

    Positions positions;
    Index index;
};

// The photons are put into the order of the leaves, so that those of a leaf lie side by side in memory.
PhotonMap::PhotonMap(std::vector<Photon> photons) : photons_(std::move(photons)) {
    if (photons_.empty())
        return;
    tree_ = std::make_unique<Tree>(photons_);
    tree_->index.buildIndex();
    auto& order = tree_->index.vAcc;
    std::vector<Photon> sorted;
    sorted.reserve(photons_.size());
    for (const std::uint32_t index : order)
        sorted.push_back(photons_[index]);
    photons_.swap(sorted);
    std::iota(order.begin(), order.end(), 0u);
}

PhotonMap::~PhotonMap() = default;

std::size_t PhotonMap::nearest(const miVector& point, const miVector* normal, float radius, Neighbour* found,
                               std::size_t capacity) const {
    if (!tree_ || capacity == 0)
        return 0;
    const auto search = [&](const auto& takes) {
        Nearest nearest(found, capacity, radius * radius, takes);
        tree_->index.findNeighbors(nearest, &point.x, nanoflann::SearchParams());
        if (!nearest.full() && nearest.size() > 0)
            std::iter_swap(found, std::max_element(found, found + nearest.size(), is_nearer));
        return nearest.size();
    };
    return normal ? search(OnSurface(photons_, point, *normal)) : search(Everywhere{});
}

namespace {

// The photons that count, and the squared radius of the disc or sphere that they lie in.
struct Sum {
    double red = 0.0, green = 0.0, blue = 0.0, squared = 0.0;
    bool any = false;
};

Sum sum_up(const PhotonMap& map, const miVector& point, const miVector* normal, const DensityQuery& query) {
    Sum sum;
    const std::size_t capacity = query.photons + 1;
    const std::size_t count = map.nearest(point, normal, query.radius, query.buffer, capacity);
    const bool full = count == capacity;
    sum.squared = full ? double{query.buffer->squared} : double{query.radius} * query.radius;
    sum.any = count > 0 && sum.squared > 0.0;
    if (!sum.any)
        return sum;
    const double slope = query.cone > 0.0f ? 1.0 / (query.cone * std::sqrt(sum.squared)) : 0.0;
    for (std::size_t i = full ? 1 : 0; i < count; ++i) {
        const Neighbour& found = query.buffer[i];
        const double weight = 1.0 - slope * std::sqrt(double{found.squared});
        const miVector& power = map[found.photon].power;
        sum.red += weight * power.x;
        sum.green += weight * power.y;
        sum.blue += weight * power.z;
    }
    return sum;
}

bool divide(miColor* result, const Sum& sum, double size) {
    if (!sum.any) {
        *result = {};
        return false;
    }
    *result = {static_cast<miScalar>(sum.red / size), static_cast<miScalar>(sum.green / size),
               static_cast<miScalar>(sum.blue / size), 1.0f};
    return true;
}

} // namespace

bool surface_density(miColor* result, const PhotonMap& map, const miVector& point, const miVector& normal,
                     const DensityQuery& query) {
    const Sum sum = sum_up(map, point, &normal, query);
    const double filter = query.cone > 0.0f ? 1.0 - 2.0 / (3.0 * query.cone) : 1.0;
    return divide(result, sum, filter * std::numbers::pi * sum.squared);
}

bool volume_density(miColor* result, const PhotonMap& map, const miVector& point, const DensityQuery& query) {
    const Sum sum = sum_up(map, point, nullptr, query);
    return divide(result, sum, 4.0 / 3.0 * std::numbers::pi * sum.squared * std::sqrt(sum.squared));
}

} // namespace stage
