// Loads the dictionary plugin as a host does, through its entry points, and offers its table.
#pragma once

#include "Outline.h"
#include "settings/support/Host.h"

#include <vorn/dictionary/IDictionary.h>

#include <gtest/gtest.h>

namespace vorn::dictionary {

constexpr ItemType kInt = ItemType::eInt, kFloat = ItemType::eFloat, kString = ItemType::eString,
                   kDict = ItemType::eDictionary, kNone = ItemType::eCount;

class DictionaryTest : public ::testing::Test {
protected:
    DictionaryTest() {
        m_plugin.load("libvorn.dictionary.plugin.so");
        d = m_plugin.offer<IDictionary>();
        startup();
    }
    ~DictionaryTest() override {
        m_plugin.shutdown();
        m_plugin.unload();
    }
    void startup() {
        m_plugin.startup();
        root = d->makeDictionaryAtPath(nullptr, "root");
    }

    const Item* at(const std::string& path) const {
        return d->getItem(root, path.c_str());
    }

    foreign::Plugin m_plugin;
    const IDictionary* d = nullptr;
    Item* root = nullptr;
};

} // namespace vorn::dictionary
