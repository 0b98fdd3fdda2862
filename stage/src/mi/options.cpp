// Options.
#include "mi/parser_impl.h"

namespace stage::mi {

void Parser::options() {
    const Token word = name("the name of the options");
    Element& element = define(word, miSCENE_OPTIONS, sizeof(miOptions), "options element");
    auto& o = *element.as<miOptions>();
    if (!incremental_)
        o = default_options();
    std::vector<std::pair<Token, miTag>> data;
    while (!sees("end")) {
        element.motion_said = element.motion_said || lexer_.peek().is("motion");
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
            fail_unknown("options", "a \"string option\"");
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
    } else if (sees("object") || sees("camera")) {
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

} // namespace stage::mi
