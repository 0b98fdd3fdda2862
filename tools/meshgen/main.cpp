// Makes a mesh and writes it as an object of the scene language: the sculptures of the example scenes, and
// the large meshes of the benchmarks.
#include <cstdlib>
#include <fstream>
#include <iostream>

#include <CLI/CLI.hpp>

#include "mesh.h"

namespace {

CLI::App* shape(CLI::App& app, const char* name, const char* help, const std::function<void()>& make) {
    CLI::App* command = app.add_subcommand(name, help);
    command->final_callback(make);
    return command;
}

} // namespace

int main(int argc, char** argv) {
    using namespace meshgen;
    CLI::App app{"Writes a mesh as an object of the scene language."};
    ObjectOptions options;
    std::string output;
    std::vector<double> motion{0, 0, 0}, spin{0, 0, 0};
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("-o,--output", output, "File to write")->required();
    app.add_option("--name", options.name, "Name of the object; the shape's own when left out");
    app.add_option("--motion", motion, "Motion of every vertex during the shutter interval")->expected(3);
    app.add_option("--spin", spin,
                   "Turn about this axis during the shutter interval, its length "
                   "in radians")
        ->expected(3);
    std::vector<std::uint32_t> charts;
    double gutter = 0.03;
    app.add_option("--charts", charts, "Cut the texture square into so many columns and rows of charts")
        ->expected(2)
        ->check(CLI::Range(1, 1000));
    app.add_option("--gutter", gutter, "Share of a chart's place that stays free on either side")
        ->check(CLI::Range(0.0, 0.49));
    app.add_flag("--triangles", options.triangles, "Cut quads into triangles");

    Mesh mesh;
    std::uint32_t columns = 96, rows = 48;
    double north_south = 1, east_west = 1, radius = 0.6, tip = 2.2;
    double width = 60, front = 30, back = 14, bend = 8, height = 40;
    int levels = 4;
    CLI::App* command = shape(app, "superquadric", "A rounded box, cylinder, star or anything between",
                              [&] { mesh = superquadric(north_south, east_west, columns, rows); });
    command->add_option("--north-south", north_south, "Exponent of the profile")
        ->check(CLI::Range(0.05, 3.0));
    command->add_option("--east-west", east_west, "Exponent of the cross-section")
        ->check(CLI::Range(0.05, 3.0));
    command->add_option("--columns", columns)->check(CLI::Range(3, 10000));
    command->add_option("--rows", rows)->check(CLI::Range(2, 10000));
    command = shape(app, "trefoil", "A tube along the trefoil knot",
                    [&] { mesh = trefoil(radius, columns, rows); });
    command->add_option("--radius", radius, "Radius of the tube")->check(CLI::Range(0.01, 0.9));
    command->add_option("--columns", columns)->check(CLI::Range(3, 10000));
    command->add_option("--rows", rows)->check(CLI::Range(3, 10000));
    command =
        shape(app, "ornament", "A star with twelve rounded points", [&] { mesh = ornament(tip, levels); });
    command->add_option("--tip", tip, "Radius of the points before they are rounded")
        ->check(CLI::Range(1.0, 10.0));
    command->add_option("--levels", levels, "Subdivision steps")->check(CLI::Range(1, 7));
    command = shape(app, "waves", "A wavy square of columns * columns quads", [&] { mesh = waves(columns); });
    command->add_option("--columns", columns)->check(CLI::Range(1, 4096));
    command = shape(app, "sweep", "A floor that bends up into a back wall",
                    [&] { mesh = sweep(width, front, back, bend, height, rows); });
    command->add_option("--width", width);
    command->add_option("--front", front);
    command->add_option("--back", back);
    command->add_option("--bend", bend);
    command->add_option("--height", height);
    command->add_option("--rows", rows, "Steps of the bend")->check(CLI::Range(1, 10000));
    std::vector<double> profile;
    command = shape(app, "lathe", "A surface of revolution", [&] { mesh = lathe(profile, columns); });
    command->add_option("--profile", profile, "Radius and height by turns, from below")
        ->required()
        ->type_size(2) // pairs
        ->expected(2, 1000);
    command->add_option("--columns", columns)->check(CLI::Range(3, 10000));
    CLI11_PARSE(app, argc, argv);

    if (options.name.empty())
        options.name = app.get_subcommands().front()->get_name();
    if (!charts.empty())
        mesh = cut_into_charts(mesh, charts[0], charts[1], gutter);
    options.motion = {motion[0], motion[1], motion[2]};
    options.spin = {spin[0], spin[1], spin[2]};
    std::ofstream file(output, std::ios::binary);
    write_object(file, mesh, options);
    file.close();
    if (!file) {
        std::cerr << "meshgen: cannot write " << output << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
