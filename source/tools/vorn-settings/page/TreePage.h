// A tree as one page for a browser, which needs nothing besides itself.
#pragma once

#include "../Tree.h"

#include <string>

namespace vorn::tool {

// title stands above the tree; path is that of the root.
std::string treePage(const IDictionary& idict,
                     const std::string& title,
                     const std::string& path,
                     const Item* root,
                     ChildOrder order);

} // namespace vorn::tool
