#include "snapshot/itemarena.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

namespace {

std::uintptr_t address(const void* block)
{
    return reinterpret_cast<std::uintptr_t>(block);
}

} // namespace

TEST(ItemArena, HandsOutAlignedBlocksThatDoNotOverlapAcrossChunks)
{
    ItemArena arena(600);
    EXPECT_EQ(arena.blockSize(), 640u) << "rounded up to whole cache lines";
    EXPECT_EQ(arena.chunkCount(), 0u) << "nothing is taken before the first block";

    const size_t perChunk = ItemArena::kChunkSize / arena.blockSize();
    std::vector<void*> blocks;
    for (size_t i = 0; i < 2 * perChunk + 1; ++i) {
        void* block = arena.allocate();
        ASSERT_EQ(address(block) % 64, 0u);
        // Every byte is the caller's: writing a whole block must not disturb another one.
        std::memset(block, int(i % 251), arena.blockSize());
        blocks.push_back(block);
    }
    EXPECT_EQ(arena.chunkCount(), 3u);
    EXPECT_EQ(address(blocks.front()) % ItemArena::kChunkSize, 0u)
        << "a chunk starts on a huge page's boundary";
    std::set<std::uintptr_t> starts;
    for (size_t i = 0; i < blocks.size(); ++i) {
        starts.insert(address(blocks[i]));
        const auto* bytes = static_cast<const unsigned char*>(blocks[i]);
        EXPECT_EQ(bytes[0], i % 251);
        EXPECT_EQ(bytes[arena.blockSize() - 1], i % 251);
    }
    EXPECT_EQ(starts.size(), blocks.size());
}

TEST(ItemArena, ReusesGivenBackBlocksBeforeTakingMoreMemory)
{
    ItemArena arena(3); // smaller than the link a free block holds
    EXPECT_EQ(arena.blockSize(), 64u);
    void* first = arena.allocate();
    void* second = arena.allocate();
    arena.deallocate(first);
    arena.deallocate(second);
    arena.deallocate(nullptr);
    // Last given back, first taken again: its memory is the likeliest to be in the cache.
    EXPECT_EQ(arena.allocate(), second);
    EXPECT_EQ(arena.allocate(), first);
    EXPECT_EQ(arena.chunkCount(), 1u);
}

TEST(ItemArena, BlocksComeBackFromOtherThreadsWithoutLosingAny)
{
    ItemArena arena(128);
    constexpr int kThreads = 4;
    constexpr int kEach = 20000;
    std::vector<std::vector<void*>> taken(kThreads);
    for (auto& blocks : taken) {
        for (int i = 0; i < kEach; ++i)
            blocks.push_back(arena.allocate());
    }
    const size_t chunks = arena.chunkCount();
    std::vector<std::thread> threads;
    for (auto& blocks : taken) {
        threads.emplace_back([&arena, &blocks] {
            for (void* block : blocks)
                arena.deallocate(block);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    // Every block given back is handed out again, each once, before the arena grows.
    std::set<void*> again;
    for (int i = 0; i < kThreads * kEach; ++i)
        again.insert(arena.allocate());
    EXPECT_EQ(again.size(), size_t(kThreads * kEach));
    EXPECT_EQ(arena.chunkCount(), chunks);
}
