// Instances and instance groups: what stands where in the scene.
#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "mi/parser_impl.h"

namespace stage::mi {

namespace {

constexpr miUint1 inherit = 4; // a flag or mode that is left to the item

// Gauss-Jordan with row pivoting, in double precision; false for a singular matrix.
bool invert(const miScalar* matrix, miScalar* result) {
    std::array<std::array<double, 8>, 4> rows{};
    for (std::size_t i = 0; i < 4; ++i) {
        for (std::size_t j = 0; j < 4; ++j)
            rows[i][j] = double{matrix[i * 4 + j]};
        rows[i][4 + i] = 1.0;
    }
    for (std::size_t column = 0; column < 4; ++column) {
        std::size_t pivot = column;
        for (std::size_t i = column + 1; i < 4; ++i)
            if (std::abs(rows[i][column]) > std::abs(rows[pivot][column]))
                pivot = i;
        if (rows[pivot][column] == 0.0)
            return false;
        std::swap(rows[pivot], rows[column]);
        const double scale = 1.0 / rows[column][column];
        for (double& value : rows[column])
            value *= scale;
        for (std::size_t i = 0; i < 4; ++i) {
            const double factor = i == column ? 0.0 : rows[i][column];
            for (std::size_t j = 0; j < 8; ++j)
                rows[i][j] -= factor * rows[column][j];
        }
    }
    for (std::size_t i = 0; i < 4; ++i) {
        for (std::size_t j = 0; j < 4; ++j) {
            result[i * 4 + j] = static_cast<miScalar>(rows[i][4 + j]);
            if (!std::isfinite(result[i * 4 + j]))
                return false;
        }
    }
    return true;
}

void set_identity(miScalar* matrix) {
    for (int i = 0; i < 16; ++i)
        matrix[i] = i % 5 == 0 ? 1.0f : 0.0f;
}

bool is_identity(const miScalar* matrix) {
    for (int i = 0; i < 16; ++i)
        if (matrix[i] != (i % 5 == 0 ? 1.0f : 0.0f))
            return false;
    return true;
}

miInstance default_instance() {
    miInstance i{};
    set_identity(i.tf.global_to_local);
    set_identity(i.tf.local_to_global);
    set_identity(i.motion_transform);
    i.tf.identity = miTRUE;
    i.visible = i.shadow = i.trace = i.reflection = i.refraction = i.transparency = inherit;
    i.caustic = i.globillum = i.finalgather = inherit;
    return i;
}

} // namespace

void Parser::instance() {
    const Token word = name("the name of the instance");
    Element& element = define(word, miSCENE_INSTANCE, sizeof(miInstance), "instance");
    auto& i = *element.as<miInstance>();
    if (!incremental_)
        i = default_instance();
    if (accept("geometry")) {
        i.item = shader(miSHADER_GEOMETRY).tag;
    } else if (lexer_.peek().kind == Kind::string || !incremental_) {
        const Token item = name("the name of what is instanced");
        const Element& found = resolve(item, "element");
        const int type = found.type;
        if (type != miSCENE_OBJECT && type != miSCENE_LIGHT && type != miSCENE_CAMERA &&
            type != miSCENE_GROUP)
            fail(item, '"' + std::string(item.value) + "\" (defined at " + found.place.text() +
                           ") is no object, light, camera or instance group");
        i.item = found.tag;
    }
    std::vector<std::pair<Token, miTag>> data;
    while (!sees("end")) {
        if (accept("data"))
            attach_data(data, i.userdata);
        else if (!instance_flags(i) && !instance_place(i) && !instance_lists(i) && !instance_approximation())
            fail_unknown("an instance");
    }
    chain(data, owner(element, Slot::data), "data block");
    end_of("instance");
}

// A flag that may be on, off or a number: bit 0 casts, bit 1 receives.
miUint1 Parser::mode(int most) {
    if (at_number())
        return static_cast<miUint1>(integer(0, most));
    return static_cast<miUint1>(optional_on_off() ? most : 0);
}

// Off casts none, as the word is used everywhere: what takes no shadows says so by a number.
miUint1 Parser::shadow_mode() {
    if (at_number())
        return mode(3);
    return optional_on_off() ? 3 : 2;
}

bool Parser::instance_flags(miInstance& i) {
    if (accept("visible")) {
        i.visible = optional_on_off() ? 1 : 0;
        return true;
    }
    if (accept("trace")) {
        i.trace = optional_on_off() ? 1 : 0;
        return true;
    }
    static const std::pair<const char*, miUint1 miInstance::*> modes[] = {
        {"reflection", &miInstance::reflection},     {"refraction", &miInstance::refraction},
        {"transparency", &miInstance::transparency}, {"caustic", &miInstance::caustic},
        {"globillum", &miInstance::globillum},       {"finalgather", &miInstance::finalgather}};
    for (const auto& [word, flag] : modes) {
        if (accept(word)) {
            i.*flag = mode(3);
            return true;
        }
    }
    if (accept("shadow"))
        i.shadow = shadow_mode();
    else if (accept("shadowmap"))
        optional_on_off(); // of lights with shadow maps, which tell that they have none
    else if (accept("hide"))
        i.off = optional_on_off();
    else if (accept("override"))
        i.override_material = 1;
    else if (accept("face"))
        i.face = static_cast<miUint1>(choice({{"front", 'f'}, {"back", 'b'}, {"both", 'a'}}));
    else if (accept("tag"))
        i.label = static_cast<miUint>(lexer_.to_integer(lexer_.next(), 0, UINT32_MAX));
    else
        return false;
    return true;
}

bool Parser::instance_place(miInstance& i) {
    const Token at = lexer_.peek();
    if (accept("transform")) {
        matrix(i.tf.global_to_local);
        if (!invert(i.tf.global_to_local, i.tf.local_to_global))
            fail(at, "the transform has no inverse");
        i.tf.identity = is_identity(i.tf.global_to_local);
    } else if (accept("motion")) {
        if (accept("off")) {
            i.gen_motion = 2;
        } else if (accept("inherit")) {
            i.gen_motion = 0;
        } else {
            expect("transform");
            miMatrix inverse;
            matrix(i.motion_transform);
            if (!invert(i.motion_transform, inverse))
                fail(at, "the motion transform has no inverse");
            i.gen_motion = 1;
        }
    } else {
        return false;
    }
    return true;
}

bool Parser::instance_lists(miInstance& i) {
    if (accept("material")) {
        instance_materials(i);
    } else if (accept("light")) {
        instance_lights(i);
    } else if (lexer_.peek().is('(')) {
        const Token at = lexer_.peek();
        if (!inheritance_)
            fail(at, "parameters of an instance need their declaration: name it with inheritance in the "
                     "options, or write parameters \"data declaration\" ( ... )");
        i.parameters = data_block(at, *inheritance_).tag;
    } else if (accept("parameters")) {
        const Token word = name("the name of a data declaration");
        i.parameters = data_block(word, declaration(word, true)).tag;
    } else {
        return false;
    }
    return true;
}

// How finely curved geometry is cut and shaded. Polygons are what they are, so this is passed over; told,
// since the scene asks for something.
bool Parser::instance_approximation() {
    const Token at = lexer_.peek();
    if (accept("shading")) {
        expect("samples");
        scalar();
        warn(place_of(at), "shading samples are not supported yet and without effect");
        return true;
    }
    if (!accept("approximate"))
        return false;
    static constexpr std::string_view words[] = {
        "surface",  "displace", "trim",    "curve",     "all",      "view",    "any",         "sharp",
        "fine",     "implicit", "tree",    "grid",      "delaunay", "regular", "parametric",  "length",
        "distance", "angle",    "spatial", "curvature", "samples",  "max",     "nosmoothing", "null"};
    const auto continues = [this] {
        const Token& next = lexer_.peek();
        return at_number() || next.kind == Kind::string || next.is('[') || next.is(']') || next.is(',') ||
               std::any_of(std::begin(words), std::end(words), [&](auto word) { return next.is(word); });
    };
    while (continues())
        lexer_.next();
    warn(place_of(at), "approximations are without effect: all geometry is polygons");
    return true;
}

void Parser::instance_materials(miInstance& i) {
    const Place place = place_of(lexer_.peek());
    i.mtl_array_size = 0;
    if (!accept('[')) {
        i.material = accept('=')
                         ? (accept("interface") ? interface_tag(miTYPE_MATERIAL) : reference(miTYPE_MATERIAL))
                         : reference(miTYPE_MATERIAL);
        return;
    }
    std::vector<miTag> tags;
    while (!accept(']')) {
        tags.push_back(reference(miTYPE_MATERIAL));
        if (!accept(',') && !lexer_.peek().is(']') && !at_name())
            fail_expected("a material, ',' or ']'");
    }
    i.material = tags.empty() ? miNULLTAG : make_tags(tags, place);
    i.mtl_array_size = static_cast<int>(tags.size());
}

// `light [shadow] [exclusive] "l"` or a list of them.
void Parser::instance_lights(miInstance& i) {
    const bool shadow = accept("shadow");
    (shadow ? i.exclusive_shadow_lights : i.exclusive_lights) = accept("exclusive");
    const auto [list, count] = light_list();
    (shadow ? i.shadow_light_list : i.light_list) = list;
    (shadow ? i.shadow_light_list_size : i.light_list_size) = count;
}

std::pair<miTag, int> Parser::light_list() {
    const Place place = place_of(lexer_.peek());
    if (!accept('[')) {
        const miTag tag = reference(miTYPE_LIGHT);
        return tag == miNULLTAG ? std::pair{miNULLTAG, 0} : std::pair{make_tags({tag}, place), 1};
    }
    std::vector<miTag> tags;
    while (!accept(']')) {
        tags.push_back(reference(miTYPE_LIGHT));
        if (!accept(',') && !lexer_.peek().is(']') && !at_name())
            fail_expected("a light, ',' or ']'");
    }
    return {make_tags(tags, place), static_cast<int>(tags.size())};
}

void Parser::group() {
    const Token word = name("the name of the instance group");
    Element& element = define(word, miSCENE_GROUP, sizeof(miGroup), "instance group");
    std::vector<miTag> kids;
    bool given = !incremental_;
    std::vector<std::pair<Token, miTag>> data;
    while (!sees("end")) {
        if (lexer_.peek().kind == Kind::string) {
            kids.push_back(resolve(lexer_.next(), miSCENE_INSTANCE, "instance").tag);
            given = true;
        } else if (accept("tag")) {
            element.as<miGroup>()->label =
                static_cast<miUint>(lexer_.to_integer(lexer_.next(), 0, UINT32_MAX));
        } else if (accept("data")) {
            attach_data(data, element.as<miGroup>()->userdata);
        } else {
            fail_unknown("an instance group", "the name of an instance");
        }
    }
    if (given) {
        scene_.database.resize(element,
                               sizeof(miGroup) + (kids.empty() ? 0 : kids.size() - 1) * sizeof(miTag));
        auto& g = *element.as<miGroup>();
        g.no_kids = g.max_kids = static_cast<int>(kids.size());
        for (std::size_t k = 0; k < kids.size(); ++k)
            (&g.kids[0])[k] = kids[k];
    }
    chain(data, owner(element, Slot::data), "data block");
    end_of("instgroup");
}

} // namespace stage::mi
