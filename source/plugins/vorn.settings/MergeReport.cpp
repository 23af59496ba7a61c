// Recording, sending and forgetting.
#include "MergeReport.h"

#include "ChangeDispatch.h"

#include <utility>

namespace vorn::settings {

namespace {

using dictionary::Item;
using dictionary::ItemType;
using dictionary::UpdateAction;

constexpr size_t kUpdateTrackerReserve = 16;

// Room for more is not kept for the next report.
constexpr size_t kMaxSpareRoom = 1u << 16;

// Taking room anew would cost a merge a good part of its time. Nobody waits for the spare one.
void takeSpareRoom(std::vector<UpdatedItem>& items) {
    const std::unique_lock<std::mutex> lock(g_spareUpdatedItemsMutex, std::try_to_lock);
    if (lock) {
        items.swap(g_spareUpdatedItems);
    }
}
void keepAsSpareRoom(std::vector<UpdatedItem>& items) {
    items.clear();
    const std::unique_lock<std::mutex> lock(g_spareUpdatedItemsMutex, std::try_to_lock);
    if (lock && items.capacity() <= kMaxSpareRoom &&
        items.capacity() > g_spareUpdatedItems.capacity()) {
        items.swap(g_spareUpdatedItems);
    }
}

// The report made last on this thread, or null. A plain pointer, as in SubscribedPaths.h.
constinit thread_local MergeReport* t_innermostReport = nullptr;

// "/" and the destination without slashes around it; nothing for the root.
MflString makeDestinationPrefix(std::string_view dstPath) {
    if (!dstPath.empty() && dstPath.front() == '/') {
        dstPath.remove_prefix(1);
    }
    while (!dstPath.empty() && dstPath.back() == '/') {
        dstPath.remove_suffix(1);
    }
    MflString prefix;
    if (!dstPath.empty()) {
        prefix.append(1, '/').append(dstPath);
    }
    return prefix;
}

bool isBelow(const Item* ancestor, const Item* node) {
    do {
        node = g_idictionary->getItemParent(node);
    } while (node && node != ancestor);
    return node != nullptr;
}

} // namespace

MergeReport::MergeReport(const char* dstPath,
                         const Item* srcRoot,
                         dictionary::OnUpdateItemFn onUpdateItemFn,
                         void* userData)
    : m_data{{}, // no nodes yet
             dstPath, srcRoot,
             {},      onUpdateItemFn ? onUpdateItemFn : dictionary::kUpdateItemOverwriteOriginal,
             userData},
      m_destinationPrefix(makeDestinationPrefix(dstPath)), m_outer(t_innermostReport) {
    takeSpareRoom(m_data.updatedItems);
    m_data.updatedItems.reserve(kUpdateTrackerReserve);
    t_innermostReport = this;
    g_count.fetch_add(1, std::memory_order_relaxed);
}

MergeReport::~MergeReport() {
    g_count.fetch_sub(1, std::memory_order_relaxed);
    t_innermostReport = m_outer;
    keepAsSpareRoom(m_data.updatedItems);
}

UpdateAction MergeReport::askAndRecord(const Item* dstItem,
                                       ItemType dstItemType,
                                       const Item* srcItem,
                                       ItemType srcItemType) {
    const UpdateAction updateAction =
        m_data.onUpdateItemFn(dstItem, dstItemType, srcItem, srcItemType, m_data.userData);
    if (updateAction == UpdateAction::eOverwrite) {
        forgetOverwritten(dstItem, dstItemType, srcItemType);
        if (_isAwaited()) {
            _record(dstItem, srcItem);
        }
    }
    if (isAnyoneSubscribed()) {
        _composePaths(); // also when the callback subscribed and then refused the node
    }
    return updateAction;
}

// Whether somebody is subscribed, or may be by the time of the events, because the caller's own
// callback could subscribe.
inline bool MergeReport::_isAwaited() const {
    return isAnyoneSubscribed() ||
           m_data.onUpdateItemFn != dictionary::kUpdateItemOverwriteOriginal;
}

// Runs inside the dictionary service, which must not be left half-way: a failure waits for send.
inline void MergeReport::_record(const Item* dstItem, const Item* srcItem) {
    if (m_failure) [[unlikely]] {
        return;
    }
    try {
        m_data.updatedItems.push_back({dstItem, srcItem});
    } catch (...) {
        m_failure = std::current_exception();
    }
}

// Of the nodes that a merge creates. While nobody is subscribed paths wait until somebody is, but
// not beyond the merge: it may replace what it read from. A failure waits for send, as in _record.
void MergeReport::_composePaths() {
    try {
        while (m_data.updatedItemPaths.size() < m_data.updatedItems.size()) {
            const UpdatedItem& next = m_data.updatedItems[m_data.updatedItemPaths.size()];
            MflString path;
            if (!next.item) {
                getFullPath(&path, next.source, m_data.srcRoot);
            }
            m_data.updatedItemPaths.push_back(std::move(path));
        }
    } catch (...) {
        m_failure = std::current_exception();
    }
}

void MergeReport::send() {
    if (m_failure) {
        std::rethrow_exception(m_failure);
    }
    if (!isAnyoneSubscribed()) {
        return;
    }
    MflString eventPath = m_destinationPrefix;
    const size_t prefixLength = eventPath.size();
    while (m_sentCount < m_data.updatedItemPaths.size()) {
        const Item* item = m_data.updatedItems[m_sentCount].item;
        const MflString& pathBelowSource = m_data.updatedItemPaths[m_sentCount];
        ++m_sentCount;
        if (item) {
            triggerAllChangeCallbacks(item, ChangeEventType::eChanged);
        } else if (!pathBelowSource.empty()) {
            eventPath.resize(prefixLength);
            if (prefixLength == 0 || pathBelowSource != "/") {
                eventPath += pathBelowSource;
            }
            triggerAllChangeCallbacksFromPath(eventPath.c_str(), ChangeEventType::eChanged);
        }
    }
}

bool MergeReport::_isAnyPendingHere() {
    for (const MergeReport* report = t_innermostReport; report; report = report->m_outer) {
        if (report->m_sentCount < report->m_data.updatedItems.size()) {
            return true;
        }
    }
    return false;
}

// change(report, i) for every entry that has a handle and whose event is still to come. Entries
// whose events were sent are left alone: their nodes may be gone already.
template <class Change>
void MergeReport::_forEachPending(Change change) {
    for (MergeReport* report = t_innermostReport; report; report = report->m_outer) {
        report->_composePaths(); // from here on, a node without handle and path is forgotten
        for (size_t i = report->m_sentCount; i < report->m_data.updatedItems.size(); ++i) {
            if (report->m_data.updatedItems[i].item) {
                change(*report, i);
            }
        }
    }
}

void MergeReport::_forgetSubtree(const Item* item) {
    _forgetBelow(item);
    _forEachPending([item](MergeReport& report, size_t i) {
        if (report.m_data.updatedItems[i].item == item) {
            report.m_data.updatedItems[i].item = nullptr;
        }
    });
}

void MergeReport::_forgetBelow(const Item* item) {
    if (g_idictionary->getItemType(item) == ItemType::eDictionary) {
        _forEachPending([item](MergeReport& report, size_t i) {
            if (isBelow(item, report.m_data.updatedItems[i].item)) {
                report.m_data.updatedItems[i].item = nullptr;
            }
        });
    }
}

void MergeReport::forgetOverwritten(const Item* dstItem,
                                    ItemType dstItemType,
                                    ItemType srcItemType) {
    if (dstItemType == ItemType::eDictionary && srcItemType != ItemType::eDictionary) {
        forgetBelow(dstItem);
    }
}

std::vector<MergeReport::Aside> MergeReport::setAsideBelow(const Item* item) {
    std::vector<Aside> aside;
    if (isAnyPending() && g_idictionary->getItemType(item) == ItemType::eDictionary) {
        _forEachPending([&](MergeReport& report, size_t i) {
            const Item* pending = report.m_data.updatedItems[i].item;
            if (isBelow(item, pending)) {
                aside.push_back({&report, i, {}});
                getFullPath(&aside.back().fullPath, pending, g_modifiedSettingsRoot);
            }
        });
    }
    return aside;
}

void MergeReport::putBack(const std::vector<Aside>& aside) {
    for (const auto& [report, entry, fullPath] : aside) {
        report->m_data.updatedItems[entry].item =
            g_idictionary->getItem(g_modifiedSettingsRoot, fullPath.c_str() + 1);
    }
}

} // namespace vorn::settings
