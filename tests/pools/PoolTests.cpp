// The free-list pool and the size-class allocator built from it.
#include "vorn/PluginUtils.h"
#include "vorn/extras/MultiFreeListAllocator.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

VORN_PLUGIN_GLOBALS("pools.tests")

namespace {

// What malloc was asked for, and whether it answers null.
struct Heap {
    std::map<void*, size_t> live; // size asked for, of every block not yet freed
    size_t requests = 0, lastRequest = 0;
    bool failing = false;
} g_heap;

std::string g_logged;

void recordLog(const char* source, int32_t level, const char* file, int, const char* format, ...) {
    g_logged += source + (" " + std::to_string(level)) + " " + file + " " + format;
}

} // namespace

extern "C" {
void* __real_malloc(size_t size);
void __real_free(void* data);

void* __wrap_malloc(size_t size) {
    ++g_heap.requests;
    g_heap.lastRequest = size;
    void* data = g_heap.failing ? nullptr : __real_malloc(size);
    if (data) {
        g_heap.live[data] = size;
    }
    return data;
}
void __wrap_free(void* data) {
    g_heap.live.erase(data);
    __real_free(data);
}
}

namespace vorn::extras {
namespace {

using Elements = std::vector<std::byte*>;

Elements take(FreeListAllocator& pool, size_t count) {
    Elements elements(count);
    for (std::byte*& element : elements) {
        element = static_cast<std::byte*>(pool.allocate());
    }
    return elements;
}

struct Pools : ::testing::Test {
    void SetUp() override {
        g_heap = Heap();
        // Blocks of 3200, 3840, 2560 and 5120 bytes: the request for one tells the class.
        MultiFreeListAllocator::AllocDesc descs[] = {{30, 0}, {64, 60}, {128, 20}, {512, 10}};
        multi.startup(descs, 4);
    }
    MultiFreeListAllocator multi;
};

TEST_F(Pools, CarveAlignedElementsInAddressOrderBlockByBlock) {
    struct Row {
        size_t elementSize, alignment, elementsPerBlock;
        size_t expectedSize, expectedAlignment, expectedRequest;
    };
    constexpr Row kRows[] = {{24, 0, 100, 24, 8, 2416},
                             {0, 4, 1, 8, 8, 24},
                             {12, 8, 10, 16, 8, 176},
                             {100, 64, 5, 128, 64, 704}};
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.elementSize);
        g_heap = Heap();
        FreeListAllocator pool(row.elementSize, row.alignment, row.elementsPerBlock);
        EXPECT_EQ(pool.getElementSize(), row.expectedSize);
        EXPECT_EQ(pool.getAlignment(), row.expectedAlignment);
        EXPECT_EQ(pool.getBlockSize(), row.expectedSize * row.elementsPerBlock);
        for (size_t blocks = 1; blocks <= 3; ++blocks) {
            const Elements elements = take(pool, row.elementsPerBlock);
            for (size_t i = 0; i < elements.size(); ++i) {
                ASSERT_EQ(elements[i], elements[0] + i * row.expectedSize);
                std::fill_n(elements[i], row.expectedSize, std::byte{'x'});
            }
            EXPECT_EQ(reinterpret_cast<uintptr_t>(elements[0]) % row.expectedAlignment, 0u);
            EXPECT_EQ(g_heap.requests, blocks);
            EXPECT_EQ(g_heap.lastRequest, row.expectedRequest);
        }
    }
}

TEST_F(Pools, HandOutWhatWasGivenBackLastInFirstOutBeforeFreshMemory) {
    FreeListAllocator pool;
    EXPECT_EQ(pool.allocate(), nullptr); // no configuration
    pool.initialize(16, 0, 4);
    const Elements elements = take(pool, 3);
    pool.deallocate(elements[0]);
    pool.deallocate(nullptr);
    pool.deallocate(elements[1]);
    EXPECT_EQ(take(pool, 3), (Elements{elements[1], elements[0], elements[2] + 16}));
    g_heap.failing = true; // a failed request changes nothing and is tried again
    EXPECT_EQ(take(pool, 2), Elements(2, nullptr));
    pool.deallocate(elements[0]);
    EXPECT_EQ(pool.allocate(), elements[0]);
    g_heap.failing = false;
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
        Elements again = take(pool, 6);
        std::sort(again.begin(), again.end());
        EXPECT_EQ(std::unique(again.begin(), again.end()), again.end());
        EXPECT_EQ(g_heap.requests, 3u);
        pool.reset();
        EXPECT_TRUE(g_heap.live.empty());
        take(pool, 3);
        EXPECT_EQ(g_heap.lastRequest, 32u); // the configuration stays
        pool.deallocateAll();
        take(pool, 1); // one block in use again, one waiting
        pool.initialize(32, 0, 10);
        EXPECT_TRUE(g_heap.live.empty());
        take(pool, 11);
        pool.deallocateAll();
    }
    EXPECT_TRUE(g_heap.live.empty());
}

