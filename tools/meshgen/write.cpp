// Writes a mesh in the scene language: vectors first, then vertices, then polygons.
#include <charconv>
#include <ostream>

#include "mesh.h"

namespace meshgen {

namespace {

// Seven digits tell single-precision numbers apart well enough, and are half the size of nine.
void put(std::string& text, double value) {
    char buffer[32];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, static_cast<float>(value),
                                   std::chars_format::general, 7);
    text.append(buffer, end.ptr);
}

void put(std::string& text, Vec v) {
    put(text, v.x);
    text += ' ';
    put(text, v.y);
    text += ' ';
    put(text, v.z);
    text += '\n';
}

void put_polygon(std::string& text, std::initializer_list<std::uint32_t> corners) {
    text += "c";
    for (const std::uint32_t corner : corners)
        text += ' ' + std::to_string(corner);
    text += '\n';
}

// Hands on the text when enough of it has come together.
void flush(std::ostream& out, std::string& text, std::size_t limit) {
    if (text.size() < limit)
        return;
    out << text;
    text.clear();
}

} // namespace

void write_object(std::ostream& out, const Mesh& mesh, const ObjectOptions& options) {
    constexpr std::size_t chunk = 1 << 16;
    const bool moving = length(options.motion) > 0 || length(options.spin) > 0;
    std::string text = "object \"" + options.name + "\" visible on shadow on trace on\ngroup\n";
    for (const Vertex& vertex : mesh.vertices) {
        put(text, vertex.point);
        put(text, vertex.normal);
        put(text, vertex.texture);
        if (moving)
            put(text, options.motion + cross(options.spin, vertex.point));
        flush(out, text, chunk);
    }
    const std::size_t stride = moving ? 4 : 3;
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
        const std::size_t first = i * stride;
        text += "v " + std::to_string(first) + " n " + std::to_string(first + 1) + " t " +
                std::to_string(first + 2);
        if (moving)
            text += " m " + std::to_string(first + 3);
        text += '\n';
        flush(out, text, chunk);
    }
    for (const auto& [a, b, c, d] : mesh.faces) {
        if (c == d) {
            put_polygon(text, {a, b, c});
        } else if (options.triangles) {
            put_polygon(text, {a, b, c});
            put_polygon(text, {a, c, d});
        } else {
            put_polygon(text, {a, b, c, d});
        }
        flush(out, text, chunk);
    }
    text += "end group\nend object\n";
    flush(out, text, 0);
}

} // namespace meshgen
