// Options, cameras, materials and lights.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "mi/parser_impl.h"

namespace stage::mi {

namespace {

constexpr int deepest_trace = 10000;
constexpr int largest_picture = 1 << 16;
constexpr float far_away = 1e6f;

miCamera default_camera() {
    miCamera c{};
    c.focal = c.aperture = 1.0f;
    c.aspect = 4.0f / 3.0f;
    c.clip = {0.0001f, far_away};
    c.x_resolution = 640;
    c.y_resolution = 480;
    c.window = {0, 0, 639, 479};
    return c;
}

bool whole_window(const miCamera& c) {
    return c.window.xl == 0 && c.window.yl == 0 && c.window.xh == c.x_resolution - 1 &&
           c.window.yh == c.y_resolution - 1;
}

} // namespace

// ---- options -------------------------------------------------------------------------------------

void Parser::options() {
    const Token word = name("the name of the options");
    Element& element = define(word, miSCENE_OPTIONS, sizeof(miOptions), "options element");
    auto& o = *element.as<miOptions>();
    if (!incremental_)
        o = default_options();
    std::vector<std::pair<Token, miTag>> data;
    while (!lexer_.peek().is("end")) {
        if (lexer_.peek().kind == Kind::string) {
            options_text(element);
        } else if (accept("state")) {
            element.state_shaders.clear();
            for (const auto& item : shader_items(miSHADER_STATE))
                element.state_shaders.push_back(item.second);
        } else if (accept("data")) {
            attach_data(data, o.userdata);
        } else if (accept("inheritance")) {
            inheritance_ = &declaration(name("the name of the inheritance shader's declaration"));
            o.inh_funcdecl = inheritance_->tag;
        } else if (!options_rays(o) && !options_sampling(o) && !options_photons(o) && !options_picture(o)) {
            fail_unknown("options",
                         "a known option, a \"string option\", state, data, inheritance or end options");
        }
    }
    chain(data, owner(element, Slot::data), "data block");
    end_of("options");
}

// A string option's value is kept as it is written: one word, or numbers with spaces between them.
void Parser::options_text(Element& element) {
    const std::string key(lexer_.next().value);
    std::string content;
    if (at_number()) {
        while (at_number()) {
            if (!content.empty())
                content += ' ';
            content += lexer_.next().text;
        }
    } else {
        content = text("the value of the string option");
    }
    for (auto& [known, old] : element.string_options) {
        if (known == key) {
            old = content;
            return;
        }
    }
    element.string_options.emplace_back(key, content);
}

bool Parser::options_rays(miOptions& o) {
    if (accept("trace")) {
        if (!accept("depth")) {
            o.trace = on_off();
            return true;
        }
        o.reflection_depth = integer(0, deepest_trace);
        o.refraction_depth = at_number() ? integer(0, deepest_trace) : o.reflection_depth;
        o.trace_depth = at_number() ? integer(0, 2 * deepest_trace) : o.reflection_depth + o.refraction_depth;
    } else if (accept("shadow")) {
        o.shadow = choice({{"off", 0}, {"on", 1}, {"simple", 1}, {"sort", 'l'}, {"segments", 's'}});
    } else if (accept("face")) {
        o.face = choice({{"front", 'f'}, {"back", 'b'}, {"both", 'a'}});
    } else if (accept("space")) {
        o.render_space = static_cast<char>(choice({{"object", 'o'}, {"camera", 'c'}}));
    } else if (lexer_.peek().is("object") || lexer_.peek().is("camera")) {
        o.render_space = lexer_.next().is("camera") ? 'c' : 'o';
        expect("space");
    } else if (accept("scanline")) {
        o.scanline = accept("rapid") ? int{'r'} : int{on_off()};
    } else if (accept("lens")) {
        o.no_lens = !on_off();
    } else if (accept("volume")) {
        o.no_volume = !on_off();
    } else if (accept("geometry")) {
        o.no_geometry = !on_off();
    } else if (accept("displace")) {
        o.no_displace = !on_off();
    } else if (accept("output")) {
        o.no_output = !on_off();
    } else {
        return false;
    }
    return true;
}

bool Parser::options_photons(miOptions& o) {
    const auto accuracy = [this](int& photons, float& radius) {
        photons = integer(1, 1 << 24);
        if (at_number())
            radius = scalar();
    };
    if (accept("caustic")) {
        if (accept("accuracy"))
            accuracy(o.caustic_accuracy, o.caustic_radius);
        else if (accept("filter"))
            o.caustic_filter_const = caustic_filter();
        else
            o.caustic = on_off();
    } else if (accept("globillum")) {
        if (accept("accuracy"))
            accuracy(o.globillum_accuracy, o.globillum_radius);
        else
            o.globillum = on_off();
    } else if (accept("photonvol")) {
        expect("accuracy");
        accuracy(o.photonvol_accuracy, o.photonvol_radius);
    } else if (accept("photon")) {
        expect("trace");
        expect("depth");
        o.photon_reflection_depth = integer(0, deepest_trace);
        o.photon_refraction_depth = integer(0, deepest_trace);
        o.photon_trace_depth = at_number() ? integer(0, 2 * deepest_trace)
                                           : o.photon_reflection_depth + o.photon_refraction_depth;
    } else if (accept("finalgather")) {
        if (accept("rays"))
            o.finalgather_rays = integer(1, 1 << 20);
        else
            o.finalgather = on_off();
    } else {
        return false;
    }
    return true;
}

bool Parser::options_sampling(miOptions& o) {
    const auto channel_mean = [](miColor c) { return (c.r + c.g + c.b) / 3.0f; };
    if (accept("samples")) {
        const Token at = lexer_.peek();
        o.min_samples = integer(-8, 8);
        o.max_samples = at_number() ? integer(-8, 8) : o.min_samples;
        if (o.max_samples < o.min_samples)
            fail(at, "the largest number of samples is below the smallest");
    } else if (accept("contrast")) {
        o.contrast = color(-1.0f);
        if (o.contrast.a < 0.0f)
            o.contrast.a = channel_mean(o.contrast);
    } else if (accept("time")) {
        expect("contrast");
        o.time_contrast = color(-1.0f);
        if (o.time_contrast.a < 0.0f)
            o.time_contrast.a = channel_mean(o.time_contrast);
    } else if (accept("samplelock")) {
        o.samplelock = on_off();
    } else if (accept("jitter")) {
        o.jitter = scalar();
    } else if (accept("shutter")) {
        o.shutter = scalar();
    } else if (accept("motion")) {
        o.motion = on_off();
    } else if (accept("filter")) {
        options_filter(o);
    } else if (accept("task")) {
        expect("size");
        o.task_size = integer(0, 4096);
    } else {
        return false;
    }
    return true;
}

// The constant of a cone, 0 for a box, which weighs all photons the same.
float Parser::caustic_filter() {
    if (choice({{"box", 0}, {"cone", 1}}) == 0)
        return 0.0f;
    const Token at = lexer_.peek();
    const float constant = at_number() ? scalar() : default_options().caustic_filter_const;
    if (!(constant >= 1.0f))
        fail(at, "the constant of the cone filter must be 1 or more");
    return constant;
}

void Parser::options_filter(miOptions& o) {
    const Token at = lexer_.peek();
    o.filter = choice({{"box", 'b'}, {"triangle", 't'}, {"gauss", 'g'}, {"mitchell", 'm'}, {"lanczos", 'l'}});
    const float usual = o.filter == 'b' ? 1.0f : o.filter == 't' ? 2.0f : o.filter == 'g' ? 3.0f : 4.0f;
    o.filter_size_x = at_number() ? scalar() : usual;
    o.filter_size_y = at_number() ? scalar() : o.filter_size_x;
    if (!(o.filter_size_x > 0.0f && o.filter_size_y > 0.0f && o.filter_size_x <= 32.0f &&
          o.filter_size_y <= 32.0f))
        fail(at, "the filter's size must lie above 0 and up to 32 pixels");
}

bool Parser::options_picture(miOptions& o) {
    if (accept("gamma")) {
        const Token at = lexer_.peek();
        o.gamma = scalar();
        if (!(o.gamma > 0.0f))
            fail(at, "gamma must be positive");
    } else if (accept("desaturate")) {
        o.desaturate = on_off();
    } else if (accept("dither")) {
        o.dither = on_off();
    } else if (accept("premultiply")) {
        o.nopremult = !on_off();
    } else if (accept("colorclip")) {
        o.colorclip = choice({{"rgb", 0}, {"alpha", 1}, {"raw", 2}});
    } else if (accept("luminance")) {
        expect("weight");
        o.luminance_weight = color(0.0f);
    } else {
        return false;
    }
    return true;
}

// ---- camera --------------------------------------------------------------------------------------

void Parser::camera() {
    const Token word = name("the name of the camera");
    Element& element = define(word, miSCENE_CAMERA, sizeof(miCamera), "camera");
    auto& c = *element.as<miCamera>();
    if (!incremental_) {
        c = default_camera();
        Element& set = scene_.database.add(miSCENE_FRAMEBUFFERS, {}, place_of(word), 0);
        c.framebuffers = set.tag;
    }
    std::vector<FramebufferDesc>& buffers = scene_.database.find(c.framebuffers)->framebuffers;
    std::vector<std::pair<Token, miTag>> outputs, data;
    const bool whole = whole_window(c);
    bool window = false;
    while (!lexer_.peek().is("end")) {
        window = window || lexer_.peek().is("window");
        if (accept("framebuffer")) {
            framebuffer(buffers);
        } else if (accept("output")) {
            output(element, buffers, outputs);
        } else if (accept("data")) {
            attach_data(data, c.userdata);
        } else if (lexer_.peek().is("pass")) {
            fail(lexer_.peek(), "render passes are not supported");
        } else if (!camera_lens(c, element) && !camera_picture(c)) {
            fail_unknown("a camera",
                         "framebuffer, output, focal, aperture, aspect, resolution, window, clip, lens, "
                         "volume, environment, frame, field, offset, data or end camera");
        }
    }
    if (whole && !window)
        c.window = {0, 0, c.x_resolution - 1, c.y_resolution - 1};
    chain(data, owner(element, Slot::data), "data block");
    chain(outputs, owner(element, Slot::output), "output shader");
    if (!outputs.empty())
        c.output = outputs.front().second;
    end_of("camera");
}

bool Parser::camera_lens(miCamera& c, const Element& element) {
    const Token at = lexer_.peek();
    const auto positive = [&] {
        const Token value = lexer_.peek();
        const float number = scalar();
        if (!(number > 0.0f))
            fail(value, "the " + std::string(at.text) + " must be positive");
        return number;
    };
    if (accept("focal")) {
        c.orthographic = accept("infinity") ? miTRUE : miFALSE;
        if (!c.orthographic)
            c.focal = positive();
    } else if (accept("aperture")) {
        c.aperture = positive();
    } else if (accept("aspect")) {
        c.aspect = positive();
    } else if (accept("clip")) {
        c.clip.min = scalar();
        c.clip.max = scalar();
        if (!(c.clip.min < c.clip.max))
            fail(at, "the near clipping distance must be below the far one");
    } else if (accept("lens")) {
        c.lens = shaders(miSHADER_LENS, owner(element, Slot::lens));
    } else if (accept("volume")) {
        c.volume = shaders(miSHADER_VOLUME, owner(element, Slot::volume));
    } else if (accept("environment")) {
        c.environment = shaders(miSHADER_ENVIRONMENT, owner(element, Slot::environment));
    } else {
        return false;
    }
    return true;
}

bool Parser::camera_picture(miCamera& c) {
    const Token at = lexer_.peek();
    if (accept("resolution")) {
        c.x_resolution = integer(1, largest_picture);
        c.y_resolution = integer(1, largest_picture);
    } else if (accept("window")) {
        c.window.xl = integer();
        c.window.yl = integer();
        c.window.xh = integer();
        c.window.yh = integer();
        if (c.window.xl > c.window.xh || c.window.yl > c.window.yh)
            fail(at, "the window is empty");
    } else if (accept("frame")) {
        c.frame = integer();
        if (at_number())
            c.frame_time = scalar();
    } else if (accept("field")) {
        c.frame_field = integer(0, 2);
    } else if (accept("offset")) {
        c.x_offset = scalar();
        c.y_offset = scalar();
    } else {
        return false;
    }
    return true;
}

void Parser::framebuffer(std::vector<FramebufferDesc>& buffers) {
    const Token word = name("the name of the frame buffer");
    if (word.value.empty())
        fail(word, "a frame buffer needs a name");
    auto found = std::find_if(buffers.begin(), buffers.end(),
                              [&](const FramebufferDesc& buffer) { return buffer.name == word.value; });
    if (found == buffers.end()) {
        found = buffers.emplace(buffers.end());
        found->name = word.value;
    }
    FramebufferDesc& b = *found;
    bool premultiplied = b.premultiplied;
    bool given = false;
    static const std::pair<const char*, std::string FramebufferDesc::*> texts[] = {
        {"filename", &FramebufferDesc::filename},
        {"filetype", &FramebufferDesc::filetype},
        {"field", &FramebufferDesc::field}};
    static const std::pair<const char*, bool FramebufferDesc::*> flags[] = {
        {"filtering", &FramebufferDesc::filtering}, {"dod", &FramebufferDesc::dod},
        {"primary", &FramebufferDesc::primary},     {"tiled", &FramebufferDesc::tiled},
        {"user", &FramebufferDesc::user},           {"useopacity", &FramebufferDesc::useopacity}};
    for (;;) {
        const auto is_next = [&](const auto& entry) { return accept(entry.first); };
        if (const auto t = std::find_if(std::begin(texts), std::end(texts), is_next); t != std::end(texts)) {
            b.*(t->second) = text("a string");
        } else if (const auto f = std::find_if(std::begin(flags), std::end(flags), is_next);
                   f != std::end(flags)) {
            b.*(f->second) = on_off();
        } else if (accept("colorprofile")) {
            b.colorprofile =
                resolve(name("the name of a colour profile"), miSCENE_COLORPROFILE, "colour profile").name;
        } else if (accept("premultiplied")) {
            premultiplied = on_off();
            given = true;
        } else if (accept("datatype")) {
            const Token type = name("a data type");
            static const char* const types[] = {"rgba",   "rgba_16", "rgba_fp", "rgba_h",  "rgb",  "rgb_16",
                                                "rgb_fp", "rgb_h",   "a",       "a_16",    "a_fp", "s",
                                                "s_16",   "s_fp",    "vta",     "vts",     "z",    "n",
                                                "m",      "tag",     "bit",     "coverage"};
            if (std::find(std::begin(types), std::end(types), type.value) == std::end(types))
                fail(type, "unknown data type " + quoted(type) +
                               ", expected rgba, rgb, a or s (plain or with _16, _fp), rgba_h, rgb_h, vta, "
                               "vts, z, n, "
                               "m, tag, bit or coverage");
            b.datatype = type.value;
        } else if (accept("compression")) {
            const Token kind = name("a compression");
            static const char* const kinds[] = {"none", "rle", "piz", "zip", "pxr24"};
            if (std::find(std::begin(kinds), std::end(kinds), kind.value) == std::end(kinds))
                fail(kind, "unknown compression " + quoted(kind) + ", expected none, rle, piz, zip or pxr24");
            b.compression = kind.value;
        } else if (accept("quality")) {
            b.quality = integer(1, 100);
        } else if (accept("dpi")) {
            b.dpi = integer(1, 1 << 20);
        } else {
            break;
        }
    }
    // Colours of a user's buffer are kept as the shader wrote them unless it is said otherwise.
    b.premultiplied = given ? premultiplied : premultiplied && !b.user;
}

// `output "type" "filetype" "file"` writes a buffer, named after its type; `output shader...` adds shaders.
void Parser::output(Element& camera, std::vector<FramebufferDesc>& buffers,
                    std::vector<std::pair<Token, miTag>>& outputs) {
    if (accept("null")) {
        camera.as<miCamera>()->output = miNULLTAG;
        return;
    }
    const Token first = lexer_.peek();
    if (first.kind != Kind::string || lexer_.following() != '"') {
        for (auto& item : shader_items(miSHADER_OUTPUT))
            outputs.push_back(std::move(item));
        return;
    }
    lexer_.next();
    FramebufferDesc buffer;
    buffer.name = buffer.datatype = first.value;
    buffer.filetype = text("a file type");
    buffer.filename = text("a file name");
    buffer.primary = first.value.starts_with("rgb");
    std::erase_if(buffers, [&](const FramebufferDesc& known) { return known.name == buffer.name; });
    buffers.push_back(std::move(buffer));
}

// ---- material ------------------------------------------------------------------------------------

void Parser::material() {
    const Token word = name("the name of the material");
    if (lexer_.peek().is('=') && lexer_.following() != 'i')
        return material_phenomenon(word);
    Element& element = define(word, miSCENE_MATERIAL, sizeof(miMaterial), "material");
    auto& m = *element.as<miMaterial>();
    struct SlotInfo {
        const char* word;
        miTag miMaterial::*slot;
        miShader_type kind;
    };
    static const SlotInfo slots[] = {{"shader", &miMaterial::shader, miSHADER_MATERIAL},
                                     {"displace", &miMaterial::displace, miSHADER_DISPLACE},
                                     {"shadow", &miMaterial::shadow, miSHADER_SHADOW},
                                     {"volume", &miMaterial::volume, miSHADER_VOLUME},
                                     {"environment", &miMaterial::environment, miSHADER_ENVIRONMENT},
                                     {"contour", &miMaterial::contour, miSHADER_CONTOUR},
                                     {"photon", &miMaterial::photon, miSHADER_PHOTON},
                                     {"photonvol", &miMaterial::photonvol, miSHADER_PHOTONVOL},
                                     {"lightmap", &miMaterial::lightmap, miSHADER_LIGHTMAP}};
    const auto slot_owner = [&](const SlotInfo& slot) {
        return owner(element, Slot::material, static_cast<unsigned>(&slot - slots));
    };
    if (accept("opaque"))
        m.opaque = optional_on_off();
    const Token& next = lexer_.peek();
    if (next.kind == Kind::string || next.is('=') || (next.kind == Kind::name && lexer_.following() == '('))
        m.shader = shaders(miSHADER_MATERIAL, slot_owner(slots[0]));
    while (!lexer_.peek().is("end")) {
        const Token statement = lexer_.peek();
        if (accept("bsdf")) {
            shaders(miNSHADERTYPES, owner(element, Slot::material, std::size(slots)));
            warn(place_of(statement), "bsdf shaders are not supported yet and without effect");
            continue;
        }
        const auto slot = std::find_if(std::begin(slots), std::end(slots),
                                       [&](const SlotInfo& s) { return accept(s.word); });
        if (slot == std::end(slots))
            fail_unknown("a material",
                         "shader, displace, shadow, volume, environment, contour, photon, photonvol, "
                         "lightmap, bsdf or end material");
        const bool empty_list = at_name() && lexer_.following() == '(';
        m.*(slot->slot) = shaders(slot->kind, slot_owner(*slot));
        if (empty_list && slot != slots)
            inherit_parameters(m.shader, m.*(slot->slot));
    }
    check_cycle(element, word);
    end_of("material");
}

// A shader that is given without any parameter, and is declared to take the same ones as the main shader of
// its material or light, takes that shader's.
void Parser::inherit_parameters(miTag main_shader, miTag shader) {
    Element* function = scene_.database.find(shader);
    const Element* source = scene_.database.find(main_shader);
    if (!function || !source || empty_parameters_ != shader)
        return;
    const auto& wanted = function->shader->declaration->params;
    const auto& offered = source->shader->declaration->params;
    const auto same = [](const Param& a, const Param& b) { return a.name == b.name && same_type(a, b); };
    if (wanted.empty() || !std::equal(wanted.begin(), wanted.end(), offered.begin(), offered.end(), same))
        return;
    BlockBuilder block(wanted, function->shader->declaration->block_size);
    for (const Param& param : wanted)
        block.copy(param.offset, param, view_block(*source), param.offset);
    store_block(scene_.database, *function, block);
    function->as<miFunction>()->parameter_indirect = main_shader;
}

// `material "m" = "phenomenon" ( ... ) end material`: a phenomenon that returns a material.
void Parser::material_phenomenon(const Token& name) {
    expect('=');
    const Token at = lexer_.peek();
    const Element& function = shader(miNSHADERTYPES);
    const auto* root = scene_.database.record<miMaterial>(function.shader->root, miSCENE_MATERIAL);
    if (!root)
        fail(at, "the phenomenon \"" + function.shader->declaration->name + "\" does not return a material");
    Element& element = define(name, miSCENE_MATERIAL, sizeof(miMaterial), "material");
    *element.as<miMaterial>() = *root;
    end_of("material");
}

// ---- light ---------------------------------------------------------------------------------------

void Parser::light() {
    const Token word = name("the name of the light");
    Element& element = define(word, miSCENE_LIGHT, sizeof(miLight), "light");
    auto& l = *element.as<miLight>();
    if (!incremental_) {
        l.exponent = 1.0f;
        l.samples_u = l.samples_v = l.low_samples_u = l.low_samples_v = 1;
        l.shadowmap_samples = 1;
        element.lacks_energy = true;
    }
    bool origin = incremental_ && (l.type != miLIGHT_DIRECTION || l.dirlight_has_org);
    bool direction = incremental_ && l.type != miLIGHT_ORIGIN;
    bool spread = incremental_ && l.type == miLIGHT_SPOT;
    std::vector<std::pair<Token, miTag>> data;
    const Token& next = lexer_.peek();
    if (next.kind == Kind::string || next.is('=') || (next.kind == Kind::name && lexer_.following() == '('))
        l.shader = shaders(miSHADER_LIGHT, owner(element, Slot::shader));
    while (!lexer_.peek().is("end")) {
        const Token at = lexer_.peek();
        if (accept("emitter")) {
            const bool empty_list = at_name() && lexer_.following() == '(';
            l.emitter = shaders(miSHADER_PHOTONEMIT, owner(element, Slot::emitter));
            if (empty_list)
                inherit_parameters(l.shader, l.emitter);
        } else if (accept("origin")) {
            l.origin = vector();
            origin = true;
        } else if (accept("direction")) {
            l.direction = vector();
            if (mi_vector_norm(&l.direction) == 0.0f)
                fail(at, "the light's direction is a null vector");
            mi_vector_normalize(&l.direction);
            direction = true;
        } else if (accept("spread")) {
            l.spread = scalar();
            if (!(l.spread >= -1.0f && l.spread <= 1.0f))
                fail(at, "the spread is a cosine, from -1 to 1");
            spread = true;
        } else if (accept("visible")) {
            l.visible = optional_on_off();
        } else if (accept("tag")) {
            l.label = static_cast<miUint>(lexer_.to_integer(lexer_.next(), 0, UINT32_MAX));
        } else if (accept("data")) {
            attach_data(data, l.userdata);
        } else if (accept("energy")) {
            l.energy = color(1.0f);
            element.lacks_energy = false;
        } else if (accept("exponent")) {
            l.exponent = scalar();
        } else if (lexer_.peek().is("caustic") || lexer_.peek().is("globillum")) {
            const bool caustic = lexer_.next().is("caustic");
            expect("photons");
            (caustic ? l.caustic_store_photons : l.global_store_photons) = static_cast<miUint>(integer(0));
            if (at_number())
                (caustic ? l.caustic_emit_photons : l.global_emit_photons) = static_cast<miUint>(integer(0));
        } else if (accept("shadowmap")) {
            light_shadowmap(l);
        } else {
            light_area(l, at);
        }
    }
    light_type(l, origin, direction, spread, word);
    chain(data, owner(element, Slot::data), "data block");
    end_of("light");
}

void Parser::light_type(miLight& light, bool origin, bool direction, bool spread, const Token& name) {
    if (!origin && !direction)
        fail(name, "a light needs an origin or a direction");
    if (spread && !(origin && direction))
        fail(name, "a light with a spread is a spot light and needs an origin and a direction");
    light.type = spread ? miLIGHT_SPOT : direction ? miLIGHT_DIRECTION : miLIGHT_ORIGIN;
    light.dirlight_has_org = light.type == miLIGHT_DIRECTION && origin;
}

miTag Parser::shadowmap_file() {
    expect("file");
    const Token file = name("a file name");
    return make_string(file.value, place_of(file));
}

void Parser::light_shadowmap(miLight& light) {
    if (accept("resolution"))
        light.shadowmap_resolution = integer(0, largest_picture);
    else if (accept("softness"))
        light.shadowmap_softness = scalar();
    else if (accept("samples"))
        light.shadowmap_samples = integer(1, 1 << 16);
    else if (lexer_.peek().is("file"))
        light.shadowmap_file = shadowmap_file();
    else
        light.use_shadow_maps = optional_on_off();
}

// `rectangle u v`, `disc normal radius`, `sphere radius`, `cylinder axis radius`, `object "o"` or `user`,
// then [samples u v [level low_u low_v]].
void Parser::light_area(miLight& light, const Token& word) {
    const auto radius = [this] {
        const Token at = lexer_.peek();
        const float value = scalar();
        if (!(value > 0.0f))
            fail(at, "the radius must be positive");
        return value;
    };
    auto& shape = light.primitive;
    if (accept("rectangle")) {
        light.area = miLIGHT_RECTANGLE;
        shape.rectangle.edge_u = vector();
        shape.rectangle.edge_v = vector();
    } else if (accept("disc")) {
        light.area = miLIGHT_DISC;
        shape.disc.normal = vector();
        if (mi_vector_norm(&shape.disc.normal) == 0.0f)
            fail(word, "the disc's normal is a null vector");
        mi_vector_normalize(&shape.disc.normal);
        shape.disc.radius = radius();
    } else if (accept("sphere")) {
        light.area = miLIGHT_SPHERE;
        shape.sphere.radius = radius();
    } else if (accept("cylinder")) {
        light.area = miLIGHT_CYLINDER;
        shape.cylinder.axis = vector();
        shape.cylinder.radius = radius();
    } else if (accept("object")) {
        light.area = miLIGHT_OBJECT;
        shape.object.object = resolve(name("the name of an object"), miSCENE_OBJECT, "object").tag;
    } else if (accept("user")) {
        light.area = miLIGHT_USER;
    } else {
        fail_unknown("a light",
                     "emitter, origin, direction, spread, rectangle, disc, sphere, cylinder, object, user, "
                     "visible, tag, data, energy, exponent, caustic, globillum, shadowmap or end light");
    }
    if (!at_number())
        return;
    const auto count = [this] { return static_cast<short>(integer(1, 1024)); };
    light.samples_u = light.low_samples_u = count();
    light.samples_v = light.low_samples_v = count();
    if (!at_number())
        return;
    light.low_level = static_cast<short>(integer(0, deepest_trace));
    light.low_samples_u = count();
    light.low_samples_v = count();
}

} // namespace stage::mi
