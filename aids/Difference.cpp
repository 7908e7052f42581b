// difference(): what a person wants to read if two sets differ.

#include "aids/Inspect.h"
#include "aids/detail/ItemOrder.h"
#include "aids/detail/ItemText.h"

#include <algorithm>

namespace kv {
namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

using ItemList = std::vector<const selected_entity*>;
using Positions = std::vector<std::size_t>;

ItemList listOf(const ItemRange& range) {
    ItemList list;
    for (const selected_entity& item : range)
        list.push_back(&item);
    return list;
}

// Returns the positions of the items, ordered by the keys. Equal items stay in the order of the set.
Positions sortedByKeys(const ItemList& list) {
    Positions sorted(list.size());
    for (std::size_t i = 0; i < sorted.size(); ++i)
        sorted[i] = i;
    std::stable_sort(sorted.begin(), sorted.end(), [&list](std::size_t a, std::size_t b) {
        return detail::compareItems(*list[a], *list[b]) < 0;
    });
    return sorted;
}

// Finds for each item of one set the same item of the other set.
class Matching {
public:
    Matching(const ItemList& a, const ItemList& b)
        : mA(a), mB(b), mOfA(a.size(), kNone), mOfB(b.size(), kNone) {
        const Positions sortedA = sortedByKeys(a);
        const Positions sortedB = sortedByKeys(b);
        auto left = sortedA.begin();
        auto right = sortedB.begin();
        while (left != sortedA.end() && right != sortedB.end()) {
            const int order = detail::compareItems(*a[*left], *b[*right]);
            if (order < 0) {
                ++left;
            } else if (order > 0) {
                ++right;
            } else {
                const auto leftEnd = endOfEqual(a, left, sortedA.end());
                const auto rightEnd = endOfEqual(b, right, sortedB.end());
                matchEqual({left, leftEnd}, {right, rightEnd});
                left = leftEnd;
                right = rightEnd;
            }
        }
    }

    // For each item of a set, the position of the same item in the other set, or kNone.
    const Positions& ofA() const { return mOfA; }
    const Positions& ofB() const { return mOfB; }

private:
    static Positions::const_iterator endOfEqual(const ItemList& list, Positions::const_iterator first,
                                                Positions::const_iterator last) {
        return std::find_if(first, last, [&list, first](std::size_t position) {
            return detail::compareItems(*list[*first], *list[position]) != 0;
        });
    }

    // Matches items with equal keys. First matches those that have the same other fields, too.
    void matchEqual(const Positions& left, const Positions& right) {
        for (const bool isExact : {true, false}) {
            auto firstFree = right.begin();
            for (const std::size_t a : left) {
                if (mOfA[a] == kNone)
                    matchWithin(a, firstFree, right.end(), isExact);
            }
        }
    }

    void matchWithin(std::size_t a, Positions::const_iterator& firstFree, Positions::const_iterator last,
                     bool isExact) {
        while (firstFree != last && mOfB[*firstFree] != kNone)
            ++firstFree;
        const auto found = std::find_if(firstFree, last, [&](std::size_t b) {
            return mOfB[b] == kNone && (!isExact || detail::hasSameFields(*mA[a], *mB[b]));
        });
        if (found == last)
            return;
        mOfA[a] = *found;
        mOfB[*found] = a;
    }

    const ItemList& mA;
    const ItemList& mB;
    Positions mOfA;
    Positions mOfB;
};

// Returns for each item of the first set whether it is among the most items that both sets have in the same
// order: the longest ascending part of `matches`. O(n log n).
std::vector<bool> inSameOrder(const Positions& matches) {
    Positions ends; // ends[l]: the item that ends an ascending part of l + 1 items, with the lowest match
    Positions before(matches.size(), kNone);
    for (std::size_t i = 0; i < matches.size(); ++i) {
        if (matches[i] == kNone)
            continue;
        const auto place = std::lower_bound(ends.begin(), ends.end(), matches[i],
                                            [&](std::size_t end, std::size_t m) { return matches[end] < m; });
        if (place != ends.begin())
            before[i] = *(place - 1);
        if (place == ends.end())
            ends.push_back(i);
        else
            *place = i;
    }
    std::vector<bool> isInOrder(matches.size());
    for (std::size_t i = ends.empty() ? kNone : ends.back(); i != kNone; i = before[i])
        isInOrder[i] = true;
    return isInOrder;
}

class Comparison {
public:
    Comparison(const GxapSelectSet& a, const GxapSelectSet& b, const IdText& idText)
        : mA(items(a)), mB(items(b)), mIdText(idText), mItemsA(listOf(mA)), mItemsB(listOf(mB)) {
        compareFlag("unique", isUnique(a), isUnique(b));
        compareFlag("selectByNestedMode", a.isSelectByNestedMode(), b.isSelectByNestedMode());
    }

    std::vector<std::string> run() {
        const Matching matching(mItemsA, mItemsB);
        const std::vector<bool> isInOrder = inSameOrder(matching.ofA());
        for (std::size_t i = 0; i < mItemsA.size(); ++i) {
            const std::size_t other = matching.ofA()[i];
            if (other == kNone)
                say("The second set lacks item " + std::to_string(i) +
                    " of the first: " + textOf(*mItemsA[i]));
            else
                compareItem(i, other, isInOrder[i]);
        }
        for (std::size_t i = 0; i < mItemsB.size(); ++i) {
            if (matching.ofB()[i] == kNone)
                say("The first set lacks item " + std::to_string(i) +
                    " of the second: " + textOf(*mItemsB[i]));
        }
        return std::move(mSentences);
    }

private:
    static bool isUnique(const GxapSelectSet& set) { return !set.sharedData || set.sharedData->unique; }

    std::string textOf(const selected_entity& item) const { return detail::textOfKeys(item, mIdText); }

    void say(const std::string& text) { mSentences.push_back(text + "."); }

    void compareFlag(const char* name, bool a, bool b) {
        if (a != b)
            say(std::string("`") + name + "` is true in the " + (a ? "first" : "second") + " set only");
    }

    void compareItem(std::size_t a, std::size_t b, bool isInOrder) {
        const std::string item =
            "Item " + std::to_string(a) + " of the first set, " + textOf(*mItemsA[a]) + ",";
        if (!isInOrder)
            say(item + " has moved: it is item " + std::to_string(b) + " of the second");
        for (const detail::FieldTexts& field : detail::changedFields(*mItemsA[a], *mItemsB[b], mIdText))
            say(item + " has " + field.name + " " + field.b + " in the second, not " + field.a);
    }

    const ItemRange mA;
    const ItemRange mB;
    const IdText& mIdText;
    const ItemList mItemsA;
    const ItemList mItemsB;
    std::vector<std::string> mSentences;
};

} // namespace

std::vector<std::string> difference(const GxapSelectSet& a, const GxapSelectSet& b, const IdText& idText) {
    if (a.sharedData == b.sharedData)
        return {};
    return Comparison(a, b, idText).run();
}

} // namespace kv
