// Shader state records: blocks of bytes under string keys through which shaders talk to the shaders that
// they call. One table for each thread. A key's place and memory are kept after its record is gone, so that
// a thread that has seen its shaders' keys and sizes once does not allocate any more.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace stage {

class ShaderStateRecords {
public:
    // Copies the bytes; a null value or a size of 0 or less removes the record. False for a null key.
    // The record's address stays the same as long as it is stored and does not grow.
    bool set(const char* key, const void* value, int size, int lifetime);

    // The stored bytes, to read and to write, and their number; null and 0 when there is no such record.
    // `size` may be null.
    [[nodiscard]] void* get(const char* key, int* size) noexcept;

    // Removes what lives until the end of an eye ray.
    void clear_eye_ray() noexcept;

    // Removes everything: no record outlives its rectangle of pixels, also not those of lifetime 0, which
    // end when their setter removes them.
    void clear_rect() noexcept;

private:
    struct Record {
        std::uint32_t hash;
        int size; // 0 when there is no record under the key now
        int lifetime;
        int capacity;
        std::string key;
        std::unique_ptr<std::byte[]> bytes;
    };

    Record* find(std::string_view key, std::uint32_t hash) noexcept;

    std::vector<Record> records_;
};

} // namespace stage
