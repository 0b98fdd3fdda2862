#include "render/light_map.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

#include "render/renderer.h"
#include "render/sampling.h"
#include "render/shading.h"
#include "render/vector.h"

namespace stage {

namespace {

// The triangles of an instance that one material is on.
struct Part {
    std::uint32_t instance;
    miTag material;
    std::vector<miUint> triangles;
    std::vector<miUint> corners; // three for each triangle: which of the vertices
    struct Vertex {
        std::uint32_t triangle, corner; // where it is met first
    };
    std::vector<Vertex> vertices{};
    std::vector<std::byte> results{}; // of the vertices
};

struct LightMap {
    miTag shader;
    std::vector<Part> parts;
};

// The light maps of the frame, their parts in the order of the instances and, within one, of the triangles.
class Collector {
public:
    explicit Collector(const World& world) : world_(world) {}

    std::vector<LightMap> collect() {
        for (std::uint32_t i = 0; i < world_.instances.size(); ++i) {
            const WorldInstance& instance = world_.instances[i];
            parts_.clear();
            for (std::uint32_t t = 0; t < instance.triangles->triangle_count; ++t)
                add(i, instance, t);
        }
        return std::move(maps_);
    }

private:
    struct Slot {
        std::size_t map, part;
    };

    void add(std::uint32_t index, const WorldInstance& instance, std::uint32_t triangle) {
        const miTag material = instance.material_of(triangle);
        auto shader = shaders_.find(material);
        if (shader == shaders_.end())
            shader =
                shaders_.emplace(material, material_slot(world_.scene, material, miSHADER_LIGHTMAP)).first;
        if (!shader->second)
            return;
        auto slot = parts_.find(material);
        if (slot == parts_.end()) {
            slot = parts_.emplace(material, new_part(index, material, shader->second)).first;
            numbers_[material].assign(instance.triangles->vertex_count, UINT32_MAX);
        }
        Part& part = maps_[slot->second.map].parts[slot->second.part];
        std::vector<std::uint32_t>& numbers = numbers_[material];
        part.triangles.push_back(triangle);
        for (std::uint32_t corner = 0; corner < 3; ++corner) {
            std::uint32_t& number = numbers[instance.triangles->indices[std::size_t{3} * triangle + corner]];
            if (number == UINT32_MAX) {
                number = static_cast<std::uint32_t>(part.vertices.size());
                part.vertices.push_back({triangle, corner});
            }
            part.corners.push_back(number);
        }
    }

    Slot new_part(std::uint32_t index, miTag material, miTag shader) {
        auto map = std::ranges::find(maps_, shader, &LightMap::shader);
        if (map == maps_.end())
            map = maps_.insert(maps_.end(), {shader, {}});
        map->parts.push_back({index, material, {}, {}});
        return {static_cast<std::size_t>(map - maps_.begin()), map->parts.size() - 1};
    }

    const World& world_;
    std::vector<LightMap> maps_;
    std::unordered_map<miTag, miTag> shaders_; // of materials
    // Of the instance that is gone through, by material: its part, and the numbers of its vertices there.
    std::unordered_map<miTag, Slot> parts_;
    std::unordered_map<miTag, std::vector<std::uint32_t>> numbers_;
};

class Baker {
public:
    explicit Baker(Renderer& renderer)
        : renderer_(renderer), context_(*renderer.contexts().front()),
          scope_(context_.statistics, Family::renderer) {}

    bool run(LightMap& map) {
        const Element* shader = context_.world->scene.database.find(map.shader);
        const std::size_t result_size =
            shader && shader->shader ? std::size_t{shader->shader->result_size} : 0;
        for (Part& part : map.parts)
            if (!vertices(map.shader, part, result_size))
                return false;
        for (std::size_t i = 0; i < map.parts.size(); ++i)
            mesh(map.shader, map.parts[i], result_size, static_cast<miUint>(map.parts.size() - 1 - i));
        return true;
    }

private:
    bool vertices(miTag shader, Part& part, std::size_t result_size) {
        part.results.resize(part.vertices.size() * result_size);
        std::vector<miColor> result(std::max(result_size, sizeof(miColor)) / sizeof(miColor) + 1);
        for (std::size_t v = 0; v < part.vertices.size(); ++v) {
            if (renderer_.aborted())
                return false;
            const ArenaScope memory(context_.arena);
            begin_sample(static_cast<std::uint32_t>(v), part.instance);
            stand_on(part, part.vertices[v], miRAY_LM_VERTEX);
            std::ranges::fill(result, miColor{});
            call_shader(result.data(), miSHADER_LIGHTMAP, &frame_.state, shader, nullptr);
            if (result_size > 0)
                std::memcpy(part.results.data() + v * result_size, result.data(), result_size);
            context_.records.clear_eye_ray();
            context_.records.clear_rect();
        }
        return true;
    }

    void mesh(miTag shader, const Part& part, std::size_t result_size, miUint remaining) {
        const ArenaScope memory(context_.arena);
        begin_sample(0, part.instance);
        stand_on(part, part.vertices.front(), miRAY_LM_MESH);
        miLightmap_mesh mesh{&frame_.hit,
                             static_cast<miUint>(part.triangles.size()),
                             part.triangles.data(),
                             part.corners.data(),
                             static_cast<miUint>(part.vertices.size()),
                             static_cast<miUint>(result_size),
                             part.results.data(),
                             remaining};
        std::vector<miColor> result(std::max(result_size, sizeof(miColor)) / sizeof(miColor) + 1);
        call_shader(result.data(), miSHADER_LIGHTMAP, &frame_.state, shader, &mesh);
        context_.records.clear_eye_ray();
        context_.records.clear_rect();
    }

    // Random numbers that belong to the vertex, whatever was done before.
    void begin_sample(std::uint32_t vertex, std::uint32_t instance) {
        context_.start_sample(vertex, instance, 0, pixel_sample(vertex, instance, 0, 1, 0.0f).seed);
        context_.bad_shader = nullptr;
        std::ranges::fill(context_.buffers.values, miColor{});
        context_.buffers.written.assign(context_.buffers.written.size(), false);
    }

    // As if a ray had met the corner from outside, straight from above and after no way at all.
    void stand_on(const Part& part, const Part::Vertex& vertex, miRay_type type) {
        miState& state = frame_.state;
        copy_state(state, renderer_.frame_state());
        state.type = type;
        state.thread = context_.thread;
        state.renderer = &context_;
        frame_.in_flight = false;
        frame_.caster = frame_.displaced = nullptr;
        frame_.hit.instance = part.instance;
        frame_.hit.triangle = vertex.triangle;
        frame_.hit.u = vertex.corner == 1 ? 1.0f : 0.0f;
        frame_.hit.v = vertex.corner == 2 ? 1.0f : 0.0f;
        frame_.hit.distance = 0.0;
        state.dir = {};
        set_intersection(frame_, true);
        state.material = part.material;
        state.org = state.point;
        state.dir = -state.normal;
        state.dot_nd = -1.0f;
    }

    Renderer& renderer_;
    ThreadContext& context_;
    FamilyScope scope_;
    RayFrame frame_;
};

} // namespace

bool run_light_maps(Renderer& renderer) {
    std::vector<LightMap> maps = Collector(renderer.world()).collect();
    if (maps.empty())
        return true;
    const auto baker = std::make_unique<Baker>(renderer);
    return std::ranges::all_of(maps, [&](LightMap& map) { return baker->run(map); });
}

} // namespace stage
