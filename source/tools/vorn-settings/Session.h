// One run of the tool: the store with the files in it, and what has been done to it since.
#pragma once

#include "Edits.h"
#include "Output.h"
#include "Store.h"
#include "Watch.h"

#include <memory>
#include <string>
#include <vector>

namespace vorn::tool {

// Writes that wait for their commit, and the edits they will be.
class PendingWrites {
public:
    explicit PendingWrites(const settings::ISettings& settings)
        : m_settings(settings), m_transaction(settings.createTransaction()) {}
    ~PendingWrites() {
        m_settings.destroyTransaction(m_transaction);
    }
    PendingWrites(const PendingWrites&) = delete;
    PendingWrites& operator=(const PendingWrites&) = delete;

    // Throws ToolError for a dictionary, which a transaction cannot take.
    void set(const IDictionary& idict, const SettingsPath& path, const Item* value);
    void commit();

    Edits edits;

private:
    const settings::ISettings& m_settings;
    settings::Transaction* m_transaction;
};

class Session {
public:
    Session(Output& output, bool isStrict) : output(output), m_isStrict(isStrict) {}

    // The settings in the file. Throws ToolError for anything but an object or array.
    OwnedTree read(const std::string& file);

    // Merges the files into what is there, one after the other.
    void load(const std::vector<std::string>& files, MergeKind kind);

    // Warns, once, of all that the files read since the last time had and settings cannot hold.
    void reportLeftOut();

    // Writes the edits to the last file, or all settings to any file.
    void writeBack();
    void writeAll(const std::string& file);

    // Prints what those would change in the file.
    void showWriteBack(bool isJson);
    void showWriteAll(const std::string& file, bool isJson);

    Output& output;
    Store store;
    std::vector<std::string> files; // in the order they were loaded
    Edits edits;
    std::unique_ptr<PendingWrites> pending; // between begin and commit
    std::vector<std::unique_ptr<Watch>> watches;
    bool isShell = false; // changes stay in the store until they are saved
    bool isOver = false;  // quit was asked for

private:
    bool m_isStrict;
    LeftOut m_leftOut;
};

// Prints every difference of two trees that stand at path, as lines or as a JSON array, and says
// whether there is one.
bool printDifferences(
    Session& session, const SettingsPath& path, const Item* before, const Item* after, bool isJson);

} // namespace vorn::tool
