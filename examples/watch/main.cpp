// Ways of watching: every event of a node, every event below a node, one value, one value until it
// is reached, and the changes of a transaction as one batch.

#include <vorn/host/Host.h>
#include <vorn/settings/SettingsUtils.h>

#include <cstdio>

namespace {

using vorn::dictionary::IDictionary;
using vorn::dictionary::Item;
using vorn::settings::ChangeBatch;
using vorn::settings::ChangeEventType;
using vorn::settings::Settings;

const char* nameOf(ChangeEventType type) {
    return type == ChangeEventType::eChanged ? "changed" : "destroyed";
}

void watchEvents(const Settings& settings) {
    const auto node = settings.onNodeChange("/net/port", [](const Item*, ChangeEventType type) {
        std::printf("node: /net/port %s\n", nameOf(type));
    });
    const auto tree =
        settings.onTreeChange("/net", [&](const Item*, const Item* changed, ChangeEventType type) {
            std::printf("tree: %s %s\n", settings.pathOf(changed).c_str(), nameOf(type));
        });
    settings.set("/net/port", 80);
    settings.set("/net/port", 80); // the same value, and an event all the same
    settings.set("/net/hosts", std::vector<std::string>{"alpha", "beta"});
    settings.remove("/net");
}

void watchValues(const Settings& settings) {
    const auto hosts = settings.onChange<std::vector<std::string>>(
        "/net/hosts", [](const auto& before, const auto& now) {
            std::printf("hosts: %zu before, %zu now\n", before ? before->size() : 0,
                        now ? now->size() : 0);
        });
    settings.set("/net/hosts", std::vector<std::string>{"alpha", "beta"});
    settings.set("/net/hosts", std::vector<std::string>{"alpha", "beta"}); // no change, no call
    settings.set("/net/hosts/2", "gamma");

    // A subscription may end itself while it is being called.
    vorn::settings::Subscription once;
    once = settings.onChange<bool>("/net/ready", [&once](auto, std::optional<bool> now) {
        if (now.value_or(false)) {
            std::puts("ready, once");
            once.reset();
        }
    });
    settings.set("/net/ready", true);
    settings.set("/net/ready", false);
    settings.set("/net/ready", true);
}

void watchBatches(const Settings& settings) {
    const auto batch = settings.onChangeBatch("/net", [](const ChangeBatch& changes) {
        std::printf("batch of %zu:", changes.size());
        for (const vorn::settings::Change& change : changes) {
            std::printf(" %s", change.path.c_str());
        }
        std::puts("");
    });
    auto transaction = settings.transaction();
    transaction.set("/net/port", 443);
    transaction.set("/net/timeout", 2.5);
    transaction.set("/net/name", "harbour");
    std::puts("nothing has happened yet");
    transaction.commit();
}

} // namespace

int main() {
    try {
        vorn::host::Host host;
        const Settings settings(host.acquire<vorn::settings::ISettings>(),
                                host.acquire<IDictionary>());
        watchEvents(settings);
        watchValues(settings);
        watchBatches(settings);
        return 0;
    } catch (const vorn::host::HostError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
