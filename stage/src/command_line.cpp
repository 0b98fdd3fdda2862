#include "command_line.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "image/picture_file.h"

namespace {

// An option's check: the error's text, or nothing.
std::string check_output(const std::string& path) {
    try {
        stage::check_picture_path(path);
        return {};
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string check_samples(const std::string& text) {
    const int n = std::atoi(text.c_str());
    for (int root = 1; root <= 256; ++root)
        if (root * root == n)
            return {};
    return "samples must be 1, 4, 9, 16, ... 65536";
}

std::string help_footer(const CommandLine& line) {
    const std::string picture =
        line.default_folder.empty()
            ? "the pictures go where the scene's camera says, or to SCENE.png in this folder"
            : "the picture goes to " + line.default_folder + "/SCENE.png";
    return "Without -o " + picture +
           ".\nA scene that renders several frames gives NAME.0001.png, NAME.0002.png and so on.\n"
           "Ctrl-C writes what is finished to NAME.partial.png; a second one ends the program at once.\n"
           "\nExit codes: 0 rendered, 1 a scene, library or file could not be used, a shader asked for what "
           "does not exist, or there was nothing to render, "
           "130 stopped with Ctrl-C. Errors that shaders report while rendering do not count.";
}

void declare(CLI::App& app, CommandLine& line) {
    app.add_option("scene", line.scene, "scene file; the ending .mi may be left out");
    app.add_option(
           "-o,--output", line.outputs,
           "picture to write, .png, .jpg or .tif (as on a display), .exr (linear, with all frame buffers) or "
           ".hdr (linear); may be given several times")
        ->check(check_output)
        ->allow_extra_args(false);
    app.add_option("-L,--library-path", line.libraries,
                   "folder with shader libraries and included files; may be given several times")
        ->allow_extra_args(false);
    app.add_option("--threads", line.threads, "threads; 0, the default, for all cores")
        ->check(CLI::Range(0, 1024));
    app.add_option("--region", line.region,
                   "xl yl xh yh: pixels to render, inclusive, (0, 0) lower left; the picture keeps its size, "
                   "its other pixels are 0; default: the camera's window")
        ->expected(4)
        ->allow_extra_args(false);
    app.add_option("--resolution", line.resolution,
                   "width height in pixels, which keep their shape: the camera's aspect changes too; "
                   "default: the camera's")
        ->expected(2)
        ->allow_extra_args(false)
        ->check(CLI::Range(1, 65536));
    app.add_option("--samples", line.samples,
                   "samples for each pixel, a square number; default: the scene's, 1 when it says nothing")
        ->check(check_samples);
    app.add_option("--seed", line.seed, "another number gives a picture with other noise; default: 0");
    app.add_option("--space", line.space, "internal space of the renderer: world, the default, or camera")
        ->check(CLI::IsMember({"world", "camera"}));
    app.add_flag("--stats", line.statistics,
                 "print rays, samples, and calls and time of each family of shaders");
    app.add_flag("--quiet", line.quiet, "no progress line, and of messages only warnings and errors");
    // For ./render.
    app.add_option("--default-scene", line.default_scene)->group("");
    app.add_option("--default-folder", line.default_folder)->group("");
    app.footer([&line] { return help_footer(line); });
}

} // namespace

std::optional<int> read_command_line(CommandLine& line, int argc, char** argv, bool speaks) {
    CLI::App app{"Renders a scene with its shader libraries."};
    declare(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream unseen;
        const int code = speaks ? app.exit(error) : app.exit(error, unseen, unseen);
        return code == 0 ? 0 : 1; // help is no failure
    }
    return std::nullopt;
}

void complete(CommandLine& line) {
    namespace fs = std::filesystem;
    if (line.scene.empty())
        line.scene = line.default_scene;
    if (line.scene.empty())
        throw std::runtime_error("which scene? --help shows the usage");
    if (!fs::exists(line.scene) && fs::path(line.scene).extension() != ".mi") {
        if (!fs::exists(line.scene + ".mi"))
            throw std::runtime_error("there is no scene \"" + line.scene + "\" or \"" + line.scene + ".mi\"");
        line.scene += ".mi";
    }
    if (line.outputs.empty() && !line.default_folder.empty())
        line.outputs = {line.default_folder + "/" + fs::path(line.scene).stem().string() + ".png"};
}
