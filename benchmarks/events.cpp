// Change events, in a tree of 100k values (--tree).
//
//   overwrite_watched   an integer overwritten, hot, with nobody subscribed (plain) and with one
//                       node and three tree subscriptions called (watched)
//   dispatch_100        one write to a path of 100 node subscriptions, against a list of 100 plain
//                       function pointers called one after another, and a sigc++ signal
//   subscribe_apart     100,000 node subscriptions of a path each: made (add), and ended in the
//                       order in which they were made (remove); the time is that of one
//   subscribe_together  the same, all of them of one path
#include "Loaded.h"
#include "peers/PlainCallbacks.h"

#include <sigc++/sigc++.h>

#include <chrono>
#include <set>

namespace vorn::bench {

namespace {

using settings::ChangeEventType;
using settings::ISettings;
using settings::SubscriptionId;

const ISettings* settingsWith(const Tree& tree) {
    return Loaded<VornStore>::instance(tree).side().settings();
}

// Ends what it collects.
class Subscriptions {
public:
    explicit Subscriptions(const ISettings* settings) : m_settings(settings) {}
    ~Subscriptions() {
        for (SubscriptionId* subscription : m_subscriptions) {
            m_settings->unsubscribeToChangeEvents(subscription);
        }
    }
    Subscriptions(const Subscriptions&) = delete;
    Subscriptions& operator=(const Subscriptions&) = delete;

