// Textures, light profiles and user data: elements whose contents are bytes or files.
#include <algorithm>
#include <cstring>

#include "mi/parser_impl.h"
#include "scene/color_profile.h"
#include "scene/light_profile.h"

namespace stage::mi {

namespace {

constexpr int largest_texture = 1 << 16;
constexpr std::size_t largest_image = std::size_t{1} << 31;
constexpr std::size_t large_data = std::size_t{16} << 20;

int hex_digit(char c) {
    return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
}

// How pixels lie in an image record.
struct Pixels {
    int width, height, comp, bytes;
    [[nodiscard]] std::size_t row() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(bytes);
    }
    [[nodiscard]] std::size_t rows() const {
        return static_cast<std::size_t>(height) * static_cast<std::size_t>(comp);
    }
};

int image_type(int comp, int bytes) {
    const int size = bytes == 1 ? 0 : bytes == 2 ? 1 : 2;
    switch (comp) {
    case 4:
        return miIMG_TYPE_RGBA + size;
    case 3:
        return miIMG_TYPE_RGB + size;
    default:
        return miIMG_TYPE_S + size;
    }
}

// Gives an image element room for its pixels, and the index of its scanlines, component by component.
void make_image(Database& database, Element& element, const Pixels& p) {
    const std::size_t head = offsetof(miImg_image, c) + p.rows() * sizeof(miIntptr);
    database.resize(element, std::max(sizeof(miImg_image), head + p.rows() * p.row()));
    auto* image = element.as<miImg_image>();
    image->width = p.width;
    image->height = p.height;
    image->bits = p.bytes * 8;
    image->comp = p.comp;
    image->type = image_type(p.comp, p.bytes);
    image->dirsize = 1;
    auto* index =
        reinterpret_cast<miIntptr*>(static_cast<std::byte*>(element.record) + offsetof(miImg_image, c));
    for (std::size_t k = 0; k < p.rows(); ++k)
        index[k] = static_cast<miIntptr>(head + k * p.row());
}

} // namespace

// ---- textures ------------------------------------------------------------------------------------

void Parser::texture() {
    bool local = false, filter = false, writable = false;
    float scale = 1.0f;
    for (;;) {
        if (accept("local")) {
            local = true;
        } else if (accept("filter")) {
            filter = true;
            if (at_number())
                scale = scalar();
        } else if (accept("writable")) {
            writable = true;
        } else {
            break;
        }
    }
    const auto kind = static_cast<miParam_type>(
        choice({{"color", miTYPE_COLOR_TEX}, {"scalar", miTYPE_SCALAR_TEX}, {"vector", miTYPE_VECTOR_TEX}}));
    expect("texture");
    const Token word = name("the name of the texture");
    const bool named = lexer_.peek().kind == Kind::string || lexer_.peek().kind == Kind::name;
    if (!writable && named && lexer_.following() == '(') {
        Element* existing = incremental_ ? &resolve(word, miSCENE_FUNCTION, "texture shader") : nullptr;
        if (!existing)
            check_new(word);
        const Token declared = lexer_.next();
        Element& function = instantiate(declaration(declared), declared, existing, qualified(word));
        if (!existing)
            give_name(function, word);
        return;
    }
    Element& element = define(word, miSCENE_IMAGE, sizeof(miImg_image), "texture");
    element.texture_filter = scale;
    element.loaded_image.store(nullptr, std::memory_order_relaxed);
    element.image.reset();
    miTag profile = miNULLTAG;
    element.color_profile = nullptr;
    if (accept("colorprofile")) {
        const Token given = name("the name of a colour profile");
        const Element& found = resolve(given, miSCENE_COLORPROFILE, "colour profile");
        profile = found.tag;
        element.color_profile = found.as<ColorProfile>();
    }
    if (writable)
        writable_texture(element, kind);
    else if (lexer_.peek().kind == Kind::string)
        texture_file(element);
    else
        texture_bytes(element, kind);
    auto* image = element.as<miImg_image>();
    image->filter = filter;
    image->local = local;
    image->writable = writable;
    image->colorprofile = profile;
}

void Parser::texture_file(Element& element) {
    const Token file = lexer_.next();
    const std::string path(file.value);
    scene_.database.resize(element, sizeof(miImg_image));
    *element.as<miImg_image>() = {};
    element.as<miImg_image>()->type = miIMG_TYPE_UNDEF; // known when the file is read
    element.as<miImg_image>()->real_name = make_string(path, place_of(file));
    element.file = find_file(path);
    if (element.file.empty())
        warn(place_of(file), "cannot find the file \"" + path + "\" of the texture \"" + element.name + '"');
}

