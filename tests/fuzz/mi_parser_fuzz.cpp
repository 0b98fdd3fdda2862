// Whatever the text, the parser reads it or throws SceneError; and what it leaves in the scene is sound.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "mi/parser.h"
#include "scene/libraries.h"
#include "scene/scene.h"

namespace {

miBoolean nothing(void*, miState*, void*, void*) {
    return miTRUE;
}

void require(bool condition) {
    if (!condition)
        std::abort();
}

void check_geometry(const miTriangles& t) {
    for (miUint i = 0; i < 3 * t.triangle_count; ++i)
        require(t.indices[i] < t.vertex_count);
    float sum = 0.0f; // touches the last of everything
    if (t.vertex_count > 0)
        sum +=
            t.vertices[static_cast<std::size_t>(t.vertex_count) * static_cast<std::size_t>(t.vertex_stride) -
                       1];
    if (t.materials && t.triangle_count > 0)
        sum += static_cast<float>(t.materials[t.triangle_count - 1]);
    if (t.data && t.triangle_count > 0)
        sum += static_cast<float>(
            t.data[static_cast<std::size_t>(t.triangle_count) * static_cast<std::size_t>(t.data_count) - 1]);
    require(sum == sum || sum != sum);
}

void check_shader(const stage::Scene& scene, const stage::Element& element) {
    const auto* function = element.as<miFunction>();
    require(element.shader->declaration != nullptr);
    const auto& connections = element.shader->connections;
    require((function->connection_offset != 0) == !connections.empty());
    for (std::size_t k = 0; k < connections.size(); ++k) {
        require(connections[k].offset + connections[k].size <= function->parameter_size);
        require(scene.database.find(connections[k].shader) != nullptr);
        const auto* param = reinterpret_cast<const char*>(function->parameters) + connections[k].offset;
        require(mi_connection_entry(function, param) == static_cast<int>(k) + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (text.find("link") != std::string_view::npos) // would run code that is not under test
        return 0;
    stage::Scene scene;
    scene.on_echo = [](const std::string&) {};
    for (const char* shader : {"a", "b", "c"})
        scene.libraries->define(shader, reinterpret_cast<void*>(&nothing));
    bool complete = true;
    try {
        stage::parse_text(
            scene, text, "fuzz.mi", [](stage::Scene&, const stage::RenderCommand&) {}, "/nowhere");
    } catch (const stage::SceneError& error) {
        require(std::string_view(error.what()).starts_with("fuzz.mi:"));
        complete = false;
    }
    if (!complete)
        return 0;
    for (miTag tag = 1; tag <= scene.database.size(); ++tag) {
        const stage::Element& element = *scene.database.find(tag);
        if (element.type == miSCENE_OBJECT)
            check_geometry(*element.as<miObject>()->triangles);
        else if (element.type == miSCENE_FUNCTION)
            check_shader(scene, element);
    }
    return 0;
}
