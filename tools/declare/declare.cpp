/*
 * Writes what follows from the module's declaration tables into a folder: the scene declarations
 * (orlshaders.mi), a reference page for each unit, an index of the shaders, and the linkers' lists of exports
 * (orlshaders.map for ELF, orlshaders.def for Windows).
 */
#include "exports.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace orl::decl;

const char* type_name(miParam_type type) {
    switch (type) {
    case miTYPE_BOOLEAN:
        return "boolean";
    case miTYPE_INTEGER:
        return "integer";
    case miTYPE_SCALAR:
        return "scalar";
    case miTYPE_STRING:
        return "string";
    case miTYPE_COLOR:
        return "color";
    case miTYPE_VECTOR:
        return "vector";
    case miTYPE_TRANSFORM:
        return "transform";
    case miTYPE_SHADER:
        return "shader";
    case miTYPE_SCALAR_TEX:
        return "scalar texture";
    case miTYPE_COLOR_TEX:
        return "color texture";
    case miTYPE_VECTOR_TEX:
        return "vector texture";
    case miTYPE_LIGHT:
        return "light";
    case miTYPE_MATERIAL:
        return "material";
    case miTYPE_GEOMETRY:
        return "geometry";
    case miTYPE_LIGHTPROFILE:
        return "lightprofile";
    case miTYPE_DATA:
        return "data";
    default:
        std::cerr << "declare: no name for parameter type " << type << '\n';
        std::exit(1);
    }
}

// Words of the apply clause, by shader type; the kinds without one have no word in the scene language.
constexpr const char* apply_names[miNSHADERTYPES] = {
    "lens",     "material", "light",  "shadow", "environment", "volume", "texture", "photon", "geometry",
    "displace", "emitter",  "output", nullptr,  "lightmap",    nullptr,  "state",   nullptr,
};

// Whole numbers as they are; the others as the shortest text that reads back as the same single-precision
// number.
std::string number(double value) {
    char text[64];
    const auto whole = std::fabs(value) < 1e9 ? static_cast<long long>(value) : 0;
    const bool is_whole = static_cast<double>(whole) == value;
    const auto end = is_whole ? std::to_chars(text, text + sizeof text, whole)
                              : std::to_chars(text, text + sizeof text, static_cast<float>(value));
    return {text, end.ptr};
}

std::string default_text(const Field& field) {
    if (field.type == miTYPE_BOOLEAN && field.value.count == 1)
        return field.value.number[0] != 0 ? "on" : "off";
    std::string text;
    for (int i = 0; i < field.value.count; ++i)
        text.append(i ? " " : "").append(number(field.value.number[i]));
    return text;
}

std::string apply_text(unsigned apply) {
    std::string text;
    for (int kind = 0; kind < miNSHADERTYPES; ++kind) {
        if ((apply >> kind & 1u) == 0)
            continue;
        if (apply_names[kind] == nullptr) {
            std::cerr << "declare: no word for shaders of kind " << kind << '\n';
            std::exit(1);
        }
        text.append(text.empty() ? "" : ", ").append(apply_names[kind]);
    }
    return text;
}

// ---- scene declarations

// A type and what bears it, as in `vector "point"`. Members stand in braces behind the word struct.
std::string typed(miParam_type type, const FieldList& members, const char* name) {
    if (type != miTYPE_STRUCT)
        return std::string(type_name(type)) + " \"" + name + '"';
    std::string text;
    for (const Field& member : members)
        text += (text.empty() ? "" : ", ") + typed(member.type, member.members, member.name);
    return std::string("struct { ") + text + " } \"" + name + '"';
}

std::string parameters(const FieldList& fields) {
    std::string text;
    for (const Field& field : fields) {
        text += text.empty() ? "" : ",";
        text += std::string("\n    ") + (field.array ? "array " : "") +
                typed(field.type, field.members, field.name);
        const std::string value = default_text(field);
        if (!value.empty())
            text.append(" ").append(value);
    }
    return text.empty() ? "()" : "(" + text + "\n)";
}

std::string scene_declarations() {
    std::ostringstream mi;
    mi << "# Declarations of the shader module orlshaders, written from its tables.\n";
    for (const orl::Unit& unit : orl::units) {
        mi << "\n# ---- " << unit.name << "\n";
        for (const Shader& shader : unit.shaders) {
            mi << "\ndeclare shader " << typed(shader.result, shader.result_members, shader.name) << ' '
               << parameters(shader.fields) << "\n    version " << shader.version << '\n';
            if (const std::string apply = apply_text(shader.apply); !apply.empty())
                mi << "    apply " << apply << '\n';
            mi << "end declare\n";
        }
    }
    mi << "\n# ---- data that the host attaches to scenes, nodes and objects\n";
    for (const Data& data : orl::host_data)
        mi << "\ndeclare data \"" << data.name << "\" " << parameters(data.fields) << "\n    version "
           << data.version << "\nend declare\n";
    return mi.str();
}

