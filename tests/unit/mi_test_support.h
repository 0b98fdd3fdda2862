// A scene from text, with shaders that need no library.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>

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
        R"(declare shader color "tint" ( color "in" default 1 1 1, scalar "k", shader "next" ) end declare
declare shader struct { color "c", scalar "s" } "bundle" ( integer "i" ) end declare declare shader scalar "number" ( ) end declare
declare shader "many" ( array scalar "a", struct "pair" { color "x", vector "y" }, array struct { integer "i", scalar "f" } "s", string "t", array light "l", boolean "b" ) end declare
)";

    void parse(const std::string& text) { parse_text(scene, text, "test.mi", nullptr); }
    void parse_declared(const std::string& text) { parse(declarations + text); }

    // The report of the mistake that `read` meets; empty without one.
    template <class Read> static std::string report_of(Read read) {
        try {
            read();
        } catch (const SceneError& error) {
            return error.what();
        }
        return {};
    }
    // The declarations are not in front of it.
    std::string mistake(const std::string& text) {
        return report_of([&] { parse(text); });
    }

    Element& element(const std::string& name) {
        Element* found = scene.database.find(std::string_view(name));
        if (!found)
            throw std::runtime_error("no element " + name);
        return *found;
    }
    Element& element(miTag tag) { return *scene.database.find(tag); }
    template <class T, class Key> T& record(const Key& key) { return *element(key).template as<T>(); }

    // A parameter's value in a shader instance, by the offset that the C structure gives it.
    template <class T> static T parameter(const Element& shader, std::size_t offset) {
        T value;
        std::memcpy(&value, reinterpret_cast<const char*>(shader.as<miFunction>()->parameters) + offset,
                    sizeof value);
        return value;
    }

    Scene scene;

private:
    static miBoolean nothing(void*, miState*, void*, void*) { return miTRUE; }
};

} // namespace stage
