// Merging trees, with the progress shown where it takes long.
#pragma once

#include "Progress.h"
#include "Tree.h"

namespace vorn::tool {

// The policies a merge may have.
enum class MergeKind {
    eOverwrite, // what comes wins
    eKeep,      // what is there wins
    eDifferent, // what comes wins, and what is the same already is not written
};

// The policy of one merge, to be handed to it as decide with the object as its userData.
class MergePolicy {
public:
    MergePolicy(const IDictionary& idict, MergeKind kind, const Item* source);

    static dictionary::UpdateAction decide(const Item* dstItem,
                                           ItemType dstItemType,
                                           const Item* srcItem,
                                           ItemType srcItemType,
                                           void* self);

private:
    const IDictionary& m_idict;
    MergeKind m_kind;
    Progress m_progress;
    size_t m_decidedCount = 0;
};

} // namespace vorn::tool
