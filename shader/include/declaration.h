/*
 * Declaration tables: what a scene has to know of a shader or of a data record, one entry for each
 * parameter, written once beside the parameter structure.
 *
 * A table is made of member pointers, so the compiler checks member and type; `fields` checks at compile
 * time that the table follows the structure without leaving anything out. The scene declarations, the
 * reference pages, the lists of exports and the version functions all come from these tables. The module
 * reads them at compile time only, so their texts are not in it.
 */
#pragma once

#include "mi_binding.h"

#include <array>
#include <bit>
#include <cstddef>
#include <limits>
#include <string_view>
#include <type_traits>

namespace orl::decl {

/* An array parameter in a block: the elements are elements[first] to elements[first + count - 1]; they lie
   behind the fixed part of the block. See ArraySpan for reading them. */
template <class T> struct Array {
    miInteger first;
    miInteger count;
    T elements[1];
};

/* A transform in a block. */
struct Transform {
    miScalar element[16];
};

/* A default value: as many numbers as the type has components, or none. */
struct Default {
    double number[4] = {};
    int count = 0;
};

struct Range {
    double lowest = -std::numeric_limits<double>::infinity();
    double highest = std::numeric_limits<double>::infinity();
};

inline constexpr Range any{};
inline constexpr Range unit_interval{0, 1};
inline constexpr Range not_negative{0, std::numeric_limits<double>::infinity()};

struct Field;

/* A table of fields, as others refer to it. */
struct FieldList {
    const Field* first = nullptr;
    std::size_t count = 0;

