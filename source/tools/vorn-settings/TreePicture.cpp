// Drawing trees.
#include "TreePicture.h"

#include "SettingsPath.h"
#include "TextPlace.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

namespace vorn::tool {

using nlohmann::ordered_json;

namespace {

constexpr size_t kWidestNameColumn = 32; // a longer name moves its own line only

// A piece of a line.
struct Piece {
    Paint paint;
    std::string text;
};

// The pieces in one line, cut with "…" where the width ends.
std::string joined(const Output& output, const std::vector<Piece>& pieces, size_t width) {
    size_t columns = 0;
    for (const Piece& piece : pieces) {
        columns += columnCount(piece.text);
    }
    const bool isCut = columns > width;
    size_t room = isCut ? width - 1 : columns;
    std::string line;
    for (const Piece& piece : pieces) {
        const std::string_view text = firstColumns(piece.text, room);
        room -= columnCount(text);
        line += output.painted(piece.paint, std::string(text));
        if (text.size() < piece.text.size()) {
            return line + "…";
        }
    }
    return line;
}

// "1 value", "2 values"
std::string counted(size_t count, const std::string& singular, const std::string& plural) {
    return std::to_string(count) + " " + (count == 1 ? singular : plural);
}

Paint paintOf(ItemType type) {
    switch (type) {
    case ItemType::eString:
        return Paint::eText;
    case ItemType::eBool:
        return Paint::eFlag;
    case ItemType::eInt:
    case ItemType::eFloat:
        return Paint::eNumber;
    case ItemType::eDictionary:
    case ItemType::eCount:
        break;
    }
    return Paint::eNone;
}

class Picture {
public:
    Picture(Output& output, const IDictionary& idict, const PictureForm& form)
        : m_output(output), m_idict(idict), m_form(form) {}

    void draw(const std::string& path, const Item* root) {
        _drawLine({{Paint::eInner, visibleText(path)}, _countOf(root)});
        _drawBelow(root, "", m_form.depth);
        m_output.line("");
        _drawLine({{Paint::eFaint, _summary(root)}});
    }

private:
    // Columns that the names and types of siblings take, so that what follows is aligned.
    struct Columns {
        size_t name = 0;
        size_t type = 0;
    };

    // stem is what stands before the lines of the children.
    void _drawBelow(const Item* item, const std::string& stem, size_t levels) {
        if (levels == 0) {
            return;
        }
        const std::vector<const Item*> children = childrenOf(m_idict, item, m_form.order);
        const Columns columns = _columnsFor(children);
        for (const Item* child : children) {
            const bool isLast = child == children.back();
            const std::string name = visibleText(m_idict.getItemName(child));
            const Piece branch = {Paint::eFaint, stem + (isLast ? "└── " : "├── ")};
            if (isDictionary(m_idict, child)) {
                _drawLine({branch, {Paint::eInner, name + "/"}, _countOf(child)});
                _drawBelow(child, stem + (isLast ? "    " : "│   "), levels - 1);
            } else {
                _drawLine(
                    {branch,
                     {Paint::eNone, _padded(name, columns.name)},
                     {Paint::eFaint, _padded(typeName(m_idict, child), columns.type)},
                     {paintOf(m_idict.getItemType(child)), visibleText(jsonText(m_idict, child))}});
            }
        }
    }

    void _drawLine(const std::vector<Piece>& pieces) {
        m_output.line(joined(m_output, pieces, m_form.width));
    }

    Columns _columnsFor(const std::vector<const Item*>& children) const {
        Columns columns;
        for (const Item* child : children) {
            if (!isDictionary(m_idict, child)) {
                const size_t name = columnCount(visibleText(m_idict.getItemName(child)));
                columns.name = std::max(columns.name, std::min(name, kWidestNameColumn));
                columns.type = std::max(columns.type, typeName(m_idict, child).size());
            }
        }
        return columns;
    }

    // The text and blanks up to two past the column.
    static std::string _padded(std::string text, size_t columns) {
        const size_t used = columnCount(text);
        return std::move(text) + std::string(std::max(columns, used) - used + 2, ' ');
    }

    // "  {3}" for a dictionary of three, "  [3]" for an array of three.
    Piece _countOf(const Item* item) const {
        const std::string count = std::to_string(m_idict.getItemChildCount(item));
        return {Paint::eFaint, isArray(m_idict, item) ? "  [" + count + "]" : "  {" + count + "}"};
    }

    struct Counts {
        size_t dictionaries = 0;
        size_t arrays = 0;
        size_t values = 0;
    };

    void _countBelow(const Item* item, Counts& counts) const {
        for (const Item* child : childrenOf(m_idict, item)) {
            const bool isInner = isDictionary(m_idict, child);
            ++(!isInner                  ? counts.values
               : isArray(m_idict, child) ? counts.arrays
                                         : counts.dictionaries);
            if (isInner) {
                _countBelow(child, counts);
            }
        }
    }

    std::string _summary(const Item* root) const {
        Counts counts;
        _countBelow(root, counts);
        return counted(counts.dictionaries, "dictionary", "dictionaries") + ", " +
               counted(counts.arrays, "array", "arrays") + ", " +
               counted(counts.values, "value", "values");
    }

    Output& m_output;
    const IDictionary& m_idict;
    const PictureForm& m_form;
};

} // namespace

void drawTree(Output& output,
              const IDictionary& idict,
              const std::string& path,
              const Item* root,
              const PictureForm& form) {
    Picture(output, idict, form).draw(path, root);
}

ordered_json pictureJson(const IDictionary& idict, const Item* item, const PictureForm& form) {
    ordered_json json = {{"type", typeName(idict, item)}};
    if (!isDictionary(idict, item)) {
        json["value"] = toJson(idict, item);
        return json;
    }
    json["count"] = idict.getItemChildCount(item);
    if (form.depth > 0) {
        PictureForm below = form;
        below.depth -= form.depth == PictureForm::kUnlimited ? 0 : 1;
        ordered_json::object_t children; // names are unique: no search for an equal one
        for (const Item* child : childrenOf(idict, item, form.order)) {
            children.emplace_back(idict.getItemName(child), pictureJson(idict, child, below));
        }
        json["children"] = std::move(children);
    }
    return json;
}

} // namespace vorn::tool
