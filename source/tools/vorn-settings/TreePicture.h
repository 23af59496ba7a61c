// A tree as people like to see it, in lines of text, and what the lines say as JSON.
#pragma once

#include "Output.h"
#include "Tree.h"

#include <cstddef>
#include <limits>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace vorn::tool {

struct PictureForm {
    static constexpr size_t kUnlimited = std::numeric_limits<size_t>::max();

    size_t depth = kUnlimited; // levels below the root that are shown
    size_t width = kUnlimited; // columns that a line may take
    ChildOrder order = ChildOrder::eAsStored;
};

// path is that of the root, which is a dictionary.
void drawTree(Output& output,
              const IDictionary& idict,
              const std::string& path,
              const Item* root,
              const PictureForm& form);

// {"type", "value"}, or {"type", "count", "children": {name: ...}}, without the children of what
// is at the last level.
nlohmann::ordered_json
pictureJson(const IDictionary& idict, const Item* item, const PictureForm& form);

} // namespace vorn::tool
