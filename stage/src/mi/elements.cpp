// Materials and lights.
#include <algorithm>

#include "mi/parser_impl.h"

namespace stage::mi {

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
    while (!sees("end")) {
        const Token statement = lexer_.peek();
        if (accept("bsdf")) {
            shaders(miNSHADERTYPES, owner(element, Slot::material, std::size(slots)));
            warn(place_of(statement), "bsdf shaders are not supported yet and without effect");
            continue;
        }
        const auto slot = std::find_if(std::begin(slots), std::end(slots),
                                       [&](const SlotInfo& s) { return accept(s.word); });
        if (slot == std::end(slots))
            fail_unknown("a material");
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
    LightPlace given{incremental_ && (l.type != miLIGHT_DIRECTION || l.dirlight_has_org),
                     incremental_ && l.type != miLIGHT_ORIGIN, incremental_ && l.type == miLIGHT_SPOT};
    std::vector<std::pair<Token, miTag>> data;
    const Token& next = lexer_.peek();
    if (next.kind == Kind::string || next.is('=') || (next.kind == Kind::name && lexer_.following() == '('))
        l.shader = shaders(miSHADER_LIGHT, owner(element, Slot::shader));
    while (!sees("end")) {
        const Token at = lexer_.peek();
        if (accept("emitter")) {
            const bool empty_list = at_name() && lexer_.following() == '(';
            l.emitter = shaders(miSHADER_PHOTONEMIT, owner(element, Slot::emitter));
            if (empty_list)
                inherit_parameters(l.shader, l.emitter);
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
        } else if (accept("shadowmap")) {
            light_shadowmap(l);
        } else if (!light_place(l, given) && !light_photons(l)) {
            light_area(l, at);
        }
    }
    light_type(l, given, word);
    chain(data, owner(element, Slot::data), "data block");
    end_of("light");
}

bool Parser::light_place(miLight& light, LightPlace& given) {
    const Token at = lexer_.peek();
    if (accept("origin")) {
        light.origin = vector();
        given.origin = true;
    } else if (accept("direction")) {
        light.direction = vector();
        if (mi_vector_norm(&light.direction) == 0.0f)
            fail(at, "the light's direction is a null vector");
        mi_vector_normalize(&light.direction);
        given.direction = true;
    } else if (accept("spread")) {
        light.spread = scalar();
        if (!(light.spread >= -1.0f && light.spread <= 1.0f))
            fail(at, "the spread is a cosine, from -1 to 1");
        given.spread = true;
    } else {
        return false;
    }
    return true;
}

bool Parser::light_photons(miLight& light) {
    const bool caustic = sees("caustic");
    if (!caustic && !sees("globillum"))
        return false;
    lexer_.next();
    expect("photons");
    (caustic ? light.caustic_store_photons : light.global_store_photons) = static_cast<miUint>(integer(0));
    if (at_number())
        (caustic ? light.caustic_emit_photons : light.global_emit_photons) = static_cast<miUint>(integer(0));
    return true;
}

void Parser::light_type(miLight& light, const LightPlace& given, const Token& name) {
    const auto [origin, direction, spread] = given;
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
        fail_unknown("a light");
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
