// A scene from text, with shaders that need no library.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mi/parser.h"
#include "scene/declaration.h"
#include "scene/libraries.h"
#include "scene/scene.h"

namespace stage {

class SceneFixture : public testing::Test {
protected:
    SceneFixture() {
        for (const char* shader : {"tint", "bundle", "number", "many", "lamp", "place"})
            scene.libraries->define(shader, reinterpret_cast<void*>(&nothing));
    }

    // Declarations that most tests need: three lines.
    static constexpr const char* declarations =
        "declare shader color \"tint\" ( color \"in\" default 1 1 1, scalar \"k\", shader \"next\" ) end "
        "declare\n"
        "declare shader struct { color \"c\", scalar \"s\" } \"bundle\" ( integer \"i\" ) end declare "
        "declare shader scalar \"number\" ( ) end declare\n"
        "declare shader \"many\" ( array scalar \"a\", struct \"pair\" { color \"x\", vector \"y\" }, array "
        "struct { "
        "integer \"i\", scalar \"f\" } \"s\", string \"t\", array light \"l\", boolean \"b\" ) end declare\n";

    void parse(const std::string& text) {
        parse_text(scene, text, "test.mi",
                   [this](Scene&, const RenderCommand& command) { renders.push_back(command); });
    }
    void parse_declared(const std::string& text) { parse(declarations + text); }

    // The report of the mistake in `text`; the declarations are not in front of it.
    std::string mistake(const std::string& text) {
        try {
            parse(text);
        } catch (const SceneError& error) {
            return error.what();
        }
        return "no error";
    }

    Element& element(const std::string& name) {
        Element* found = scene.database.find(std::string_view(name));
        if (!found)
            throw std::runtime_error("no element " + name);
        return *found;
    }
    template <class T> T& record(const std::string& name) { return *element(name).as<T>(); }
    template <class T> T& record(miTag tag) { return *scene.database.find(tag)->as<T>(); }

    // A parameter's value in a shader instance, by the offset that the C structure gives it.
    template <class T> T parameter(const Element& shader, std::size_t offset) {
        T value;
        std::memcpy(&value, reinterpret_cast<const char*>(shader.as<miFunction>()->parameters) + offset,
                    sizeof value);
        return value;
    }

    Scene scene;
    std::vector<RenderCommand> renders;

private:
    static miBoolean nothing(void*, miState*, void*, void*) { return miTRUE; }
};

} // namespace stage
