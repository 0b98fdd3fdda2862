// The renderer's allocator: zeroed blocks that remember who asked for them, and counts of what is alive.
// Thread-safe; bookkeeping costs a header before each block and a few atomic additions.
#pragma once

#include <cstddef>

namespace stage {

// Never null: a failure is a fatal message. `file` must outlive the block; it may be null.
[[nodiscard]] void* allocate(const char* file, int line, std::size_t size);

// Null on failure.
[[nodiscard]] void* test_allocate(const char* file, int line, std::size_t size) noexcept;

// A null block is allocated, size 0 releases it and gives null; what is added is zeroed.
[[nodiscard]] void* reallocate(const char* file, int line, void* block, std::size_t size);

// Null is accepted. What is no live block is left alone, counted and reported.
void release(const char* file, int line, void* block);

// Null gives null.
[[nodiscard]] char* duplicate(const char* file, int line, const char* text);

struct MemoryCounts {
    long long live_blocks;
    long long live_bytes; // as asked for
    long long allocations;
    long long bad_releases;
};
[[nodiscard]] MemoryCounts memory_counts() noexcept;

// Lets test_allocate fail after `count` more successes; a negative count ends that.
void fail_allocations_after(long long count) noexcept;

} // namespace stage
