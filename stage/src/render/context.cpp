// Scratch memory and random numbers of a rendering thread.
#include "render/context.h"

#include <algorithm>

namespace stage {

namespace {

constexpr std::size_t chunk_size = 64 * 1024;

std::size_t aligned(std::size_t offset, std::size_t alignment) {
    return (offset + alignment - 1) & ~(alignment - 1);
}

} // namespace

// Chunks come from operator new and are aligned for every type without extended alignment.
void* Arena::allocate(std::size_t size, std::size_t alignment) {
    alignment = std::min(alignment, std::size_t{__STDCPP_DEFAULT_NEW_ALIGNMENT__});
    std::size_t start = aligned(used_, alignment);
    if (chunk_ >= chunks_.size() || start + size > chunks_[chunk_].size) {
        const std::size_t next = chunk_ < chunks_.size() ? chunk_ + 1 : chunk_;
        if (next >= chunks_.size() || chunks_[next].size < size) {
            // Chunks behind the current one hold nothing, so a large one may be put before them.
            const std::size_t bytes = std::max(size, chunk_size);
            chunks_.insert(chunks_.begin() + static_cast<std::ptrdiff_t>(next),
                           Chunk{std::unique_ptr<std::byte[]>(new std::byte[bytes]), bytes});
        }
        chunk_ = next;
        start = 0;
    }
    used_ = start + size;
    return chunks_[chunk_].bytes.get() + start;
}

// The splitmix64 generator (Steele, Lea and Flood, "Fast splittable pseudorandom number generators", 2014).
float ThreadContext::next_random() {
    random_state += 0x9e3779b97f4a7c15u;
    std::uint64_t z = random_state;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    z ^= z >> 31;
    return static_cast<float>(z >> 40) * 0x1p-24f;
}

} // namespace stage
