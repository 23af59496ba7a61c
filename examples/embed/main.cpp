// The smallest host: loads the plugins, writes and reads settings, and watches one.

#include <vorn/host/Host.h>
#include <vorn/settings/SettingsUtils.h>

#include <cstdio>

int main() {
    try {
        vorn::host::Host host;
        const vorn::settings::Settings settings(host.acquire<vorn::settings::ISettings>());

        const auto watch = settings.onChange<int>(
            "/app/view/width", [](std::optional<int> before, std::optional<int> now) {
                std::printf("width was %d, is %d\n", before.value_or(0), now.value_or(0));
            });

        settings.set("/app/view/width", 1280);
        settings.set("/app/view/width", 1280); // no change, so nobody is called
        settings.set("/app/view/width", 1920);
        settings.set("/app/title", "Harbour");

        const auto title = settings.get<std::string>("/app/title", "untitled");
        const auto height = settings.get("/app/view/height", 720);
        std::printf("%s, height %d\n", title.c_str(), height);
        return 0;
    } catch (const vorn::host::HostError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
