// The commands.
#include "Commands.h"

#include "FileAccess.h"
#include "FileFollower.h"
#include "JsonScanner.h"
#include "TreePicture.h"
#include "Value.h"
#include "page/TreePage.h"

#include <filesystem>

namespace vorn::tool {

using nlohmann::ordered_json;

namespace {

// Appends the names of the children, or with isRecursive the paths of all that is below.
void collectNames(const Session& session,
                  const Item* item,
                  const std::string& prefix,
                  const Arguments& arguments,
                  std::vector<std::string>& names) {
    const IDictionary& idict = session.store.idict();
    for (const Item* child : childrenOf(idict, item, arguments.order)) {
        const std::string name = prefix + idict.getItemName(child);
        names.push_back(isDictionary(idict, child) ? name + "/" : name);
        if (arguments.isRecursive) {
            collectNames(session, child, name + "/", arguments, names);
        }
    }
}

const Item* requireInner(const Store& store, const SettingsPath& path) {
    const Item* item = store.require(path);
    if (!isDictionary(store.idict(), item)) {
        throw ToolError(ExitCode::eNotFound, "nothing below", path.text(),
                        "expected an inner node, found a value");
    }
    return item;
}

// What the settings are called by above their page: the names of their files.
std::string titleOf(const Session& session) {
    std::string title;
    for (const std::string& file : session.files) {
        title += title.empty() ? "" : ", ";
        title += std::filesystem::path(file).filename();
    }
    return title.empty() ? "Settings" : title;
}

void requireOtherThan(const std::vector<std::string>& files, const std::string& page) {
    for (const std::string& file : files) {
        std::error_code none;
        if (std::filesystem::equivalent(file, page, none)) {
            throw ToolError(ExitCode::eBadInput, "cannot write file", page,
                            "expected another file than that of the settings");
        }
    }
}

// The files merged into one, each into what those before it make.
OwnedTree readMerged(Session& session,
                     const std::vector<std::string>& files,
                     MergeKind kind = MergeKind::eOverwrite) {
    const IDictionary& idict = session.store.idict();
    OwnedTree merged = session.read(files.front());
    for (size_t index = 1; index < files.size(); ++index) {
        const OwnedTree next = session.read(files[index]);
        MergePolicy policy(idict, kind, next.get());
        idict.update(merged.get(), nullptr, next.get(), nullptr, MergePolicy::decide, &policy);
    }
    return merged;
}

PendingWrites& requirePending(const Session& session, const std::string& command) {
    if (!session.pending) {
        throw ToolError(ExitCode::eBadInput, "no transaction", command, "expected begin before it");
    }
    return *session.pending;
}

// An element that is not the last one of its array.
bool isInsideArray(const IDictionary& idict, const Item* item) {
    const Item* parent = idict.getItemParent(item);
    return isArray(idict, parent) &&
           idict.getItemAt(parent, idict.getArrayLength(parent) - 1) != item;
}

} // namespace

// ---------------------------------------------------------------------------------------------
// Reading

ExitCode getCommand(Session& session, const Arguments& arguments) {
    const Item* item = session.store.require(SettingsPath::parse(arguments.path));
    const IDictionary& idict = session.store.idict();
    session.output.line(arguments.isJson ? prettyText(idict, item) : plainText(idict, item));
    return ExitCode::eDone;
}

ExitCode typeCommand(Session& session, const Arguments& arguments) {
    const Item* item = session.store.require(SettingsPath::parse(arguments.path));
    const std::string name = typeName(session.store.idict(), item);
    session.output.line(arguments.isJson ? ordered_json(name).dump() : name);
    return ExitCode::eDone;
}

ExitCode listCommand(Session& session, const Arguments& arguments) {
    const SettingsPath path = SettingsPath::parse(arguments.path);
    const Item* item = requireInner(session.store, path);
    std::vector<std::string> names;
    const std::string prefix = arguments.isRecursive ? childPathText(path.text(), "") : "";
    collectNames(session, item, prefix, arguments, names);
    if (arguments.isJson) {
        session.output.line(ordered_json(names).dump());
        return ExitCode::eDone;
    }
    for (const std::string& name : names) {
        const Paint paint = name.ends_with('/') ? Paint::eInner : Paint::eNone;
        session.output.line(session.output.painted(paint, name));
    }
    return ExitCode::eDone;
}

ExitCode dumpCommand(Session& session, const Arguments& arguments) {
    const Item* item = session.store.require(SettingsPath::parse(arguments.path));
    session.output.line(prettyText(session.store.idict(), item));
    return ExitCode::eDone;
}

ExitCode treeCommand(Session& session, const Arguments& arguments) {
    const SettingsPath path = SettingsPath::parse(arguments.path);
    const IDictionary& idict = session.store.idict();
    const Item* root = requireInner(session.store, path);
    if (!arguments.page.empty()) {
        const std::string page =
            treePage(idict, titleOf(session), path.text(), root, arguments.order);
        if (arguments.page == "-") {
            session.output.print(page);
        } else {
            requireOtherThan(session.files, arguments.page);
            writeFile(arguments.page, page);
        }
        return ExitCode::eDone;
    }
    const PictureForm form = {arguments.depth, arguments.width.value_or(session.output.width()),
                              arguments.order};
    if (arguments.isJson) {
        session.output.line(pictureJson(idict, root, form).dump(2));
    } else {
        drawTree(session.output, idict, childPathText(path.text(), ""), root, form);
    }
    return ExitCode::eDone;
}

// ---------------------------------------------------------------------------------------------
// Writing

ExitCode setCommand(Session& session, const Arguments& arguments) {
    const SettingsPath path = SettingsPath::parse(arguments.path);
    const IDictionary& idict = session.store.idict();
    const Value value = parseValue(idict, arguments.value, arguments.type);
    if (path.isRoot() && !isDictionary(idict, value.tree.get())) {
        throw ToolError(ExitCode::eBadInput, "no settings", arguments.value,
                        "expected an object or an array in the place of everything");
    }
    if (path.names().size() + depthOf(idict, value.tree.get()) > kMaxJsonDepth) {
        throw ToolError(ExitCode::eBadInput, "nested too deep", "set",
                        "expected at most " + std::to_string(kMaxJsonDepth) + " levels");
    }
    if (arguments.isDryRun && session.isShell) {
        printDifferences(session, path, session.store.find(path), value.tree.get(),
                         arguments.isJson);
    } else if (session.pending) {
        session.pending->set(idict, path, value.tree.get());
        session.pending->edits.set(path, value.json);
    } else {
        session.store.assign(path, value.tree.get());
        session.edits.set(path, value.json);
    }
    return ExitCode::eDone;
}

ExitCode resetCommand(Session& session, const Arguments& arguments) {
    const SettingsPath path = SettingsPath::parse(arguments.path);
    const IDictionary& idict = session.store.idict();
    if (session.pending) {
        throw ToolError(ExitCode::eBadInput, "not for a transaction", "reset",
                        "expected commit or abort before it");
    }
    const Item* item = session.store.require(path);
    if (!arguments.isForced && isDictionary(idict, item)) {
        throw ToolError(ExitCode::eBadInput, "more than one setting", path.text(),
                        "expected --force to remove all below it");
    }
    if (!arguments.isForced && isInsideArray(idict, item)) {
        throw ToolError(ExitCode::eBadInput, "inside an array", path.text(),
                        "expected the last element, or --force to make a dictionary of the array");
    }
    if (arguments.isDryRun && session.isShell) {
        printDifferences(session, path, item, nullptr, arguments.isJson);
    } else {
        session.store.remove(path);
        session.edits.remove(path);
    }
    return ExitCode::eDone;
}

// ---------------------------------------------------------------------------------------------
// Files

ExitCode mergeCommand(Session& session, const Arguments& arguments) {
    const OwnedTree merged = readMerged(
        session, arguments.files, arguments.isKeeping ? MergeKind::eKeep : MergeKind::eOverwrite);
    session.reportLeftOut();
    session.output.line(prettyText(session.store.idict(), merged.get()));
    return ExitCode::eDone;
}

ExitCode diffCommand(Session& session, const Arguments& arguments) {
    const OwnedTree before = session.read(arguments.files[0]);
    const OwnedTree after = session.read(arguments.files[1]);
    session.reportLeftOut();
    const bool isDifferent =
        printDifferences(session, SettingsPath(), before.get(), after.get(), arguments.isJson);
    return isDifferent ? ExitCode::eNotFound : ExitCode::eDone;
}

ExitCode loadCommand(Session& session, const Arguments& arguments) {
    session.load(arguments.files, arguments.isKeeping ? MergeKind::eKeep : MergeKind::eDifferent);
    return ExitCode::eDone;
}

ExitCode saveCommand(Session& session, const Arguments& arguments) {
    const bool isEverything = !arguments.files.empty();
    if (!isEverything && session.files.empty()) {
        throw ToolError(ExitCode::eBadInput, "no file", "save",
                        "expected save FILE, or load before it");
    }
    if (arguments.isDryRun) {
        isEverything ? session.showWriteAll(arguments.files[0], arguments.isJson)
                     : session.showWriteBack(arguments.isJson);
    } else {
        isEverything ? session.writeAll(arguments.files[0]) : session.writeBack();
    }
    return ExitCode::eDone;
}

// ---------------------------------------------------------------------------------------------
// Events

ExitCode followCommand(Session& session, const Arguments& arguments) {
    FileFollower follower(session.files);
    const auto reload = [&session] {
        session.store.assign(SettingsPath(), readMerged(session, session.files).get());
    };
    reload(); // what changed after it was loaded and before it is followed
    const Watch watch(session.store, session.output, SettingsPath::parse(arguments.path),
                      arguments.isJson);
    session.output.trouble("watching " + watch.path().text() + ", interrupt to stop");
    while (follower.wait()) {
        try {
            reload();
        } catch (const ToolError& error) {
            session.output.trouble(error); // what was read last stays
        }
        session.output.flush();
    }
    return ExitCode::eDone;
}

ExitCode watchCommand(Session& session, const Arguments& arguments) {
    session.watches.push_back(std::make_unique<Watch>(
        session.store, session.output, SettingsPath::parse(arguments.path), arguments.isJson));
    return ExitCode::eDone;
}

ExitCode unwatchCommand(Session& session, const Arguments& arguments) {
    const SettingsPath path = SettingsPath::parse(arguments.path);
    const size_t count = std::erase_if(session.watches, [&path](const auto& watch) {
        return path.isRoot() || watch->path().text() == path.text();
    });
    if (count == 0) {
        throw ToolError(ExitCode::eNotFound, "no such watch", path.text(),
                        "expected a watched path");
    }
    return ExitCode::eDone;
}

// ---------------------------------------------------------------------------------------------
// Transactions

ExitCode beginCommand(Session& session, const Arguments&) {
    if (session.pending) {
        throw ToolError(ExitCode::eBadInput, "transaction open", "begin",
                        "expected commit or abort before it");
    }
    session.pending = std::make_unique<PendingWrites>(session.store.settings());
    return ExitCode::eDone;
}

ExitCode commitCommand(Session& session, const Arguments&) {
    PendingWrites& pending = requirePending(session, "commit");
    pending.commit();
    session.edits.append(std::move(pending.edits));
    session.pending.reset();
    return ExitCode::eDone;
}

ExitCode abortCommand(Session& session, const Arguments&) {
    requirePending(session, "abort");
    session.pending.reset();
    return ExitCode::eDone;
}

} // namespace vorn::tool
