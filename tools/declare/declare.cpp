/*
 * Writes what follows from the module's declaration tables: into a build folder the scene declarations
 * (orlshaders.mi) and the linkers' lists of exports (orlshaders.map for ELF, orlshaders.def for Windows); and
 * into the shaders' pages what they say of declarations. A page is written by hand but for its blocks
 *
 *     <!-- declared: summary -->     help, result, version, kinds, source
 *     <!-- declared: parameters -->  the table of parameters
 *     <!-- end -->
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
#include <utility>
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

// Switches have no range worth telling, and from 1e30 on a bound is none.
std::string range_text(const Field& field) {
    if (field.type == miTYPE_BOOLEAN)
        return "";
    constexpr double unbounded = 1e30;
    const Range& range = field.range;
    const bool low = range.lowest > -unbounded, high = range.highest < unbounded;
    if (low && high)
        return number(range.lowest) + " to " + number(range.highest);
    if (low)
        return "at least " + number(range.lowest);
    return high ? "at most " + number(range.highest) : "";
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

// What stands behind a parameter: what it does, its unit and range.
std::string comment(const Field& field) {
    std::string text = field.help;
    const std::string range = range_text(field), unit = field.unit;
    if (!range.empty() || !unit.empty())
        text.append(" [")
            .append(range)
            .append(range.empty() || unit.empty() ? "" : " ")
            .append(unit)
            .append("]");
    return text.empty() ? text : text.insert(0, " # ");
}

std::string parameters(const FieldList& fields) {
    std::string text;
    std::size_t left = fields.count;
    for (const Field& field : fields) {
        text += std::string("\n    ") + (field.array ? "array " : "") +
                typed(field.type, field.members, field.name);
        const std::string value = default_text(field);
        if (!value.empty())
            text.append(" ").append(value);
        text.append(--left ? "," : "").append(comment(field));
    }
    return text.empty() ? "()" : "(" + text + "\n)";
}

std::string scene_declarations() {
    std::ostringstream mi;
    mi << "# Declarations of the shader module orlshaders, written from its tables.\n";
    for (const orl::Unit& unit : orl::units) {
        mi << "\n# ---- " << unit.name << "\n";
        for (const Shader& shader : unit.shaders) {
            mi << "\n# " << shader.help << "\ndeclare shader "
               << typed(shader.result, shader.result_members, shader.name) << ' ' << parameters(shader.fields)
               << "\n    version " << shader.version << '\n';
            if (const std::string apply = apply_text(shader.apply); !apply.empty())
                mi << "    apply " << apply << '\n';
            mi << "end declare\n";
        }
    }
    mi << "\n# ---- data that the host attaches to scenes, nodes and objects\n";
    for (const Data& data : orl::host_data)
        mi << "\n# " << data.help << "\ndeclare data \"" << data.name << "\" " << parameters(data.fields)
           << "\n    version " << data.version << "\nend declare\n";
    return mi.str();
}

// ---- reference pages

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
                range_text(field) + " | " + field.unit + " | " + field.help + " |\n";
    return text;
}

std::string summary(const orl::Unit& unit, const Shader& shader) {
    std::string text = std::string(shader.help) +
                       "\n\nResult: " + page_type(shader.result, shader.result_members) + ". Version " +
                       std::to_string(shader.version) + ".";
    if (const std::string apply = apply_text(shader.apply); !apply.empty())
        text += " Used as: " + apply + '.';
    const std::string source = std::string(unit.name) + ".cpp";
    return text + " Source: [" + source + "](../../shader/src/" + source + ").\n";
}

std::string host_data() {
    std::string text;
    for (const Data& data : orl::host_data)
        text.append(text.empty() ? "## " : "\n## ")
            .append(data.name)
            .append("\n\n")
            .append(data.help)
            .append(" Version ")
            .append(std::to_string(data.version))
            .append(".\n\n")
            .append(field_table(data.fields));
    return text;
}

// All shaders, by name.
std::string shader_list() {
    std::map<std::string_view, const char*> shaders;
    for (const orl::Unit& unit : orl::units)
        for (const Shader& shader : unit.shaders)
            shaders[shader.name] = shader.help;
    std::string text = "| shader | |\n|---|---|\n";
    for (const auto& [name, help] : shaders)
        text.append("| [`").append(name).append("`](").append(name).append(".md) | ").append(help).append(
            " |\n");
    return text;
}

// Gives the blocks of that name another text; false when there is none, or one without an end.
bool replace_block(std::string& page, const std::string& name, const std::string& text) {
    const std::string start = "<!-- declared: " + name + " -->\n", end = "<!-- end -->";
    const std::size_t from = page.find(start);
    const std::size_t to = from == std::string::npos ? from : page.find(end, from);
    if (to == std::string::npos)
        return false;
    page.replace(from + start.size(), to - from - start.size(), text);
    return true;
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

std::string read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (!out.flush()) {
        std::cerr << "declare: cannot write " << path << '\n';
        std::exit(1);
    }
}

void write_for_build(const std::string& folder) {
    write(folder + "/orlshaders.mi", scene_declarations());
    const std::vector<std::string> names = exports();
    write(folder + "/orlshaders.map", "{\nglobal:\n" + lines(names, "    ", ";\n") + "local:\n    *;\n};\n");
    write(folder + "/orlshaders.def", "LIBRARY orlshaders.dll\nEXPORTS\n" + lines(names, "    ", "\n"));
}

using Blocks = std::vector<std::pair<std::string, std::string>>; // name, text

// Brings the blocks of a page up to date, or only says whether they are.
bool update_page(const std::string& path, const Blocks& blocks, bool check) {
    const std::string before = read(path);
    std::string page = before;
    for (const auto& [name, text] : blocks)
        if (!replace_block(page, name, text)) {
            std::cerr << path << ": no block \"declared: " << name << "\"\n";
            return false;
        }
    if (page == before)
        return true;
    if (check)
        std::cerr << path << " says other things than the declaration: run orl_declare --pages\n";
    else
        write(path, page);
    return !check;
}

bool update_pages(const std::string& folder, bool check) {
    bool good = update_page(folder + "/README.md", {{"list", shader_list()}}, check);
    good &= update_page(folder + "/host_data.md", {{"data", host_data()}}, check);
    for (const orl::Unit& unit : orl::units)
        for (const Shader& shader : unit.shaders)
            good &= update_page(
                folder + '/' + shader.name + ".md",
                {{"summary", summary(unit, shader)}, {"parameters", field_table(shader.fields)}}, check);
    return good;
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view first = argc > 1 ? argv[1] : "";
    if (argc == 3 && (first == "--pages" || first == "--check-pages"))
        return update_pages(argv[2], first == "--check-pages") ? 0 : 1;
    if (argc != 2) {
        std::cerr << "usage: declare FOLDER, or declare --pages|--check-pages FOLDER_OF_PAGES\n";
        return 1;
    }
    write_for_build(argv[1]);
}
