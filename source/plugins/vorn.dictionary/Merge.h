// Merging one subtree into another under a callback.
//
// Source and destination are walked side by side, in pre-order. Within one tree the source is read
// whole before anything is written, so it does not matter whether the destination lies in the
// source or the source in the destination. The callback must not remove items of either.
//
// A merge that comes again, while no tree has changed its shape, goes by the plan of the one
// before.
//
// When memory runs out, what was written is undone. A dictionary becomes a value last of all, when
// nothing can fail.
//
// Threads: as the operations of Tree it is made of; no lock is held while the callback runs.
#pragma once

#include "MergePlans.h"
#include "Tree.h"

namespace vorn::dictionary {

// As IDictionary's update. Throws std::bad_alloc, with the destination as it was, when memory is
// exhausted. REQUIRES: dst, src and onUpdateItemFn are not null.
void merge(Tree& tree,
           MergePlans& plans,
           Item* dst,
           const char* dstPath,
           Item* src,
           const char* srcPath,
           OnUpdateItemFn onUpdateItemFn,
           void* userData);

} // namespace vorn::dictionary
