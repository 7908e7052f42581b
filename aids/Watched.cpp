#include "aids/Watched.h"
#include "aids/Items.h"
#include "aids/detail/ItemOrder.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kv {
namespace {

bool isSame(const ItemKeys& a, const ItemKeys& b) {
    return detail::compareItems(a, b) == 0;
}

using Positions = std::vector<std::size_t>;

Positions sortedByKeys(const std::vector<ItemKeys>& items) {
    Positions sorted(items.size());
    for (std::size_t i = 0; i < sorted.size(); ++i)
        sorted[i] = i;
    std::stable_sort(sorted.begin(), sorted.end(), [&items](std::size_t a, std::size_t b) {
        return detail::compareItems(items[a], items[b]) < 0;
    });
    return sorted;
}

void removeMarked(std::vector<ItemKeys>& items, const std::vector<bool>& isMarked) {
    std::size_t position = 0;
    items.erase(
        std::remove_if(items.begin(), items.end(), [&](const ItemKeys&) { return isMarked[position++]; }),
        items.end());
}

// Removes the items that have come as well as gone.
void cancel(Change& change) {
    const Positions came = sortedByKeys(change.came);
    const Positions went = sortedByKeys(change.went);
    std::vector<bool> isCameUnchanged(came.size());
    std::vector<bool> isWentUnchanged(went.size());
    auto left = came.begin();
    auto right = went.begin();
    while (left != came.end() && right != went.end()) {
        const int order = detail::compareItems(change.came[*left], change.went[*right]);
        if (order == 0) {
            isCameUnchanged[*left] = true;
            isWentUnchanged[*right] = true;
        }
        left += order <= 0 ? 1 : 0;
        right += order >= 0 ? 1 : 0;
    }
    removeMarked(change.came, isCameUnchanged);
    removeMarked(change.went, isWentUnchanged);
}

} // namespace

Watched::Watched(GxapSelectSet& set, Listener listener)
    : mSet(set), mListener(std::move(listener)), mReported(itemsOf(set)) {}

Watched::~Watched() = default;

void Watched::edit(const std::function<void(GxapSSetWriteAccessor&)>& edit) {
    edit(static_cast<GxapSSetWriteAccessor&>(mSet));
    if (mDepth == 0)
        report();
}

void Watched::endBatch() {
    mDepth = std::max(mDepth - 1, 0);
    if (mDepth == 0)
        report();
}

std::vector<Watched::Seen> Watched::itemsOf(const GxapSelectSet& set) {
    std::vector<Seen> seen;
    for (const selected_entity& item : items(set))
        seen.push_back({&item, {item.mainEntId, item.subEntId, item.gsMarker, item.nestedEntFullPath}});
    return seen;
}

// Edits remove items and append others, but change no order. So most items that stay are found in one walk.
// Items that got another record, or another place, have come as well as gone, until cancel() finds them.
Change Watched::changeBetween(const std::vector<Seen>& before, const std::vector<Seen>& after) {
    Change change;
    auto next = after.begin();
    for (const Seen& old : before) {
        if (next != after.end() && next->record == old.record && isSame(next->keys, old.keys))
            ++next;
        else
            change.went.push_back(old.keys);
    }
    std::transform(next, after.end(), std::back_inserter(change.came),
                   [](const Seen& seen) { return seen.keys; });
    if (!change.isEmpty())
        cancel(change);
    return change;
}

void Watched::report() {
    std::vector<Seen> now = itemsOf(mSet);
    const Change change = changeBetween(mReported, now);
    mReported.swap(now);
    if (!change.isEmpty())
        mListener(change);
}

} // namespace kv
