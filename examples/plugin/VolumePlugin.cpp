// A plugin that keeps its state in the settings: it depends on their interface, acquires it at
// start-up, and offers an interface of its own.

#include "IVolume.h"

#include <vorn/PluginUtils.h>
#include <vorn/settings/SettingsUtils.h>

#include <algorithm>
#include <atomic>

VORN_PLUGIN_GLOBALS("example.volume.plugin")

namespace {

using vorn::settings::ISettings;
using vorn::settings::Settings;

constexpr const char* kVolumePath = "/audio/volume";
constexpr const char* kLimitPath = "/audio/limit";

// Held from start-up to shut-down.
const ISettings* g_isettings = nullptr;
vorn::settings::Subscription g_watch;
std::atomic<uint32_t> g_changeCount{0};

int32_t getPercentImpl() {
    return Settings(g_isettings).get(kVolumePath, 0);
}

uint32_t getChangeCountImpl() {
    return g_changeCount;
}

void stepImpl(int32_t percent) {
    const Settings settings(g_isettings);
    const int32_t limit = settings.get(kLimitPath, 100);
    settings.set(kVolumePath, std::clamp(getPercentImpl() + percent, 0, std::max(limit, 0)));
}

void fillInterface(example::IVolume& iface) {
    iface = {&getPercentImpl, &getChangeCountImpl, &stepImpl};
}

constexpr vorn::PluginImplDesc kImplDesc = {"example.volume.plugin", "Volume as a setting", "Vorn",
                                            vorn::PluginHotReload::eDisabled, "example"};

} // namespace

VORN_EXPORT void vornOnPluginRegister(vorn::Framework* framework,
                                      vorn::PluginRegistryEntry* entry) {
    vorn::onPluginRegister<example::IVolume>(framework, entry, kImplDesc, &fillInterface);
}

VORN_EXPORT vorn::Version vornGetFrameworkVersion() {
    return vorn::kFrameworkVersion;
}

VORN_EXPORT void vornGetPluginDeps(vorn::InterfaceDesc** deps, size_t* count) {
    vorn::getPluginDepsTyped<ISettings>(deps, count);
}

VORN_EXPORT void vornOnPluginStartup() {
    g_isettings = static_cast<const ISettings*>(g_vornFramework->acquireInterfaceWithClient(
        g_vornClientName, ISettings::getInterfaceDesc(), nullptr));
    const Settings settings(g_isettings);
    settings.setDefault(kVolumePath, 50);
    settings.setDefault(kLimitPath, 100);
    g_changeCount = 0;
    g_watch = settings.onChange<int32_t>(kVolumePath, [](auto, auto) { ++g_changeCount; });
}

VORN_EXPORT void vornOnPluginShutdown() {
    g_watch.reset();
    g_isettings = nullptr;
}
