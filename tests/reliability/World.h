// Both plugins in one process, loaded by their entry points, and a tree that has everything.
#pragma once

#include "FailingImports.h"
#include "dictionary/Outline.h"
#include "settings/support/Host.h"
#include "settings/support/RecordingDictionary.h"
#include "support/Threads.h"

#include <vorn/settings/ISettings.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace reliability {

using namespace vorn::dictionary;
using namespace vorn::settings;

constexpr const char* kText = "a text that is longer than what fits into the string itself";

// Both plugins, or that of the store over a recording service; a tree of every type, subscribers,
// a source to merge, a transaction.
class World {
public:
    explicit World(bool isOwn, bool isCounting = true) : isOwnDictionary(isOwn) {
        foreign::g_host = {};
        if (isOwn) {
            m_plugins.emplace_back().load("libvorn.dictionary.plugin.so");
        }
        m_plugins.emplace_back().load("libvorn.settings.plugin.so");
        for (const foreign::Plugin& plugin : m_plugins) {
            if (isCounting) {
                takeOverImports(plugin.library);
            }
        }
    }
    ~World() {
        shutDown();
        for (; !m_plugins.empty(); m_plugins.pop_back()) {
            m_plugins.back().unload();
        }
    }

    void registerPlugins() {
        foreign::g_host.dictionary = isOwnDictionary
                                         ? m_plugins.front().offer<foreign::IDictionary>()
                                         : &foreign::RecordingDictionary::kTable;
        d = reinterpret_cast<const IDictionary*>(foreign::g_host.dictionary);
        s = m_plugins.back().offer<ISettings>();
    }
    void startUp() {
        for (const foreign::Plugin& plugin : m_plugins) {
            plugin.startup();
        }
    }
    void shutDown() {
        for (Item** root : {&source, &plain, &m_transactionRoot}) {
            if (*root) {
                d->destroyItem(std::exchange(*root, nullptr));
            }
        }
        std::for_each(m_plugins.rbegin(), m_plugins.rend(),
                      [](auto& plugin) { plugin.shutdown(); });
    }
    void fill() {
        const int64_t numbers[] = {1, 2, 3};
        s->setBool("/a/bool", true);
        s->setFloat64("/a/float", 2.5);
        s->setString("/a/text", kText);
        s->setInt64Array("/a/list", numbers, 3);
        s->setInt64("/some/way/to/a/node/of/a/long/path/that/needs/memory/of/its/own", 1);
        for (const char* path : {"/back/2", "/back/1", "/back/0", "/a/a name of many letters"}) {
            s->setInt64(path, 1);
        }
        for (Item** root : {&source, &plain}) {
            *root = d->createItem(nullptr, "a tree", ItemType::eDictionary);
            d->makeStringAtPath(*root, "text/of/the source", kText);
            d->makeIntAtPath(*root, "a/text/made/a dictionary", 1);
            d->makeIntAtPath(*root, "a/list", 7);
            d->makeFloatAtPath(*root, "a/float", 1.5F);
        }
        transaction = s->createTransaction();
        m_transactionRoot = reinterpret_cast<Item**>(transaction)[0];
        s->setStringAsync(transaction, "/a/text", "committed, and longer than a short string");
        s->setInt64Async(transaction, "/committed/number", 5);
        s->subscribeToNodeChangeEvents("/a/probe", &hearNode, this);
        s->subscribeToTreeChangeEvents("/a", &hearTree, this);
    }

    // Everything that an operation could change, in one line.
    std::string show() const {
        std::string text = s ? show(s->getSettingsDictionary("")) : "";
        for (const Item* root : {plain, m_transactionRoot}) {
            text += root ? show(root) : "";
        }
        return text;
    }
    std::string show(const Item* item) const {
        const foreign::Unrecorded pause;
        return item ? outlineOf(*d, item) : "none";
    }

    // A value of the plain tree.
    Item* value(const char* path) const {
        return d->getItemMutable(plain, path);
    }

    static void hearNode(const Item*, ChangeEventType type, void* world) {
        static_cast<World*>(world)->changesHeard += type == ChangeEventType::eChanged;
    }
    static void hearTree(const Item*, const Item* changed, ChangeEventType type, void* world) {
        hearNode(changed, type, world);
    }
    void subscribeMany() {
        for (int i = 0; i < 16; ++i) {
            s->subscribeToTreeChangeEvents("/a", &hearTree, this);
            s->subscribeToNodeChangeEvents(("/a/" + std::to_string(i)).c_str(), &hearNode, this);
        }
    }

    const bool isOwnDictionary;
    const ISettings* s = nullptr;
    const IDictionary* d = nullptr;
    Item *source = nullptr, *plain = nullptr; // trees that are not the store's
    Transaction* transaction = nullptr;
    std::atomic<size_t> changesHeard = 0;

private:
    std::vector<foreign::Plugin> m_plugins; // that of the store last
    Item* m_transactionRoot = nullptr;
};

} // namespace reliability
