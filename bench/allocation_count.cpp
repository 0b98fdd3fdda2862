#include "allocation_count.h"

#include <cstdlib>
#include <new>

namespace {

std::size_t count = 0; // the functions below stay out of line so that the compiler does not take malloc and
                       // delete for a mismatched pair

} // namespace

std::size_t bench::allocations() {
    return count;
}

[[gnu::noinline]] void* operator new(std::size_t size) {
    ++count;
    if (void* memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
    ++count;
    const auto unit = static_cast<std::size_t>(alignment);
    if (void* memory = std::aligned_alloc(unit, (size + unit - 1) / unit * unit))
        return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