    constexpr FieldList() = default;
    template <std::size_t n> constexpr FieldList(const std::array<Field, n>& table);
    constexpr const Field* begin() const;
    constexpr const Field* end() const;
};

struct Field {
    const char* name;
    miParam_type type;
    bool array;
    Default value;
    Range range;
    const char* unit; // "" for none
    const char* help;
    std::size_t size;
    std::size_t alignment;
    std::size_t offset;     // in the block, filled in by `fields`
    FieldList members = {}; // of a structure
};

template <std::size_t n>
constexpr FieldList::FieldList(const std::array<Field, n>& table) : first(table.data()), count(n) {}

constexpr const Field* FieldList::begin() const {
    return first;
}

constexpr const Field* FieldList::end() const {
    return first + count;
}

template <class Block, class Member> struct Entry {
    Member Block::*member;
    Field field;
};

// One maker for each type of parameter; the member's type has to fit.

template <class Block, class Member>
constexpr Entry<Block, Member> entry(Member Block::*member, miParam_type type, const char* name,
                                     Default value, Range range, const char* unit, const char* help) {
    return {member, {name, type, false, value, range, unit, help, sizeof(Member), alignof(Member), 0}};
}

template <class Block>
constexpr auto boolean(miBoolean Block::*member, const char* name, bool value, const char* help) {
    return entry(member, miTYPE_BOOLEAN, name, {{value ? 1.0 : 0.0}, 1}, unit_interval, "", help);
}

template <class Block>
constexpr auto integer(miInteger Block::*member, const char* name, int value, Range range, const char* help) {
    return entry(member, miTYPE_INTEGER, name, {{static_cast<double>(value)}, 1}, range, "", help);
}

template <class Block>
constexpr auto scalar(miScalar Block::*member, const char* name, double value, Range range, const char* unit,
                      const char* help) {
    return entry(member, miTYPE_SCALAR, name, {{value}, 1}, range, unit, help);
}

template <class Block>
constexpr auto color(miColor Block::*member, const char* name, miColor value, const char* help) {
    return entry(member, miTYPE_COLOR, name, {{value.r, value.g, value.b, value.a}, 4}, any, "", help);
}

template <class Block>
constexpr auto vector(miVector Block::*member, const char* name, miVector value, const char* unit,
                      const char* help) {
    return entry(member, miTYPE_VECTOR, name, {{value.x, value.y, value.z}, 3}, any, unit, help);
}

template <class Block>
constexpr auto transform(Transform Block::*member, const char* name, const char* help) {
    return entry(member, miTYPE_TRANSFORM, name, {}, any, "", help);
}

/* A number that only the host reads. */
template <class Block> constexpr auto host_field(miInteger Block::*member, const char* name) {
    return integer(member, name, 0, any, "the host's own");
}

/* The number by which a map or material is told apart in a frame buffer. */
template <class Block> constexpr auto material_id(miInteger Block::*member, const char* name) {
    return integer(member, name, 0, any, "written to fb_mtl_id; 0 for none");
}

/* Parameters that name an element of the scene: shader, texture, light, material, string and so on. */
template <class Block>
constexpr auto element(miTag Block::*member, miParam_type type, const char* name, const char* help) {
    return entry(member, type, name, {}, any, "", help);
}

/* Array parameters: `type` is that of an element. The structure is Array or a record that looks like it. */
template <class Block, class ArrayRecord>
constexpr auto array(ArrayRecord Block::*member, miParam_type type, const char* name, const char* help) {
    static_assert(offsetof(ArrayRecord, first) == 0 && offsetof(ArrayRecord, count) == sizeof(miInteger));
    static_assert(offsetof(ArrayRecord, elements) == 2 * sizeof(miInteger));
    Entry<Block, ArrayRecord> made = entry(member, type, name, {}, any, "", help);
    made.field.array = true;
    return made;
}

/* An array of structures, whose own table tells the members. */
template <class Block, class ArrayRecord>
constexpr auto array(ArrayRecord Block::*member, FieldList members, const char* name, const char* help) {
    Entry<Block, ArrayRecord> made = array(member, miTYPE_STRUCT, name, help);
    made.field.members = members;
    return made;
}

template <class Member> using Bytes = std::array<unsigned char, sizeof(Member)>;

/* A value that tells the entries of a table apart. */
template <class Member> constexpr Member mark(int number) {
    return std::bit_cast<Member>(
        Bytes<Member>{static_cast<unsigned char>(number), static_cast<unsigned char>(number >> 8)});
}

template <class Member> constexpr bool same(const Member& a, const Member& b) {
    return std::bit_cast<Bytes<Member>>(a) == std::bit_cast<Bytes<Member>>(b);
}

// Not constant expressions on purpose: reaching one stops the compilation and its name tells why.
inline void table_does_not_follow_the_order_of_the_structure() {}
inline void table_leaves_a_member_of_the_structure_out() {}

/* The table of a parameter block. A block follows the renderer's rules, which are those of C: each member at
   the next multiple of its alignment. The entries are in the order of the members when a block initialised in
   the table's order holds each value in its member; nothing is left out when the sizes add up. */
template <class Block, class... Members>
constexpr std::array<Field, sizeof...(Members)> fields(Entry<Block, Members>... entries) {
    int number = 0;
    const Block block{mark<Members>(++number)...};
    number = 0;
    if (!(same(block.*entries.member, mark<Members>(++number)) && ...))
        table_does_not_follow_the_order_of_the_structure();

    std::array<Field, sizeof...(Members)> table{entries.field...};
    std::size_t end = 0;
    std::size_t alignment = 1;
    for (Field& field : table) {
        field.offset = (end + field.alignment - 1) / field.alignment * field.alignment;
        end = field.offset + field.size;
        alignment = field.alignment > alignment ? field.alignment : alignment;
    }
    if ((end + alignment - 1) / alignment * alignment != sizeof(Block))
        table_leaves_a_member_of_the_structure_out();
    return table;
}

/* What a shader may be applied as: miSHADER_ codes as bits. */
template <class... Kinds> constexpr unsigned apply(Kinds... kinds) {
    return (0u | ... | (1u << static_cast<unsigned>(kinds)));
}

struct Shader {
    const char* name;
    miParam_type result;
    int version;
    bool has_init;
    bool has_exit;
    unsigned apply;
    FieldList fields;
    const char* help;
    FieldList result_members = {}; // of a result that is a structure
};

struct Data {
    const char* name;
    int version;
    FieldList fields;
    const char* help;
};

/* Never defined: a constant expression that comes here does not compile, and the error shows this name. */
int no_shader_of_that_name_in_the_table();

/* Version of the shader of that name in a unit's table. */
template <std::size_t n> consteval int version(const Shader (&unit)[n], std::string_view name) {
    for (const Shader& shader : unit)
        if (name == shader.name)
            return shader.version;
    return no_shader_of_that_name_in_the_table();
}

} // namespace orl::decl

/* Defines the version function of a shader from its unit's table. */
#define ORL_VERSION(unit, shader)                                                                            \
    ORL_EXPORT int shader##_version(void) {                                                                  \
        return orl::decl::version(unit, #shader);                                                            \
    }                                                                                                        \
    static_assert(orl::decl::version(unit, #shader) > 0)
