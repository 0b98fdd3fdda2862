// Layout of parameter blocks by C rules.
//
// A parameter block is what the C structure of a shader's parameters would be. An array parameter `x` is
// three members, `int i_x, n_x; T x[1]`, of which element k is `x[i_x + k]`; the elements stand behind the
// structure, and i_x leads there.
#pragma once

#include <string>

#include "scene/scene.h"

namespace stage {

// The head of an array parameter.
struct ArrayHead {
    int first; // i_x, in elements from the array's place in the structure
    int count; // n_x
};

// How a type is called in the scene language.
[[nodiscard]] std::string type_name(miParam_type type);
[[nodiscard]] std::string type_name(const Param& param);

// True for types whose value is a miTag other than a string's.
[[nodiscard]] bool is_reference(miParam_type type);

// Lays out members one after another from offset 0: sets their offsets, sizes and alignments, and returns the
// size of the structure, a multiple of its alignment.
std::uint32_t lay_out(std::vector<Param>& members, std::uint32_t* alignment = nullptr);

// Offset of the first element, from the array's own offset, if it stood in its place in the structure.
[[nodiscard]] std::uint32_t array_element_offset(const Param& array);

// True when values of both have the same meaning and layout.
[[nodiscard]] bool same_type(const Param& a, const Param& b);

// A declared structure's member, struct member ("a.b") or the result itself for an empty path; null when
// there is none. `offset` receives its place.
[[nodiscard]] const Param* find_member(const Param& whole, std::string_view path, std::uint32_t* offset);

} // namespace stage
