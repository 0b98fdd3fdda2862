// Makes an image from a formula: test charts and surroundings for the example scenes.
#include <algorithm>
#include <bit>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <OpenImageIO/imageio.h>

#include "patterns.h"

namespace {

using namespace imagegen;
using Pattern = std::function<Color(double x, double y)>;

// The mean of n * n points of every texel; rows from the top, as files have them.
std::vector<float> texels(const Pattern& pattern, int width, int height, int n) {
    std::vector<float> values;
    values.reserve(std::size_t{3} * static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            Color sum{};
            for (int i = 0; i < n * n; ++i) {
                const int right = i % n, down = i / n;
                const double x = (column + (right + 0.5) / n) / width,
                             y = 1 - (row + (down + 0.5) / n) / height;
                const Color c = pattern(x, y);
                sum = {sum.r + c.r, sum.g + c.g, sum.b + c.b};
            }
            for (const double value : {sum.r, sum.g, sum.b})
                values.push_back(static_cast<float>(value / (n * n)));
        }
    return values;
}

struct Level {
    int width, height;
    std::vector<float> values;
};

// Floats in EXR files, 8 bits in others. Several levels, each half the size of the one before, need a format
// that has them, as TIFF does.
bool write(const std::string& file, const std::vector<Level>& levels) {
    const auto output = OIIO::ImageOutput::create(file);
    bool good = output != nullptr;
    for (const Level& level : levels) {
        const bool first = &level == levels.data();
        OIIO::ImageSpec spec(level.width, level.height, 3,
                             file.ends_with(".exr") ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8);
        if (levels.size() > 1) {
            spec.tile_width = spec.tile_height = 64;
            spec["textureformat"] = "Plain Texture"; // has the file prepared for levels
        }
        good =
            good &&
            output->open(file, spec, first ? OIIO::ImageOutput::Create : OIIO::ImageOutput::AppendMIPLevel) &&
            output->write_image(OIIO::TypeDesc::FLOAT, level.values.data());
    }
    if (good && output->close())
        return true;
    std::cerr << "imagegen: cannot write " << file << ": " << (output ? output->geterror() : OIIO::geterror())
              << '\n';
    return false;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Writes an image that is given by a formula."};
    app.require_subcommand(1);
    app.fallthrough();
    std::string file;
    int width = 512, height = 512, samples = 4;
    app.add_option("-o,--output", file, "PNG or EXR file to write")->required();
    app.add_option("--width", width)->check(CLI::Range(1, 16384));
    app.add_option("--height", height)->check(CLI::Range(1, 16384));
    app.add_option("--samples", samples, "Points of a texel along each side")->check(CLI::Range(1, 64));

    Pattern pattern;
    app.add_subcommand("chart", "Cells of different colours, an F in each")->final_callback([&] {
        pattern = chart;
    });
    app.add_subcommand("relief", "A large F with soft edges")->final_callback([&] { pattern = relief; });
    app.add_subcommand("zone_plate", "Rings down to the width of two texels")->final_callback([&] {
        samples = 1; // the mean of a texel would fade the rings
        pattern = [size = std::min(width, height)](double x, double y) { return zone_plate(x, y, size); };
    });
    const std::map<std::string, Direction (*)(double, double)> projections{
        {"spherical", spherical}, {"cylindrical", cylindrical}, {"shrink_wrap", shrink_wrap}};
    std::string projection = "spherical";
    CLI::App* panorama = app.add_subcommand("panorama", "The world around, with marks of the axes");
    panorama->add_option("--projection", projection)->check(CLI::IsMember(projections));
    panorama->final_callback([&] {
        pattern = [direction = projections.at(projection)](double x, double y) {
            return world(direction(x, y));
        };
    });
    int count = 1;
    app.add_subcommand("levels", "Filter levels, each of a colour of its own")->final_callback([&] {
        samples = 1;
        count = std::bit_width(static_cast<unsigned>(std::max(width, height)));
    });
    CLI11_PARSE(app, argc, argv);

    std::vector<Level> levels;
    for (int i = 0; i < count; ++i) {
        if (count > 1)
            pattern = [i](double, double) { return level_color(i); };
        const int w = std::max(width >> i, 1), h = std::max(height >> i, 1);
        levels.push_back({w, h, texels(pattern, w, h, samples)});
    }
    return write(file, levels) ? EXIT_SUCCESS : EXIT_FAILURE;
}
