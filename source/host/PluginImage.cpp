// Reading and checking of what a plugin says of itself.

#include "PluginImage.h"

#include <algorithm>
#include <filesystem>

namespace vorn::host {

std::string pluginNameOfFile(const std::string& libraryPath) {
    std::string name = std::filesystem::path(libraryPath).stem().string();
    if (name.starts_with("lib")) {
        name.erase(0, 3);
    }
    return name;
}

PluginImage::PluginImage(std::string libraryPath)
    : m_libraryPath(std::move(libraryPath)), m_origin(m_libraryPath) {}

PluginImage::PluginImage(const PluginRegistrationDesc& entryPoints, const std::string& registrar)
    : m_entryPoints(entryPoints), m_origin("registered by " + registrar) {}

Refusal PluginImage::load(Framework& framework, const std::string& copyDirectory) {
    if (!m_libraryPath.empty()) {
        const Refusal refusal = copyDirectory.empty()
                                    ? m_library.open(m_libraryPath)
                                    : m_library.openCopy(m_libraryPath, copyDirectory);
        if (refusal) {
            return label() + " is refused: " + *refusal;
        }
        m_entryPoints = m_library.entryPoints();
    } else if (!m_entryPoints.onPluginRegisterFn || !m_entryPoints.getFrameworkVersionFn ||
               !m_entryPoints.onPluginStartupFn || !m_entryPoints.onPluginShutdownFn) {
        return _unexpected("all entry points but the dependencies'", "a null one");
    }

    if (Refusal refusal = _readVersion()) {
        return refusal;
    }
    if (Refusal refusal = _readDependencies()) {
        return refusal;
    }
    PluginRegistryEntry entry = {};
    m_entryPoints.onPluginRegisterFn(&framework, &entry);
    return _readEntry(entry);
}

Refusal PluginImage::_readVersion() const {
    const Version version = m_entryPoints.getFrameworkVersionFn();
    if (!serves(kFrameworkVersion, version)) {
        return _unexpected("framework version " + toText(kFrameworkVersion) +
                               " or an older one of the same major number",
                           toText(version));
    }
    return {};
}

Refusal PluginImage::_readDependencies() {
    if (!m_entryPoints.getPluginDepsFn) {
        return {};
    }
    InterfaceDesc* dependencies = nullptr;
    size_t count = 0;
    m_entryPoints.getPluginDepsFn(&dependencies, &count);
    if (count > 0 && !dependencies) {
        return _unexpected(std::to_string(count) + " dependencies", "a null list");
    }
    for (size_t i = 0; i < count; ++i) {
        if (!dependencies[i].name) {
            return _unexpected("a name for every dependency", "a null one");
        }
        m_dependencies.push_back({_keep(dependencies[i].name), dependencies[i].version});
    }
    return {};
}

Refusal PluginImage::_readEntry(const PluginRegistryEntry& entry) {
    const PluginImplDesc& impl = entry.implDesc;
    if (!impl.name || !*impl.name) {
        return _unexpected("a plugin name", "none");
    }
    m_desc.impl = {
        .name = _keep(impl.name),
        .description = _keep(impl.description),
        .author = _keep(impl.author),
        .hotReload = impl.hotReload,
        .build = _keep(impl.build),
    };
    if (entry.interfaceCount > 0 && !entry.interfaces) {
        return _unexpected(std::to_string(entry.interfaceCount) + " interfaces", "a null list");
    }
    for (size_t i = 0; i < entry.interfaceCount; ++i) {
        const PluginRegistryEntry::Interface& interface = entry.interfaces[i];
        if (!interface.desc.name || !interface.ptr || interface.size == 0) {
            return _unexpected("a name, a table and a size of interface " + toText(interface.desc),
                               !interface.desc.name ? "no name"
                               : !interface.ptr     ? "no table"
                                                    : "size 0");
        }
        m_interfaces.push_back({_keep(interface.desc.name), interface.desc.version});
        m_tables.push_back(interface.ptr);
    }
    m_desc.interfaces = m_interfaces.data();
    m_desc.interfaceCount = m_interfaces.size();
    m_desc.dependencies = m_dependencies.data();
    m_desc.dependencyCount = m_dependencies.size();
    m_desc.libPath = m_libraryPath.empty() ? nullptr : m_libraryPath.c_str();
    return {};
}

const void* PluginImage::tableServing(const InterfaceDesc& wanted) const {
    for (size_t i = 0; i < m_interfaces.size(); ++i) {
        if (serves(m_interfaces[i], wanted)) {
            return m_tables[i];
        }
    }
    return nullptr;
}

const InterfaceDesc* PluginImage::descOfTable(const void* table) const {
    const auto found = std::find(m_tables.begin(), m_tables.end(), table);
    return found == m_tables.end() ? nullptr : &m_interfaces[found - m_tables.begin()];
}

std::string PluginImage::label() const {
    const std::string name = m_desc.impl.name         ? m_desc.impl.name
                             : !m_libraryPath.empty() ? pluginNameOfFile(m_libraryPath)
                                                      : "(no name yet)";
    return "plugin \"" + name + "\" (" + m_origin + ")";
}

Refusal PluginImage::_unexpected(const std::string& expected, const std::string& found) const {
    return refusalText(label(), "is refused", expected, found);
}

const char* PluginImage::_keep(const char* text) {
    return m_strings.emplace_back(text ? text : "").c_str();
}

} // namespace vorn::host
