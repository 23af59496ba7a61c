// The free-list pool and the size-class allocator built from it.
#include "vorn/PluginUtils.h"
#include "vorn/extras/MultiFreeListAllocator.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>
#include <vector>

VORN_PLUGIN_GLOBALS("pools.tests")

using namespace vorn::extras;

static struct {
    std::set<void*> live; // blocks not yet freed
    size_t lastRequest = 0;
    bool isFailing = false; // malloc answers null
} g_heap;
static std::string g_logged;

static void
recordLog(const char* source, int32_t level, const char*, int, const char* format, ...) {
    g_logged += source + (" " + std::to_string(level)) + " " + format;
}

extern "C" {
void* __real_malloc(size_t size);
void __real_free(void* data);

void* __wrap_malloc(size_t size) {
    g_heap.lastRequest = size;
    return g_heap.isFailing ? nullptr : *g_heap.live.insert(__real_malloc(size)).first;
}
void __wrap_free(void* data) {
    g_heap.live.erase(data);
    __real_free(data);
}
}

using Elements = std::vector<std::byte*>;

static Elements take(FreeListAllocator& pool, size_t count) {
    Elements elements;
    while (elements.size() < count) {
        elements.push_back(static_cast<std::byte*>(pool.allocate()));
    }
    return elements;
}

struct Pools : ::testing::Test {
    Pools() {
        g_heap = {};
        // Blocks of 3200, 3840, 2560 and 5120 bytes: the request for one tells the class.
        MultiFreeListAllocator::AllocDesc descs[] = {{30, 0}, {64, 60}, {128, 20}, {512, 10}};
        multi.startup(descs, 4);
    }
    MultiFreeListAllocator multi;
};

TEST_F(Pools, CarveAlignedElementsInAddressOrderBlockByBlock) {
    const struct {
        size_t elementSize, alignment, perBlock, expectedSize, expectedAlignment, header;
    } rows[] = {{24, 0, 99, 24, 8, 16}, {0, 4, 1, 8, 8, 16}, {65, 64, 5, 128, 64, 64}};
    for (const auto& row : rows) {
        FreeListAllocator pool(row.elementSize, row.alignment, row.perBlock);
        EXPECT_EQ(pool.getAlignment(), row.expectedAlignment);
        for (size_t block = 0; block < 3; ++block) {
            const Elements elements = take(pool, row.perBlock);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(elements[0]) % row.expectedAlignment, 0u);
            EXPECT_EQ(g_heap.lastRequest, row.expectedSize * row.perBlock + row.header);
            for (size_t i = 0; i < elements.size(); ++i) {
                ASSERT_EQ(elements[i], elements[0] + i * row.expectedSize);
            }
        }
    }
}

TEST_F(Pools, HandOutWhatWasGivenBackLastInFirstOutBeforeFreshMemory) {
    FreeListAllocator pool;
    EXPECT_EQ(pool.allocate(), nullptr); // no configuration
    pool.initialize(16, 0, 4);
    const Elements elements = take(pool, 3);
    pool.deallocate(elements[0]);
    pool.deallocate(elements[1]);
    pool.deallocate(nullptr);
    EXPECT_EQ(take(pool, 3), (Elements{elements[1], elements[0], elements[2] + 16}));
    g_heap.isFailing = true; // a failed request changes nothing and is tried again
    EXPECT_EQ(take(pool, 2), Elements(2, nullptr));
    g_heap.isFailing = false;
    EXPECT_NE(pool.allocate(), nullptr);
}

TEST_F(Pools, ReleaseTheirBlocksOnlyAsAWhole) {
    {
        FreeListAllocator pool(8, 0, 2);
        const Elements elements = take(pool, 5);
        EXPECT_TRUE(pool.isValid(elements[0]) && pool.isValid(elements[4]));
        EXPECT_FALSE(pool.isValid(elements[0] + 4) || pool.isValid(elements[1] + 8));
        pool.deallocate(elements[4]);
        pool.deallocateAll();
        EXPECT_FALSE(pool.isValid(elements[0]) || pool.isValid(nullptr));
        const Elements again = take(pool, 3); // two blocks in use again, one waiting
        EXPECT_EQ(again[1], again[0] + 8) << "nothing is left of what was given back before";
        EXPECT_EQ(g_heap.live.size(), 3u);
        pool.reset();
        EXPECT_TRUE(g_heap.live.empty());
        take(pool, 3); // the configuration stays
    }
    EXPECT_TRUE(g_heap.live.empty());
}

TEST_F(Pools, TheFirstClassThatFitsServesARequestAndTakesItBack) {
    // Size and block size, 0 where malloc alone serves it.
    constexpr std::pair<size_t, size_t> kRows[] = {{0, 3200},   {24, 3200},  {25, 3840},
                                                   {56, 3840},  {57, 2560},  {120, 2560},
                                                   {121, 5120}, {504, 5120}, {505, 0}};
    for (const auto& [size, blockSize] : kRows) {
        auto* memory = static_cast<uint32_t*>(multi.allocate(size));
        EXPECT_EQ(g_heap.lastRequest, blockSize ? blockSize + 16 : size + 8);
        EXPECT_TRUE(memory[-1] == size + 8 && memory[-2] == 8u) << size;
        multi.deallocate(memory);
    }
    multi.deallocate(nullptr);
    multi.shutdown();
    EXPECT_TRUE(g_heap.live.empty());
}

TEST_F(Pools, WhatCannotBeServedIsLoggedAndChangesNothing) {
    constexpr size_t kRefused = (size_t{1} << 32) - 8; // the prefix cannot hold it
    const auto expectFailure = [](void* memory) {
        EXPECT_TRUE(!memory && g_logged == "pools.tests 1 Failed to allocate memory!") << g_logged;
        g_logged.clear();
    };
    g_vornLogFn = &recordLog;
    expectFailure(multi.allocate(kRefused));
    expectFailure(multi.allocateAligned(SIZE_MAX - 64, 64));
    EXPECT_TRUE(g_heap.live.empty());
    g_heap.isFailing = true;
    expectFailure(multi.allocate(kRefused - 1));
    EXPECT_EQ(g_heap.lastRequest, 0xFFFFFFFFu);
}

TEST_F(Pools, LiveChunksAreAlignedAndKeepTheirContents) {
    std::mt19937 random(20);
    std::pair<char*, std::string> chunks[500];
    for (int step = 0; step < 50000; ++step) {
        auto& [memory, contents] = chunks[random() % std::size(chunks)];
        ASSERT_EQ(std::string_view(memory, contents.size()), contents);
        multi.deallocate(memory);
        contents.assign(random() % 700, static_cast<char>(step));
        const size_t alignment = size_t{1} << random() % 14;
        memory = static_cast<char*>(multi.allocateAligned(contents.size(), alignment));
        ASSERT_EQ(reinterpret_cast<uintptr_t>(memory) % std::max<size_t>(alignment, 8), 0u);
        contents.copy(memory, contents.size());
    }
    for (const auto& [memory, contents] : chunks) {
        multi.deallocate(memory);
    }
}
