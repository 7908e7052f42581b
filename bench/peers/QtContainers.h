// QList of items, and QMultiHash from main id to index. A removed item leaves a gap.
#pragma once

#include "bench/peers/Peer.h"

#include <QHash>
#include <QList>
#include <QSet>
#include <algorithm>

inline uint qHash(const GxDbObjectId& id, uint seed = 0) {
    return qHash(reinterpret_cast<quintptr>(id.stub()), seed);
}

namespace kvbench {

class QtState {
public:
    static constexpr const char* kName = "QList+QMultiHash";
    static constexpr std::size_t kLargest = 1000000;
    static constexpr bool kIndexesPositions = true;

    QtState() = default;
    // Copies the items immediately. Qt would copy them at the next write, and that write is not measured.
    QtState(const QtState& other) : mItems(other.mItems), mIndex(other.mIndex) {
        mItems.detach();
        mIndex.detach();
    }
    QtState& operator=(const QtState&) = delete;

    template <class Item>
    void append(const Item& item) {
        mIndex.insert(item.mainId, mItems.size());
        mItems.append(PeerItem(item));
    }

    bool has(const GxDbObjectId& id) const { return mIndex.contains(id); }

    template <class Test>
    bool anyOfId(const GxDbObjectId& id, Test test) const {
        for (auto entry = mIndex.constFind(id); entry != mIndex.constEnd() && entry.key() == id; ++entry) {
            if (test(mItems.at(entry.value())))
                return true;
        }
        return false;
    }

    template <class Test>
    bool eraseFirstOfId(const GxDbObjectId& id, Test test) {
        for (auto entry = mIndex.find(id); entry != mIndex.end() && entry.key() == id; ++entry) {
            if (!test(mItems.at(entry.value())))
                continue;
            mItems[entry.value()] = PeerItem();
            mIndex.erase(entry);
            return true;
        }
        return false;
    }

    template <class Visit>
    void forEach(Visit visit) const {
        for (const PeerItem& item : mItems) {
            if (!item.isGap())
                visit(item);
        }
    }

    template <class Test>
    bool anyOf(Test test) const {
        return std::any_of(mItems.begin(), mItems.end(),
                           [&](const PeerItem& item) { return !item.isGap() && test(item); });
    }

    long positionOf(const GxDbObjectId& id) const {
        const auto found = mIndex.constFind(id);
        if (found == mIndex.constEnd())
            return -1;
        if (mIndex.size() == mItems.size())
            return found.value();
        return std::count_if(mItems.begin(), mItems.begin() + found.value(),
                             [](const PeerItem& item) { return !item.isGap(); });
    }

    const PeerItem& at(std::size_t position) const {
        if (mIndex.size() == mItems.size())
            return mItems.at(static_cast<int>(position));
        return *std::find_if(mItems.begin(), mItems.end(),
                             [&position](const PeerItem& item) { return !item.isGap() && position-- == 0; });
    }

    std::size_t size() const { return static_cast<std::size_t>(mIndex.size()); }

    void removeAllForward() {
        for (int i = 0; i < mItems.size(); ++i)
            removeIndex(i);
        mItems.clear();
    }

    void removeAllBackward() {
        for (; !mItems.isEmpty(); mItems.removeLast())
            removeIndex(mItems.size() - 1);
    }

    void keepFirstOfEachId() {
        QMultiHash<GxDbObjectId, int> kept;
        for (int i = 0; i < mItems.size(); ++i) {
            PeerItem& item = mItems[i];
            if (item.isGap())
                continue;
            if (!kept.contains(item.mainId))
                kept.insert(item.mainId, i);
            else
                item = PeerItem();
        }
        mIndex = kept;
    }

private:
    void removeIndex(int i) {
        if (mItems.at(i).isGap())
            return;
        mIndex.remove(mItems.at(i).mainId, i);
        mItems[i] = PeerItem();
    }

    QList<PeerItem> mItems;
    QMultiHash<GxDbObjectId, int> mIndex;
};
using QtContainers = Peer<QtState>;

} // namespace kvbench
