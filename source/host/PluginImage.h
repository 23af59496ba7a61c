// The code of one plugin: its library, if it has one, its entry points, and an own copy of all
// that it says of itself.
//
// Threads: built by one thread; constant once load has succeeded.
#pragma once

#include "PluginLibrary.h"
#include "Versions.h"
#include "vorn/Framework.h"

#include <deque>
#include <string>
#include <vector>

namespace vorn::host {

// The name that a library's file lets expect: a.plugin for /some/where/liba.plugin.so.
std::string pluginNameOfFile(const std::string& libraryPath);

class PluginImage {
public:
    // A plugin of a library file.
    explicit PluginImage(std::string libraryPath);

    // A plugin without a file. registrar names who brought it, for messages.
    PluginImage(const PluginRegistrationDesc& entryPoints, const std::string& registrar);

    PluginImage(const PluginImage&) = delete;
    PluginImage& operator=(const PluginImage&) = delete;

    // Opens the library, or a copy of it when copyDirectory is not empty; nothing to do for a
    // plugin without a file. Then reads the version, reads the dependencies and registers, in this
    // order; what the plugin says is checked and copied. Calls the plugin, which calls back.
    Refusal load(Framework& framework, const std::string& copyDirectory);

    // What it says of itself. Lists and strings live as long as the image.
    const PluginDesc& desc() const {
        return m_desc;
    }
    const PluginRegistrationDesc& entryPoints() const {
        return m_entryPoints;
    }

    // The table that serves the wish, or null; whether the table is one of the plugin's, and under
    // which description.
    const void* tableServing(const InterfaceDesc& wanted) const;
    const InterfaceDesc* descOfTable(const void* table) const;
    const std::vector<const void*>& tables() const {
        return m_tables;
    }

    // Name and origin, for messages.
    std::string label() const;

private:
    Refusal _readVersion() const;
    Refusal _readDependencies();
    Refusal _readEntry(const PluginRegistryEntry& entry);
    Refusal _unexpected(const std::string& expected, const std::string& found) const;
    const char* _keep(const char* text);

    PluginLibrary m_library;
    PluginRegistrationDesc m_entryPoints = {};

    std::string m_libraryPath; // empty when there is no file
    std::string m_origin;      // path or registrar
    std::deque<std::string> m_strings;
    std::vector<InterfaceDesc> m_interfaces;
    std::vector<const void*> m_tables; // of m_interfaces, in the same order
    std::vector<InterfaceDesc> m_dependencies;
    PluginDesc m_desc = {};
};

} // namespace vorn::host
