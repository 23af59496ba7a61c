// Readers beside readers and beside a writer: hot reads as in reads.cpp, in a tree of 100k values
// (--tree). All times are those of one read of one thread.
//
//   readers_1, readers_2    one and two threads that read
//   reader_alone            one thread that reads, with no other
//   reader_beside_writer    the same while another thread never stops overwriting 64 other values
//   reader_beside_creator   the same while another thread never stops creating and removing values
//   reader_beside_same      the same while another thread never stops overwriting what is read
//
// Peers: the whole-path map of absl behind a std::shared_mutex.
#include "Loaded.h"
#include "peers/AbslMap.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <shared_mutex>
#include <thread>

namespace vorn::bench {

namespace {

// The peer under a lock, as it must be when threads share it.
class LockedAbslMap {
public:
    static constexpr const char* kName = "absl_shared_mutex";
    using Key = AbslMap::Key;

    static Key key(const char* path) {
        return path;
    }
    void create(const char* path, int64_t value) {
        const std::unique_lock lock(m_mutex);
        m_map.create(path, value);
    }
    int64_t read(Key path) const {
        const std::shared_lock lock(m_mutex);
        return m_map.read(path);
    }
    void overwrite(Key path, int64_t value) {
        const std::unique_lock lock(m_mutex);
        m_map.overwrite(path, value);
    }

private:
    AbslMap m_map;
    mutable std::shared_mutex m_mutex;
};

// The paths that are read, and 64 others that lie apart from them.
template <class Side>
std::vector<typename Side::Key> otherKeys(const Tree& tree) {
    Loaded<Side>& subject = Loaded<Side>::instance(tree);
    std::vector<typename Side::Key> keys;
    for (const size_t index : subject.hotIndices()) {
        const size_t other = (index + tree.size() / 2 + 1) % tree.size();
        const auto& hot = subject.hotIndices();
        if (std::find(hot.begin(), hot.end(), other) == hot.end()) {
            keys.push_back(subject.side().key(pathsOf(tree)[other]));
        }
    }
    return keys;
}

// Time per read of each of the threads, this one among them, that read side by side.
template <class Side>
void readTogether(benchmark::State& state, const Tree& tree, size_t threadCount) {
    constexpr size_t kReads = 500000;
    Loaded<Side>& subject = Loaded<Side>::instance(tree);
    const std::vector<uint16_t> order = randomOrder(subject.hotKeys().size());
    for (auto _ : state) {
        std::atomic<size_t> waiting{threadCount};
        std::atomic<int64_t> total{0};
        const auto read = [&] {
            using Clock = std::chrono::steady_clock;
            waiting.fetch_sub(1);
            while (waiting.load() != 0) {
            }
            const Clock::time_point start = Clock::now();
            int64_t sum = 0;
            for (size_t i = 0; i < kReads; ++i) {
                sum += subject.side().read(subject.hotKeys()[order[i & kOrderMask]]);
            }
            total.fetch_add(sum);
            return std::pair(start, Clock::now());
        };
        std::pair<std::chrono::steady_clock::time_point, std::chrono::steady_clock::time_point>
            others[8];
        std::vector<std::thread> threads;
        for (size_t i = 1; i < threadCount; ++i) {
            threads.emplace_back([&, i] { others[i] = read(); });
        }
        auto [start, end] = read();
        for (size_t i = 1; i < threadCount; ++i) {
            threads[i - 1].join();
            start = std::min(start, others[i].first);
            end = std::max(end, others[i].second);
        }
        const std::chrono::duration<double> elapsed = end - start;
        state.SetIterationTime(elapsed.count());

        int64_t expected = 0;
        for (size_t i = 0; i < kReads; ++i) {
            expected += valueAt(subject.hotIndices()[order[i & kOrderMask]]);
        }
        require(total == expected * static_cast<int64_t>(threadCount), "a thread read otherwise");
    }
    state.counters["operations"] = kReads;
}

enum class Company { eNone, eWriter, eCreator, eSameValues };

// What the other thread does between two looks at the flag.
template <class Side>
class Disturber {
public:
    Disturber(const Tree& tree, Company company)
        : m_subject(Loaded<Side>::instance(tree)), m_company(company),
          m_keys(otherKeys<Side>(tree)) {}

