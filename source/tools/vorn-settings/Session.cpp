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

void Session::load(const std::vector<std::string>& newFiles, bool isKeeping) {
    for (const std::string& file : newFiles) {
        store.merge(read(file).get(), isKeeping);
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

void Session::writeBack(bool isDryRun) {
    const std::string& file = files.back();
    changeFile(file, [&](const std::string& text) {
        std::string newText = edits.appliedTo(text, file);
        if (!isDryRun) {
            return newText;
        }
        LeftOut uncounted;
        printDifferences(*this, loadTree(store.idict(), text, file, &uncounted).get(),
                         loadTree(store.idict(), newText, file, &uncounted).get(), false);
        return text;
    });
    if (!isDryRun) {
        edits.clear();
    }
}

void Session::writeAll(const std::string& file, bool isDryRun) {
    const Item* all = store.find(SettingsPath());
    if (isDryRun) {
        const bool exists = access(file.c_str(), F_OK) == 0;
        const OwnedTree before = exists ? read(file) : OwnedTree();
        reportLeftOut();
        printDifferences(*this, before.get(), all, false);
    } else {
        writeFile(file, prettyText(store.idict(), all) + "\n");
        if (!files.empty() && file == files.back()) {
            edits.clear();
        }
    }
}

bool printDifferences(Session& session, const Item* before, const Item* after, bool isJson) {
    const IDictionary& idict = session.store.idict();
    const auto valueOf = [&idict](const Item* item) {
        return item ? std::optional(jsonText(idict, item)) : std::nullopt;
    };
    size_t count = 0;
    const char* separator = isJson ? "[" : "";
    forEachDifference(idict, "/", before, after,
                      [&](const std::string& path, const Item* old, const Item* now) {
                          const Change change = {path, valueOf(old), valueOf(now)};
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
