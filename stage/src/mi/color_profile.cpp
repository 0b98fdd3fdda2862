// Colour profiles.
#include "scene/color_profile.h"
#include "mi/parser_impl.h"

namespace stage::mi {

// `primaries`, `white` and `gamma` have the defaults of the render space; `matrix` takes the primaries'
// place.
void Parser::color_profile() {
    const Token word = name("the name of the colour profile");
    Element& element = define(word, miSCENE_COLORPROFILE, sizeof(ColorProfile), "colour profile");
    ColorProfile profile = incremental_ ? *element.as<ColorProfile>() : ColorProfile{};
    const auto chromaticity = [this] {
        const Token at = lexer_.peek();
        const double x = static_cast<double>(scalar()), y = static_cast<double>(scalar());
        if (!(y > 0.0))
            fail(at, "the y of a chromaticity must be above 0");
        return Chromaticity{x, y};
    };
    while (!sees("end")) {
        if (accept("primaries")) {
            for (Chromaticity& primary : profile.primaries)
                primary = chromaticity();
            profile.has_matrix = false;
        } else if (accept("white")) {
            profile.white = chromaticity();
        } else if (accept("matrix")) {
            for (double& value : profile.matrix)
                value = static_cast<double>(scalar());
            profile.has_matrix = true;
        } else if (accept("gamma")) {
            const Token at = lexer_.peek();
            profile.gamma = accept("srgb") ? 0.0 : static_cast<double>(scalar());
            if (!at.is("srgb") && !(profile.gamma > 0.0))
                fail(at, "a gamma must be above 0");
        } else {
            fail_unknown("a colour profile");
        }
    }
    if (!profile.settle())
        fail(lexer_.peek(),
             "the colour profile \"" + element.name +
                 "\" tells no colours apart: its primaries lie on a line, or its matrix has no "
                 "inverse");
    end_of("colorprofile");
    *element.as<ColorProfile>() = profile;
}

} // namespace stage::mi
