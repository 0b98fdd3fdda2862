#include "render/demands.h"

#include <algorithm>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "image/picture_file.h"
#include "kit/message.h"

namespace stage {

namespace {

constexpr std::int64_t most_pixels = std::int64_t{1} << 28;

struct Feature {
    bool wanted;
    const char* name;      // with its verb
    bool readable = false; // shaders can ask for it: through their state, a query or the frame buffers
};

template <std::size_t count>
void warn_of(Scene& scene, const Element& element, const Feature (&features)[count],
             const std::string& part = {}) {
    for (const Feature& feature : features)
        if (feature.wanted)
            warn_once(scene, element,
                      part + feature.name + " not supported yet and without effect" +
                          (feature.readable ? " outside of shaders" : ""));
}

void report_material(Scene& scene, const Element& element, const miOptions& options) {
    const auto& m = *element.as<miMaterial>();
    warn_of(scene, element,
            {{m.displace != miNULLTAG && !options.no_displace, "displacement is", true},
             {m.contour != miNULLTAG, "contours are", true}});
}

void report_light(Scene& scene, const Element& element) {
    const auto& l = *element.as<miLight>();
    warn_of(scene, element,
            {{l.use_shadow_maps != miFALSE, "shadow maps are"},
             {l.visible && l.area != miLIGHT_NONE && !is_seen(l),
              "a visible light that is directional or of a user's area is"}});
}

void report_instance(Scene& scene, const Element& element) {
    const auto& i = *element.as<miInstance>();
    warn_of(scene, element, {{i.parameters != miNULLTAG, "parameters of an instance are", true}});
}

void report_object(Scene& scene, const Element& element) {
    const auto& o = *element.as<miObject>();
    warn_of(scene, element,
            {{o.select != 0, "select is", true},
             {o.finalgather_file != miNULLTAG, "a file of final gathering points is", true}});
}

bool differ(const miColor& a, const miColor& b) {
    return a.r != b.r || a.g != b.g || a.b != b.b || a.a != b.a;
}

void report_options(Scene& scene, const Element& element) {
    const auto& o = *element.as<miOptions>();
    const miOptions usual = default_options();
    warn_of(scene, element,
            {{differ(o.time_contrast, usual.time_contrast), "time contrast is", true},
             {o.max_samples < 0, "fewer than one sample for a pixel is", true},
             {o.jitter < 0.0f || o.jitter > 1.0f, "jitter outside 0 to 1 is", true}});
    for (const auto& [name, value] : element.string_options)
        warn_of(scene, element, {{true, "is"}}, "the string option " + name + ' ');
}

// Once, though a frame may name other files than the one before.
void report_own_files(Scene& scene, const Element& camera, std::span<const FramebufferDesc> buffers,
                      std::span<const std::string> outputs) {
    std::string files;
    for (const FramebufferDesc& b : buffers)
        if (!b.filename.empty() && std::ranges::find(outputs, b.filename) == outputs.end())
            files += (files.empty() ? "\"" : ", \"") + b.filename + '"';
    const std::string camera_at = camera.place.text() + ": \"" + camera.name + "\": ";
    if (!outputs.empty() && !files.empty() && scene.warned.insert(camera_at + "files").second)
        send_text(MessageLevel::info, camera_at + "the picture goes to \"" + outputs.front() +
                                          "\", as -o or ./render says, and not to the scene's own " + files);
}

void report_camera(const World& world, const Element& element, std::span<const std::string> outputs) {
    Scene& scene = world.scene;
    const auto& c = *element.as<miCamera>();
    warn_of(scene, element, {{c.frame_field != 0, "rendering of fields is", true}});
    const Element* buffers = scene.database.find(c.framebuffers);
    if (!buffers || buffers->type != miSCENE_FRAMEBUFFERS)
        return;
    report_own_files(scene, element, buffers->framebuffers, outputs);
    for (const FramebufferDesc& b : buffers->framebuffers)
        warn_of(scene, element,
                {{!b.filetype.empty() && !is_picture_format(b.filetype), "the file type is", true},
                 {!b.field.empty() && b.field != "frame", "rendering of fields is", true}},
                "frame buffer \"" + b.name + "\": ");
}

// Things stand still unless the options say motion on; whoever says motion off means it. Motion vectors are
// there anyway, and may be all that is wanted.
void report_motion(const World& world, const Element& options) {
    const Database& database = world.scene.database;
    const Element* moving = database.find(world.first_moving);
    const Element* set = database.find(world.camera->framebuffers);
    const bool vectors = set && std::ranges::any_of(set->framebuffers, [](const FramebufferDesc& b) {
                             return b.datatype == "m";
                         });
    if (moving && !options.motion_said && (!vectors || world.options->shutter > 0.0f))
        warn_once(
            world.scene, *moving,
            "its motion is not shown: the options say neither motion on, with a shutter, nor motion off");
}

// All instances below a group, hidden ones too.
std::unordered_set<miTag> members_below(const Database& database, miTag root) {
    std::unordered_set<miTag> members, seen{root};
    std::vector<miTag> open{root};
    while (!open.empty()) {
        const auto* group = database.record<miGroup>(open.back(), miSCENE_GROUP);
        open.pop_back();
        for (int k = 0; group && k < group->no_kids; ++k) {
            members.insert(group->kids[k]);
            const auto* instance = database.record<miInstance>(group->kids[k], miSCENE_INSTANCE);
            if (instance && seen.insert(instance->item).second)
                open.push_back(instance->item);
        }
    }
    return members;
}

// A light shines only where an instance of it stands. Instances that the renderer itself has added, for
// leaves that are reached again, have no name to be found by.
void report_stray_lights(Scene& scene, const RenderCommand& command) {
    const Database& database = scene.database;
    const std::unordered_set<miTag> members = members_below(database, command.root);
    for (miTag tag = 1; tag <= database.size(); ++tag) {
        const Element& element = *database.find(tag);
        if (element.type == miSCENE_INSTANCE && !members.contains(tag) &&
            database.record<miLight>(element.as<miInstance>()->item, miSCENE_LIGHT) &&
            database.find(std::string_view(element.name)) == &element)
            warn_once(scene, element,
                      "this instance of a light is in no group of the rendered scene and does not shine");
    }
}

// How much order a mode keeps.
int rank(int mode) {
    switch (mode) {
    case 's':
        return 3;
    case 'l':
        return 2;
    default:
        return mode != 0;
    }
}

int demanded_mode(const std::string& word) {
    if (word == "segments")
        return 's';
    if (word == "sort")
        return 'l';
    return word == "on" || word == "simple";
}

} // namespace

void warn_once(Scene& scene, const Element& element, const std::string& text) {
    const std::string message = element.place.text() + ": \"" + element.name + "\": " + text;
    if (scene.warned.insert(message).second)
        send_text(MessageLevel::warning, message);
}

namespace {

// What the shaders of the scene demand of a switch of the options.
struct Demand {
    const Element* on = nullptr; // the first shader of each
    const Element* off = nullptr;

