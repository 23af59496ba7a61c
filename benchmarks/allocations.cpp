// Allocations on the hot paths: every call of malloc and its kin, of operator new and of mmap, made
// by anybody in the process during 10,000 operations, once the store is warm.
//
//   allocations/...   the counter allocations is the number of calls; it must be 0
//
// The sides "known_..." are operations that do allocate, here and inside a plugin: they show that
// the count would tell, and the program ends when it does not.
#include "Loaded.h"
#include "peers/PlainCallbacks.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>

namespace {

std::atomic<bool> g_isCounting{false};
std::atomic<uint64_t> g_allocationCount{0};

void countAllocation() {
    if (g_isCounting.load(std::memory_order_relaxed)) {
        g_allocationCount.fetch_add(1, std::memory_order_relaxed);
    }
}

} // namespace

// The program's own definitions come before those of the C library, for the plugins as well.
// operator new ends up in malloc.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) {
    countAllocation();
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    countAllocation();
    return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
    countAllocation();
    return __libc_realloc(memory, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    countAllocation();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, size_t alignment, size_t size) {
    countAllocation();
    *memory = __libc_memalign(alignment, size);
    return *memory ? 0 : ENOMEM;
}
void* mmap(void* address, size_t length, int protection, int flags, int file, off_t offset) {
    countAllocation();
    return reinterpret_cast<void*>(
        syscall(SYS_mmap, address, length, protection, flags, file, offset));
}
}

namespace vorn::bench {

namespace {

using settings::ISettings;

constexpr size_t kOperations = 10000;
constexpr const char* kPath = "/app/main/view/width";
constexpr const char* kTextPath = "/app/main/view/title";
constexpr const char* kArrayPath = "/app/main/view/bounds";
constexpr const char* kTexts[] = {"short", "one that does not fit into a word or two"};

// Runs the operation often enough to be warm, then counts.
template <class Operation>
void countAllocations(benchmark::State& state,
                      Operation operation,
                      bool isKnownToAllocate = false) {
    const ISettings* settings = VornStore().settings();
    int64_t value = 0;
    for (size_t i = 0; i < kOperations; ++i) {
        operation(settings, ++value);
    }
    for (auto _ : state) {
        g_allocationCount = 0;
        g_isCounting = true;
        for (size_t i = 0; i < kOperations; ++i) {
            operation(settings, ++value);
        }
        g_isCounting = false;
        state.counters["allocations"] = static_cast<double>(g_allocationCount);
        require(!isKnownToAllocate || g_allocationCount >= kOperations, "allocations are not seen");
    }
}

template <class Operation>
void addCount(const std::string& side, Operation operation) {
    const bool isKnownToAllocate = side.rfind("known_", 0) == 0;
    const auto run = [operation, isKnownToAllocate](benchmark::State& state) {
        countAllocations(state, operation, isKnownToAllocate);
    };
    addWorkload("allocations", side, run, 1);
}

// A path of 15 names below others, with a node subscription and as many tree subscriptions as it
// has nodes around it.
void countDispatch(benchmark::State& state) {
    const ISettings* settings = VornStore().settings();
    uint64_t nodeEvents = 0;
    uint64_t treeEvents = 0;
    std::vector<settings::SubscriptionId*> subscriptions;
    std::string path;
    for (size_t depth = 0; depth < 15; ++depth) {
        path += "/level" + std::to_string(depth);
        subscriptions.push_back(
            settings->subscribeToTreeChangeEvents(path.c_str(), countTreeEvent, &treeEvents));
    }
    path += "/value";
    subscriptions.push_back(
        settings->subscribeToNodeChangeEvents(path.c_str(), countNodeEvent, &nodeEvents));
    countAllocations(state, [&](const ISettings* table, int64_t value) {
        table->setInt64(path.c_str(), value);
    });
    require(nodeEvents == 2 * kOperations && treeEvents == 15 * nodeEvents,
            "an event was not told");
    for (settings::SubscriptionId* subscription : subscriptions) {
        settings->unsubscribeToChangeEvents(subscription);
    }
}

// The same with 15 tree subscriptions of one path.
void countDispatchOfOnePath(benchmark::State& state) {
    const ISettings* settings = VornStore().settings();
    uint64_t treeEvents = 0;
    std::vector<settings::SubscriptionId*> subscriptions;
    for (size_t i = 0; i < 15; ++i) {
        subscriptions.push_back(
            settings->subscribeToTreeChangeEvents("/app/main", countTreeEvent, &treeEvents));
    }
    countAllocations(state,
                     [](const ISettings* table, int64_t value) { table->setInt64(kPath, value); });
    require(treeEvents == 2 * kOperations * 15, "an event was not told");
    for (settings::SubscriptionId* subscription : subscriptions) {
        settings->unsubscribeToChangeEvents(subscription);
    }
}

} // namespace

void registerWorkloads(const Options&) {
    addCount("known_here", [](const ISettings*, int64_t) {
        const auto number = std::make_unique<int>(1);
        benchmark::DoNotOptimize(number.get());
    });
    addCount("known_plugin", [](const ISettings* settings, int64_t) {
        // A copy of a text larger than any size class of the store.
        static const std::string s_text(1000, 'x');
        settings->setString(kTextPath, s_text.c_str());
        settings->destroyStringBuffer(settings->createStringBufferFromItemValue(kTextPath));
    });
    addCount("read", [](const ISettings* settings, int64_t) {
        benchmark::DoNotOptimize(settings->getAsInt64(kPath));
        benchmark::DoNotOptimize(settings->getAsFloat64(kPath));
        benchmark::DoNotOptimize(settings->getAsBool(kPath));
        benchmark::DoNotOptimize(settings->getStringBuffer(kTextPath));
    });
    addCount("write_int",
             [](const ISettings* settings, int64_t value) { settings->setInt64(kPath, value); });
    addCount("write_float", [](const ISettings* settings, int64_t value) {
        settings->setFloat64(kPath, static_cast<double>(value));
    });
    addCount("write_bool", [](const ISettings* settings, int64_t value) {
        settings->setBool(kPath, value % 2 == 0);
    });
    addCount("write_string", [](const ISettings* settings, int64_t value) {
        settings->setString(kTextPath, kTexts[value % 2]);
    });
    addCount("element", [](const ISettings* settings, int64_t value) {
        const auto index = static_cast<size_t>(value) % 100;
        settings->setInt64At(kArrayPath, index, value);
        benchmark::DoNotOptimize(settings->getAsInt64At(kArrayPath, index));
    });
    addWorkload("allocations", "dispatch_15_paths", countDispatch, 1);
    addWorkload("allocations", "dispatch_15_of_one_path", countDispatchOfOnePath, 1);
}

} // namespace vorn::bench