    void add(SubscriptionId* subscription) {
        require(subscription != nullptr, "no subscription");
        m_subscriptions.push_back(subscription);
    }

private:
    const ISettings* m_settings;
    std::vector<SubscriptionId*> m_subscriptions;
};

void overwrite(benchmark::State& state, const Tree& tree, bool isWatched) {
    Loaded<VornStore>& subject = Loaded<VornStore>::instance(tree);
    const ISettings* settings = subject.side().settings();
    uint64_t nodeEvents = 0;
    uint64_t treeEvents = 0;
    Subscriptions subscriptions(settings);
    if (isWatched) {
        std::set<std::string> enclosingPaths; // each once, so that a write meets three of them
        for (const char* path : subject.hotKeys()) {
            subscriptions.add(
                settings->subscribeToNodeChangeEvents(path, countNodeEvent, &nodeEvents));
            const std::string text = path;
            for (size_t end = text.rfind('/'); end != 0; end = text.rfind('/', end - 1)) {
                enclosingPaths.insert(text.substr(0, end));
            }
        }
        for (const std::string& path : enclosingPaths) {
            subscriptions.add(
                settings->subscribeToTreeChangeEvents(path.c_str(), countTreeEvent, &treeEvents));
        }
    }
    const std::vector<uint16_t> order = randomOrder(subject.hotKeys().size());
    int64_t value = 0;
    size_t i = 0;
    for (auto _ : state) {
        settings->setInt64(subject.hotKeys()[order[i]], ++value);
        i = (i + 1) & kOrderMask;
    }
    const auto writes = static_cast<uint64_t>(state.iterations());
    require(nodeEvents == (isWatched ? writes : 0) && treeEvents == (isWatched ? 3 * writes : 0),
            "wrong number of events");
}

constexpr size_t kSubscribers = 100;

void dispatchVorn(benchmark::State& state, const Tree& tree) {
    const ISettings* settings = settingsWith(tree);
    const char* path = pathsOf(tree)[tree.size() / 2];
    std::vector<uint64_t> counts(kSubscribers, 0);
    Subscriptions subscriptions(settings);
    for (uint64_t& count : counts) {
        subscriptions.add(settings->subscribeToNodeChangeEvents(path, countNodeEvent, &count));
    }
    int64_t value = 0;
    for (auto _ : state) {
        settings->setInt64(path, ++value);
    }
    for (const uint64_t count : counts) {
        require(count == static_cast<uint64_t>(state.iterations()), "an event was not told");
    }
}

void dispatchPlain(benchmark::State& state) {
    std::vector<uint64_t> counts(kSubscribers, 0);
    std::vector<PlainCallback> callbacks;
    for (uint64_t& count : counts) {
        callbacks.push_back({countNodeEvent, &count});
    }
    benchmark::DoNotOptimize(callbacks.data());
    for (auto _ : state) {
        for (const PlainCallback& callback : callbacks) {
            callback.call(nullptr, ChangeEventType::eChanged, callback.userData);
        }
    }
    for (const uint64_t count : counts) {
        require(count == static_cast<uint64_t>(state.iterations()), "a call is missing");
    }
}

void dispatchSigc(benchmark::State& state) {
    std::vector<uint64_t> counts(kSubscribers, 0);
    sigc::signal<void, const dictionary::Item*, ChangeEventType> changed;
    for (uint64_t& count : counts) {
        changed.connect(sigc::bind(sigc::ptr_fun(countNodeEvent), static_cast<void*>(&count)));
    }
    for (auto _ : state) {
        changed.emit(nullptr, ChangeEventType::eChanged);
    }
    for (const uint64_t count : counts) {
        require(count == static_cast<uint64_t>(state.iterations()), "a slot was not called");
    }
}

enum class Phase { eAdd, eRemove };
enum class Place { eApart, eTogether };

// Every iteration goes through both phases and reports one of them.
void subscribeMany(benchmark::State& state, const Tree& tree, Place place, Phase reported) {
    constexpr size_t kCount = 100000;
    const ISettings* settings = settingsWith(tree);
    static const Paths paths(*findTree("100k"), "/watched");
    uint64_t events = 0;
    std::vector<SubscriptionId*> subscriptions(kCount);
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        for (size_t i = 0; i < kCount; ++i) {
            const char* path = paths[place == Place::eApart ? i : 0];
            subscriptions[i] = settings->subscribeToNodeChangeEvents(path, countNodeEvent, &events);
        }
        const auto between = std::chrono::steady_clock::now();
        for (SubscriptionId* subscription : subscriptions) {
            settings->unsubscribeToChangeEvents(subscription);
        }
        const auto end = std::chrono::steady_clock::now();
        const std::chrono::duration<double> elapsed =
            reported == Phase::eAdd ? between - start : end - between;
        state.SetIterationTime(elapsed.count());
        require(std::find(subscriptions.begin(), subscriptions.end(), nullptr) ==
                    subscriptions.end(),
                "no subscription");
    }
    state.counters["operations"] = kCount;
    settings->setInt64(paths[0], 1);
    require(events == 0, "a subscription has not ended");
    settings->destroyItem("/watched");
}

} // namespace

void registerWorkloads(const Options& options) {
    const Tree& tree = chosenTree(options, "100k");
    addWorkload("overwrite_watched", "plain",
                [&tree](benchmark::State& state) { overwrite(state, tree, false); });
    addWorkload("overwrite_watched", "watched",
                [&tree](benchmark::State& state) { overwrite(state, tree, true); });
    addWorkload("dispatch_100", "vorn",
                [&tree](benchmark::State& state) { dispatchVorn(state, tree); });
    addWorkload("dispatch_100", "function_pointers", dispatchPlain);
    addWorkload("dispatch_100", "sigc", dispatchSigc);
    const auto addSubscribing = [&tree](const char* row, Place place) {
        for (const Phase phase : {Phase::eAdd, Phase::eRemove}) {
            const auto run = [&tree, place, phase](benchmark::State& state) {
                subscribeMany(state, tree, place, phase);
            };
            addWorkload(row, phase == Phase::eAdd ? "add" : "remove", run, 3)->UseManualTime();
        }
    };
    addSubscribing("subscribe_apart", Place::eApart);
    addSubscribing("subscribe_together", Place::eTogether);
}

} // namespace vorn::bench
