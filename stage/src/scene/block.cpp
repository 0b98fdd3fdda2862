// Builds parameter blocks.
#include "scene/block.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace stage {

namespace {

// Far above every sensible scene, far below what the offsets can hold.
constexpr std::size_t largest_block = std::size_t{1} << 30;

ArrayHead head_at(const std::byte* bytes) {
    ArrayHead head;
    std::memcpy(&head, bytes, sizeof head);
    return head;
}

std::uint32_t element_offset(std::uint32_t offset, const Param& array, ArrayHead head, int k) {
    const auto index = static_cast<std::uint32_t>(head.first + k);
    return offset + array_element_offset(array) + index * array.members.front().size;
}

} // namespace

BlockBuilder::BlockBuilder(const std::vector<Param>& params, std::uint32_t block_size) : bytes_(block_size) {
    apply_defaults(params, 0);
}

void BlockBuilder::apply_defaults(const std::vector<Param>& params, std::uint32_t base) {
    for (const Param& param : params) {
        const std::uint32_t offset = base + param.offset;
        if (param.type == miTYPE_STRUCT)
            apply_defaults(param.members, offset);
        if (param.default_value.empty())
            continue;
        if (param.type != miTYPE_ARRAY) {
            std::memcpy(at(offset), param.default_value.data(), param.size);
            continue;
        }
        const std::uint32_t step = param.members.front().size;
        begin_array(offset, param);
        for (std::size_t from = 0; from + step <= param.default_value.size(); from += step) {
            const std::uint32_t element = append(offset, param);
            std::memcpy(at(element), param.default_value.data() + from, step);
        }
    }
}

void BlockBuilder::begin_array(std::uint32_t offset, const Param& array) {
    disconnect(offset, array);
    const ArrayHead empty{0, 0};
    std::memcpy(at(offset), &empty, sizeof empty);
}

std::uint32_t BlockBuilder::append(std::uint32_t offset, const Param& array) {
    const Param& element = array.members.front();
    const std::uint32_t base = offset + array_element_offset(array);
    ArrayHead head = head_at(at(offset));
    if (head.count == 0) {
        const auto end = static_cast<std::uint32_t>(bytes_.size());
        head.first = static_cast<int>((end - base + element.size - 1) / element.size);
    }
    const std::uint32_t place = element_offset(offset, array, head, head.count);
    if (place + std::size_t{element.size} > largest_block)
        throw std::length_error("the parameters are too large");
    if (bytes_.size() < place + element.size)
        bytes_.resize(place + element.size);
    ++head.count;
    std::memcpy(at(offset), &head, sizeof head);
    for (const Param& member : element.members)
        apply_defaults({member}, place);
    return place;
}

void BlockBuilder::disconnect(std::uint32_t offset, const Param& param) {
    if (param.type == miTYPE_STRUCT)
        for (const Param& member : param.members)
            disconnect(offset + member.offset, member);
    std::uint32_t end = offset + param.size;
    if (param.type == miTYPE_ARRAY) { // the elements, wherever they are
        const ArrayHead head = head_at(at(offset));
        offset = element_offset(offset, param, head, 0);
        end = offset + static_cast<std::uint32_t>(head.count) * param.members.front().size;
    }
    std::erase_if(connections_, [&](const Connection& c) { return c.offset >= offset && c.offset < end; });
}

void BlockBuilder::connect(std::uint32_t offset, const Param& param, miTag shader,
                           std::uint32_t source_offset) {
    for (const Param& member : param.members)
        connect(offset + member.offset, member, shader, source_offset + member.offset);
    if (!param.members.empty())
        return;
    disconnect(offset, param);
    Connection connection;
    connection.offset = offset;
    connection.size = param.size;
    connection.shader = shader;
    connection.source_offset = source_offset;
    connections_.push_back(connection);
}

void BlockBuilder::copy(std::uint32_t offset, const Param& param, const BlockView& from,
                        std::uint32_t from_offset) {
    if (param.type == miTYPE_ARRAY) {
        const ArrayHead source = head_at(from.bytes + from_offset);
        begin_array(offset, param);
        for (int k = 0; k < source.count; ++k)
            copy(append(offset, param), param.members.front(), from,
                 element_offset(from_offset, param, source, k));
        return;
    }
    if (param.type == miTYPE_STRUCT) {
        for (const Param& member : param.members)
            copy(offset + member.offset, member, from, from_offset + member.offset);
        return;
    }
    disconnect(offset, param);
    std::memcpy(at(offset), from.bytes + from_offset, param.size);
    if (!from.connections)
        return;
    for (Connection connection : *from.connections) {
        if (connection.offset != from_offset)
            continue;
        connection.offset = offset;
        connections_.push_back(connection);
        break;
    }
}

namespace {

bool names_shader(miParam_type type) {
    switch (type) {
    case miTYPE_SHADER:
    case miTYPE_MATERIAL:
    case miTYPE_TEX:
    case miTYPE_COLOR_TEX:
    case miTYPE_SCALAR_TEX:
    case miTYPE_VECTOR_TEX:
        return true;
    default:
        return false;
    }
}

void collect_shaders(const std::byte* bytes, std::uint32_t offset, const Param& param,
                     std::vector<miTag>& tags) {
    if (param.type == miTYPE_ARRAY) {
        const ArrayHead head = head_at(bytes + offset);
        for (int k = 0; k < head.count; ++k)
            collect_shaders(bytes, element_offset(offset, param, head, k), param.members.front(), tags);
    } else if (param.type == miTYPE_STRUCT) {
        for (const Param& member : param.members)
            collect_shaders(bytes, offset + member.offset, member, tags);
    } else if (names_shader(param.type)) {
        miTag tag = miNULLTAG;
        std::memcpy(&tag, bytes + offset, sizeof tag);
        if (tag != miNULLTAG)
            tags.push_back(tag);
    }
}

} // namespace

void collect_shaders(const BlockView& block, const std::vector<Param>& params, std::vector<miTag>& tags) {
    for (const Param& param : params)
        collect_shaders(block.bytes, param.offset, param, tags);
}

void store_block(Database& database, Element& function, const BlockBuilder& block) {
    const std::size_t bytes = (block.bytes().size() + 7) / 8 * 8;
    const bool connected = !block.connections().empty();
    const std::size_t head = offsetof(miFunction, parameters);
    database.resize(function, std::max(sizeof(miFunction), head + bytes * (connected ? 2 : 1)));

    auto* record = function.as<miFunction>();
    auto* parameters = reinterpret_cast<std::byte*>(record->parameters);
    std::memset(parameters, 0, function.size - head);
    std::copy(block.bytes().begin(), block.bytes().end(), parameters);
    record->parameter_size = static_cast<miUint>(block.bytes().size());
    record->connection_offset = connected ? static_cast<miIntptr>(bytes) : 0;
    function.shader->connections = block.connections();
    for (std::size_t k = 0; k < block.connections().size(); ++k) {
        const int entry = static_cast<int>(k) + 1;
        std::memcpy(parameters + bytes + block.connections()[k].offset, &entry, sizeof entry);
    }
}

BlockView view_block(const Element& function) {
    return {reinterpret_cast<const std::byte*>(function.as<miFunction>()->parameters),
            &function.shader->connections};
}

} // namespace stage
