// The headers that others compile against today have every record and every slot where version 0.4
// had it, and of the same size.
#include "vorn_0_4.h"

#include <vorn/Framework.h>
#include <vorn/dictionary/IDictionary.h>
#include <vorn/filesystem/FileSystem.h>
#include <vorn/logging/Log.h>
#include <vorn/profiler/Profile.h>
#include <vorn/settings/ISettings.h>

#define SAME_SIZE(before, today) static_assert(sizeof(today) == sizeof(before), "another size")
#define SAME_PLACE(name)                                                                           \
    static_assert(offsetof(Today, name) == offsetof(Before, name), "moved");                       \
    SAME_SIZE(Before::name, Today::name);
#define SLOT(place, result, name, arguments) SAME_PLACE(name)
#define MEMBER(offset, type, name) SAME_PLACE(name)

// The members of a record, or the slots of a table, as their list in version 0.4 names them.
#define KEPT(before, today, list, SLOT_OR_MEMBER)                                                  \
    struct before##Kept {                                                                          \
        using Before = before;                                                                     \
        using Today = today;                                                                       \
        SAME_SIZE(before, today);                                                                  \
        list(SLOT_OR_MEMBER)                                                                       \
    }

KEPT(V04PluginImplDesc, vorn::PluginImplDesc, V04_PLUGIN_IMPL_DESC, MEMBER);
KEPT(V04Interface, vorn::PluginRegistryEntry::Interface, V04_INTERFACE, MEMBER);
KEPT(V04PluginRegistryEntry, vorn::PluginRegistryEntry, V04_PLUGIN_REGISTRY_ENTRY, MEMBER);
KEPT(V04PluginLoadingDesc, vorn::PluginLoadingDesc, V04_PLUGIN_LOADING_DESC, MEMBER);
KEPT(V04PluginDesc, vorn::PluginDesc, V04_PLUGIN_DESC, MEMBER);
KEPT(V04PluginRegistrationDesc, vorn::PluginRegistrationDesc, V04_PLUGIN_REGISTRATION_DESC, MEMBER);
KEPT(V04ItemInfo, vorn::filesystem::ItemInfo, V04_ITEM_INFO, MEMBER);
KEPT(V04Framework, vorn::Framework, V04_FRAMEWORK_SLOTS, SLOT);
KEPT(V04Logging, vorn::logging::Logging, V04_LOGGING_SLOTS, SLOT);
KEPT(V04Profiler, vorn::profiler::Profiler, V04_PROFILER_SLOTS, SLOT);
KEPT(V04FileSystem, vorn::filesystem::FileSystem, V04_FILE_SYSTEM_SLOTS, SLOT);
KEPT(V04IDictionary, vorn::dictionary::IDictionary, V04_DICTIONARY_SLOTS, SLOT);
KEPT(V04ISettings, vorn::settings::ISettings, V04_SETTINGS_SLOTS, SLOT);

SAME_SIZE(V04StandardLogger, vorn::logging::StandardLogger);
SAME_SIZE(V04ItemType, vorn::dictionary::ItemType);
SAME_SIZE(V04UpdateAction, vorn::dictionary::UpdateAction);
SAME_SIZE(V04ChangeEventType, vorn::settings::ChangeEventType);
SAME_SIZE(V04PluginHotReload, vorn::PluginHotReload);
SAME_SIZE(V04LogSettingBehavior, vorn::logging::LogSettingBehavior);
SAME_SIZE(V04FileItemType, vorn::filesystem::ItemType);
SAME_SIZE(V04WalkAction, vorn::filesystem::WalkAction);

#define SAME_NUMBER(before, today)                                                                 \
    static_assert(static_cast<uint32_t>(today) == before, "another number")
SAME_NUMBER(kV04Dictionary, vorn::dictionary::ItemType::eDictionary);
SAME_NUMBER(kV04Count, vorn::dictionary::ItemType::eCount);
SAME_NUMBER(kV04Keep, vorn::dictionary::UpdateAction::eKeep);
SAME_NUMBER(kV04Destroyed, vorn::settings::ChangeEventType::eDestroyed);
