// The comparison of trees.
#include "Sides.h"

namespace vorn::fuzz {

namespace {

bool isSameValue(const IDictionary& idict, const Value& value, const Item* item) {
    if (const auto* number = std::get_if<double>(&value)) {
        const double found = idict.getAsFloat64(item);
        return memcmp(&found, number, sizeof(found)) == 0 ||
               (std::isnan(found) && std::isnan(*number));
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return *text == idict.getStringBuffer(item);
    }
    const auto* integer = std::get_if<int64_t>(&value);
    return integer ? *integer == idict.getAsInt64(item)
                   : value.index() != 0 || std::get<bool>(value) == idict.getAsBool(item);
}

} // namespace

void Side::compareTrees(Node& node, const Item* item, const Item* parent) const {
    const size_t childCount = node.children.size();
    const auto expect = [&](bool isTrue, const char* what) {
        if (!isTrue) {
            diverge(m_transcript.tail() + "the tree differs at " + node.root()->name +
                    node.fullPath() + ": " + what);
        }
    };
    expect(item && (!node.twin || node.twin == item), "another item");
    node.twin = item;
    expect(node.name == m_idict.getItemName(item), "name");
    expect(m_idict.getItemParent(item) == parent, "parent");
    expect(m_idict.getItemType(item) == node.type(), "type");
    expect(isSameValue(m_idict, node.value, item), "value");
    expect(m_idict.getItemChildCount(item) == childCount, "number of children");
    expect(!m_idict.getItemChildByIndex(item, childCount), "a child past the last");
    for (size_t index = 0; index < childCount; ++index) {
        Node& child = *node.children[index];
        const Item* found = m_idict.getItemChildByIndex(item, index);
        compareTrees(child, found, item);
        expect(m_idict.getItem(item, child.name.c_str()) == found, "lookup of a child");
    }
}

} // namespace vorn::fuzz
