// Photons at rest, and how densely they lie about a point.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "shader.h"

namespace stage {

struct Photon { // all in internal space
    miVector position;
    miVector normal; // of the surface, on the side that the photon came to; null in a volume
    miVector power;  // red, green, blue
};

struct Neighbour {
    float squared; // distance
    std::uint32_t photon;
};

// A tree over photons.
class PhotonMap {
public:
    explicit PhotonMap(std::vector<Photon> photons);
    ~PhotonMap();
    PhotonMap(const PhotonMap&) = delete;
    PhotonMap& operator=(const PhotonMap&) = delete;

    [[nodiscard]] std::size_t size() const { return photons_.size(); }
    // In the tree's order, which is not that in which they were given.
    [[nodiscard]] const Photon& operator[](std::uint32_t index) const { return photons_[index]; }

    // Finds the `capacity` nearest photons within `radius`, the farthest of them first, the others in no
    // order. With a normal only those count that lie on the surface about the point, on the side of the
    // normal. Returns their number.
    std::size_t nearest(const miVector& point, const miVector* normal, float radius, Neighbour* found,
                        std::size_t capacity) const;

private:
    struct Tree;
    std::vector<Photon> photons_;
    std::unique_ptr<Tree> tree_;
};

struct DensityQuery {
    float radius;        // at most
    std::size_t photons; // to count, when the radius holds so many
    float cone = 0.0f;   // constant of a cone filter, at least 1; 0 for none
    Neighbour* buffer;   // for photons + 1
};

// Power for each area that photons bring to the point of a surface, or power for each volume that they leave
// about a point without one. False, and black, where there are none.
//
// The photons' power over the area of the disc or the volume of the sphere that holds them: Jensen,
// "Realistic Image Synthesis Using Photon Mapping", 2001, sections 7.2 and 10.5; the cone filter is that of
// section 7.2.2. The photon that gives the disc its size does not count: with it the mean over many maps
// would be too bright, by one photon.
bool surface_density(miColor* result, const PhotonMap& map, const miVector& point, const miVector& normal,
                     const DensityQuery& query);
bool volume_density(miColor* result, const PhotonMap& map, const miVector& point, const DensityQuery& query);

} // namespace stage
