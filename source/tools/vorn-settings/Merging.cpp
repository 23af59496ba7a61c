// Policies of merges.
#include "Merging.h"

namespace vorn::tool {

using dictionary::UpdateAction;

namespace {

size_t itemCount(const IDictionary& idict, const Item* item) {
    size_t count = 1;
    for (const Item* child : childrenOf(idict, item)) {
        count += itemCount(idict, child);
    }
    return count;
}

UpdateAction takeDifferent(const IDictionary& idict,
                           const Item* dstItem,
                           ItemType dstItemType,
                           const Item* srcItem,
                           ItemType srcItemType) {
    const bool isSame =
        dstItem && dstItemType == srcItemType &&
        (srcItemType == ItemType::eDictionary || areSameValue(idict, dstItem, srcItem));
    return isSame ? UpdateAction::eKeep : UpdateAction::eOverwrite;
}

} // namespace

MergePolicy::MergePolicy(const IDictionary& idict, MergeKind kind, const Item* source)
    : m_idict(idict), m_kind(kind), m_progress("merging", itemCount(idict, source)) {}

UpdateAction MergePolicy::decide(const Item* dstItem,
                                 ItemType dstItemType,
                                 const Item* srcItem,
                                 ItemType srcItemType,
                                 void* self) {
    MergePolicy& policy = *static_cast<MergePolicy*>(self);
    policy.m_progress.reached(++policy.m_decidedCount);
    switch (policy.m_kind) {
    case MergeKind::eOverwrite:
        break;
    case MergeKind::eKeep:
        return dictionary::keepOriginal(dstItem, dstItemType, srcItem, srcItemType, nullptr);
    case MergeKind::eDifferent:
        return takeDifferent(policy.m_idict, dstItem, dstItemType, srcItem, srcItemType);
    }
    return UpdateAction::eOverwrite;
}

} // namespace vorn::tool
