// What a plugin without a file needs: the entry points of one that is built into the host. All of
// it is constant.
#pragma once

#include "vorn/Framework.h"

#include <type_traits>

namespace vorn::host {

// Entry points of a plugin whose one interface is the given table, always ready.
// REQUIRES: table and implDesc live as long as the process.
template <const auto& table, const PluginImplDesc& implDesc>
constexpr PluginRegistrationDesc builtinPlugin() {
    using Interface = std::remove_cvref_t<decltype(table)>;
    return {
        .onPluginRegisterFn =
            [](Framework*, PluginRegistryEntry* entry) {
                static constexpr PluginRegistryEntry::Interface kInterfaces[] = {
                    {Interface::getInterfaceDesc(), &table, sizeof(Interface)}};
                *entry = {implDesc, kInterfaces, 1};
            },
        .getFrameworkVersionFn = [] { return kFrameworkVersion; },
        .getPluginDepsFn = nullptr,
        .onPluginStartupFn = [] {},
        .onPluginShutdownFn = [] {},
    };
}

} // namespace vorn::host
