/*
 * Lights in the host have their colours as temperatures in kelvin. Such a colour is a matter of some thousand
 * operations and never changes, so an instance computes it once, in its init, and hands out copies.
 */
#include "orl_color.h"
#include "numeric.h"
#include "orlshaderapi.h"

namespace orl {
namespace {

// ---- instance data

// Where the renderer's accounts of memory place an instance's colour.
constexpr const char* allocation_file = "orl_color";

// ---- the observer

// Colour-matching functions of the CIE 1931 2 degree standard observer (CIE 15, "Colorimetry"; the digits are
// those of the Colour and Vision Research Laboratory's table) and the wavelength in nm.
struct ObserverRow {
    double x, y, z, wavelength;
};

// The first wavelength, 380 nm, stands apart with what Planck's law needs of it.
constexpr CieXyz observer_380{0.001368, 3.9e-05, 0.006450001};

constexpr ObserverRow observer[] = {
    {0.004243, 0.00012, 0.02005001, 390},
    {0.01431, 0.000396, 0.06785001, 400},
    {0.04351, 0.00121, 0.2074, 410},
    {0.13438, 0.004, 0.6456, 420},
    {0.2839, 0.0116, 1.3856, 430},
    {0.34828, 0.023, 1.74706, 440},
    {0.3362, 0.038, 1.77211, 450},
    {0.2908, 0.06, 1.6692, 460},
    {0.19536, 0.09098, 1.28764, 470},
    {0.09564, 0.13902, 0.8129501, 480},
    {0.03201, 0.20802, 0.46518, 490},
    {0.0049, 0.323, 0.272, 500},
    {0.0093, 0.503, 0.1582, 510},
    {0.06327, 0.71, 0.07824999, 520},
    {0.1655, 0.862, 0.04216, 530},
    {0.2904, 0.954, 0.0203, 540},
    {0.4334499, 0.9949501, 0.008749999, 550},
    {0.5945, 0.995, 0.0039, 560},
    {0.7621, 0.952, 0.0021, 570},
    {0.9163, 0.87, 0.001650001, 580},
    {1.0263, 0.757, 0.0011, 590},
    {1.0622, 0.631, 0.0008, 600},
    {1.0026, 0.503, 0.00034, 610},
    {0.8544499, 0.381, 0.00019, 620},
    {0.6424, 0.265, 0.00004999999, 630},
    {0.4479, 0.175, 0.00002, 640},
    {0.2835, 0.107, 0, 650},
    {0.1649, 0.061, 0, 660},
    {0.0874, 0.032, 0, 670},
    {0.04677, 0.017, 0, 680},
    {0.0227, 0.00821, 0, 690},
    {0.01135916, 0.004102, 0, 700},
    {0.005790346, 0.002091, 0, 710},
    {0.002899327, 0.001047, 0, 720},
    {0.001439971, 0.00052, 0, 730},
    {0.0006900786, 0.0002492, 0, 740},
    {0.0003323011, 0.00012, 0, 750},
    {0.0001661505, 0.00006, 0, 760},
    {0.00008307527, 0.00003, 0, 770},
    {0.00004150994, 0.00001499, 0, 780},
};
constexpr int observer_rows = static_cast<int>(sizeof observer / sizeof *observer);
static_assert(observer_rows == 40);

// ---- the black body

constexpr double c2 = 14387860; // second radiation constant, nm K

// Planck's law without its constant factor: wavelength^-5 / (exp(c2 / wavelength / temperature) - 1).
double planck(double fifth_power, double exponent) {
    return fifth_power / (numeric::exp(exponent) - 1.0);
}

double planck_at(double wavelength, double temperature) {
    // An exact product: whole numbers below 2^53.
    const double power = wavelength * wavelength * wavelength * wavelength * wavelength;
    return planck(1.0 / power, c2 / (wavelength * temperature));
}

} // namespace

// ---- mathematics

CieXyz black_body_xyz(double temperature) {
    const double first = 0.5 * planck(1.2620658543943516e-13, 37862.789473684206 / temperature);
    const double last = 0.5 * planck(3.4635940630517546e-15, 18445.97435897436 / temperature);
    CieXyz sum{first * observer_380.x, first * observer_380.y, first * observer_380.z};
    const auto add = [&sum](const ObserverRow& row, double power) {
        sum.x += row.x * power;
        sum.y += row.y * power;
        sum.z += row.z * power;
    };
    for (int i = 0; i < observer_rows - 1; ++i)
        add(observer[i], planck_at(observer[i].wavelength, temperature));
    add(observer[observer_rows - 1], last);
    return sum;
}

miColor black_body_color(miScalar temperature, miScalar luminance) {
    const CieXyz light = black_body_xyz(temperature == 0.0f ? 6500.0 : static_cast<double>(temperature));
    const double scale = (luminance == 0.0f ? 1.0 : static_cast<double>(luminance)) / light.y;
    // Rounded here, as the renderer's colours are.
    const double x = static_cast<float>(scale * light.x);
    const double y = static_cast<float>(scale * light.y);
    const double z = static_cast<float>(scale * light.z);
    return {static_cast<float>(0.990837872263233 * x - 0.00577796396524811 * y - 0.00296593288566432 * z),
            static_cast<float>(-0.0092415145193632 * x + 1.00942360497729 * y - 0.000424067868569085 * z),
            static_cast<float>(-0.00136056149006517 * x + 0.00276797502341025 * y + 0.971184175078803 * z),
            1.0f};
}

} // namespace orl

using namespace orl;

// ---- entry points

ORL_VERSION(color_shaders, zant_KelvinToColor);

ORL_EXPORT void zant_KelvinToColor_init(miState* state, const KelvinToColorParams* params,
                                        miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    auto* const color = new_instance_data<miColor>(state, {allocation_file, __LINE__});
    if (color == nullptr)
        return;
    *color = black_body_color(eval(state, params->temperature), eval(state, params->intensity));
    guard_nan(state, *color);
    mi_colorprofile_ciexyz_to_render(color, color);
}

ORL_EXPORT miBoolean zant_KelvinToColor(miColor* result, miState* state, const KelvinToColorParams*) {
    const auto* const color = instance_data<miColor>(state);
    *result = color != nullptr ? *color : miColor{0, 0, 0, 1};
    return color != nullptr;
}

ORL_EXPORT void zant_KelvinToColor_exit(miState* state, const KelvinToColorParams* params) {
    if (params != nullptr)
        delete_instance_data(state, {allocation_file, __LINE__});
}

ORL_VERSION(color_shaders, orl_color);

ORL_EXPORT miBoolean orl_color(miColor* result, miState* state, const ColorParams* params) {
    *result = eval(state, params->color);
    return miTRUE;
}