    void work() {
        switch (m_company) {
        case Company::eNone:
            break;
        case Company::eWriter:
            for (const auto key : m_keys) {
                m_subject.side().overwrite(key, ++m_written);
            }
            break;
        case Company::eCreator:
            if constexpr (std::is_same_v<Side, VornStore>) {
                for (size_t i = 0; i < 64; ++i) {
                    const std::string path = "/created/value" + std::to_string(++m_written % 5000);
                    m_subject.side().create(path.c_str(), 1);
                }
                if (m_written % 5000 < 64) {
                    m_subject.side().settings()->destroyItem("/created");
                }
            }
            break;
        case Company::eSameValues:
            ++m_written;
            for (size_t i = 0; i < m_subject.hotKeys().size(); ++i) {
                m_subject.side().overwrite(m_subject.hotKeys()[i],
                                           valueAt(m_subject.hotIndices()[i]));
            }
            break;
        }
    }
    int64_t written() const {
        return m_written;
    }

private:
    Loaded<Side>& m_subject;
    Company m_company;
    std::vector<typename Side::Key> m_keys;
    int64_t m_written = 0;
};

template <class Side>
void readBeside(benchmark::State& state, const Tree& tree, Company company) {
    Loaded<Side>& subject = Loaded<Side>::instance(tree);
    const std::vector<uint16_t> order = randomOrder(subject.hotKeys().size());
    Disturber<Side> disturber(tree, company);
    std::atomic<bool> isDone{company == Company::eNone};
    std::atomic<bool> isAtWork{company == Company::eNone};
    std::thread other([&] {
        while (!isDone.load(std::memory_order_relaxed)) {
            disturber.work();
            isAtWork.store(true, std::memory_order_relaxed);
        }
    });
    while (!isAtWork.load(std::memory_order_relaxed)) {
    }
    int64_t sum = 0;
    size_t i = 0;
    for (auto _ : state) {
        sum += subject.side().read(subject.hotKeys()[order[i]]);
        i = (i + 1) & kOrderMask;
    }
    isDone = true;
    other.join();

    int64_t expected = 0;
    for (size_t n = 0; n < static_cast<size_t>(state.iterations()); ++n) {
        expected += valueAt(subject.hotIndices()[order[n & kOrderMask]]);
    }
    require(sum == expected, "the reader read something else");
    require(company == Company::eNone || disturber.written() > 0, "nothing was written");
    state.counters["written"] = static_cast<double>(disturber.written());
}

template <class Side>
void addThreads(const Tree& tree) {
    const auto addTogether = [&tree](const char* row, size_t threadCount) {
        const auto run = [&tree, threadCount](benchmark::State& state) {
            readTogether<Side>(state, tree, threadCount);
        };
        addWorkload(row, Side::kName, run)->UseManualTime();
    };
    const auto addBeside = [&tree](const char* row, Company company) {
        const auto run = [&tree, company](benchmark::State& state) {
            readBeside<Side>(state, tree, company);
        };
        addWorkload(row, Side::kName, run)->UseRealTime();
    };
    addTogether("readers_1", 1);
    addTogether("readers_2", 2);
    addBeside("reader_alone", Company::eNone);
    addBeside("reader_beside_writer", Company::eWriter);
    if constexpr (std::is_same_v<Side, VornStore>) {
        addBeside("reader_beside_creator", Company::eCreator);
        addBeside("reader_beside_same", Company::eSameValues);
    }
}

} // namespace

void registerWorkloads(const Options& options) {
    const Tree& tree = chosenTree(options, "100k");
    addThreads<VornStore>(tree);
    addThreads<LockedAbslMap>(tree);
}

} // namespace vorn::bench
