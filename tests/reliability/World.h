// Both plugins in one process, loaded by their entry points, and a tree that has everything.
#pragma once

#include "FailingImports.h"
#include "settings/support/Host.h"
#include "settings/support/RecordingDictionary.h"

#include <vorn/dictionary/IDictionary.h>
#include <vorn/settings/ISettings.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>

namespace reliability {

using vorn::dictionary::IDictionary;
using vorn::dictionary::Item;
using vorn::dictionary::ItemType;
using vorn::settings::ChangeEventType;
using vorn::settings::ISettings;
using vorn::settings::SubscriptionId;
using vorn::settings::Transaction;

constexpr const char* kText = "a text that is longer than what fits into the string itself";
constexpr const char* kLong = "/some/way/to/a/node/of/a/long/path/that/needs/memory/of/its/own";

// Both plugins in one process, a tree of every type, subscribers, a source to merge, a transaction.
class World {
public:
    explicit World(bool isOwn, bool isCounting = true) : isOwnDictionary(isOwn) {
        foreign::g_host = {};
        if (isOwnDictionary) {
            m_dictionary.load("libvorn.dictionary.plugin.so");
        }
        m_settings.load("libvorn.settings.plugin.so");
        for (const foreign::Plugin* plugin : {&m_dictionary, &m_settings}) {
            if (isCounting && plugin->library) {
                takeOverImports(plugin->library);
            }
        }
    }
    ~World() {
        shutDown();
        m_settings.unload();
        if (isOwnDictionary) {
            m_dictionary.unload();
        }
    }

    void registerPlugins() {
        foreign::RegistryEntry entry{};
        foreign::g_host.dictionary = &foreign::RecordingDictionary::kTable;
        if (isOwnDictionary) {
            m_dictionary.registerPlugin(&foreign::g_framework, &entry);
            foreign::g_host.dictionary =
                static_cast<const foreign::IDictionary*>(entry.interfaces[0].ptr);
        }
        d = reinterpret_cast<const IDictionary*>(foreign::g_host.dictionary);
        m_settings.registerPlugin(&foreign::g_framework, &entry);
        s = static_cast<const ISettings*>(entry.interfaces[0].ptr);
    }
    void startUp() {
        if (isOwnDictionary) {
            m_dictionary.startup();
        }
        m_settings.startup();
    }
    void shutDown() {
        for (Item** root : {&source, &plain, &m_transactionRoot}) {
            if (*root) {
                d->destroyItem(std::exchange(*root, nullptr));
            }
        }
        m_settings.shutdown();
        if (isOwnDictionary) {
            m_dictionary.shutdown();
        }
    }
    void fill() {
        const int64_t numbers[] = {1, 2, 3};
        s->setBool("/a/bool", true);
        s->setFloat64("/a/float", 2.5);
        s->setString("/a/text", kText);
        s->setInt64Array("/a/list", numbers, 3);
        s->setInt64(kLong, 1);
        s->setInt64("/a/a name of many letters", 1);
        source = d->createItem(nullptr, "source", ItemType::eDictionary);
        plain = d->createItem(nullptr, "plain", ItemType::eDictionary);
        for (Item* root : {source, plain}) {
            d->makeStringAtPath(root, "text/of/the source", kText);
            d->makeIntAtPath(root, "a/text/made/a dictionary", 1);
            d->makeIntAtPath(root, "a/list", 7);
            d->makeFloatAtPath(root, "a/float", 1.5F);
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
        const bool isRegistered = s != nullptr;
        std::string text = isRegistered ? show(s->getSettingsDictionary("")) : "";
        for (const Item* root : {plain, m_transactionRoot}) {
            text += root ? show(root) : "";
        }
        return text;
    }
    std::string show(const Item* item) const {
        const foreign::Unrecorded pause;
        if (!item || d->getItemType(item) != ItemType::eDictionary) {
            const char* buffer = item ? d->createStringBufferFromItemValue(item) : nullptr;
            const std::string text = buffer ? buffer : "none";
            d->destroyStringBuffer(buffer);
            return text;
        }
        std::string text = "{";
        for (size_t i = 0; i < d->getItemChildCount(item); ++i) {
            const Item* child = d->getItemChildByIndex(item, i);
            text += std::string(i ? " " : "") + d->getItemName(child) + ":" + show(child);
        }
        return text + "}";
    }

    // A value of the plain tree.
    Item* value() const {
        return d->getItemMutable(plain, "a/list");
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

    const ISettings* s = nullptr;
    const IDictionary* d = nullptr;
    Item* source = nullptr;
    Item* plain = nullptr; // a tree that is not the store's
    Transaction* transaction = nullptr;
    std::atomic<size_t> changesHeard = 0;

    const bool isOwnDictionary;

private:
    foreign::Plugin m_dictionary, m_settings;
    Item* m_transactionRoot = nullptr;
};

// What the variable of the environment says, for runs that are longer or shorter than usual.
inline size_t countFor(const char* variable, size_t usual) {
    const char* value = std::getenv(variable);
    return value ? std::strtoul(value, nullptr, 10) : usual;
}

} // namespace reliability
