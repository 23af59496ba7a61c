// The exact calls that each operation makes to the dictionary service, in their order.
#include "support/Store.h"

#include <regex>
#include <sstream>

using namespace foreign;

constexpr const IDictionary& kTable = RecordingDictionary::kTable;

#define CALL(...)                                                                                  \
    []([[maybe_unused]] const ISettings& s, [[maybe_unused]] Transaction* t,                       \
       [[maybe_unused]] const Item* source) { __VA_ARGS__; }

struct Operation {
    void (*act)(const ISettings& s, Transaction* t, const Item* source);
    const char* calls; // separated by "; ", in the short forms of expand
};

// The settings hold n: 5, s: 'x', l: [7, 8], a: {b: {c: 1}, d: 2}, the transaction n: 6, and the
// source d: 1, new: 2.
const Operation kOperations[] = {
    {CALL(s.getItemType("/none")), "find 'none' -> null; getItemType(null)"},
    {CALL(s.isAccessibleAs(eInt, "none")), "find 'none' -> null; isAccessibleAs(int, null)"},
    {CALL(s.getAsInt64("/n")), "find 'n' -> /n; isAccessibleAs(int, /n); getAsInt64(/n)"},
    {CALL(s.getAsFloat64("n")), "find 'n' -> /n; isAccessibleAs(float, /n); getAsFloat64(/n)"},
    {CALL(s.getAsBool("/n")), "find 'n' -> /n; isAccessibleAs(bool, /n); getAsBool(/n)"},
    {CALL(s.getStringBuffer("/s")), "find 's' -> /s; getItemType(/s); getStringBuffer(/s)"},
    {CALL(s.getAsInt64("//n/")), "find '/n/' -> null"},
    {CALL(s.getAsInt64("/")), "find '' -> root; isAccessibleAs(int, root)"},
    {CALL(s.getAsInt64At("l", 1)), "find 'l' -> /l; getItemMutable(/l, '1') -> /l/1; "
                                   "isAccessibleAs(int, /l/1); getAsInt64(/l/1)"},
    {CALL(s.getStringBufferAt("/l", 9)), "find 'l' -> /l; getItemMutable(/l, '9') -> null"},
    {CALL(s.setInt64("/p/q", 7)), "make 'p/q' int; setInt64(/p/q, 7); path /p/q"},
    {CALL(s.setFloat64("f", 1.5)), "make 'f' float; setFloat64(/f, 1.5); path /f"},
    {CALL(s.setBool("/b", true)), "make 'b' bool; setBool(/b, true); path /b"},
    {CALL(s.setString("t", "y")), "make 't' string; setString(/t, 'y'); path /t"},
    {CALL(s.setString("/a/d", nullptr)), "find 'a/d' -> /a/d; setString(/a/d, null); path /a/d"},
    {CALL(s.setBoolAt("/l", 0, true)), "find 'l/0' -> /l/0; setBool(/l/0, true); path /l/0"},
    {CALL(s.setInt64At("", 12, 3)), "make '12' int; setInt64(/12, 3); path /12"},
    {CALL(s.getArrayLength("/l")), "WALK; child 0; child 1"},
    {CALL(s.isAccessibleAsArrayOf(eInt, "/l")),
     "WALK; child 0; isAccessibleAs(int, /l/0); child 1; isAccessibleAs(int, /l/1)"},
    {CALL(float v[2]; s.getAsFloatArray("l", v, 2)),
     "WALK; child 0; isAccessibleAs(float, /l/0); getAsFloat64(/l/0); child 1; "
     "isAccessibleAs(float, /l/1); getAsFloat64(/l/1)"},
    {CALL(s.getPreferredArrayType("/l")), "find 'l' -> /l; getPreferredArrayType(/l)"},
    {CALL(const int64_t v[] = {5000000000, -7}; s.setInt64Array("/v", v, 2)),
     "make 'v' dictionary; setInt64Array(/v, [5000000000, -7]); path /v; getItemChildCount(/v); "
     "getItemChildByIndex(/v, 0) -> /v/0; path /v/0; getItemChildByIndex(/v, 1) -> /v/1; path "
     "/v/1"},
    {CALL(const int32_t v = -7; s.setIntArray("l", &v, 1)),
     "find 'l' -> /l; setIntArray(/l, [-7]); path /l; getItemChildCount(/l); "
     "getItemChildByIndex(/l, 0) -> /l/0; path /l/0"},
    {CALL(s.setFloat64Array("/l", nullptr, 0)), "empty setFloat64Array"},
    {CALL(s.setFloatArray("/l", nullptr, 0)), "empty setFloatArray"},
    {CALL(s.setBoolArray("/l", nullptr, 0)), "empty setBoolArray"},
    {CALL(s.setStringArray("/l", nullptr, 0)), "empty setStringArray"},
    {CALL(s.destroyStringBuffer(s.createStringBufferFromItemValue("/n"))),
     "find 'n' -> /n; createStringBufferFromItemValue(/n); destroyStringBuffer('5')"},
    {CALL(s.destroyStringBuffer(s.createStringBufferFromItemValueAt("/l", 1))),
     "find 'l' -> /l; find 'l/1' -> /l/1; createStringBufferFromItemValue(/l/1); "
     "destroyStringBuffer('8')"},
    {CALL(s.destroyTransaction(s.createTransaction())),
     "createItem(null, 'tree', dictionary) -> tree; destroyItem(tree)"},
    {CALL(s.setInt64Async(t, "/n", 7)), "getItemMutable(tree, 'n') -> tree/n; setInt64(tree/n, 7)"},
    {CALL(s.setFloat64Async(t, "f", 1.5)), "add 'f' float; setFloat64(tree/f, 1.5)"},
    {CALL(s.setBoolAsync(t, "/b", true)), "add 'b' bool; setBool(tree/b, true)"},
    {CALL(s.setStringAsync(t, "s", "y")), "add 's' string; setString(tree/s, 'y')"},
    {CALL(s.commitTransaction(t)),
     "getItem(tree, null) -> tree; update(root, '', tree, null, callback, data); path /n"},
    {CALL(s.update("/a", source, "", overwrite, nullptr)),
     "getItem(<source>, '') -> <source>; update(root, 'a', <source>, '', callback, data); "
     "getItemName(<source>/new); getItemParent(<source>/new); path /a/d; getItem(root, 'a/new') -> "
     "/a/new"},
    {CALL(s.update("//a/", source, "none", nullptr, nullptr)),
     "getItem(<source>, 'none') -> null; update(root, '/a/', <source>, 'none', callback, data)"},
    {CALL(s.getSettingsDictionary("/a")), "getItem(root, 'a') -> /a"},
    {CALL(kTable.destroyItem(s.createDictionaryFromSettings("a"))),
     "createItem(null, 'copy', dictionary) -> copy; update(copy, null, root, 'a', callback, null); "
     "destroyItem(copy)"},
    {CALL(s.initializeFromDictionary(source)),
     "update(root, null, <source>, null, callback, null)"},
    {CALL(s.setDictionary("/a")), "find 'a' -> /a; getItemType(/a); path /a"},
    {CALL(s.setDictionary("/n")), "find 'n' -> /n; getItemType(/n); path /n; destroyItem(/n); "
                                  "createItem(root, 'n', dictionary) -> /n; path /n"},
    {CALL(s.setDictionary("p/q")), "make 'p/q' dictionary; path /p/q"},
    {CALL(s.destroyItem("/none")), "find 'none' -> null"},
    {CALL(s.destroyItem("/a")),
     "find 'a' -> /a; getItemType(/a); getItemChildCount(/a); path /a; getItemChildByIndex(/a, 1) "
     "-> /a/d; getItemChildByIndex(/a, 0) -> /a/b; getItemType(/a/b); getItemChildCount(/a/b); "
     "path /a/b; getItemChildByIndex(/a/b, 0) -> /a/b/c; getItemType(/a/b/c); path /a/b/c; "
     "getItemType(/a/d); path /a/d; destroyItem(/a)"},
};