    void take(const Element& element, const std::string& word) {
        if (!word.empty() && !(word == "off" ? off : on))
            (word == "off" ? off : on) = &element;
    }
    // Nobody can have both: what is switched off could spoil what needs it, so on it stays.
    void settle(Scene& scene, const char* what) {
        if (on && off)
            warn_once(scene, *off,
                      std::string("the demand for ") + what + " to be off is not met: \"" + on->name +
                          "\" demands the contrary");
        if (on)
            off = nullptr;
    }
};

} // namespace

void apply_demands(Scene& scene, miOptions& options) {
    Demand shadow, trace, scanline;
    int shadow_mode = options.shadow;
    for (miTag tag = 1; tag <= scene.database.size(); ++tag) {
        const Element& element = *scene.database.find(tag);
        if (element.type != miSCENE_FUNCTION || !element.shader || !element.shader->declaration)
            continue;
        const Declaration& declared = *element.shader->declaration;
        shadow.take(element, declared.shadow_mode);
        trace.take(element, declared.trace_mode);
        scanline.take(element, declared.scanline_mode);
        if (rank(demanded_mode(declared.shadow_mode)) > rank(shadow_mode))
            shadow_mode = demanded_mode(declared.shadow_mode);
    }
    shadow.settle(scene, "shadows");
    trace.settle(scene, "tracing");
    options.shadow = shadow.off ? 0 : shadow_mode;
    options.trace = (options.trace && !trace.off) || trace.on;
    // Tracing every ray is right for every shader but slower, so here off comes first.
    if (scanline.off)
        options.scanline = 0;
    else if (scanline.on && options.scanline == 0)
        options.scanline = 1;
}

void check_camera(const Scene& scene, const RenderCommand& command, const miCamera& camera) {
    const auto* instance = scene.database.record<miInstance>(command.camera_instance, miSCENE_INSTANCE);
    const Element& element = *scene.database.find(instance->item);
    const std::int64_t pixels = std::int64_t{camera.x_resolution} * camera.y_resolution;
    if (pixels > most_pixels)
        throw SceneError(element.place, "the camera \"" + element.name + "\" asks for a picture of " +
                                            std::to_string(camera.x_resolution) + " x " +
                                            std::to_string(camera.y_resolution) +
                                            " pixels, which is more than " + std::to_string(most_pixels));
    if (camera.x_resolution <= 0 || camera.y_resolution <= 0 || !(camera.aperture > 0.0f) ||
        !(camera.aspect > 0.0f) || (!camera.orthographic && !(camera.focal > 0.0f)))
        throw SceneError(element.place, "the camera \"" + element.name +
                                            "\" needs a resolution, focal length, aperture and aspect above "
                                            "0");
}

void report_unsupported(const World& world, const RenderCommand& command,
                        std::span<const std::string> outputs) {
    Scene& scene = world.scene;
    for (miTag tag = 1; tag <= scene.database.size(); ++tag) {
        const Element& element = *scene.database.find(tag);
        if (element.type == miSCENE_MATERIAL)
            report_material(scene, element, *world.options);
        else if (element.type == miSCENE_LIGHT)
            report_light(scene, element);
        else if (element.type == miSCENE_INSTANCE)
            report_instance(scene, element);
        else if (element.type == miSCENE_OBJECT)
            report_object(scene, element);
        else if (element.record == world.options)
            report_options(scene, element);
        else if (element.record == world.camera)
            report_camera(world, element, outputs);
    }
    report_motion(world, *scene.database.find(command.options));
    report_stray_lights(scene, command);
}

} // namespace stage
