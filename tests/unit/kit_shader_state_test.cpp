// Shader state records: bytes under keys, and their lifetimes.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "kit/shader_state.h"
#include "shader.h"

namespace {

struct Records : stage::ShaderStateRecords {
    void put(const std::string& key, const std::string& text, int lifetime = miSS_LIFETIME_RECT) {
        EXPECT_TRUE(set(key.c_str(), text.data(), static_cast<int>(text.size()), lifetime));
    }
    std::string text_of(const char* key) {
        int size = -1;
        const auto* bytes = static_cast<const char*>(get(key, &size));
        EXPECT_EQ(bytes == nullptr, size == 0);
        return bytes ? std::string(bytes, static_cast<std::size_t>(size)) : "none";
    }
};

TEST(ShaderState, CopiesUnderKeysKeepTheirAddress) {
    Records records;
    std::string value = "first";
    records.put("a", value);
    records.put("b", "second");
    value = "other";
    EXPECT_EQ(records.text_of("a"), "first"); // a copy, not the setter's memory
    EXPECT_EQ(records.text_of("b"), "second");
    EXPECT_EQ(records.text_of("ab"), "none");
    for (const char* key : {"axb", "ayb", ""}) // two of one length with the same ends
        records.put(key, key + std::string("'s"));
    for (const char* key : {"axb", "ayb", ""})
        EXPECT_EQ(records.text_of(key), key + std::string("'s"));
    void* address = records.get("a", nullptr);
    std::memcpy(address, "1234", 4);
    for (int i = 0; i < 100; ++i) // other records come
        records.put("key" + std::to_string(i), "value");
    EXPECT_EQ(records.text_of("a"), "1234t");
    records.put("a", "567");
    EXPECT_EQ(records.get("a", nullptr), address);
    records.put("a", std::string(60, 'x') + "tail");
    records.set("a", static_cast<char*>(records.get("a", nullptr)) + 60, 4,
                2); // the value is the stored bytes
    EXPECT_EQ(records.text_of("a"), "tail");
}

TEST(ShaderState, Lifetimes) {
    Records records;
    const auto expect = [&](std::string none, std::string eye_ray, std::string rectangle) {
        const std::string texts[] = {records.text_of("0"), records.text_of("1"), records.text_of("2")};
        EXPECT_EQ(texts[0] + texts[1] + texts[2], none + eye_ray + rectangle);
    };
    records.put("0", "a", 0);
    records.put("1", "b", miSS_LIFETIME_EYERAY);
    records.put("2", "c", miSS_LIFETIME_RECT);
    records.clear_eye_ray();
    expect("a", "none", "c");
    records.clear_rect();
    expect("none", "none", "none");
    for (const auto& [value, size] : {std::pair<const char*, int>{nullptr, 4}, {"text", 0}, {"text", -3}}) {
        records.put("0", "text");
        EXPECT_TRUE(records.set("0", value, size, 2)); // no value or no size removes
        expect("none", "none", "none");
    }
    EXPECT_FALSE(records.set(nullptr, "text", 4, 2));
    EXPECT_EQ(records.get(nullptr, nullptr), nullptr);
}

} // namespace