// `w h [bytes for each component] 'hex' ...`: rows from the bottom up, pixels from the left, components of a
// pixel together, the low byte first. Brackets around the size are optional. A colour of two components is
// grey with alpha, which is kept as four.
void Parser::texture_bytes(Element& element, miParam_type kind) {
    const bool bracket = accept('[');
    const Token at = lexer_.peek();
    Pixels p{};
    p.width = integer(1, largest_texture);
    p.height = integer(1, largest_texture);
    p.bytes = at_number() ? integer(1, 4) : 1;
    if (p.bytes == 3)
        fail(at, "a component has 1, 2 or 4 bytes");
    if (bracket)
        expect(']');
    const std::vector<std::byte> bytes = byte_strings();
    const std::size_t pixels = static_cast<std::size_t>(p.width) * static_cast<std::size_t>(p.height);
    const std::size_t pixel = bytes.size() / pixels;
    p.comp = static_cast<int>(pixel / static_cast<std::size_t>(p.bytes));
    const bool fits = kind == miTYPE_SCALAR_TEX   ? p.comp == 1
                      : kind == miTYPE_VECTOR_TEX ? p.comp == 3
                                                  : p.comp >= 1;
    if (pixels * static_cast<std::size_t>(p.comp * p.bytes) != bytes.size() || !fits || p.comp > 4)
        fail(at, std::to_string(bytes.size()) + " bytes do not fill a " + type_name(kind) + " of " +
                     std::to_string(p.width) + " x " + std::to_string(p.height) + " pixels");

    element.file.clear();
    const auto given = static_cast<std::size_t>(p.comp), size = static_cast<std::size_t>(p.bytes);
    p.comp = given == 2 ? 4 : p.comp;
    make_image(scene_.database, element, p);
    auto* base = static_cast<std::byte*>(element.record);
    const auto* index = reinterpret_cast<const miIntptr*>(base + offsetof(miImg_image, c));
    const auto comp = static_cast<std::size_t>(p.comp);
    for (std::size_t i = 0; i < pixels * comp; ++i) {
        const std::size_t component = i % comp, x = i / comp % static_cast<std::size_t>(p.width);
        const std::size_t y = i / comp / static_cast<std::size_t>(p.width);
        const std::size_t source = given == 2 ? component / 3 : component;
        std::memcpy(base + index[y * comp + component] + x * size,
                    bytes.data() + (i / comp * given + source) * size, size);
    }
}

// `[w h]` or `"file" "type" ["format"] [w h]`: an image that shaders fill. Without a size it has that of its
// file.
void Parser::writable_texture(Element& element, miParam_type kind) {
    Pixels p{1, 1, kind == miTYPE_COLOR_TEX ? 4 : kind == miTYPE_VECTOR_TEX ? 3 : 1, 4};
    element.file.clear();
    element.texture_file_type.clear();
    if (lexer_.peek().kind == Kind::string) {
        const Token file = lexer_.next();
        if (file.value.empty())
            fail(file, "a file needs a name");
        element.file = file.value;
        p.width = p.height = 0;
        const Token type = name("the data type of the image");
        static const struct {
            const char* name;
            int comp, bytes;
        } types[] = {{"rgba", 4, 1},   {"rgba_16", 4, 2}, {"rgba_fp", 4, 4}, {"rgb", 3, 1}, {"rgb_16", 3, 2},
                     {"rgb_fp", 3, 4}, {"s", 1, 1},       {"s_16", 1, 2},    {"s_fp", 1, 4}};
        const auto* found = std::find_if(std::begin(types), std::end(types),
                                         [&](const auto& t) { return type.value == t.name; });
        if (found == std::end(types))
            fail(type,
                 "unknown data type " + quoted(type) + ", expected rgba, rgb or s, plain or with _16 or _fp");
        p.comp = found->comp;
        p.bytes = found->bytes;
        if (lexer_.peek().kind == Kind::string)
            element.texture_file_type = lexer_.next().value;
    }
    const Token at = lexer_.peek();
    const bool bracket = accept('[');
    if (at_number()) {
        p.width = integer(1, largest_texture);
        p.height = integer(1, largest_texture);
    }
    if (bracket)
        expect(']');
    if (p.rows() * p.row() > largest_image)
        fail(at, "the image is too large");
    make_image(scene_.database, element, p);
}

// ---- light profiles ------------------------------------------------------------------------------

void Parser::light_profile() {
    const Token word = name("the name of the light profile");
    Element& element = define(word, miSCENE_LIGHTPROFILE, 0, "light profile");
    while (!sees("end")) {
        if (accept("format")) {
            choice({{"ies", 0}});
        } else if (accept("file")) {
            const Token file = name("a file name");
            element.file = find_file(std::string(file.value));
            if (element.file.empty())
                warn(place_of(file), "cannot find the file \"" + std::string(file.value) +
                                         "\" of the light profile \"" + element.name + '"');
            else
                read_profile(element, file);
        } else {
            fail_unknown("a light profile");
        }
    }
    end_of("lightprofile");
}

void Parser::read_profile(Element& element, const Token& file) {
    try {
        element.profile = std::make_shared<const LightProfile>(read_light_profile_file(element.file));
    } catch (const SceneError& error) {
        fail(file, "light profile \"" + element.name + "\": " + error.what());
    }
}

