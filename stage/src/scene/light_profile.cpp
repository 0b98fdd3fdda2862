#include "scene/light_profile.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <numbers>

#include "scene/scene.h"

namespace stage {
namespace {

constexpr std::size_t largest_file = std::size_t{1} << 24; // bytes
constexpr double most_angles = 10000.0;

bool is_space(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == ',';
}

// The text, line by line, then number by number.
class Reader {
public:
    Reader(std::string_view text, const std::string& name) : rest_(text), name_(name) {}

    [[noreturn]] void fail(const std::string& message) const {
        throw SceneError(name_ + ":" + std::to_string(line_) + ": " + message);
    }
    // False at the end.
    bool next_line(std::string_view& line) {
        if (rest_.empty())
            return false;
        const std::size_t end = rest_.find('\n');
        line = rest_.substr(0, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        ++line_;
        return true;
    }
    // From here on numbers are read: the line that comes next is the current one.
    void begin_numbers() { ++line_; }
    bool at_end() {
        for (; !rest_.empty() && is_space(rest_.front()); rest_.remove_prefix(1))
            line_ += rest_.front() == '\n';
        return rest_.empty();
    }
    double number(const char* what) {
        if (at_end())
            fail(std::string("the file ends where ") + what + " is expected");
        const std::string_view word(
            rest_.begin(), std::find_if(rest_.begin(), rest_.end(), [](char c) { return is_space(c); }));
        const std::string_view digits = word.starts_with('+') ? word.substr(1) : word;
        double value = 0.0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (error != std::errc() || end != digits.data() + digits.size() || !std::isfinite(value))
            fail(std::string("expected ") + what + ", found \"" + std::string(word.substr(0, 40)) + '"');
        rest_.remove_prefix(word.size());
        return value;
    }
    int count(const char* what, double least) {
        const double value = number(what);
        if (!(value >= least && value <= most_angles) || value != std::floor(value))
            fail(std::string(what) + " must be a whole number from " +
                 std::to_string(static_cast<int>(least)) + " to " +
                 std::to_string(static_cast<int>(most_angles)));
        return static_cast<int>(value);
    }
    float factor(const char* what) {
        const double value = number(what);
        if (!(value >= 0.0))
            fail(std::string(what) + " must not be negative");
        return static_cast<float>(value);
    }
    std::vector<float> angles(int count, const std::string& what, double highest) {
        std::vector<float> angles;
        for (int k = 0; k < count; ++k) {
            const double angle = number(("a " + what).c_str());
            if (!(angle >= 0.0 && angle <= highest))
                fail("a " + what + " must lie from 0 to " + std::to_string(static_cast<int>(highest)));
            if (!angles.empty() && !(static_cast<float>(angle) > angles.back()))
                fail(what + "s must ascend");
            angles.push_back(static_cast<float>(angle));
        }
        return angles;
    }

private:
    std::string_view rest_;
    const std::string& name_;
    int line_ = 0;
};

// Everything up to the line about tilting. True when the second of the two factors before the watts counts:
// editions from 1995 on keep its place for other things.
bool read_header(Reader& reader) {
    bool old = true;
    std::string_view line;
    while (reader.next_line(line)) {
        if (line.starts_with("IESNA:LM-63-") || line.starts_with("IES:LM-63-"))
            old = line.ends_with("1986") || line.ends_with("1991");
        if (!line.starts_with("TILT="))
            continue;
        const std::string_view tilt = line.substr(5, line.find_last_not_of(" \t") - 4);
        if (tilt != "NONE")
            reader.fail("only TILT=NONE is supported");
        return old;
    }
    reader.fail("no line begins with TILT=");
}

// The whole circle, or a part that its mirror images complete.
bool covers_circle(const std::vector<float>& horizontal) {
    const float first = horizontal.front(), last = horizontal.back();
    if (horizontal.size() == 1)
        return first == 0.0f;
    return first == 0.0f ? last == 90.0f || last == 180.0f || last == 360.0f
                         : first == 90.0f && last == 270.0f;
}

// Into the range of the table.
double folded(const std::vector<float>& horizontal, double phi) {
    if (horizontal.front() == 90.0f)
        return phi < 90.0 ? 180.0 - phi : phi > 270.0 ? 540.0 - phi : phi;
    if (horizontal.back() <= 180.0f && phi > 180.0)
        phi = 360.0 - phi;
    return horizontal.back() <= 90.0f && phi > 90.0 ? 180.0 - phi : phi;
}

struct Between {
    std::size_t low, high;
    float part; // of the high one
};

// The angle lies within the table.
Between find(const std::vector<float>& angles, double angle) {
    if (angles.size() == 1)
        return {0, 0, 0.0f};
    const auto above = std::upper_bound(angles.begin() + 1, angles.end() - 1, static_cast<float>(angle));
    const auto high = static_cast<std::size_t>(above - angles.begin());
    const double width = double{angles[high]} - angles[high - 1];
    return {high - 1, high, static_cast<float>(std::clamp((angle - angles[high - 1]) / width, 0.0, 1.0))};
}

} // namespace

float LightProfile::value(const miVector& dir) const {
    constexpr double degrees = 180.0 / std::numbers::pi;
    const double theta = std::acos(std::clamp(-static_cast<double>(dir.z), -1.0, 1.0)) * degrees;
    if (!(theta >= vertical.front() && theta <= vertical.back()))
        return 0.0f;
    double phi = std::atan2(static_cast<double>(dir.y), static_cast<double>(dir.x)) * degrees;
    phi = folded(horizontal, phi < 0.0 ? phi + 360.0 : phi);
    const Between v = find(vertical, theta), h = find(horizontal, phi);
    const auto along = [&](std::size_t plane) {
        const float* row = candela.data() + plane * vertical.size();
        return row[v.low] + (row[v.high] - row[v.low]) * v.part;
    };
    const float low = along(h.low);
    return low + (along(h.high) - low) * h.part;
}

LightProfile read_light_profile(std::string_view text, const std::string& name) {
    Reader reader(text, name);
    const bool has_lamp_factor = read_header(reader);
    reader.begin_numbers();
    reader.factor("the number of lamps");
    reader.number("the lumens of a lamp"); // -1 where only absolute values are known
    float scale = reader.factor("the multiplier");
    const int verticals = reader.count("the number of vertical angles", 2.0);
    const int horizontals = reader.count("the number of horizontal angles", 1.0);
    if (reader.number("the type of photometry") != 1.0)
        reader.fail("only photometry of type C (1) is supported");
    for (const char* what : {"the kind of units", "the width", "the length", "the height"})
        reader.number(what);
    scale *= reader.factor("the ballast factor");
    const double lamp_factor = reader.number("the ballast-lamp factor");
    if (has_lamp_factor)
        scale *= static_cast<float>(lamp_factor);
    reader.number("the watts");

    LightProfile profile;
    profile.vertical = reader.angles(verticals, "vertical angle", 180.0);
    profile.horizontal = reader.angles(horizontals, "horizontal angle", 360.0);
    if (!covers_circle(profile.horizontal))
        reader.fail("horizontal angles must be 0 alone or run from 0 to 90, 180 or 360, or from 90 to 270");
    for (int k = 0; k < verticals * horizontals; ++k)
        profile.candela.push_back(reader.factor("a candela value") * scale);
    if (!reader.at_end())
        reader.fail("there are more values than the " + std::to_string(verticals) + " x " +
                    std::to_string(horizontals) + " angles ask for");
    if (!(scale >= 0.0f) || !std::all_of(profile.candela.begin(), profile.candela.end(),
                                         [](float c) { return std::isfinite(c); }))
        reader.fail("the multiplier and the factors lead to candela values that are no light");
    return profile;
}

LightProfile read_light_profile_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw SceneError(path + ": cannot be read");
    std::string text;
    for (char c; text.size() <= largest_file && file.get(c);)
        text.push_back(c);
    if (text.size() > largest_file)
        throw SceneError(path + ": the file is too large for a light profile");
    return read_light_profile(text, path);
}

} // namespace stage