// ---- reference pages

std::string range_text(const Range& range) {
    const bool low = std::isfinite(range.lowest), high = std::isfinite(range.highest);
    if (low && high)
        return number(range.lowest) + " to " + number(range.highest);
    if (low)
        return "at least " + number(range.lowest);
    return high ? "at most " + number(range.highest) : "";
}

std::string page_type(miParam_type type, const FieldList& members) {
    if (type != miTYPE_STRUCT)
        return type_name(type);
    std::string text;
    for (const Field& member : members)
        text +=
            (text.empty() ? "" : ", ") + page_type(member.type, member.members) + " `" + member.name + '`';
    return "(" + text + ")";
}

std::string field_table(const FieldList& fields) {
    if (fields.count == 0)
        return "No parameters.\n";
    std::string text = "| parameter | type | default | range | unit | |\n|---|---|---|---|---|---|\n";
    for (const Field& field : fields)
        text += std::string("| `") + field.name + "` | " + (field.array ? "array of " : "") +
                page_type(field.type, field.members) + " | " + default_text(field) + " | " +
                range_text(field.range) + " | " + field.unit + " | " + field.help + " |\n";
    return text;
}

std::string unit_page(const orl::Unit& unit) {
    std::ostringstream page;
    page << "# " << unit.name << "\n";
    for (const Shader& shader : unit.shaders) {
        page << "\n## " << shader.name << "\n\n"
             << shader.help << "\n\nResult: " << page_type(shader.result, shader.result_members)
             << ". Version " << shader.version << ".";
        if (const std::string apply = apply_text(shader.apply); !apply.empty())
            page << " Used as: " << apply << '.';
        page << "\n\n" << field_table(shader.fields);
    }
    return page.str();
}

std::string data_page() {
    std::ostringstream page;
    page << "# orl_support\n";
    for (const Data& data : orl::host_data)
        page << "\n## " << data.name << "\n\n"
             << data.help << " Version " << data.version << ".\n\n"
             << field_table(data.fields);
    return page.str();
}

// All shaders by name, with the page and the source that hold them.
std::string index_page() {
    std::map<std::string_view, const orl::Unit*> shaders;
    for (const orl::Unit& unit : orl::units)
        for (const Shader& shader : unit.shaders)
            shaders[shader.name] = &unit;
    std::string text = "# Shaders by name\n\n| shader | page | source |\n|---|---|---|\n";
    for (const auto& [name, unit] : shaders) {
        const std::string page = std::string(unit->name) + ".md";
        text.append("| `").append(name).append("` | [").append(page).append("](").append(page);
        text.append(") | `shader/src/").append(unit->name).append(".cpp` |\n");
    }
    return text;
}

// ---- exports

std::vector<std::string> exports() {
    std::vector<std::string> names(std::begin(orl::exported_functions), std::end(orl::exported_functions));
    for (const orl::Unit& unit : orl::units)
        for (const Shader& shader : unit.shaders) {
            const std::string name = shader.name;
            names.push_back(name);
            names.push_back(name + "_version");
            if (shader.has_init)
                names.push_back(name + "_init");
            if (shader.has_exit)
                names.push_back(name + "_exit");
        }
    return names;
}

std::string lines(const std::vector<std::string>& names, const char* before, const char* after) {
    std::string text;
    for (const std::string& name : names)
        text += before + name + after;
    return text;
}

void write(const std::string& folder, const std::string& file, const std::string& text) {
    std::ofstream out(folder + '/' + file, std::ios::binary);
    out << text;
    if (!out.flush()) {
        std::cerr << "declare: cannot write " << folder << '/' << file << '\n';
        std::exit(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: declare FOLDER\n";
        return 1;
    }
    const std::string folder = argv[1];
    write(folder, "orlshaders.mi", scene_declarations());
    for (const orl::Unit& unit : orl::units)
        write(folder, std::string(unit.name) + ".md", unit_page(unit));
    write(folder, "orl_support.md", data_page());
    write(folder, "index.md", index_page());

    const std::vector<std::string> names = exports();
    write(folder, "orlshaders.map", "{\nglobal:\n" + lines(names, "    ", ";\n") + "local:\n    *;\n};\n");
    write(folder, "orlshaders.def", "LIBRARY orlshaders.dll\nEXPORTS\n" + lines(names, "    ", "\n"));
}
