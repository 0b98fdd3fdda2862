// What the stage is told on its command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct CommandLine {
    std::string scene;
    std::string default_scene, default_folder; // of ./render; empty: none
    std::vector<std::string> outputs, libraries;
    int threads = 0;
    std::vector<int> region, resolution;
    int samples = 0;
    std::uint64_t seed = 0;
    std::string space = "world";
    bool statistics = false, quiet = false;
};

// Returns the exit code when there is nothing to render: help was asked for, or a word is wrong. `speaks`:
// the user is told which.
std::optional<int> read_command_line(CommandLine& line, int argc, char** argv, bool speaks);

// Settles what the command line leaves open. Throws std::runtime_error when there is no such scene.
void complete(CommandLine& line);
