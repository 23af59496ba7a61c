// Loads the dictionary plugin as a host does, through its entry points, and offers its table.
#pragma once

#include "vorn/dictionary/IDictionary.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>

namespace vorn::dictionary {

constexpr ItemType kBool = ItemType::eBool, kInt = ItemType::eInt, kFloat = ItemType::eFloat,
                   kString = ItemType::eString, kDict = ItemType::eDictionary,
                   kNone = ItemType::eCount;

class DictionaryTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_library = dlopen(VORN_TEST_PLUGIN_DIR "/libvorn.dictionary.plugin.so", RTLD_NOW);
        ASSERT_NE(m_library, nullptr) << dlerror();
        m_framework.tryAcquireInterfaceWithClient = [](const char*, InterfaceDesc,
                                                       const char*) -> void* { return nullptr; };
        PluginRegistryEntry entry{};
        entryPoint<OnPluginRegisterFn>(kOnPluginRegisterFnName)(&m_framework, &entry);
        ASSERT_EQ(entry.interfaces[0].size, sizeof(IDictionary));
        d = static_cast<const IDictionary*>(entry.interfaces[0].ptr);
        startup();
    }
    void TearDown() override {
        shutdown();
        dlclose(m_library);
    }
    void startup() {
        entryPoint<OnPluginStartupFn>(kOnPluginStartupFnName)();
        root = d->makeDictionaryAtPath(nullptr, "root");
    }
    void shutdown() {
        entryPoint<OnPluginShutdownFn>(kOnPluginShutdownFnName)();
    }

    const Item* at(const std::string& path) const {
        return d->getItem(root, path.c_str());
    }
    // The value as text; "(none)" where there is none.
    std::string text(const Item* item) const {
        const char* buffer = d->createStringBufferFromItemValue(item);
        const std::string result = buffer ? buffer : "(none)";
        d->destroyStringBuffer(buffer);
        return result;
    }
    // The tree below item in one line, as in "{a:1 b:'x' c:{0:2.5 1:true}}".
    std::string outline(const Item* item) const {
        if (d->getItemType(item) != kDict) {
            const std::string quote = d->getItemType(item) == kString ? "'" : "";
            return quote + text(item) + quote;
        }
        std::string result = "{";
        for (size_t i = 0; i < d->getItemChildCount(item); ++i) {
            const Item* child = d->getItemChildByIndex(item, i);
            result += (i ? " " : "") + std::string(d->getItemName(child)) + ":" + outline(child);
        }
        return result + "}";
    }

    const IDictionary* d = nullptr;
    Item* root = nullptr;

private:
    template <class Fn>
    Fn entryPoint(const char* name) const {
        return reinterpret_cast<Fn>(dlsym(m_library, name));
    }

    void* m_library = nullptr;
    Framework m_framework{};
};

} // namespace vorn::dictionary
