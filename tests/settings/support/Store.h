// The settings plugin loaded afresh for every test, with subscribers that write down what they
// hear.
#pragma once

#include "Host.h"
#include "RecordingDictionary.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>

namespace foreign {

constexpr const char* kSettingsPlugin = "libvorn.settings.plugin.so";

inline UpdateAction overwrite(const Item*, ItemType, const Item*, ItemType, void*) {
    return eOverwrite;
}

// A result as text.
template <class T>
std::string text(T value) {
    if constexpr (std::is_same_v<T, const char*>) {
        return value ? value : "null";
    } else {
        return testing::PrintToString(value);
    }
}

class Store : public testing::Test {
protected:
    using Action = std::function<void()>;
    using Values = std::vector<std::pair<const char*, int64_t>>;

    // Loads the dictionary service and the plugin, and registers the plugin.
    void load(bool isOwnDictionary = false) {
        g_host.dictionary = &RecordingDictionary::kTable;
        if (isOwnDictionary) {
            RegistryEntry dictionaryEntry{};
            m_dictionaryPlugin.load("libvorn.dictionary.plugin.so");
            m_dictionaryPlugin.registerPlugin(&g_framework, &dictionaryEntry);
            m_dictionaryPlugin.startup();
            g_host.dictionary = static_cast<const IDictionary*>(dictionaryEntry.interfaces[0].ptr);
        }
        dictionary = g_host.dictionary;
        plugin.load(kSettingsPlugin);
        plugin.registerPlugin(&g_framework, &entry);
        settings = static_cast<const ISettings*>(entry.interfaces[0].ptr);
    }
    void startup() {
        plugin.startup();
        m_isStarted = true;
    }
    void shutdown() {
        if (std::exchange(m_isStarted, false)) {
            plugin.shutdown();
        }
    }
    void restart() {
        shutdown();
        startup();
    }
    void unload() {
        shutdown();
        plugin.unload();
    }
    void begin(bool isOwnDictionary) {
        load(isOwnDictionary);
        startup();
        pushLogLevel(-2);
    }

    // Nothing of the store stays behind in the service.
    void TearDown() override {
        if (plugin.library) {
            unload();
        }
        for (Item* root : m_roots) {
            dictionary->destroyItem(root);
        }
        EXPECT_EQ(g_recorder.items.size() + g_recorder.buffers.size(), 0u);
        if (m_dictionaryPlugin.library) {
            m_dictionaryPlugin.shutdown();
            m_dictionaryPlugin.unload();
        }
        g_host = {};
        g_recorder = {};
    }

    // Subscribe under a label; then runs inside the callback. Events read "N /a" for nodes and
    // "T /a:/a/b" for trees, with "-" before a node that is being destroyed.
    SubscriptionId* onNode(const std::string& path, const char* label, Action then = {}) {
        const auto callback = [](const Item* changed, ChangeEvent event, void* userData) {
            static_cast<Subscriber*>(userData)->hear("", changed, event);
        };
        return settings->subscribeToNodeChangeEvents(path.c_str(), callback, add(label, then));
    }
    SubscriptionId* onTree(const std::string& path, const char* label, Action then = {}) {
        const auto callback = [](auto* tree, auto* changed, ChangeEvent event, void* userData) {
            auto& subscriber = *static_cast<Subscriber*>(userData);
            const std::string subtree = describe(*subscriber.store->dictionary, tree) + ":";
            subscriber.hear(subtree, changed, event);
        };
        return settings->subscribeToTreeChangeEvents(path.c_str(), callback, add(label, then));
    }
    // Node subscriptions with the label "N".
    void onNodes(const Lines& paths) {
        for (const std::string& path : paths) {
            onNode(path, "N");
        }
    }
    void unsubscribe(SubscriptionId* id) {
        settings->unsubscribeToChangeEvents(id);
    }

    // What came since the last call.
    std::string takeEvents() {
        return join(m_events, ", ");
    }
    std::string takeCalls() {
        return join(g_host.calls, "\n");
    }
    std::string takeLog() { // "level text"
        return join(g_host.log, "\n");
    }
    static std::string join(Lines& lines, const char* separator) {
        std::string text;
        for (const std::string& line : std::exchange(lines, {})) {
            text += (text.empty() ? "" : separator) + line;
        }
        return text;
    }
    void pushLogLevel(int32_t level) {
        g_host.sources.at(kSettingsName)(level);
    }

    // A tree of integers outside the settings, destroyed with the test.
    Item* makeSource(const Values& values) {
        const Unrecorded pause;
        Item* source = dictionary->createItem(nullptr, "<source>", eDictionary);
        for (const auto& [path, value] : values) {
            dictionary->setInt64(dictionary->createItem(source, path, eInt), value);
        }
        return own(source);
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
    // {name: value, ...}, of integers; children in their order.
    std::string dump(const Item* item) {
        const Unrecorded pause;
        if (dictionary->getItemType(item) != eDictionary) {
            return std::to_string(dictionary->getAsInt64(item));
        }
        std::string text;
        for (size_t i = 0; i < dictionary->getItemChildCount(item); ++i) {
            const Item* child = dictionary->getItemChildByIndex(item, i);
            text += text.empty() ? "" : ", ";
            text += std::string(dictionary->getItemName(child)) + ": " + dump(child);
        }
        return "{" + text + "}";
    }
    std::string dump() {
        return dump(at(""));
    }

    Plugin plugin;
    RegistryEntry entry{};
    const ISettings* settings = nullptr;
    const IDictionary* dictionary = nullptr;

private:
    struct Subscriber {
        Store* store;
        std::string label;
        Action then;

        void hear(const std::string& subtree, const Item* changed, ChangeEvent event) {
            store->m_events.push_back(label + " " + subtree + (event == eChanged ? "" : "-") +
                                      describe(*store->dictionary, changed));
            if (then) {
                then();
            }
        }
    };
    Subscriber* add(const char* label, const Action& then) {
        return &m_subscribers.emplace_back(Subscriber{this, label, then});
    }

    bool m_isStarted = false;
    Plugin m_dictionaryPlugin;
    Lines m_events;
    std::deque<Subscriber> m_subscribers;
    std::vector<Item*> m_roots;
};

// For tests that look into the service.
class RecordedStore : public Store {
protected:
    void SetUp() override {
        begin(false);
    }
};

// For tests that hold over any service.
class AnyStore : public Store, public testing::WithParamInterface<bool> {
protected:
    void SetUp() override {
        begin(GetParam());
    }
};

inline std::string nameService(const testing::TestParamInfo<bool>& info) {
    return info.param ? "own" : "recording";
}
#define VORN_OVER_BOTH_SERVICES(suite)                                                             \
    class suite : public AnyStore {};                                                              \
    INSTANTIATE_TEST_SUITE_P(Service, suite, testing::Bool(), nameService)

} // namespace foreign
