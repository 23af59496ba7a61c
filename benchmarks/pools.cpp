// The pools.
//
//   pool_pair         one element of 64 bytes taken from a FreeListAllocator and given back,
//                     against boost::pool
//   pool_batch        the same with 64 elements taken before they are given back in another order;
//                     the time is that of one
//   string_pair       a string of 16 to 500 bytes made in the size classes of the settings store
//                     and given back, under a mutex, against malloc under the same mutex
//   string_live       the same, replacing one of 256 live strings at random
//   string_batch      the same with 1,000 strings made before the first is given back
//
// Making a string includes copying its text. Lengths cannot be predicted.
#include "Rounds.h"
#include "Workload.h"

#include <vorn/PluginUtils.h>
#include <vorn/extras/FreeListAllocator.h>
#include <vorn/extras/MultiFreeListAllocator.h>

#include <boost/pool/pool.hpp>

#include <pthread.h>

#include <cstdlib>
#include <cstring>

VORN_PLUGIN_GLOBALS("vorn.benchmarks")

namespace vorn::bench {

namespace {

constexpr size_t kElementSize = 64;

class FreeList {
public:
    void* allocate() {
        return m_pool.allocate();
    }
    void deallocate(void* element) {
        m_pool.deallocate(element);
    }

private:
    extras::FreeListAllocator m_pool{kElementSize, 8, 100};
};

class BoostPool {
public:
    void* allocate() {
        return m_pool.malloc();
    }
    void deallocate(void* element) {
        m_pool.free(element);
    }

private:
    boost::pool<> m_pool{kElementSize, 100};
};

template <class Pool>
void pair(benchmark::State& state) {
    Pool pool;
    for (auto _ : state) {
        void* element = pool.allocate();
        benchmark::DoNotOptimize(element);
        pool.deallocate(element);
    }
}

template <class Pool>
void batch(benchmark::State& state) {
    constexpr size_t kBatch = 64;
    const std::vector<uint32_t> order = permutation(kBatch);
    Pool pool;
    void* elements[kBatch];
    while (state.KeepRunningBatch(kBatch)) {
        for (void*& element : elements) {
            element = pool.allocate();
            benchmark::DoNotOptimize(element);
        }
        for (const uint32_t place : order) {
            pool.deallocate(elements[place]);
        }
    }
}

class Locked {
protected:
    class Lock {
    public:
        explicit Lock(pthread_mutex_t& mutex) : m_mutex(mutex) {
            pthread_mutex_lock(&m_mutex);
        }
        ~Lock() {
            pthread_mutex_unlock(&m_mutex);
        }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pthread_mutex_t& m_mutex;
    };

    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

class PooledStrings : Locked {
public:
    PooledStrings() {
        extras::MultiFreeListAllocator::AllocDesc classes[] = {
            {32, 100}, {64, 50}, {128, 20}, {512, 10}};
        m_allocator.startup(classes, std::size(classes));
    }
    char* allocate(size_t size) {
        const Lock lock(m_mutex);
        return static_cast<char*>(m_allocator.allocate(size));
    }
    void deallocate(char* text) {
        const Lock lock(m_mutex);
        m_allocator.deallocate(text);
    }

private:
    extras::MultiFreeListAllocator m_allocator;
};

class MallocStrings : Locked {
public:
    char* allocate(size_t size) {
        const Lock lock(m_mutex);
        return static_cast<char*>(std::malloc(size));
    }
    void deallocate(char* text) {
        const Lock lock(m_mutex);
        std::free(text);
    }
};

// Lengths from 16 to 500, all of them equally often.
std::vector<uint16_t> randomLengths() {
    std::vector<uint16_t> lengths = randomOrder(500 - 16 + 1);
    for (uint16_t& length : lengths) {
        length = static_cast<uint16_t>(length + 16);
    }
    return lengths;
}

constexpr char kText[501] = {};

template <class Strings>
char* makeString(Strings& strings, size_t length) {
    char* text = strings.allocate(length + 1);
    std::memcpy(text, kText, length + 1);
    benchmark::DoNotOptimize(text);
    return text;
}

template <class Strings>
void stringPair(benchmark::State& state) {
    const std::vector<uint16_t> lengths = randomLengths();
    Strings strings;
    size_t i = 0;
    for (auto _ : state) {
        strings.deallocate(makeString(strings, lengths[i]));
        i = (i + 1) & kOrderMask;
    }
}

template <class Strings>
void stringLive(benchmark::State& state) {
    constexpr size_t kLive = 256;
    const std::vector<uint16_t> lengths = randomLengths();
    const std::vector<uint16_t> places = randomOrder(kLive);
    Strings strings;
    std::vector<char*> live;
    for (size_t i = 0; i < kLive; ++i) {
        live.push_back(makeString(strings, lengths[i]));
    }
    size_t i = 0;
    for (auto _ : state) {
        char*& text = live[places[i]];
        strings.deallocate(text);
        text = makeString(strings, lengths[i]);
        i = (i + 1) & kOrderMask;
    }
    for (char* text : live) {
        strings.deallocate(text);
    }
}

template <class Strings>
void stringBatch(benchmark::State& state) {
    constexpr size_t kBatch = 1000;
    const std::vector<uint16_t> lengths = randomLengths();
    Strings strings;
    std::vector<char*> batch(kBatch);
    size_t i = 0;
    while (state.KeepRunningBatch(kBatch)) {
        for (char*& text : batch) {
            text = makeString(strings, lengths[i]);
            i = (i + 1) & kOrderMask;
        }
        for (char* text : batch) {
            strings.deallocate(text);
        }
    }
}

} // namespace

void registerWorkloads(const Options&) {
    addWorkload("pool_pair", "vorn", pair<FreeList>);
    addWorkload("pool_pair", "boost_pool", pair<BoostPool>);
    addWorkload("pool_batch", "vorn", batch<FreeList>);
    addWorkload("pool_batch", "boost_pool", batch<BoostPool>);
    addWorkload("string_pair", "vorn", stringPair<PooledStrings>);
    addWorkload("string_pair", "malloc", stringPair<MallocStrings>);
    addWorkload("string_live", "vorn", stringLive<PooledStrings>);
    addWorkload("string_live", "malloc", stringLive<MallocStrings>);
    addWorkload("string_batch", "vorn", stringBatch<PooledStrings>);
    addWorkload("string_batch", "malloc", stringBatch<MallocStrings>);
}

} // namespace vorn::bench
