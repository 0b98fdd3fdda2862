// The images.
#include "patterns.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>

namespace imagegen {

namespace {

constexpr double pi = std::numbers::pi;

bool within(double x, double low, double high) {
    return low <= x && x < high;
}

// A letter F in a unit cell.
bool letter(double x, double y) {
    const bool stem = within(x, 0.3, 0.42) && within(y, 0.2, 0.8);
    const bool upper_arm = within(x, 0.3, 0.72) && within(y, 0.68, 0.8);
    const bool middle_arm = within(x, 0.3, 0.6) && within(y, 0.46, 0.58);
    return stem || upper_arm || middle_arm;
}

// Distance to a box around a centre; 0 within it.
double beyond(double x, double y, double centre_x, double centre_y, double half_width, double half_height) {
    return std::hypot(std::max(std::abs(x - centre_x) - half_width, 0.0),
                      std::max(std::abs(y - centre_y) - half_height, 0.0));
}

Color mix(Color a, Color b, double share) {
    return {std::lerp(a.r, b.r, share), std::lerp(a.g, b.g, share), std::lerp(a.b, b.b, share)};
}

// Degrees to the next multiple of 30.
double off_grid(double degrees) {
    return std::abs(degrees - 30 * std::round(degrees / 30));
}

// The direction of this longitude at that sine of the latitude. Longitude 0 is the middle of the image, where
// -x lies; it grows towards +y.
Direction towards(double longitude, double sine) {
    const double cosine = std::sqrt(std::max(0.0, 1 - sine * sine));
    return {-std::cos(longitude) * cosine, std::sin(longitude) * cosine, sine};
}

} // namespace

Color chart(double x, double y) {
    const double column = std::min(std::floor(x * 8), 7.0), row = std::min(std::floor(y * 8), 7.0);
    const bool first = column == 0 && row == 0;
    if (letter(x * 8 - column, y * 8 - row))
        return first ? Color{0, 0, 0} : Color{1, 1, 1};
    return first ? Color{1, 1, 1} : Color{column / 7, row / 7, 0.25};
}

Color relief(double x, double y) {
    const double stem = beyond(x, y, 0.34, 0.5, 0.05, 0.28);
    const double upper_arm = beyond(x, y, 0.53, 0.73, 0.19, 0.05);
    const double middle_arm = beyond(x, y, 0.48, 0.5, 0.14, 0.05);
    const double slope = 0.06, t = std::min(std::min({stem, upper_arm, middle_arm}) / slope, 1.0);
    return mix({1, 0.86, 0.5}, {0.08, 0.18, 0.28}, t * t * (3 - 2 * t));
}

Color zone_plate(double x, double y, double size) {
    const double dx = (x - 0.5) * size, dy = (y - 0.5) * size, square = dx * dx + dy * dy;
    const double value = square > size * size / 4 ? 0.5 : 0.5 + 0.5 * std::cos(pi / size * square);
    return {value, value, value};
}

Color level_color(int level) {
    static constexpr Color colors[] = {{1, 0, 0}, {1, 1, 0}, {0, 1, 0},       {0, 1, 1}, {0, 0, 1},
                                       {1, 0, 1}, {1, 1, 1}, {0.4, 0.4, 0.4}, {0, 0, 0}};
    return colors[std::min<std::size_t>(static_cast<std::size_t>(level), std::size(colors) - 1)];
}

Color world(Direction d) {
    const double disc = std::cos(12 * pi / 180);
    if (std::abs(d.x) > disc)
        return d.x > 0 ? Color{1, 0, 0} : Color{0, 1, 1};
    if (std::abs(d.y) > disc)
        return d.y > 0 ? Color{0, 1, 0} : Color{1, 0, 1};
    if (std::abs(d.z) > disc)
        return d.z > 0 ? Color{0, 0, 1} : Color{1, 1, 0};

    const double latitude = std::asin(d.z) * 180 / pi, longitude = std::atan2(d.y, d.x) * 180 / pi;
    const double around = std::cos(latitude * pi / 180);
    if (off_grid(latitude) < 0.6 || off_grid(longitude) * around < 0.6)
        return {0.9, 0.9, 0.9};
    return d.z >= 0 ? mix({0.6, 0.7, 0.8}, {0.1, 0.2, 0.5}, d.z)
                    : mix({0.4, 0.3, 0.2}, {0.1, 0.08, 0.05}, -d.z);
}

Direction spherical(double x, double y) {
    return towards((x - 0.5) * 2 * pi, std::sin((y - 0.5) * pi));
}

Direction cylindrical(double x, double y) {
    double slope = (y - 0.5) * 4; // height over the distance from the axis
    if (slope > 1)
        slope = 1 / std::max(2 - slope, 1e-9);
    else if (slope < -1)
        slope = -1 / std::max(2 + slope, 1e-9);
    return towards((x - 0.5) * 2 * pi, slope / std::hypot(1, slope));
}

Direction shrink_wrap(double x, double y) {
    const double from_top = std::min(2 * pi * std::hypot(x - 0.5, y - 0.5), pi); // 0 at +z, pi at -z
    return towards(std::atan2(y - 0.5, x - 0.5), std::cos(from_top));
}

} // namespace imagegen
