#include "render/demands.h"

#include "kit/message.h"

namespace stage {

namespace {

void warn(const Element& element, const char* feature) {
    send_message(MessageLevel::warning, "%s: \"%s\": %s not supported yet and without effect",
                 element.place.text().c_str(), element.name.c_str(), feature);
}

struct Feature {
    bool wanted;
    const char* name; // with its verb
};

template <std::size_t count> void warn_of(const Element& element, const Feature (&features)[count]) {
    for (const Feature& feature : features)
        if (feature.wanted)
            warn(element, feature.name);
}

void report_material(const Element& element) {
    const auto& m = *element.as<miMaterial>();
    warn_of(element, {{m.displace != miNULLTAG, "displacement is"},
                      {m.contour != miNULLTAG, "contours are"},
                      {m.photon != miNULLTAG || m.photonvol != miNULLTAG, "photons are"},
                      {m.lightmap != miNULLTAG, "light maps are"}});
}

void report_light(const Element& element) {
    const auto& l = *element.as<miLight>();
    warn_of(element, {{l.emitter != miNULLTAG || l.caustic_store_photons || l.global_store_photons ||
                           l.caustic_emit_photons || l.global_emit_photons,
                       "photons are"},
                      {l.use_shadow_maps != miFALSE, "shadow maps are"},
                      {l.area == miLIGHT_OBJECT || l.area == miLIGHT_USER, "an area of this kind is"}});
}

void report_options(const Element& element) {
    const auto& o = *element.as<miOptions>();
    warn_of(element, {{!element.state_shaders.empty(), "state shaders are"},
                      {o.caustic != miFALSE || o.globillum != miFALSE, "photons are"},
                      {o.finalgather != 0, "final gathering is"},
                      {o.dither != miFALSE, "dithering is"},
                      {o.desaturate != miFALSE, "desaturation is"}});
    for (const auto& [name, value] : element.string_options)
        warn(element, ("the string option " + name + " is").c_str());
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

void apply_shadow_demands(const Database& database, miOptions& options) {
    for (miTag tag = 1; tag <= database.size(); ++tag) {
        const Element& element = *database.find(tag);
        if (element.type != miSCENE_FUNCTION || !element.shader || !element.shader->declaration)
            continue;
        const std::string& word = element.shader->declaration->shadow_mode;
        if (word == "off" && options.shadow != 0)
            warn(element, "the demand for shadows to be off is");
        if (rank(demanded_mode(word)) > rank(options.shadow))
            options.shadow = demanded_mode(word);
    }
}

void report_unsupported(const Database& database, const miOptions& options) {
    for (miTag tag = 1; tag <= database.size(); ++tag) {
        const Element& element = *database.find(tag);
        if (element.type == miSCENE_MATERIAL)
            report_material(element);
        else if (element.type == miSCENE_LIGHT)
            report_light(element);
        else if (element.record == &options)
            report_options(element);
    }
}

} // namespace stage
