// The headers that others compile against today have every record and every slot where version 0.4
// had it, and of the same size.
#include "vorn_0_4.h"

#include <vorn/Framework.h>
#include <vorn/dictionary/IDictionary.h>
#include <vorn/filesystem/FileSystem.h>
#include <vorn/logging/Log.h>
#include <vorn/profiler/Profile.h>
#include <vorn/settings/ISettings.h>

#define SLOT_KEPT(place, result, name, arguments) KEPT(name)
#define MEMBER_KEPT(offset, type, name) KEPT(name)
#define KEPT(name)                                                                                 \
    static_assert(offsetof(TODAY, name) == offsetof(BEFORE, name), "moved");                       \
    static_assert(sizeof(TODAY::name) == sizeof(BEFORE::name) && sizeof(TODAY) == sizeof(BEFORE),  \
                  "another size");

#define BEFORE V04PluginImplDesc
#define TODAY vorn::PluginImplDesc
V04_PLUGIN_IMPL_DESC(MEMBER_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04Interface
#define TODAY vorn::PluginRegistryEntry::Interface
V04_INTERFACE(MEMBER_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04PluginRegistryEntry
#define TODAY vorn::PluginRegistryEntry
V04_PLUGIN_REGISTRY_ENTRY(MEMBER_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04PluginLoadingDesc
#define TODAY vorn::PluginLoadingDesc
V04_PLUGIN_LOADING_DESC(MEMBER_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04PluginDesc
#define TODAY vorn::PluginDesc
V04_PLUGIN_DESC(MEMBER_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04PluginRegistrationDesc
#define TODAY vorn::PluginRegistrationDesc
V04_PLUGIN_REGISTRATION_DESC(MEMBER_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04ItemInfo
#define TODAY vorn::filesystem::ItemInfo
V04_ITEM_INFO(MEMBER_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04Framework
#define TODAY vorn::Framework
V04_FRAMEWORK_SLOTS(SLOT_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04Logging
#define TODAY vorn::logging::Logging
V04_LOGGING_SLOTS(SLOT_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04Profiler
#define TODAY vorn::profiler::Profiler
V04_PROFILER_SLOTS(SLOT_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04FileSystem
#define TODAY vorn::filesystem::FileSystem
V04_FILE_SYSTEM_SLOTS(SLOT_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04IDictionary
#define TODAY vorn::dictionary::IDictionary
V04_DICTIONARY_SLOTS(SLOT_KEPT)
#undef BEFORE
#undef TODAY
#define BEFORE V04ISettings
#define TODAY vorn::settings::ISettings
V04_SETTINGS_SLOTS(SLOT_KEPT)
#undef BEFORE
#undef TODAY

static_assert(sizeof(vorn::logging::StandardLogger) == sizeof(V04StandardLogger), "another size");
static_assert(sizeof(vorn::dictionary::ItemType) == sizeof(V04ItemType) &&
                  sizeof(vorn::dictionary::UpdateAction) == sizeof(V04UpdateAction) &&
                  sizeof(vorn::settings::ChangeEventType) == sizeof(V04ChangeEventType) &&
                  sizeof(vorn::PluginHotReload) == sizeof(V04PluginHotReload) &&
                  sizeof(vorn::logging::LogSettingBehavior) == sizeof(V04LogSettingBehavior) &&
                  sizeof(vorn::filesystem::ItemType) == sizeof(V04FileItemType) &&
                  sizeof(vorn::filesystem::WalkAction) == sizeof(V04WalkAction),
              "32 bits");
static_assert(static_cast<uint32_t>(vorn::dictionary::ItemType::eDictionary) == kV04Dictionary &&
                  static_cast<uint32_t>(vorn::dictionary::ItemType::eCount) == kV04Count &&
                  static_cast<uint32_t>(vorn::dictionary::UpdateAction::eKeep) == kV04Keep &&
                  static_cast<uint32_t>(vorn::settings::ChangeEventType::eDestroyed) ==
                      kV04Destroyed,
              "another number");
