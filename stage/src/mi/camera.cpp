// Cameras and their frame buffers.
#include <algorithm>

#include "mi/parser_impl.h"

namespace stage::mi {

namespace {

constexpr float far_away = 1e6f;

constexpr std::string_view data_types[] = {
    "rgba", "rgba_16", "rgba_fp", "rgba_h", "rgb", "rgb_16", "rgb_fp", "rgb_h", "a",   "a_16", "a_fp",
    "s",    "s_16",    "s_fp",    "vta",    "vts", "z",      "n",      "m",     "tag", "bit",  "coverage"};
constexpr std::string_view compressions[] = {"none", "rle", "piz", "zip", "pxr24"};

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
    while (!sees("end")) {
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
            fail_unknown("a camera");
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

// A name of a list; `known` tells of the list.
std::string Parser::one_of(const char* what, std::span<const std::string_view> list, const char* known) {
    const Token word = name((std::string("a ") + what).c_str());
    if (std::find(list.begin(), list.end(), word.value) == list.end()) {
        Nearest near(word.value);
        std::for_each(list.begin(), list.end(), [&](std::string_view name) { near.offer(name); });
        fail(word, std::string("unknown ") + what + ' ' + quoted(word) +
                       (near.found() ? near.question() : std::string(", expected ") + known));
    }
    return std::string(word.value);
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
            b.datatype = one_of("data type", data_types,
                                "rgba, rgb, a or s (plain or with _16, _fp), rgba_h, rgb_h, vta, vts, z, n, "
                                "m, tag, bit or coverage");
        } else if (accept("compression")) {
            b.compression = one_of("compression", compressions, "none, rle, piz, zip or pxr24");
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

} // namespace stage::mi