// ---- user data -----------------------------------------------------------------------------------

std::vector<std::byte> Parser::byte_strings() {
    std::vector<std::byte> bytes;
    if (lexer_.peek().kind != Kind::bytes)
        fail_expected("a byte string such as '00ff'");
    while (lexer_.peek().kind == Kind::bytes) {
        const std::string_view digits = lexer_.next().value;
        for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
            bytes.push_back(static_cast<std::byte>(hex_digit(digits[i]) * 16 + hex_digit(digits[i + 1])));
    }
    return bytes;
}

void Parser::user_data() {
    const Token word = name("the name of the data block");
    Element* existing = incremental_ ? &resolve(word, miSCENE_USERDATA, "data block") : nullptr;
    if (!existing)
        check_new(word);
    const miUint old_label = existing ? existing->as<miUserdata>()->label : 0;
    const miUint label =
        accept("tag") ? static_cast<miUint>(lexer_.to_integer(lexer_.next(), 0, UINT32_MAX)) : old_label;
    const Token content = lexer_.peek();
    Element* element = nullptr;
    if (at_number()) {
        const int count = integer(0);
        const bool bracket = accept('[');
        std::vector<std::byte> bytes;
        if (count > 0 || lexer_.peek().kind == Kind::bytes)
            bytes = byte_strings();
        if (bracket)
            expect(']');
        if (bytes.size() != static_cast<std::size_t>(count))
            fail(content, std::to_string(count) + " bytes are announced, but " +
                              std::to_string(bytes.size()) + " are given");
        element = &make_data(existing, place_of(word), bytes, nullptr);
    } else if (!at_name()) {
        fail_expected("a number of bytes, a file name, or a declaration with parameters");
    } else if (lexer_.following() == '(') {
        lexer_.next();
        element = &data_block(content, declaration(content, true), existing);
    } else {
        lexer_.next();
        element = &make_data(existing, place_of(word), data_file(content), nullptr);
    }
    element->as<miUserdata>()->label = label;
    if (!existing)
        give_name(*element, word);
    if (static_cast<std::size_t>(element->as<miUserdata>()->parameter_size) > large_data)
        warn(place_of(word), "the data block \"" + element->name + "\" holds more than 16 MB");
}

std::vector<std::byte> Parser::data_file(const Token& name) {
    const std::string path = find_file(std::string(name.value));
    if (path.empty())
        fail(name, "cannot find the file \"" + std::string(name.value) + '"');
    try {
        const std::shared_ptr<Source> file = Source::open(path);
        const auto size = static_cast<std::size_t>(file->end() - file->begin());
        if (size > INT32_MAX)
            fail(name, "the file \"" + path + "\" is too large for a data block");
        std::vector<std::byte> bytes(size);
        if (size != 0)
            std::memcpy(bytes.data(), file->begin(), size);
        return bytes;
    } catch (const SceneError&) {
        throw;
    } catch (const std::runtime_error& error) {
        fail(name, error.what());
    }
}

Element& Parser::data_block(const Token& at, const Declaration& declaration, Element* existing) {
    BlockBuilder block(declaration.params, declaration.block_size);
    if (existing && existing->declaration == &declaration) {
        const BlockView old{reinterpret_cast<const std::byte*>(existing->as<miUserdata>()->parameters),
                            nullptr};
        for (const Param& param : declaration.params)
            block.copy(param.offset, param, old, param.offset);
    }
    parameters(block, declaration);
    if (!block.connections().empty())
        fail(at, "a data block cannot be connected to shaders");
    return make_data(existing, place_of(at), block.bytes(), &declaration);
}

Element& Parser::make_data(Element* existing, const Place& place, const std::vector<std::byte>& bytes,
                           const Declaration* declaration) {
    const std::size_t head = offsetof(miUserdata, parameters);
    const std::size_t size = std::max(sizeof(miUserdata), head + bytes.size());
    Element& element = existing ? *existing : scene_.database.add(miSCENE_USERDATA, {}, place, size);
    if (existing)
        scene_.database.resize(element, size);
    auto* record = element.as<miUserdata>();
    record->data_decl = declaration ? declaration->tag : miNULLTAG;
    record->parameter_size = static_cast<int>(bytes.size());
    record->one = 1;
    if (!bytes.empty())
        std::memcpy(record->parameters, bytes.data(), bytes.size());
    element.declaration = declaration;
    return element;
}

// The first `data` statement of a definition replaces what an edited element had; more of them are a chain.
void Parser::attach_data(std::vector<std::pair<Token, miTag>>& chain, miTag& head) {
    if (accept("null")) {
        chain.clear();
        head = miNULLTAG;
        return;
    }
    const Token word = name("the name of a data block");
    const miTag tag = resolve(word, miSCENE_USERDATA, "data block").tag;
    chain.emplace_back(word, tag);
    head = chain.front().second;
}

} // namespace stage::mi
