// Merging one subtree into another under a callback.
//
// The source is read once, before anything is written, into a plan of its items and values in
// pre-order. So it does not matter whether the destination lies in the source or the source in the
// destination, nor which values the callback writes; it must not remove items of either.
//
// When memory runs out before the first write, nothing happens; later, the merge ends there.
//
// Threads: as the operations of Tree it is made of; no lock is held while the callback runs.
#pragma once

#include "Tree.h"

namespace vorn::dictionary {

// As IDictionary's update. REQUIRES: dst, src and onUpdateItemFn are not null.
void merge(Tree& tree,
           Item* dst,
           const char* dstPath,
           Item* src,
           const char* srcPath,
           OnUpdateItemFn onUpdateItemFn,
           void* userData);

} // namespace vorn::dictionary
