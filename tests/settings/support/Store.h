// The settings plugin loaded afresh for every test, with subscribers that write down what they
// hear.
#pragma once

#include "../../dictionary/Outline.h"
#include "Host.h"
#include "RecordingDictionary.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>

namespace foreign {

inline UpdateAction overwrite(const Item*, ItemType, const Item*, ItemType, void*) {
    return eOverwrite;
}

class Store : public testing::Test {
protected:
    using Action = std::function<void()>;
    using Values = std::vector<std::pair<std::string, int64_t>>;

    // Loads the dictionary service and the plugin, and registers the plugin.
    void load() {
        g_host.dictionary = &RecordingDictionary::kTable;
        if (isOwnDictionary) {
            m_dictionaryPlugin.load("libvorn.dictionary.plugin.so");
            g_host.dictionary = m_dictionaryPlugin.offer<IDictionary>();
            m_dictionaryPlugin.startup();
        }
        dictionary = g_host.dictionary;
        plugin.load("libvorn.settings.plugin.so");
        settings = plugin.offer<ISettings>();
    }
    void restart() {
        plugin.shutdown();
        plugin.startup();
    }

    void SetUp() override {
        load();
        plugin.startup();
        pushLogLevel(-2);
    }
    // Nothing of the store stays behind in the service.
    void TearDown() override {
        plugin.shutdown();
        plugin.unload();
        for (Item* root : m_roots) {
            dictionary->destroyItem(root);
        }
        EXPECT_EQ(g_recorder.items.size() + g_recorder.buffers.size(), 0u);
        if (isOwnDictionary) {
            m_dictionaryPlugin.shutdown();
            m_dictionaryPlugin.unload();
        }
        g_host = {};
        g_recorder = {};
    }

    // Subscribe under a label; then runs inside the callback. Events read "N /a" for nodes and
    // "T /a:/a/b" for trees, with "-" before a node that is being destroyed.
    V04SubscriptionId* onNode(const std::string& path, const char* label, Action then = {}) {
        const auto callback = [](const Item* changed, V04ChangeEventType event, void* subscriber) {
            static_cast<Subscriber*>(subscriber)->hear("", changed, event);
        };
        return settings->subscribeToNodeChangeEvents(path.c_str(), callback, add(label, then));
    }
    V04SubscriptionId* onTree(const std::string& path, const char* label, Action then = {}) {
        const auto callback = [](auto* tree, auto* changed, V04ChangeEventType event,
                                 void* subscriber) {
            const std::string subtree = describe(*g_host.dictionary, tree) + ":";
            static_cast<Subscriber*>(subscriber)->hear(subtree, changed, event);
        };
        return settings->subscribeToTreeChangeEvents(path.c_str(), callback, add(label, then));
    }
    // Node subscriptions with the label "N".
    void onNodes(const Lines& paths) {
        for (const std::string& path : paths) {
            onNode(path, "N");
        }
    }
    void unsubscribe(V04SubscriptionId* id) {
        settings->unsubscribeToChangeEvents(id);
    }

    // What came since the last call.
    std::string takeEvents() {
        return join(std::exchange(m_events, {}), ", ");
    }
    std::string takeCalls() {
        return join(std::exchange(g_host.calls, {}), "\n");
    }
    std::string takeLog() { // "level text"
        return join(std::exchange(g_host.log, {}), "\n");
    }
    void pushLogLevel(int32_t level) {
        g_host.sources.at(kSettingsName)(level);
    }

    // A tree of integers outside the settings, destroyed with the test.
    Item* makeSource(const Values& values) {
        const Unrecorded pause;
        Item* source = dictionary->createItem(nullptr, "<source>", eDictionary);
        for (const auto& [path, value] : values) {
            dictionary->setInt64(dictionary->createItem(source, path.c_str(), eInt), value);
        }
        return own(source);
    }
    void merge(const char* path, const Values& values, V04OnUpdateItemFn onUpdate = overwrite) {
        settings->update(path, makeSource(values), nullptr, onUpdate, nullptr);
    }
    Item* own(Item* root) {
        m_roots.push_back(root);
        return root;
    }
    // The live node at the path.
    Item* at(const char* path) {
        const Unrecorded pause;
        return const_cast<Item*>(settings->getSettingsDictionary(path));
    }
    // "{name:value ...}", of the settings or of another tree.
    std::string dump(const Item* root = nullptr) {
        const Unrecorded pause;
        return vorn::dictionary::outlineOf(*dictionary, root ? root : at(""));
    }

    Plugin plugin;
    const ISettings* settings = nullptr;
    const IDictionary* dictionary = nullptr;
    bool isOwnDictionary = false; // else the recording one

private:
    struct Subscriber {
        Store* store;
        std::string label;
        Action then;

        void hear(const std::string& subtree, const Item* changed, V04ChangeEventType event) {
            store->m_events.push_back(label + " " + subtree + (event == kV04Changed ? "" : "-") +
                                      describe(*g_host.dictionary, changed));
            if (then) {
                then();
            }
        }
    };
    Subscriber* add(const char* label, const Action& then) {
        return &m_subscribers.emplace_back(Subscriber{this, label, then});
    }

    Plugin m_dictionaryPlugin;
    Lines m_events;
    std::deque<Subscriber> m_subscribers;
    std::vector<Item*> m_roots;
};

// For tests that hold over any service.
class AnyStore : public Store, public testing::WithParamInterface<bool> {
protected:
    AnyStore() {
        isOwnDictionary = GetParam();
    }
};

#define VORN_OVER_BOTH_SERVICES(suite)                                                             \
    class suite : public AnyStore {};                                                              \
    INSTANTIATE_TEST_SUITE_P(OwnService, suite, testing::Bool(), testing::PrintToStringParamName())

} // namespace foreign
