// Uses the volume plugin through the host: vorn_example_plugin PLUGIN_FILE

#include "IVolume.h"

#include <vorn/host/Host.h>
#include <vorn/settings/SettingsUtils.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s PLUGIN_FILE\n", argv[0]);
        return 2;
    }
    try {
        vorn::host::Host host;
        host.loadPlugin(argv[1]);

        // Settings that are there before the plugin starts win over its defaults.
        const vorn::settings::Settings settings(host.acquire<vorn::settings::ISettings>());
        settings.set("/audio/limit", 80);

        const auto* volume = host.acquire<example::IVolume>();
        std::printf("volume %d\n", volume->getPercent());
        volume->step(+20);
        volume->step(+20);
        std::printf("two steps up: volume %d\n", volume->getPercent());
        settings.set("/audio/volume", 5);
        std::printf("set to 5 by somebody else: volume %d\n", volume->getPercent());
        volume->step(-20);
        std::printf("a step down: volume %d\n", volume->getPercent());
        std::printf("%u changes seen by the plugin\n", volume->getChangeCount());

        const vorn::PluginDesc& plugin = host.framework().getPluginDesc("example.volume.plugin");
        std::printf("%s needs %s\n", plugin.impl.name, plugin.dependencies[0].name);
        return 0;
    } catch (const vorn::host::HostError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
