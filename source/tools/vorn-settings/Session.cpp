// Loading files, collecting edits and writing them back.
#include "Session.h"

#include "FileAccess.h"
#include "Value.h"

#include <unistd.h>

namespace vorn::tool {

// ---------------------------------------------------------------------------------------------
// Pending writes

void PendingWrites::set(const IDictionary& idict, const SettingsPath& path, const Item* value) {
    const std::string target = Store::storePath(path);
    switch (idict.getItemType(value)) {
    case ItemType::eBool:
        m_settings.setBoolAsync(m_transaction, target.c_str(), idict.getAsBool(value));
        break;
    case ItemType::eInt:
        m_settings.setInt64Async(m_transaction, target.c_str(), idict.getAsInt64(value));
        break;
    case ItemType::eFloat:
        m_settings.setFloat64Async(m_transaction, target.c_str(), idict.getAsFloat64(value));
        break;
    case ItemType::eString:
        m_settings.setStringAsync(m_transaction, target.c_str(), idict.getStringBuffer(value));
        break;
    case ItemType::eDictionary:
    case ItemType::eCount:
        throw ToolError(ExitCode::eBadInput, "not for a transaction", path.text(),
                        "expected a bool, number or string between begin and commit");
    }
}

void PendingWrites::commit() {
    m_settings.commitTransaction(m_transaction);
}

// ---------------------------------------------------------------------------------------------
// Session

OwnedTree Session::read(const std::string& file) {
    OwnedTree tree =
        loadTree(store.idict(), readFile(file), file, m_isStrict ? nullptr : &m_leftOut);
    if (!isDictionary(store.idict(), tree.get())) {
        throw ToolError(ExitCode::eBadInput, "no settings file", file,
                        "expected an object or an array, found a single value");
    }
    return tree;
}

void Session::load(const std::vector<std::string>& newFiles, MergeKind kind) {
    for (const std::string& file : newFiles) {
        store.merge(read(file).get(), kind);
        files.push_back(file);
    }
    reportLeftOut();
}

void Session::reportLeftOut() {
    if (m_leftOut.count > 0) {
        output.trouble("warning: " + std::to_string(m_leftOut.count) +
                       (m_leftOut.count == 1 ? " value" : " values") +
                       " left out: " + m_leftOut.first);
        m_leftOut = {};
    }
}

void Session::writeBack() {
    const std::string& file = files.back();
    changeFile(file, [&](const std::string& text) { return edits.appliedTo(text, file); });
    edits.clear();
}

void Session::showWriteBack(bool isJson) {
    const std::string& file = files.back();
    const std::string text = readFile(file);
    const std::string newText = edits.appliedTo(text, file);
    LeftOut uncounted;
    const OwnedTree before = loadTree(store.idict(), text, file, &uncounted);
    const OwnedTree after = loadTree(store.idict(), newText, file, &uncounted);
    printDifferences(*this, SettingsPath(), before.get(), after.get(), isJson);
}

void Session::writeAll(const std::string& file) {
    writeFile(file, prettyText(store.idict(), store.find(SettingsPath())) + "\n");
    if (!files.empty() && file == files.back()) {
        edits.clear();
    }
}

void Session::showWriteAll(const std::string& file, bool isJson) {
    const bool exists = access(file.c_str(), F_OK) == 0;
    const OwnedTree before = exists ? read(file) : OwnedTree();
    reportLeftOut();
    printDifferences(*this, SettingsPath(), before.get(), store.find(SettingsPath()), isJson);
}

bool printDifferences(Session& session,
                      const SettingsPath& path,
                      const Item* before,
                      const Item* after,
                      bool isJson) {
    const IDictionary& idict = session.store.idict();
    const auto valueOf = [&idict](const Item* item) {
        return item ? std::optional(jsonText(idict, item)) : std::nullopt;
    };
    size_t count = 0;
    const char* separator = isJson ? "[" : "";
    forEachDifference(idict, path.text(), before, after,
                      [&](const std::string& place, const Item* old, const Item* now) {
                          const Change change = {place, valueOf(old), valueOf(now)};
                          session.output.print(separator);
                          session.output.print(isJson ? "{" + Output::changeJson(change) + "}"
                                                      : session.output.changeText(change) + "\n");
                          separator = isJson ? ",\n " : "";
                          ++count;
                      });
    if (isJson) {
        session.output.line(count > 0 ? "]" : "[]");
    }
    return count > 0;
}

} // namespace vorn::tool
