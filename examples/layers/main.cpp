// Settings in layers: built-in defaults, what the machine's owner decided, what the user chose.
// Later layers win, except where the machine's owner has locked a setting. The program keeps
// watching, and a reload of the user's layer arrives as one list of changes.

#include <vorn/host/Host.h>
#include <vorn/settings/SettingsUtils.h>

#include <algorithm>
#include <cstdio>

namespace {

using vorn::dictionary::IDictionary;
using vorn::dictionary::Item;
using vorn::dictionary::ItemType;
using vorn::dictionary::UpdateAction;
using vorn::settings::ChangeBatch;
using vorn::settings::ChangeEventType;
using vorn::settings::DictionaryGuard;
using vorn::settings::Settings;

DictionaryGuard newLayer(const IDictionary* dictionary, const char* name) {
    return {dictionary, dictionary->createItem(nullptr, name, ItemType::eDictionary)};
}

// A program of its own would read these from files.
DictionaryGuard makeDefaults(const IDictionary* dictionary) {
    DictionaryGuard layer = newLayer(dictionary, "defaults");
    dictionary->makeStringAtPath(layer.get(), "app/theme", "light");
    dictionary->makeIntAtPath(layer.get(), "app/autosave/minutes", 10);
    dictionary->makeBoolAtPath(layer.get(), "app/updates/enabled", true);
    dictionary->makeStringAtPath(layer.get(), "app/updates/channel", "stable");
    return layer;
}

DictionaryGuard makeMachine(const IDictionary* dictionary) {
    DictionaryGuard layer = newLayer(dictionary, "machine");
    dictionary->makeBoolAtPath(layer.get(), "app/updates/enabled", false);
    const char* locked[] = {"/app/updates"};
    dictionary->setStringArray(dictionary->makeDictionaryAtPath(layer.get(), "policy/locked"),
                               locked, 1);
    return layer;
}

DictionaryGuard makeUser(const IDictionary* dictionary, const char* theme) {
    DictionaryGuard layer = newLayer(dictionary, "user");
    dictionary->makeStringAtPath(layer.get(), "app/theme", theme);
    dictionary->makeIntAtPath(layer.get(), "app/autosave/minutes", 5);
    dictionary->makeBoolAtPath(layer.get(), "app/updates/enabled", true);
    return layer;
}

// Whether path is one of the locked ones or lies below one.
bool isLocked(const std::vector<std::string>& locked, const std::string& path) {
    return std::any_of(locked.begin(), locked.end(), [&](const std::string& root) {
        return path.compare(0, root.size(), root) == 0 &&
               (path.size() == root.size() || path[root.size()] == '/');
    });
}

// Takes the user's value unless its place is locked and already has one.
void mergeUser(const Settings& settings, const Item* user) {
    const auto locked = settings.get<std::vector<std::string>>("/policy/locked", {});
    settings.merge("/", user, [&](const Item* dstItem, ItemType, const Item*, ItemType) {
        if (dstItem && isLocked(locked, settings.pathOf(dstItem))) {
            std::printf("  %s is locked\n", settings.pathOf(dstItem).c_str());
            return UpdateAction::eKeep;
        }
        return UpdateAction::eOverwrite;
    });
}

void run(const Settings& settings) {
    const IDictionary* dictionary = settings.dictionary();

    const auto watch = settings.onChangeBatch("/app", [&](const ChangeBatch& changes) {
        std::printf("  changed: %zu\n", changes.size());
        for (const vorn::settings::Change& change : changes) {
            const bool isValue = change.type == ChangeEventType::eChanged &&
                                 settings.type(change.path) != ItemType::eDictionary;
            std::printf("    %s%s%s\n", change.path.c_str(), isValue ? " = " : "",
                        isValue ? settings.get<std::string>(change.path, "").c_str() : "");
        }
    });

    std::puts("defaults");
    settings.merge("/", makeDefaults(dictionary).get());
    std::puts("machine");
    settings.merge("/", makeMachine(dictionary).get());
    std::puts("user");
    mergeUser(settings, makeUser(dictionary, "dark").get());
    std::puts("user, edited");
    mergeUser(settings, makeUser(dictionary, "blue").get());

    // Defaults that arrive late, as those of a part loaded on demand, must not undo anything.
    std::puts("late defaults");
    const DictionaryGuard late = makeDefaults(dictionary);
    dictionary->makeIntAtPath(late.get(), "app/zoom", 100);
    settings.merge("/", late.get(), vorn::dictionary::kUpdateItemKeepOriginal);
}

} // namespace

int main() {
    try {
        vorn::host::Host host;
        run(Settings(host.acquire<vorn::settings::ISettings>(), host.acquire<IDictionary>()));
        return 0;
    } catch (const vorn::host::HostError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
