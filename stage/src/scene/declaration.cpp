// Layout of parameter blocks by C rules.
#include "scene/declaration.h"

#include <algorithm>
#include <array>

namespace stage {

namespace {

struct TypeInfo {
    const char* name;
    std::uint32_t size;
    std::uint32_t alignment;
};

constexpr TypeInfo tag_type(const char* name) {
    return {name, sizeof(miTag), alignof(miTag)};
}

// By miParam_type; structures and arrays have no size of their own.
constexpr std::array<TypeInfo, miNTYPES> types = {{
    {"boolean", sizeof(miBoolean), alignof(miBoolean)},
    {"integer", sizeof(miInteger), alignof(miInteger)},
    {"scalar", sizeof(miScalar), alignof(miScalar)},
    tag_type("string"),
    {"color", sizeof(miColor), alignof(miColor)},
    {"vector", sizeof(miVector), alignof(miVector)},
    {"transform", sizeof(miMatrix), alignof(miScalar)},
    tag_type("shader"),
    tag_type("scalar texture"),
    tag_type("color texture"),
    tag_type("vector texture"),
    tag_type("light"),
    {"struct", 0, 1},
    {"array", 0, 1},
    tag_type("texture"),
    tag_type("material"),
    tag_type("geometry"),
    tag_type("lightprofile"),
    tag_type("data"),
    {"spectrum", 0, 1},
}};

std::uint32_t round_up(std::uint32_t value, std::uint32_t step) {
    return (value + step - 1) / step * step;
}

void measure(Param& param) {
    if (param.type == miTYPE_STRUCT) {
        param.size = lay_out(param.members, &param.alignment);
    } else if (param.type == miTYPE_ARRAY) {
        Param& element = param.members.front();
        measure(element);
        element.offset = 0;
        param.alignment = std::max<std::uint32_t>(alignof(ArrayHead), element.alignment);
        param.size = array_element_offset(param) + element.size;
    } else {
        param.size = types[param.type].size;
        param.alignment = types[param.type].alignment;
    }
}

} // namespace

std::string type_name(miParam_type type) {
    return types[type].name;
}

std::string type_name(const Param& param) {
    return param.type == miTYPE_ARRAY ? "array " + type_name(param.members.front()) : type_name(param.type);
}

bool is_reference(miParam_type type) {
    switch (type) {
    case miTYPE_SHADER:
    case miTYPE_SCALAR_TEX:
    case miTYPE_COLOR_TEX:
    case miTYPE_VECTOR_TEX:
    case miTYPE_LIGHT:
    case miTYPE_TEX:
    case miTYPE_MATERIAL:
    case miTYPE_GEOMETRY:
    case miTYPE_LIGHTPROFILE:
    case miTYPE_DATA:
        return true;
    default:
        return false;
    }
}

std::uint32_t lay_out(std::vector<Param>& members, std::uint32_t* alignment) {
    std::uint32_t end = 0;
    std::uint32_t strictest = 1;
    for (Param& member : members) {
        measure(member);
        member.offset = round_up(end, member.alignment);
        end = member.offset + member.size;
        strictest = std::max(strictest, member.alignment);
    }
    if (alignment)
        *alignment = strictest;
    return round_up(end, strictest);
}

std::uint32_t array_element_offset(const Param& array) {
    return round_up(sizeof(ArrayHead), array.members.front().alignment);
}

bool same_type(const Param& a, const Param& b) {
    return a.type == b.type &&
           std::equal(a.members.begin(), a.members.end(), b.members.begin(), b.members.end(), same_type);
}

const Param* find_member(const Param& whole, std::string_view path, std::uint32_t* offset) {
    const Param* at = &whole;
    while (!path.empty()) {
        const std::size_t dot = std::min(path.find('.'), path.size());
        const std::string_view name = path.substr(0, dot);
        path.remove_prefix(std::min(dot + 1, path.size()));
        if (at->type != miTYPE_STRUCT)
            return nullptr;
        const auto found = std::find_if(at->members.begin(), at->members.end(),
                                        [&](const Param& member) { return member.name == name; });
        if (found == at->members.end())
            return nullptr;
        at = &*found;
        *offset += at->offset;
    }
    return at;
}

const Param* Declaration::find(std::string_view param) const {
    const auto found =
        std::find_if(params.begin(), params.end(), [&](const Param& p) { return p.name == param; });
    return found == params.end() ? nullptr : &*found;
}

} // namespace stage
