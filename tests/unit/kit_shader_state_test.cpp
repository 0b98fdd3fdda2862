// Shader state records: bytes under keys, lifetimes, and no allocation once warm.
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "kit/shader_state.h"
#include "shader.h"

namespace {
std::atomic<int> allocations;
}

// Not inlined: compilers would take malloc and delete, or new and free, for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using stage::ShaderStateRecords;

std::string text_of(ShaderStateRecords& records, const char* key) {
    int size = -1;
    const auto* bytes = static_cast<const char*>(records.get(key, &size));
    EXPECT_EQ(bytes == nullptr, size == 0);
    return bytes ? std::string(bytes, static_cast<std::size_t>(size)) : "none";
}

void set(ShaderStateRecords& records, const char* key, const std::string& text,
         int lifetime = miSS_LIFETIME_RECT) {
    EXPECT_TRUE(records.set(key, text.data(), static_cast<int>(text.size()), lifetime));
}

TEST(ShaderState, StoresCopiesUnderKeys) {
    ShaderStateRecords records;
    EXPECT_EQ(text_of(records, "a"), "none");
    std::string value = "first";
    set(records, "a", value);
    set(records, "b", "second");
    value = "other";
    EXPECT_EQ(text_of(records, "a"), "first"); // a copy, not the setter's memory
    EXPECT_EQ(text_of(records, "b"), "second");
    EXPECT_EQ(text_of(records, "ab"), "none");
    // The key's text counts, not its address.
    const std::string key = std::string("a");
    set(records, key.c_str(), "replaced");
    EXPECT_EQ(text_of(records, "a"), "replaced");
}

TEST(ShaderState, WritingThroughTheAddressStaysAndTheAddressToo) {
    ShaderStateRecords records;
    set(records, "slot", "0000");
    void* address = records.get("slot", nullptr);
    std::memcpy(address, "1234", 4);
    for (int i = 0; i < 100; ++i) // other records come
        set(records, ("key" + std::to_string(i)).c_str(), "value");
    EXPECT_EQ(records.get("slot", nullptr), address);
    EXPECT_EQ(text_of(records, "slot"), "1234");
    set(records, "slot", "567");
    EXPECT_EQ(records.get("slot", nullptr), address);
}

TEST(ShaderState, TheValueMayBeTheStoredBytes) {
    ShaderStateRecords records;
    set(records, "a", std::string(60, 'x') + "tail");
    auto* bytes = static_cast<char*>(records.get("a", nullptr));
    records.set("a", bytes + 60, 4, 2);
    EXPECT_EQ(text_of(records, "a"), "tail");
}

TEST(ShaderState, Removal) {
    ShaderStateRecords records;
    struct {
        const void* value;
        int size;
    } const removals[] = {{nullptr, 4}, {"text", 0}, {"text", -3}, {nullptr, 0}};
    for (const auto& removal : removals) {
        set(records, "a", "text");
        EXPECT_TRUE(records.set("a", removal.value, removal.size, 2));
        EXPECT_EQ(text_of(records, "a"), "none");
    }
    EXPECT_FALSE(records.set(nullptr, "text", 4, 2));
    EXPECT_EQ(records.get(nullptr, nullptr), nullptr);
}

TEST(ShaderState, Lifetimes) {
    ShaderStateRecords records;
    set(records, "none", "0", 0);
    set(records, "eye ray", "1", miSS_LIFETIME_EYERAY);
    set(records, "rectangle", "2", miSS_LIFETIME_RECT);
    records.clear_eye_ray();
    EXPECT_EQ(text_of(records, "none"), "0");
    EXPECT_EQ(text_of(records, "eye ray"), "none");
    EXPECT_EQ(text_of(records, "rectangle"), "2");
    records.clear_rect();
    EXPECT_EQ(text_of(records, "none"), "none");
    EXPECT_EQ(text_of(records, "rectangle"), "none");
}

TEST(ShaderState, AWarmTableDoesNotAllocate) {
    ShaderStateRecords records;
    const std::array<char, 1024> bytes{};
    const auto sample = [&] {
        for (const char* key : {"a key of more than fifteen characters", "KEY", "other"})
            for (const int size : {4, 40, 1024}) {
                records.set(key, bytes.data(), size, 2);
                EXPECT_NE(records.get(key, nullptr), nullptr);
                records.set(key, nullptr, 0, 2);
            }
        records.clear_eye_ray();
        records.clear_rect();
    };
    sample();
    const int before = allocations;
    for (int i = 0; i < 10; ++i)
        sample();
    EXPECT_EQ(allocations, before);
}

} // namespace
