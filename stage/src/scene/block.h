// Builds the parameter block of a shader instance or a user data block, with its connections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "scene/declaration.h"
#include "scene/scene.h"

namespace stage {

// What a value is copied from: a finished block.
struct BlockView {
    const std::byte* bytes = nullptr;
    const std::vector<Connection>* connections = nullptr; // null: nothing is connected
};

class BlockBuilder {
public:
    // Starts with the declared defaults, zeros where there are none.
    BlockBuilder(const std::vector<Param>& params, std::uint32_t block_size);

    // Bytes for a value at `offset`; valid until the next call.
    [[nodiscard]] std::byte* at(std::uint32_t offset) { return bytes_.data() + offset; }

    // Makes the array at `offset` empty; each `append` returns the offset of one more element. Elements of
    // one array are appended without touching another array in between.
    void begin_array(std::uint32_t offset, const Param& array);
    std::uint32_t append(std::uint32_t offset, const Param& array);

    // Takes the value at `offset` from a shader's result at `source_offset`. A structure is connected member
    // by member, because shaders evaluate it so. No arrays.
    void connect(std::uint32_t offset, const Param& param, miTag shader, std::uint32_t source_offset);
    // Copies a value and its connections from another block of the same layout at that place.
    void copy(std::uint32_t offset, const Param& param, const BlockView& from, std::uint32_t from_offset);
    // Takes back the connections within a value, which is about to be given anew.
    void disconnect(std::uint32_t offset, const Param& param);

    [[nodiscard]] const std::vector<std::byte>& bytes() const { return bytes_; }
    [[nodiscard]] const std::vector<Connection>& connections() const { return connections_; }

private:
    void apply_defaults(const std::vector<Param>& params, std::uint32_t base);
    std::vector<std::byte> bytes_;
    std::vector<Connection> connections_;
};

// Writes a finished block into a shader instance's record, with the connection table behind it.
void store_block(Database& database, Element& function, const BlockBuilder& block);

// Appends the tags that a finished block names as shaders, textures or materials. What is connected names
// none.
void collect_shaders(const BlockView& block, const std::vector<Param>& params, std::vector<miTag>& tags);

// The block of a shader instance.
[[nodiscard]] BlockView view_block(const Element& function);

} // namespace stage
