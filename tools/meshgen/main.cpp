// Makes a mesh and writes it as an object of the scene language: the sculptures of the example scenes, and
// the large meshes of the benchmarks.
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "mesh.h"

namespace {

using namespace meshgen;

struct CommandLine {
    ObjectOptions options;
    std::string output;
    std::vector<double> motion{0, 0, 0}, spin{0, 0, 0};
    std::vector<std::uint32_t> charts; // none, or columns and rows
    double gutter = 0.03;

    // What the shapes take, some of them together.
    std::uint32_t columns = 96, rows = 48;
    double north_south = 1, east_west = 1, radius = 0.6, tip = 2.2;
    double width = 60, front = 30, back = 14, bend = 8, height = 40;
    int levels = 4;
    std::vector<double> profile;

    Mesh mesh; // of the shape that was asked for
};

void add_common_options(CLI::App& app, CommandLine& line) {
    app.add_option("-o,--output", line.output, "File to write")->required();
    app.add_option("--name", line.options.name, "Name of the object; the shape's own when left out");
    app.add_option("--motion", line.motion, "Motion of every vertex during the shutter interval")
        ->expected(3);
    app.add_option("--spin", line.spin,
                   "Turn about this axis during the shutter interval, its length in radians")
        ->expected(3);
    app.add_option("--charts", line.charts, "Cut the texture square into so many columns and rows of charts")
        ->expected(2)
        ->check(CLI::Range(1, 1000));
    app.add_option("--gutter", line.gutter, "Share of a chart's place that stays free on either side")
        ->check(CLI::Range(0.0, 0.49));
    app.add_flag("--triangles", line.options.triangles, "Cut quads into triangles");
}

CLI::App* shape(CLI::App& app, const char* name, const char* help, const std::function<void()>& make) {
    CLI::App* command = app.add_subcommand(name, help);
    command->final_callback(make);
    return command;
}

void add_sculptures(CLI::App& app, CommandLine& line) {
    CLI::App* command =
        shape(app, "superquadric", "A rounded box, cylinder, star or anything between", [&line] {
            line.mesh = superquadric(line.north_south, line.east_west, line.columns, line.rows);
        });
    command->add_option("--north-south", line.north_south, "Exponent of the profile")
        ->check(CLI::Range(0.05, 3.0));
    command->add_option("--east-west", line.east_west, "Exponent of the cross-section")
        ->check(CLI::Range(0.05, 3.0));
    command->add_option("--columns", line.columns)->check(CLI::Range(3, 10000));
    command->add_option("--rows", line.rows)->check(CLI::Range(2, 10000));

    command = shape(app, "trefoil", "A tube along the trefoil knot",
                    [&line] { line.mesh = trefoil(line.radius, line.columns, line.rows); });
    command->add_option("--radius", line.radius, "Radius of the tube")->check(CLI::Range(0.01, 0.9));
    command->add_option("--columns", line.columns)->check(CLI::Range(3, 10000));
    command->add_option("--rows", line.rows)->check(CLI::Range(3, 10000));

    command = shape(app, "ornament", "A star with twelve rounded points",
                    [&line] { line.mesh = ornament(line.tip, line.levels); });
    command->add_option("--tip", line.tip, "Radius of the points before they are rounded")
        ->check(CLI::Range(1.0, 10.0));
    command->add_option("--levels", line.levels, "Subdivision steps")->check(CLI::Range(1, 7));

    command = shape(app, "lathe", "A surface of revolution",
                    [&line] { line.mesh = lathe(line.profile, line.columns); });
    command->add_option("--profile", line.profile, "Radius and height by turns, from below")
        ->required()
        ->type_size(2) // pairs
        ->expected(2, 1000);
    command->add_option("--columns", line.columns)->check(CLI::Range(3, 10000));
}

void add_grounds(CLI::App& app, CommandLine& line) {
    CLI::App* command = shape(app, "waves", "A wavy square of columns * columns quads",
                              [&line] { line.mesh = waves(line.columns); });
    command->add_option("--columns", line.columns)->check(CLI::Range(1, 4096));

    command = shape(app, "sweep", "A floor that bends up into a back wall", [&line] {
        line.mesh = sweep(line.width, line.front, line.back, line.bend, line.height, line.rows);
    });
    command->add_option("--width", line.width);
    command->add_option("--front", line.front);
    command->add_option("--back", line.back);
    command->add_option("--bend", line.bend);
    command->add_option("--height", line.height);
    command->add_option("--rows", line.rows, "Steps of the bend")->check(CLI::Range(1, 10000));
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Writes a mesh as an object of the scene language."};
    app.require_subcommand(1);
    app.fallthrough();
    CommandLine line;
    add_common_options(app, line);
    add_sculptures(app, line);
    add_grounds(app, line);
    CLI11_PARSE(app, argc, argv);

    if (line.options.name.empty())
        line.options.name = app.get_subcommands().front()->get_name();
    if (!line.charts.empty())
        line.mesh = cut_into_charts(line.mesh, line.charts[0], line.charts[1], line.gutter);
    line.options.motion = {line.motion[0], line.motion[1], line.motion[2]};
    line.options.spin = {line.spin[0], line.spin[1], line.spin[2]};
    std::ofstream file(line.output, std::ios::binary);
    write_object(file, line.mesh, line.options);
    file.close();
    if (!file) {
        std::cerr << "meshgen: cannot write " << line.output << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
