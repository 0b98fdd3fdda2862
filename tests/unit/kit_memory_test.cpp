// Allocator and locks: bookkeeping, threads.
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kit/lock.h"
#include "kit/memory.h"

namespace {

class Memory : public testing::Test {
protected:
    const stage::MemoryCounts before = stage::memory_counts();
    long long live_blocks() const { return stage::memory_counts().live_blocks - before.live_blocks; }
    long long live_bytes() const { return stage::memory_counts().live_bytes - before.live_bytes; }
};

TEST_F(Memory, ReallocateKeepsWhatWasThereAndZeroesTheRest) {
    auto* block = stage::duplicate("file", 1, "abc");
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u);
    block = static_cast<char*>(stage::reallocate("file", 2, block, 8));
    EXPECT_EQ(std::memcmp(block, "abc\0\0\0\0\0", 8), 0);
    block = static_cast<char*>(stage::reallocate("file", 3, block, 2));
    EXPECT_EQ(std::memcmp(block, "ab", 2), 0);
    EXPECT_EQ(live_bytes(), 2);
    EXPECT_EQ(stage::reallocate("file", 4, block, 0), nullptr);
    EXPECT_EQ(live_blocks(), 0);
}

TEST_F(Memory, ThreadsDoNotLoseCountsAndLocksKeepThemApart) {
    const long long locks = stage::live_locks();
    miLock lock = stage::create_lock();
    EXPECT_EQ(stage::live_locks(), locks + 1);
    int guarded = 0; // an increment that threads would lose without the lock
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                void* block = stage::allocate("file", i, 24);
                stage::acquire_lock(lock);
                ++guarded;
                stage::release_lock(lock);
                stage::release("file", i, block);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(guarded, 20000);
    EXPECT_EQ(live_blocks(), 0);
    EXPECT_EQ(live_bytes(), 0);
    stage::destroy_lock(lock);
    EXPECT_EQ(stage::live_locks(), locks);
}

} // namespace