class Calls : public Store {
protected:
    static std::string expand(std::string text) {
        const std::pair<const char*, const char*> shortForms[] = {
            {"WALK", "find 'l' -> /l; getItemType(/l); getItemChildCount(/l)"},
            {"child (.)", "getItemChildByIndex(/l, $1) -> /l/$1; getItemName(/l/$1)"},
            {"empty (\\w+)", "find 'l' -> /l; $1(/l, []); path /l; getItemChildCount(/l)"},
            {"make '(\\S+)' (\\w+)", "find '$1' -> null; createItem(root, '$1', $2) -> /$1"},
            {"add '(\\S+)' (\\w+)",
             "getItemMutable(tree, '$1') -> null; createItem(tree, '$1', $2) -> tree/$1"},
            {"find ('\\S*')", "getItemMutable(root, $1)"},
            {"root", "<ISettings root>"},
            {"tree", "<ISettings transaction>"},
            {"copy", "<full settings>"},
            {"; ", "\n"}};
        for (const auto& [form, calls] : shortForms) {
            text = std::regex_replace(text, std::regex(form), calls);
        }
        std::string calls;
        std::istringstream stream(text);
        for (std::string call; std::getline(stream, call);) {
            if (!call.starts_with("path ")) {
                calls += call + "\n";
                continue;
            }
            for (call.erase(0, 5); !call.empty(); call.erase(call.rfind('/'))) { // up to the root
                calls += "getItemName(" + call + ")\ngetItemParent(" + call + ")\n";
            }
        }
        return calls;
    }
};

TEST_F(Calls, OperationsMakeExactlyTheseAndClimbForSubscribersOnly) {
    for (const auto& [act, calls] : kOperations) {
        for (const bool isSubscribed : {true, false}) {
            load();
            startup();
            const int64_t values[] = {7, 8};
            settings->setInt64("/n", 5);
            settings->setString("/s", "x");
            settings->setInt64Array("/l", values, 2);
            settings->setInt64("/a/b/c", 1);
            settings->setInt64("/a/d", 2);
            Transaction* transaction = settings->createTransaction();
            settings->setInt64Async(transaction, "n", 6);
            if (isSubscribed) {
                onNode("/elsewhere", "E");
            }
            const Item* source = makeSource({{"d", 1}, {"new", 2}});
            takeCalls();
            act(*settings, transaction, source);
            const std::string made = takeCalls() + "\n";
            if (isSubscribed) {
                EXPECT_EQ(made, expand(calls));
            } else {
                EXPECT_EQ(made.find("getItemParent(/"), made.npos) << made;
            }
            settings->destroyTransaction(transaction);
            unload();
        }
    }
}
