// Scratch memory and random numbers of a rendering thread.
#include "render/context.h"

#include <algorithm>

#include "render/sampling.h"

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

void ThreadContext::start_sample(std::uint32_t x, std::uint32_t y, std::uint32_t index,
                                 std::uint64_t its_seed) {
    pixel_x = x;
    pixel_y = y;
    sample = index;
    sample_seed = its_seed;
    sample_dimension = 0;
    random_state = mix_bits(its_seed);
}

// The splitmix64 generator (Steele, Lea and Flood, "Fast splittable pseudorandom number generators", 2014).
float ThreadContext::next_random() {
    const std::uint64_t bits = mix_bits(random_state);
    random_state += golden_ratio_bits;
    return unit_float(bits);
}

} // namespace stage
