// Any sequence of calls of the dictionary table, on three trees, against the model of it.
#include "Plugins.h"
#include "Sides.h"

#include <array>
#include <tuple>

namespace vorn::fuzz {
namespace {

constexpr size_t kRootCount = 3;
constexpr const char* kRootNames[] = {"one", "two"};

class DictionarySide : public Side {
public:
    DictionarySide(const IDictionary& idict,
                   std::string_view input,
                   const Side* model,
                   Decisions& decisions)
        : Side(idict, input, model, decisions) {
        for (size_t root = 0; root + 1 < kRootCount; ++root) { // the last has to be made
            m_roots[root] = idict.createItem(nullptr, kRootNames[root], ItemType::eDictionary);
        }
    }

    void step();
    const std::array<Item*, kRootCount>& roots() const {
        return m_roots;
    }

    // -- kinds of calls

    // Any slot that takes and gives values, items and texts.
    template <class R, class... Args>
    void call(const char* name, R (*slot)(Args...)) {
        constexpr bool isByPath = std::is_convertible_v<R, const Item*>;
        const std::tuple<Args...> args{_argument<Args, isByPath>()...};
        std::apply([&](auto... values) { showCall(name, values...); }, args);
        if constexpr (std::is_void_v<R>) {
            std::apply(slot, args);
        } else {
            m_transcript.line("  = ", shown(std::apply(slot, args)));
        }
    }

    // One that hands out a text.
    template <class... Args>
    void callForBuffer(const char* name, const char* (*slot)(const Item*, Args...)) {
        const std::tuple<const Item*, Args...> args{_item(), m_draw.value<Args>()...};
        std::apply([&](auto... values) { showCall(name, values...); }, args);
        const char* buffer = std::apply(slot, args);
        m_transcript.line("  = ", buffer);
        m_idict.destroyStringBuffer(buffer);
    }

    template <class T>
    void callForArray(const char* name, void (*slot)(const Item*, T*, size_t)) {
        readArray<T, const Item*>(name, _item(), slot);
    }

    template <class T>
    void callWithArray(const char* name, void (*slot)(Item*, const T*, size_t)) {
        std::remove_const_t<T> elements[kMaxLength];
        Item* item = _item();
        const size_t length = m_draw.pick(kMaxLength + 2);
        for (size_t index = 0; index < std::min(length, kMaxLength); ++index) {
            elements[index] = m_draw.value<T>();
        }
        showCall(name, item, length);
        showArray(elements, length > kMaxLength ? 0 : length);
        slot(item, length > 0 ? elements : nullptr, length > kMaxLength ? SIZE_MAX : length);
    }

    // -- the rest

    void makeRoot() {
        Item*& root = m_roots[m_draw.pick(kRootCount)];
        const char* name = m_draw.dictionaryPath();
        const auto type = m_draw.isOneIn(4) ? m_draw.value<ItemType>() : ItemType::eDictionary;
        const bool isDestroying = m_draw.pick(2) == 0; // otherwise it is left to the shut-down
        showCall("createItem null", name, type);
        if (isDestroying) {
            m_idict.destroyItem(root);
        }
        root = m_idict.createItem(nullptr, name, type);
        m_transcript.line("  = ", describe(root));
    }

    void destroyItem() {
        Item* item = _item();
        showCall("destroyItem", item);
        for (Item*& root : m_roots) {
            root = root == item ? nullptr : root;
        }
        m_idict.destroyItem(item);
    }

    void update() {
        Item* dst = _item();
        const char* dstPath = m_draw.dictionaryPath();
        const Item* src = _item();
        const char* srcPath = m_draw.pick(2) == 0 ? nullptr : m_draw.dictionaryPath();
        const bool isAsking = m_draw.pick(4) != 0;
        if (!isAllowed([&] {
                return !dst || !src ||
                       toNode(dst)->root()->count() + toNode(src)->count() < kMaxTreeSize;
            })) {
            return;
        }
        const auto onItem = [](const Item* dstItem, ItemType dstType, const Item* srcItem,
                               ItemType srcType, void* side) {
            return static_cast<DictionarySide*>(side)->answer(dstItem, dstType, srcItem, srcType);
        };
        showCall("update", dst, dstPath, src, srcPath, isAsking);
        m_idict.update(dst, dstPath, src, srcPath, isAsking ? +onItem : nullptr, this);
    }

private:
    Item* _item() {
        const size_t choice = m_draw.pick(32);
        Item* item = choice == 31 ? nullptr : m_roots[choice % kRootCount];
        if (choice < 8) {
            return m_idict.getItemMutable(item, m_draw.dictionaryPath());
        }
        for (size_t depth = m_draw.pick(4); depth > 0; --depth) { // as far down as there is a way
            const size_t count = m_idict.getItemChildCount(item);
            item = count > 0 ? m_idict.getItemChildByIndexMutable(item, m_draw.pick(count)) : item;
        }
        return item;
    }
    template <class T, bool isByPath>
    T _argument() {
        if constexpr (std::is_convertible_v<T, const Item*>) {
            return _item();
        } else if constexpr (isByPath && std::is_same_v<T, const char*>) {
            return m_draw.dictionaryPath();
        } else {
            return m_draw.value<T>();
        }
    }

