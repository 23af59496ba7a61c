// The settings store over plain trees: the table that the real one is compared with, and what the
// contract allows callers to do in a callback. One store, as in the plugin.
#pragma once

#include "Tree.h"

#include <string>
#include <vector>
#include <vorn/settings/ISettings.h>

namespace vorn::fuzz {

using settings::ISettings;
using settings::SubscriptionId;
using settings::Transaction;

extern const ISettings kSettingsModel;

// The life of the library.
void loadSettingsModel();
void startSettingsModel();
void stopSettingsModel();

Node* settingsModelRoot();
void setModelLogLevel(int32_t level);
std::vector<std::string> takeModelLog(); // "level text"

// Whether a callback may do this now: it must not remove the nodes that are being told about, nor
// add or remove nodes where a subtree is being told as destroyed. Always true outside callbacks.
// Merges must not grow the tree beyond limit either.
namespace allows {
bool scalarWrite(const char* path);
bool elementWrite(const char* path, size_t index);
bool arrayWrite(const char* path, size_t length);
bool setDictionary(const char* path);
bool destroyItem(const char* path);
bool merge(const char* path, const Item* src, const char* srcPath, size_t limit);
bool commit(const Transaction* transaction, size_t limit);
} // namespace allows

} // namespace vorn::fuzz
