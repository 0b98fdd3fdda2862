// Shader state records.
#include "kit/shader_state.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "shader.h"

namespace stage {

namespace {

// Of what tells the keys of shaders apart almost always, as most differ in their ends: reading all of a key
// costs more than a comparison too many now and then.
std::uint32_t hash_of(std::string_view key) {
    if (key.empty())
        return 0;
    const auto first = static_cast<unsigned char>(key.front()), last = static_cast<unsigned char>(key.back());
    return static_cast<std::uint32_t>(key.size()) << 16 | static_cast<std::uint32_t>(first) << 8 | last;
}

} // namespace

ShaderStateRecords::Record* ShaderStateRecords::find(std::string_view key, std::uint32_t hash) noexcept {
    // Shaders use some twenty keys: walking past them is cheaper than a tree or a table of buckets.
    for (Record& record : records_)
        if (record.hash == hash && record.key == key)
            return &record;
    return nullptr;
}

bool ShaderStateRecords::set(const char* key, const void* value, int size, int lifetime) {
    if (!key)
        return false;
    const std::string_view name = key;
    const std::uint32_t hash = hash_of(name);
    Record* record = find(name, hash);
    if (!value || size <= 0) {
        if (record)
            record->size = 0;
        return true;
    }
    if (!record)
        record = &records_.emplace_back(Record{hash, 0, 0, 0, std::string(name), nullptr});
    if (record->capacity < size) {
        const int capacity = std::max(64, size);
        // The value may be part of the record that is about to move.
        auto bytes = std::make_unique<std::byte[]>(static_cast<std::size_t>(capacity));
        std::memcpy(bytes.get(), value, static_cast<std::size_t>(size));
        record->bytes = std::move(bytes);
        record->capacity = capacity;
    } else {
        std::memmove(record->bytes.get(), value, static_cast<std::size_t>(size));
    }
    record->size = size;
    record->lifetime = lifetime;
    return true;
}

void* ShaderStateRecords::get(const char* key, int* size) noexcept {
    const std::string_view name = key ? key : "";
    Record* record = key ? find(name, hash_of(name)) : nullptr;
    const bool stored = record && record->size > 0;
    if (size)
        *size = stored ? record->size : 0;
    return stored ? record->bytes.get() : nullptr;
}

void ShaderStateRecords::clear_eye_ray() noexcept {
    for (Record& record : records_)
        if (record.lifetime == miSS_LIFETIME_EYERAY)
            record.size = 0;
}

void ShaderStateRecords::clear_rect() noexcept {
    for (Record& record : records_)
        record.size = 0;
}

} // namespace stage