    std::array<Item*, kRootCount> m_roots{};
};

using Operation = void (*)(DictionarySide& side, const IDictionary& idict);

#define KIND(kind, slot)                                                                           \
    [](DictionarySide& side, const IDictionary& idict) { side.kind(#slot, idict.slot); }
#define CALL(slot) KIND(call, slot)
#define SPECIAL(slot) [](DictionarySide& side, const IDictionary&) { side.slot(); }

// All slots between them; some changes stand more than once.
constexpr Operation kChanges[] = {
    SPECIAL(makeRoot),
    CALL(createItem),
    CALL(createItem),
    CALL(createItem),
    CALL(setInt64),
    CALL(setFloat64),
    CALL(setBool),
    CALL(setString),
    CALL(setString),
    CALL(setInt64At),
    CALL(setFloat64At),
    CALL(setBoolAt),
    CALL(setStringAt),
    KIND(callWithArray, setInt64Array),
    KIND(callWithArray, setIntArray),
    KIND(callWithArray, setFloat64Array),
    KIND(callWithArray, setFloatArray),
    KIND(callWithArray, setBoolArray),
    KIND(callWithArray, setStringArray),
    SPECIAL(update),
    SPECIAL(update),
    SPECIAL(destroyItem),
    SPECIAL(destroyItem),
};
constexpr Operation kReads[] = {
    CALL(getItem),
    CALL(getItemMutable),
    CALL(getItemChildCount),
    CALL(getItemChildByIndex),
    CALL(getItemChildByIndexMutable),
    CALL(getItemParent),
    CALL(getItemParentMutable),
    CALL(getItemType),
    KIND(callForBuffer, createStringBufferFromItemName),
    CALL(getItemName),
    CALL(isAccessibleAs),
    CALL(getAsInt64),
    CALL(getAsFloat64),
    CALL(getAsBool),
    KIND(callForBuffer, createStringBufferFromItemValue),
    CALL(getStringBuffer),
    CALL(isAccessibleAsArray),
    CALL(isAccessibleAsArrayOf),
    CALL(getArrayLength),
    CALL(getPreferredArrayType),
    CALL(getAsInt64At),
    KIND(callForArray, getAsInt64Array),
    KIND(callForArray, getAsIntArray),
    CALL(getAsFloat64At),
    KIND(callForArray, getAsFloat64Array),
    KIND(callForArray, getAsFloatArray),
    CALL(getAsBoolAt),
    KIND(callForArray, getAsBoolArray),
    KIND(callForBuffer, createStringBufferFromItemValueAt),
    CALL(getStringBufferAt),
    KIND(callForArray, getStringBufferArray),
    CALL(getItemAt),
    CALL(getItemAtMutable),
    KIND(callForArray, getItemArray),
};

void DictionarySide::step() {
    (m_draw.pick(3) > 0 ? m_draw.pickFrom(kChanges) : m_draw.pickFrom(kReads))(*this, m_idict);
    finishStep();
}

} // namespace
} // namespace vorn::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace vorn::fuzz;
    static foreign::Plugin plugin;
    static const IDictionary& tested = loadTable<IDictionary>(plugin, "dictionary");
    plugin.startup();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    Decisions decisions;
    DictionarySide model(kDictionaryModel, input, nullptr, decisions);
    DictionarySide real(tested, input, &model, decisions);
    for (size_t count = 1; model.isAnyLeft(); ++count) {
        model.step();
        real.step();
        for (size_t root = 0; root < kRootCount && (count % 4 == 0 || !model.isAnyLeft()); ++root) {
            if (const Item* item = model.roots()[root]) {
                real.compareTrees(*toNode(item), real.roots()[root]);
            }
        }
    }
    plugin.shutdown();
    clearDictionaryModel();
    return 0;
}
