#include "shader_world.h"

#include <algorithm>
#include <array>

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(place, size)
#endif

#include "exports.h"

namespace scripted {

using orl::decl::Field;
using orl::decl::FieldList;
using orl::decl::Shader;

namespace {

// Parameters that want shaders of a kind, whose names end so.
constexpr std::pair<std::string_view, std::string_view> slots[] = {
    {"illumination", "Illumination"},
    {"elementShaders", "orl_StdRenderElements"},
    {"uvGenerator", "orl_base_UVGenerator"},
    {"coords", "orl_base_UVGenerator"},
    {"rgbCurve", "orl_base_CurveControl"},
    {"monoCurve", "orl_base_CurveControl"},
    {"curves", "orl_base_Curve"},
    {"output", "orl_base_Output"},
};
constexpr int deepest = 3; // instances below instances
constexpr std::size_t most_actors = 32;

std::vector<const Shader*> shaders_ending(std::string_view end) {
    std::vector<const Shader*> found;
    for (const orl::Unit& unit : orl::units)
        for (const Shader& shader : unit.shaders)
            if (std::string_view(shader.name).ends_with(end))
                found.push_back(&shader);
    return found;
}

std::size_t element_size(const Field& field) {
    switch (field.type) {
    case miTYPE_COLOR:
        return sizeof(miColor);
    case miTYPE_VECTOR:
        return sizeof(miVector);
    case miTYPE_STRUCT: {
        std::size_t end = 0;
        for (const Field& member : field.members)
            end = std::max(end, member.offset + member.size);
        return end;
    }
    default:
        return 4;
    }
}

// Rays below rays end here, or shaders in each other's places would go on for ever.
bool too_deep(const miState* state) {
    int depth = 0;
    for (; state != nullptr && depth < 4; state = state->parent)
        ++depth;
    return depth == 4;
}

// A colour that depends on a direction or place, by plain arithmetic.
miColor color_of(const miVector& v) {
    return {0.5f + 0.25f * v.x, 0.5f + 0.25f * v.y, 0.5f - 0.25f * v.z, 1.0f};
}

} // namespace

World::World(Find find, Values& values)
    : find_(find), values_(values), image_(values.image()), output_(4, 4, miIMG_TYPE_RGBA_FP) {
    script_light();
    script_rays();
    script_images();
    make_scene();
    make_lights();
}

// ---- instances

const Shader* World::find_shader(std::string_view name) {
    const auto found = shaders_ending(name);
    return found.empty() ? nullptr : found.front();
}

std::size_t World::result_size(const Shader& shader) {
    std::size_t size = sizeof(miColor);
    for (const Field& member : shader.result_members)
        size = std::max(size, member.offset + member.size);
    return size;
}

Actor& World::add(const Shader& shader) {
    return add_at(shader, 0);
}

Actor* World::add_host(const Shader& shader) {
    for (const auto& [field, end] : slots)
        for (const orl::Unit& unit : orl::units)
            for (const Shader& host : unit.shaders) {
                const bool has = std::any_of(host.fields.begin(), host.fields.end(),
                                             [&, name = field](const Field& f) { return f.name == name; });
                if (!has || !std::string_view(shader.name).ends_with(end))
                    continue;
                wanted_ = &shader;
                Actor& made = add_at(host, 0);
                wanted_ = nullptr;
                return &made;
            }
    return nullptr;
}

Actor& World::add_at(const Shader& shader, int depth) {
    auto made = std::make_unique<Actor>(shader, find_(shader));
    Actor& actor = *made;
    if (depth == 0 && (shader.apply & orl::decl::apply(miSHADER_LENS)) != 0)
        surface_ = add_at(*find_shader("orl_StandardMaterial"), 1).tag;
    unsigned char* const block = actor.instance.params().bytes;
    actor.size = fill(block, sizeof(ActorBlock), shader.fields, depth + 1);
    ASAN_POISON_MEMORY_REGION(block + actor.size, sizeof(ActorBlock) - actor.size);
    Renderer& renderer = Renderer::get();
    miFunction_decl declaration{};
    declaration.type = miFUNCTION_C;
    declaration.result_type = shader.result;
    declaration.result_size = static_cast<int>(result_size(shader));
    declaration.version = shader.version;
    actor.instance.function().function_decl =
        renderer.add_copy(miSCENE_FUNCTION_DECL, declaration, shader.name);
    actor.tag = renderer.add_shader(
        [&actor](void* result, miState* state, void* argument) {
            const bool none = argument == &actor.instance.params();
            return call(actor, result, state, none ? nullptr : argument);
        },
        shader.name, &actor.instance.function());
    actors_.push_back(std::move(made));
    return actor;
}

miBoolean World::call(Actor& actor, void* result, miState* state, void* argument) {
    return actor.entries.run(result, state, &actor.instance.params(), argument);
}

void World::run_init(Actor& actor) {
    if (!actor.entries.init)
        return;
    State state;
    place(state, 0);
    state.run(actor.instance);
    miBoolean wanted = miFALSE;
    actor.entries.init(state, nullptr, &wanted);
    actor.entries.init(state, &actor.instance.params(), &wanted);
}

void World::run_exit(Actor& actor) {
    State state;
    place(state, 0);
    state.run(actor.instance);
    if (actor.entries.exit) {
        actor.entries.exit(state, &actor.instance.params());
        actor.entries.exit(state, nullptr);
    }
    for (void* block : Renderer::get().thread_data(actor.instance.function()))
        stage::release(nullptr, 0, block);
}

void World::begin() {
    for (const auto& actor : actors_) {
        Renderer::get().mi_init_lock.unscripted(&actor->instance.function().lock);
        run_init(*actor);
    }
}

void World::end() {
    for (const auto& actor : actors_) {
        run_exit(*actor);
        Renderer::get().mi_delete_lock.unscripted(&actor->instance.function().lock);
    }
}

// ---- parameters

miTag World::shader_for(std::string_view slot, int depth) {
    if (depth > deepest || actors_.size() >= most_actors)
        return maps_[static_cast<std::size_t>(values_.below(static_cast<int>(maps_.size())))];
    for (const auto& [field, end] : slots)
        if (slot == field) {
            if (wanted_ != nullptr && std::string_view(wanted_->name).ends_with(end))
                return add_at(*std::exchange(wanted_, nullptr), depth).tag;
            const auto fitting = shaders_ending(end);
            return add_at(*fitting[static_cast<std::size_t>(values_.below(static_cast<int>(fitting.size())))],
                          depth)
                .tag;
        }
    // A map: of the module, or one that cannot go wrong.
    constexpr std::string_view maps[] = {"orl_Checker", "orl_Bitmap",        "orl_Mix",   "orl_Falloff",
                                         "orl_Tint",    "orl_Mask",          "orl_color", "orl_Output",
                                         "orl_Bump",    "zant_KelvinToColor"};
    const int choice = values_.below(2 * static_cast<int>(std::size(maps)));
    const auto place = static_cast<std::size_t>(choice);
    return place < std::size(maps) ? add_at(*find_shader(maps[place]), depth).tag
                                   : maps_[place % maps_.size()];
}

miTag World::material_around(miTag shader) {
    miMaterial material{};
    material.shader = material.shadow = material.photon = material.volume = shader;
    return Renderer::get().add_material(material);
}

miTag World::element_for(const Field& field, int depth) {
    if (values_.absent())
        return miNULLTAG;
    if (values_.wild()) {
        const int choice = values_.below(static_cast<int>(tags_.size()) + 40);
        const auto place = static_cast<std::size_t>(choice);
        if (place < tags_.size())
            return tags_[place];
        if (field.type == miTYPE_LIGHT) // one that is made later, among others
            return static_cast<miTag>(choice);
        // Any shader of the module, wherever it may stand.
        const auto all = shaders_ending("");
        return depth > deepest || actors_.size() >= most_actors
                   ? miTag{miNULLTAG}
                   : add_at(*all[static_cast<std::size_t>(values_.below(static_cast<int>(all.size())))],
                            depth)
                         .tag;
    }
    const std::string_view name = field.name;
    switch (field.type) {
    case miTYPE_SHADER:
        return shader_for(name, depth);
    case miTYPE_MATERIAL:
        return material_around(depth > deepest ? maps_.front()
                                               : add_at(*find_shader("orl_StandardMaterial"), depth).tag);
    case miTYPE_LIGHT:
        return lamps_.empty() ? miTag{miNULLTAG} : lamps_.front().tag;
    case miTYPE_GEOMETRY:
        return name == "gizmos" ? gizmo_ : instance_;
    case miTYPE_STRING:
        return text_;
    case miTYPE_DATA:
        return scene_data_;
    default:
        return image_tag_;
    }
}

void World::fill_value(unsigned char* place, const Field& field, int element, int depth) {
    if (field.type == miTYPE_STRUCT) {
        for (const Field& member : field.members)
            fill_value(place + member.offset, member, element, depth);
        return;
    }
    const std::size_t size = field.array ? element_size(field) : field.size;
    for (std::size_t at = 0; at < size; at += 4) {
        if (is_integral(field)) {
            const int value = values_.integer(field);
            std::memcpy(place + at, &value, 4);
        } else if (is_real(field)) {
            const float value = values_.real(field, element, static_cast<int>(at / 4));
            std::memcpy(place + at, &value, 4);
        } else {
            const miTag tag = element_for(field, depth);
            std::memcpy(place + at, &tag, 4);
        }
    }
}

// The index of the first element, the count, and the elements behind the fixed part of the block.
void World::fill_array(unsigned char* block, std::size_t& used, const Field& field, int depth) {
    const std::size_t size = element_size(field);
    const std::size_t start = field.offset + 2 * sizeof(miInteger);
    const auto first = static_cast<miInteger>((used - start + size - 1) / size);
    const auto count = static_cast<miInteger>(values_.elements(field));
    const miInteger head[2] = {first, count};
    std::memcpy(block + field.offset, head, sizeof head);
    for (miInteger k = 0; k < count; ++k)
        fill_value(block + start + static_cast<std::size_t>(first + k) * size, field, k, depth);
    used = start + static_cast<std::size_t>(first + count) * size;
}

std::size_t World::fill(unsigned char* block, std::size_t room, const FieldList& fields, int depth) {
    std::size_t used = 0;
    for (const Field& field : fields)
        used = std::max(used, field.offset + field.size);
    for (const Field& field : fields)
        if (field.array)
            fill_array(block, used, field, depth);
        else
            fill_value(block + field.offset, field, 0, depth);
    if (used > room)
        std::abort();
    return used;
}

miTag World::fill_with(const FieldList& fields, int depth) {
    alignas(8) unsigned char block[4096] = {};
    const std::size_t used = fill(block, sizeof block, fields, depth);
    const std::size_t size = values_.wild() ? used / 8 * 4 : used; // a record that is cut off
    return Renderer::get().add_userdata(block, static_cast<int>(size));
}

// ---- the scene

void World::make_scene() {
    Renderer& renderer = Renderer::get();
    text_ = renderer.add_string("text");
    image_tag_ = renderer.add(miSCENE_IMAGE, image_.image());
    for (int level = 0; miImg_image* const image = stage::image_level(image_.image(), level); ++level)
        for (int y = 0; y < image->height; ++y)
            for (int x = 0; x < image->width; ++x)
                stage::put_image_color(image,
                                       {static_cast<float>((x * 37 + y * 11) % 64) / 63.0f,
                                        static_cast<float>((x * 5 + y * 29) % 64) / 63.0f,
                                        static_cast<float>((x + y) % 2), 1.0f},
                                       x, y);
    renderer.output_image = output_.image();
    maps_.push_back(renderer.add_shader([](void* result, miState* state, void*) {
        const miColor color = color_of(state->tex);
        std::memcpy(result, &color, sizeof color);
        return miTRUE;
    }));
    maps_.push_back(renderer.add_color({0.75f, 0.5f, 0.25f, 1.0f}));
    surface_ = maps_.front();

    // A square of two triangles from (0, 0, 0) to (4, 2, 0): point, normal, texture coordinate.
    for (const auto& [x, y] : {std::pair{0.0f, 0.0f}, {4.0f, 0.0f}, {4.0f, 2.0f}, {0.0f, 2.0f}})
        vertices_.insert(vertices_.end(), {x, y, 0, 0, 0, 1, x / 4, y / 2, 0});
    triangles_.triangle_count = 2;
    triangles_.vertex_count = 4;
    triangles_.vertex_stride = 9;
    triangles_.normal_offset = 3;
    triangles_.motion_offset = triangles_.bump_offset = -1;
    triangles_.texture_count = 1;
    triangles_.texture_offset = 6;
    triangles_.vertices = vertices_.data();
    triangles_.indices = indices_.data();
    renderer.triangle.points = {{{0, 0, 0}, {4, 0, 0}, {4, 2, 0}}};
    renderer.triangle.normals = {{{0, 0, 1}, {0.1f, 0, 0.9f}, {0, 0.1f, 0.9f}}};
    renderer.triangle.textures = {{{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}}};
    renderer.triangle.bump_x = {{{{1, 0, 0}, {1, 0, 0}, {1, 0, 0}}}};
    renderer.triangle.bump_y = {{{{0, 1, 0}, {0, 1, 0}, {0, 1, 0}}}};
    renderer.triangle.slots = {0, 1, 2};
    renderer.triangle.words = {0x70003, 5, 1}; // material 3 and all edges, smoothing groups 5, particle 1
    renderer.texture_spaces = 1;
    miObject object{};
    object.bbox_max = {4, 2, 0};
    object.triangles = &triangles_;
    tags_ = {miNULLTAG, text_, image_tag_, maps_[0], maps_[1]};
    const auto data = [](std::string_view name) -> const FieldList& {
        return std::find_if(std::begin(orl::host_data), std::end(orl::host_data),
                            [&](const orl::decl::Data& d) { return d.name == name; })
            ->fields;
    };
    scene_data_ = fill_with(data("orl_SceneData"), deepest + 1);
    camera_data_ = fill_with(data("orl_CameraData"), deepest + 1);
    object.userdata = fill_with(data("orl_ObjectData"), deepest + 1);
    miInstance instance{};
    std::array<miScalar, 16> identity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    std::copy(identity.begin(), identity.end(), &instance.tf.global_to_local[0]);
    std::copy(identity.begin(), identity.end(), &instance.tf.local_to_global[0]);
    instance.item = renderer.add_copy(miSCENE_OBJECT, object);
    instance.userdata = fill_with(data("orl_NodeData"), deepest + 1);
    instance_ = renderer.add_instance(instance);
    instance.userdata = fill_with(data("orl_GizmoData"), deepest + 1);
    gizmo_ = renderer.add_instance(instance);
    group_ = renderer.add_group({instance_, gizmo_});
    framebuffers_ =
        renderer.add_framebuffers({{"fb_re#0", miIMG_TYPE_RGBA_FP}, {"fb_velocity", miIMG_TYPE_RGBA_FP}});
    tags_.insert(tags_.end(), {scene_data_, instance_, gizmo_, group_, instance.item, framebuffers_});
}

void World::make_lights() {
    Renderer& renderer = Renderer::get();
    constexpr miScalar to_light[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -1, -2, -6, 1};
    renderer.set_to_space(Space::light, to_light);
    for (const char* name : {"orl_OmniLight", "orl_SpotLight", "orl_DirectionalLight"}) {
        miLight light{};
        light.direction = {0, 0, -1};
        light.spread = 0.5f;
        light.energy = {1, 1, 1, 1};
        const miTag tag = renderer.add_light({}, light);
        lamps_.push_back({tag, nullptr});
        tags_.push_back(tag);
        lamps_.back().actor = &add_at(*find_shader(name), deepest - 1);
    }
}

void World::place(State& state, int number) const {
    const auto step = static_cast<float>(number % 7);
    state.set_hit({1.0f - 0.5f * step, -1.0f, 4.0f + step}, {0.3f + 0.4f * step, 0.7f, 0.1f},
                  {0.1f, -0.2f + 0.1f * step, 0.9f});
    state.textures = {{0.1f + 0.17f * step, 0.8f - 0.09f * step, 0.0f}};
    state.use_textures();
    state.state.instance = instance_;
    state.state.light_instance = lamps_.empty() ? miNULLTAG : lamps_.front().tag;
    state.camera.userdata = camera_data_;
    state.camera.framebuffers = framebuffers_;
    state.options.userdata = scene_data_;
    state.state.pri = &state;
}

// ---- what the renderer does

miBoolean World::sample(const Lamp& lamp, miColor* result, miVector* dir, miScalar* dot_nl, miState* state,
                        int sample) const {
    miState ray = *state;
    ray.parent = state;
    ray.type = miRAY_LIGHT;
    ray.org = {1.0f + 0.25f * static_cast<float>(sample), 2.0f, 6.0f};
    mi_vector_sub(&ray.dir, &ray.point, &ray.org);
    ray.dist = static_cast<double>(mi_vector_norm(&ray.dir));
    mi_vector_normalize(&ray.dir);
    ray.light_instance = lamp.tag;
    *dir = {-ray.dir.x, -ray.dir.y, -ray.dir.z};
    *dot_nl = ray.dot_nd = mi_vector_dot(&state->normal, dir);
    *result = {0, 0, 0, 0};
    return Renderer::get().mi_call_shader.unscripted(result, miSHADER_LIGHT, &ray, lamp.actor->tag);
}

void World::script_light() {
    Renderer& renderer = Renderer::get();
    renderer.mi_sample_light = [this](miColor* result, miVector* dir, miScalar* dot_nl, miState* state,
                                      miTag light, miInteger* samples) -> miBoolean {
        const auto lamp =
            std::find_if(lamps_.begin(), lamps_.end(), [=](const Lamp& l) { return l.tag == light; });
        while (lamp != lamps_.end() && lamp->actor != nullptr && !too_deep(state) && *samples >= 0 &&
               *samples < 2)
            if (sample(*lamp, result, dir, dot_nl, state, (*samples)++))
                return miTRUE;
        return miFALSE;
    };
    renderer.mi_trace_shadow = [](miColor* result, miState*) {
        *result = {result->r * 0.75f, result->g * 0.5f, result->b * 0.25f, result->a};
        return miTRUE;
    };
    const auto irradiance = [](miColor* result, miState* state, auto...) {
        *result = color_of(state->normal);
        return miTRUE;
    };
    renderer.mi_compute_irradiance = irradiance;
    renderer.mi_compute_irradiance_backside = irradiance;
    renderer.mi_compute_avg_radiance = irradiance;
    renderer.mi_compute_volume_irradiance = irradiance;
    const auto choose = [this](auto...) {
        constexpr miRay_type ways[] = {miPHOTON_REFLECT_DIFFUSE,   miPHOTON_REFLECT_GLOSSY,
                                       miPHOTON_REFLECT_SPECULAR,  miPHOTON_TRANSMIT_DIFFUSE,
                                       miPHOTON_TRANSMIT_SPECULAR, miPHOTON_ABSORB};
        return ways[choice_ % static_cast<int>(std::size(ways))];
    };
    renderer.mi_choose_scatter_type = choose;
    renderer.mi_choose_simple_scatter_type = choose;
    choice_ = values_.below(6);
}

void World::script_rays() {
    Renderer& renderer = Renderer::get();
    const auto along = [](miColor* result, miState*, miVector* dir) {
        *result = color_of(*dir);
        return miTRUE;
    };
    const auto onward = [](miColor* result, miState* state) {
        *result = color_of(state->dir);
        return miTRUE;
    };
    renderer.mi_trace_reflection = along;
    renderer.mi_trace_refraction = along;
    renderer.mi_trace_environment = along;
    renderer.mi_trace_transparent = onward;
    renderer.mi_trace_continue = onward;
    // An eye ray meets a surface, whose shader runs.
    renderer.mi_trace_eye = [this](miColor* result, miState* state, miVector* org,
                                   miVector* dir) -> miBoolean {
        if (too_deep(state))
            return miFALSE;
        miState hit = *state;
        hit.parent = state;
        state->org = hit.org = *org;
        state->dir = hit.dir = *dir;
        hit.type = miRAY_EYE;
        return Renderer::get().mi_call_shader.unscripted(result, miSHADER_MATERIAL, &hit, surface_);
    };
}

void World::script_images() {
    Renderer& renderer = Renderer::get();
    renderer.mi_img_get_color = [](miImg_image* image, miColor* color, int x, int y) {
        *color = stage::image_color(image, x, y);
    };
    renderer.mi_img_put_color = [](miImg_image* image, miColor* color, int x, int y) {
        stage::put_image_color(image, *color, x, y);
    };
    renderer.mi_img_get_width = [](miImg_image* image) { return image ? image->width : 0; };
    renderer.mi_img_get_height = [](miImg_image* image) { return image ? image->height : 0; };
    renderer.mi_img_pyramid_get_level = stage::image_level;
    renderer.mi_lightmap_edit = [this](void** handle, miTag texture) {
        *handle = this;
        return texture == image_tag_ ? output_.image() : nullptr;
    };
    renderer.mi_lookup_color_texture = [this](miColor* result, miState* state, miTag tag,
                                              miVector* coord) -> miBoolean {
        if (tag != image_tag_)
            return Renderer::get().mi_lookup_color_texture.unscripted(result, state, tag, coord);
        *result = color_of(*coord);
        return miTRUE;
    };
}

} // namespace scripted