TEST_F(Pools, TheFirstClassThatFitsServesARequestAndTakesItBack) {
    struct Row {
        size_t size, blockSize; // 0: served by malloc alone
    };
    constexpr Row kRows[] = {{0, 3200},   {24, 3200},  {25, 3840},  {56, 3840}, {57, 2560},
                             {120, 2560}, {121, 5120}, {504, 5120}, {505, 0},   {5000, 0}};
    for (const bool hasClasses : {true, false}) {
        for (const Row& row : kRows) {
            SCOPED_TRACE(row.size);
            const bool isPooled = hasClasses && row.blockSize > 0;
            auto* memory = static_cast<uint32_t*>(multi.allocate(row.size));
            ASSERT_NE(memory, nullptr);
            EXPECT_EQ(g_heap.lastRequest, isPooled ? row.blockSize + 16 : row.size + 8);
            EXPECT_EQ(memory[-1], row.size + 8);
            EXPECT_EQ(memory[-2], 8u);
            multi.deallocate(memory);
            multi.deallocate(nullptr);
            EXPECT_EQ(g_heap.live.count(memory - 2), 0u);
            if (isPooled) {
                EXPECT_EQ(multi.allocate(row.size), memory);
            }
        }
        multi.shutdown();
        EXPECT_TRUE(g_heap.live.empty());
    }
}

TEST_F(Pools, WhatCannotBeServedIsLoggedAndChangesNothing) {
    constexpr size_t kRefused = (size_t{1} << 32) - 8; // the prefix cannot hold it
    const auto expectFailure = [](void* memory) {
        EXPECT_EQ(memory, nullptr);
        EXPECT_EQ(g_logged, "pools.tests 1 include/vorn/extras/MultiFreeListAllocator.h "
                            "Failed to allocate memory!");
        g_logged.clear();
    };
    g_vornLogFn = &recordLog;
    for (const size_t size : {kRefused, kRefused + 8, ~size_t{0} - 7, ~size_t{0}}) {
        expectFailure(multi.allocate(size));
        expectFailure(multi.allocateAligned(size - 64, 64));
    }
    EXPECT_EQ(g_heap.requests, 0u);
    g_heap.failing = true;
    expectFailure(multi.allocate(kRefused - 1));
    EXPECT_EQ(g_heap.lastRequest, 0xFFFFFFFFu);
    expectFailure(multi.allocate(20));
    g_heap.failing = false;
    multi.deallocate(multi.allocate(20));
    EXPECT_EQ(g_heap.lastRequest, 3216u);
    EXPECT_EQ(g_logged, "");
}

TEST_F(Pools, LiveChunksAreAlignedNeverOverlapAndKeepTheirContents) {
    std::mt19937 random(20);
    std::map<char*, std::string> live; // by address
    for (int step = 0; step < 50000 || !live.empty(); ++step) {
        if (step >= 50000 || live.size() > 500 || (!live.empty() && random() % 5 < 2)) {
            const auto it = std::next(live.begin(), random() % live.size());
            ASSERT_EQ(std::string(it->first, it->second.size()), it->second);
            multi.deallocate(it->first);
            live.erase(it);
            continue;
        }
        const std::string contents(random() % 700, static_cast<char>(step));
        const size_t alignment = size_t{1} << random() % 14;
        char* memory = static_cast<char*>(multi.allocateAligned(contents.size(), alignment));
        ASSERT_EQ(reinterpret_cast<uintptr_t>(memory) % std::max<size_t>(alignment, 8), 0u);
        contents.copy(memory, contents.size());
        const auto [it, isNew] = live.emplace(memory, contents);
        const auto before = it == live.begin() ? it : std::prev(it), after = std::next(it);
        ASSERT_TRUE(isNew && (before == it || before->first + before->second.size() <= memory));
        ASSERT_TRUE(after == live.end() || memory + contents.size() <= after->first);
    }
    multi.shutdown();
    EXPECT_TRUE(g_heap.live.empty());
}

} // namespace
} // namespace vorn::extras
