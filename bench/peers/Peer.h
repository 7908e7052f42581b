// The part that all contenders except the library share. A Peer is a counted handle on a state. The first
// write to a shared state copies the state.
#pragma once

#include "bench/Item.h"

#include <memory>
#include <utility>

namespace kvbench {

// Builds the operations of the benchmark from operations of `State`. A state keeps items in the order of
// insertion, and finds items by main id. It must be copyable and have:
//   append(Pick, NestedPick or PeerItem), has(id), anyOfId(id, test), eraseFirstOfId(id, test),
//   forEach(visit), anyOf(test), positionOf(id), at(position), size(), removeAllForward(),
//   removeAllBackward(), keepFirstOfEachId().
template <class State>
class Peer {
public:
    static constexpr const char* kName = State::kName;
    static constexpr std::size_t kLargest = State::kLargest;
    static constexpr bool kIndexesPositions = State::kIndexesPositions;

    void setUniqueRule(bool on) {
        if (on && !mUnique) {
            detach();
            mState->keepFirstOfEachId();
        }
        mUnique = on;
    }

    // Adds an item, unless the set is unique and has an item with the same five keys. `Item` is a Pick, a
    // NestedPick or a PeerItem.
    template <class Item>
    void select(const Item& item) {
        if (mUnique && holds(item))
            return;
        detach();
        mState->append(item);
    }

    bool has(const GxDbObjectId& id) const { return mState->has(id); }
    long positionOf(const GxDbObjectId& id) const { return mState->positionOf(id); }
    long at(std::size_t position) const { return mState->at(position).gsMarker; }
    std::size_t size() const { return mState->size(); }

    std::uintptr_t walk() const {
        std::uintptr_t sum = 0;
        mState->forEach([&sum](const PeerItem& item) {
            sum += reinterpret_cast<std::uintptr_t>(item.mainId.stub()) +
                   static_cast<std::uintptr_t>(item.gsMarker);
        });
        return sum;
    }

    void detach() {
        if (mState.use_count() > 1)
            mState = std::make_shared<State>(std::as_const(*mState));
    }

    bool remove(const Pick& pick) {
        detach();
        return mState->eraseFirstOfId(pick.mainId, [&](const PeerItem& item) { return hasKeys(item, pick); });
    }

    void removeAllForward() {
        detach();
        mState->removeAllForward();
    }

    void removeAllBackward() {
        detach();
        mState->removeAllBackward();
    }

    void mergeOf(const Peer& a, const Peer& b) {
        *this = a;
        mUnique = a.mUnique || b.mUnique;
        b.mState->forEach([this](const PeerItem& item) { select(item); });
    }

    void minusOf(const Peer& a, const Peer& b) {
        *this = a;
        b.mState->forEach([this](const PeerItem& item) { remove(keysOf(item)); });
    }

    bool contains(const Peer& other) const {
        return !other.mState->anyOf([this](const PeerItem& wanted) {
            return !mState->anyOfId(wanted.mainId,
                                    [&](const PeerItem& item) { return hasSameKeys(item, wanted); });
        });
    }

private:
    template <class Item>
    bool holds(const Item& wanted) const {
        return mState->anyOfId(wanted.mainId, [&](const PeerItem& item) { return isSame(item, wanted); });
    }

    std::shared_ptr<State> mState = std::make_shared<State>();
    bool mUnique = true;
};

} // namespace kvbench
