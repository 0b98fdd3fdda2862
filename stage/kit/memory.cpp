// The renderer's allocator.
#include "kit/memory.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kit/message.h"

namespace stage {

namespace {

constexpr std::uint64_t live = 0x4c4956452d424c4bu; // what the header of a live block starts with
constexpr std::uint64_t released = 0x4445414442454546u;

struct alignas(16) Header {
    std::uint64_t mark;
    std::size_t size;
    const char* file;
    int line;
};

std::atomic<long long> live_blocks, live_bytes, allocations, bad_releases;
std::atomic<long long> remaining{-1}; // successes left before test_allocate fails, negative: unlimited

Header* header_of(void* block) {
    return static_cast<Header*>(block) - 1;
}

void count_block(std::size_t size, int sign) noexcept {
    live_blocks.fetch_add(sign, std::memory_order_relaxed);
    live_bytes.fetch_add(sign * static_cast<long long>(size), std::memory_order_relaxed);
}

// Takes one of the remaining successes.
bool may_succeed() noexcept {
    long long left = remaining.load(std::memory_order_relaxed);
    while (left > 0 && !remaining.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
    }
    return left != 0;
}

void* obtain(const char* file, int line, std::size_t size) noexcept {
    if (size > SIZE_MAX - sizeof(Header))
        return nullptr;
    auto* header = static_cast<Header*>(std::calloc(1, sizeof(Header) + size));
    if (!header)
        return nullptr;
    *header = {live, size, file, line};
    count_block(size, 1);
    allocations.fetch_add(1, std::memory_order_relaxed);
    return header + 1;
}

const char* text_of(const char* file) {
    return file ? file : "unknown file";
}

} // namespace

void* allocate(const char* file, int line, std::size_t size) {
    void* block = obtain(file, line, size);
    if (!block)
        send_message(MessageLevel::fatal, "%s:%d: out of memory, %zu bytes wanted", text_of(file), line,
                     size);
    return block;
}

void* test_allocate(const char* file, int line, std::size_t size) noexcept {
    return may_succeed() ? obtain(file, line, size) : nullptr;
}

void* reallocate(const char* file, int line, void* block, std::size_t size) {
    if (size == 0) {
        release(file, line, block);
        return nullptr;
    }
    void* grown = allocate(file, line, size);
    if (block) {
        std::memcpy(grown, block, std::min(size, header_of(block)->size));
        release(file, line, block);
    }
    return grown;
}

void release(const char* file, int line, void* block) {
    if (!block)
        return;
    Header* header = header_of(block);
    if (header->mark != live) {
        bad_releases.fetch_add(1, std::memory_order_relaxed);
        send_message(MessageLevel::error, "%s:%d: release of what is no allocated block", text_of(file),
                     line);
        return;
    }
    count_block(header->size, -1);
    header->mark = released;
    std::free(header);
}

char* duplicate(const char* file, int line, const char* text) {
    if (!text)
        return nullptr;
    const std::size_t size = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(allocate(file, line, size), text, size));
}

MemoryCounts memory_counts() noexcept {
    return {live_blocks.load(), live_bytes.load(), allocations.load(), bad_releases.load()};
}

void fail_allocations_after(long long count) noexcept {
    remaining.store(count < 0 ? -1 : count);
}

} // namespace stage
