// validate(): checks the invariants of a set.

#include "aids/Inspect.h"
#include "aids/detail/ItemOrder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <unordered_map>
#include <utility>

namespace kv {
namespace {

using Data = GxapSelectSet::SSetData;
using Store = Data::Store;
using Slot = Store::Slot;
using Page = Store::Page;

template <class... Parts>
std::string sentence(const Parts&... parts) {
    const auto textOf = [](const auto& part) {
        if constexpr (std::is_arithmetic_v<std::decay_t<decltype(part)>>)
            return std::to_string(part);
        else
            return std::string(part);
    };
    std::string text;
    ((text += textOf(parts)), ...);
    return text + ".";
}

// Collects sentences up to a limit, and counts those beyond it.
class Findings {
public:
    explicit Findings(std::size_t most) : mMost(most) {}

    template <class... Parts>
    void add(const Parts&... parts) {
        if (mSentences.size() < mMost)
            mSentences.push_back(sentence(parts...));
        else
            ++mLeftOut;
    }

    std::vector<std::string> take() {
        if (mLeftOut > 0)
            mSentences.push_back(sentence(mLeftOut, " more findings are left out"));
        return std::move(mSentences);
    }

private:
    std::size_t mMost;
    std::size_t mLeftOut = 0;
    std::vector<std::string> mSentences;
};

// An occupied slot with its place.
struct Item {
    const Slot* slot;
    std::size_t position;
    std::size_t page;
    std::size_t slotInPage;
    bool isComparable = true; // whether its keys may be read

    const selected_entity* record() const { return slot->value; }
    std::string place() const {
        return "item " + std::to_string(position) + " (page " + std::to_string(page) + ", slot " +
               std::to_string(slotInPage) + ")";
    }
};

// What an object belongs to: an item, or a registered iterator if `item` is null.
struct Owner {
    const Item* item;
    int iterator;

    std::string text() const {
        return item ? item->place() : "registered iterator " + std::to_string(iterator);
    }
};

// Returns the byte of a bool. A corrupted bool must not be read as a bool.
unsigned byteOf(const bool& flag) {
    unsigned char byte = 0;
    std::memcpy(&byte, &flag, 1);
    return byte;
}

class Validation {
public:
    Validation(const GxapSelectSet& set, std::size_t most) : mSet(set), mFindings(most) {}

    std::vector<std::string> run() {
        checkRegistry();
        if (!mSet.sharedData)
            return mFindings.take();
        checkData();
        if (data().entities)
            checkChain();
        checkCount();
        checkIndex();
        for (Item& item : mItems)
            checkRecord(item);
        checkSharing();
        if (byteOf(data().unique) != 0)
            checkDuplicates();
        return mFindings.take();
    }

private:
    const Data& data() const { return *mSet.sharedData; }

    // ---- The handle

    void checkRegistry() {
        const auto& registry = mSet.iterators;
        if (registry.mLogicalLength < 0 || registry.mLogicalLength > registry.mPhysicalLength ||
            (registry.mPhysicalLength > 0) != (registry.mArray != nullptr)) {
            mFindings.add("The list of registered iterators has length ", registry.mLogicalLength,
                          " and capacity ", registry.mPhysicalLength);
            return;
        }
        if (!registry.mArray)
            return;
        for (int i = 0; i < registry.mLogicalLength; ++i)
            checkIterator(i, registry.mArray[i]);
    }

    void checkIterator(int number, const GxapSelectSet::ConstIterator* it) {
        if (!it) {
            mFindings.add("Registered iterator ", number, " is null");
            return;
        }
        const auto [known, isNew] = mRegistered.emplace(it, number);
        if (!isNew) {
            mFindings.add("One iterator is registered as ", known->second, " and as ", number);
            return;
        }
        if (it->set != &mSet)
            mFindings.add("Registered iterator ", number, " is one of another set");
        if (it->truckerIterator)
            claim(it->truckerIterator, {nullptr, number}, "store position");
    }

    // ---- The data

    void checkData() {
        constexpr std::uint32_t kMostHandles = 0x7FFFFFFF;
        const std::uint32_t handles = data().refCount.load();
        if (handles == 0 || handles > kMostHandles)
            mFindings.add("refCount is ", handles, ", but at least this set uses the data");
        if (byteOf(data().unique) > 1)
            mFindings.add("The byte of `unique` is ", byteOf(data().unique));
        if (byteOf(data().selectByNestedMode) > 1)
            mFindings.add("The byte of `selectByNestedMode` is ", byteOf(data().selectByNestedMode));
        if (!data().entities)
            mFindings.add("The data has no store");
    }

    void checkCount() {
        if (data().entityCount != mOccupied)
            mFindings.add("entityCount is ", data().entityCount, ", but ", mOccupied, " slots are occupied");
    }

    // ---- The store

    void checkChain() {
        const Store& store = *data().entities;
        if ((store.head == nullptr) != (store.tail == nullptr))
            mFindings.add("The store has a ", store.head ? "head" : "tail", " only");
        const Page* last = nullptr;
        std::size_t number = 0;
        for (const Page* page = store.head; page; page = page->next) {
            if (!mPages.emplace(page, number).second) {
                mFindings.add("The chain of pages leads from page ", number - 1, " back to page ",
                              mPages.at(page));
                break;
            }
            checkPage(*page, number++);
            last = page;
        }
        if (store.head && store.tail && last != store.tail)
            mFindings.add("The tail of the store is not the last page of the chain, which is page ",
                          number - 1);
    }

    void checkPage(const Page& page, std::size_t number) {
        if (!page.slots) {
            mFindings.add("Page ", number, " has no slots");
            return;
        }
        const std::size_t block = mBlocks.emplace(page.slots, number).first->second;
        if (block != number) {
            mFindings.add("Pages ", block, " and ", number, " have the same slots");
            return;
        }
        const std::uint32_t before = mOccupied;
        const std::size_t used = usedSlots(page, number);
        for (std::size_t i = 0; i < Store::kSlotsPerPage; ++i)
            checkSlot(page.slots[i], number, i, i < used);
        if (page.liveCount != mOccupied - before)
            mFindings.add("Page ", number, " counts ", page.liveCount, " occupied slots, but has ",
                          mOccupied - before);
    }

    // Returns the number of used slots. Returns the size of the page if `fillEnd` is no slot of the page.
    std::size_t usedSlots(const Page& page, std::size_t number) {
        const auto first = reinterpret_cast<std::uintptr_t>(page.slots);
        const auto end = reinterpret_cast<std::uintptr_t>(page.fillEnd);
        const std::uintptr_t bytes = end - first;
        if (end >= first && bytes % sizeof(Slot) == 0 && bytes / sizeof(Slot) <= Store::kSlotsPerPage)
            return bytes / sizeof(Slot);
        mFindings.add("The used part of page ", number, " does not end in the page");
        return Store::kSlotsPerPage;
    }

    void checkSlot(const Slot& slot, std::size_t page, std::size_t number, bool isUsed) {
        if (slot.free > 1)
            mFindings.add("Slot ", number, " of page ", page, " is marked ", unsigned{slot.free});
        if (slot.free)
            return;
        if (!isUsed) {
            mFindings.add("Slot ", number, " of page ", page, " is occupied, but was never used");
            return;
        }
        ++mOccupied;
        if (!slot.value) {
            mFindings.add("Slot ", number, " of page ", page, " is occupied, but has no record");
            return;
        }
        mItemAt.emplace(reinterpret_cast<unsigned long>(&slot), mItems.size());
        mItems.push_back({&slot, mOccupied - 1, page, number});
    }

    // ---- The index

    void checkIndex() {
        std::vector<bool> isIndexed(mItems.size());
        const Data::DataMap::value_type* before = nullptr;
        std::size_t itemBefore = 0;
        std::size_t number = 0;
        for (const auto& entry : data().dataMap) {
            if (before && entry.first < before->first)
                mFindings.add("Index entry ", number,
                              " has an id that belongs before that of the entry before");
            const bool isSameId = before && before->first == entry.first;
            before = nullptr;
            const auto found = mItemAt.find(entry.second);
            if (found == mItemAt.end()) {
                mFindings.add("Index entry ", number, " leads to no item");
            } else {
                checkEntry(entry.first, number, found->second, isIndexed);
                if (isSameId && found->second < itemBefore)
                    mFindings.add("Index entries ", number - 1, " and ", number, " have one id, but lead to ",
                                  mItems[itemBefore].place(), " and ", mItems[found->second].place(),
                                  ", which are in the opposite order");
                before = &entry;
                itemBefore = found->second;
            }
            ++number;
        }
        for (std::size_t i = 0; i < mItems.size(); ++i) {
            if (!isIndexed[i])
                mFindings.add("No index entry leads to ", mItems[i].place());
        }
    }

    void checkEntry(const GxDbObjectId& id, std::size_t number, std::size_t item,
                    std::vector<bool>& isIndexed) {
        if (isIndexed[item])
            mFindings.add("Index entry ", number, " leads to ", mItems[item].place(),
                          ", to which another entry leads, too");
        isIndexed[item] = true;
        if (id != mItems[item].record()->mainEntId)
            mFindings.add("Index entry ", number, " has another main id than ", mItems[item].place());
    }

    // ---- The records

    void checkRecord(Item& item) {
        const selected_entity& record = *item.record();
        if (!claim(&record, {&item, 0}, "record")) {
            item.isComparable = false; // equal to itself, which is reported already
            return;
        }
        if (record.mainEntId.isNull())
            mFindings.add("The main id of ", item.place(), " is null");
        if (byteOf(record.hasSubselPaths) > 1)
            mFindings.add("The byte of `hasSubselPaths` of ", item.place(), " is ",
                          byteOf(record.hasSubselPaths));
        checkVector(record.hlVpArray, "hlVpArray", item);
        item.isComparable = checkVector(record.nestedEntFullPath, "nestedEntFullPath", item);
        checkSegments(record, item);
        if (record.subselPathArray && claim(record.subselPathArray, {&item, 0}, "list of paths"))
            checkVector(*record.subselPathArray, "subselPathArray", item);
        if (record.selectedEntityInfo && claim(record.selectedEntityInfo, {&item, 0}, "info"))
            checkInfo(*record.selectedEntityInfo, item);
    }

    void checkSegments(const selected_entity& record, const Item& item) {
        const auto* const segments = record.highlightSegmentArray;
        if (!segments || !claim(segments, {&item, 0}, "list of paths") ||
            !checkVector(*segments, "highlightSegmentArray", item))
            return;
        for (int i = 0; i < segments->logicalLength(); ++i) {
            if (const GxDbFullSubentPath* const path = segments->at(i))
                claim(path, {&item, 0}, "highlight path");
        }
    }

    void checkInfo(const GxapSelectedEntInfo& info, Item& item) {
        constexpr std::uint64_t kFenceBit = 1;
        constexpr std::uint64_t kMatrixBit = 2;
        checkVector(info.pointArray, "pointArray", item);
        if ((info.presenceBits & ~(kFenceBit | kMatrixBit)) != 0)
            mFindings.add("presenceBits of ", item.place(), " has unknown bits: ", info.presenceBits);
        if (info.elasticData)
            claim(info.elasticData, {&item, 0}, "block of optional fields");
        if ((info.presenceBits & kFenceBit) != 0)
            checkField(info.getFenceInfoPtr(), "fence info", item);
        if ((info.presenceBits & kMatrixBit) != 0)
            checkField(info.getBTRMatPtr(), "block transform", item);
    }

    void checkField(const void* field, const char* what, const Item& item) {
        if (field)
            claim(field, {&item, 0}, what);
        else
            mFindings.add("presenceBits of ", item.place(), " has the bit of a ", what, " that is not there");
    }

    // Returns whether the elements may be read.
    template <class T>
    bool checkVector(const KvVector<T>& vector, const char* field, const Item& item) {
        const KvVectorBlock* const block = vector.data.block;
        if (!block)
            return true;
        const auto [known, isNew] = mUseOf.emplace(block, mUses.size());
        if (isNew)
            mUses.push_back({block, 0, field, &item});
        ++mUses[known->second].count;
        const bool isSound = block->logicalLength >= 0 && block->logicalLength <= block->physicalLength &&
                             (block->physicalLength > 0) == (block->array != nullptr);
        if (!isSound)
            mFindings.add("The block of ", field, " of ", item.place(), " has length ", block->logicalLength,
                          " and capacity ", block->physicalLength, block->array ? " with" : " without",
                          " storage");
        return isSound;
    }

    // ---- What is shared or owned

    // Notes that an object belongs to `owner`. If the object has an owner already, reports that and returns
    // false.
    bool claim(const void* object, const Owner& owner, const char* what) {
        const auto [known, isNew] = mOwners.emplace(object, owner);
        if (!isNew)
            mFindings.add("One ", what, " belongs to ", known->second.text(), " and to ", owner.text());
        return isNew;
    }

    void checkSharing() {
        for (const Uses& uses : mUses) {
            const std::uint64_t platform = uses.block == gpEmptyVectorData ? 1 : 0;
            const std::uint64_t held = uses.block->refCount.load();
            if (held < uses.count + platform)
                mFindings.add("The block of ", uses.field, " of ", uses.first->place(), " has refCount ",
                              held, ", but ", uses.count, " vectors of this set use it");
        }
        const KvVectorBlock* const empty = gpEmptyVectorData;
        if (empty && (empty->logicalLength != 0 || empty->physicalLength != 0 || empty->array))
            mFindings.add("The block of all empty vectors has length ", empty->logicalLength,
                          " and capacity ", empty->physicalLength);
    }

    // ---- Equal items

    void checkDuplicates() {
        std::vector<const Item*> sorted;
        for (const Item& item : mItems) {
            if (item.isComparable)
                sorted.push_back(&item);
        }
        std::stable_sort(sorted.begin(), sorted.end(), [](const Item* a, const Item* b) {
            return detail::compareItems(*a->record(), *b->record()) < 0;
        });
        for (auto first = sorted.begin(); first != sorted.end();) {
            const auto last = std::find_if(first, sorted.end(), [first](const Item* item) {
                return detail::compareItems(*(*first)->record(), *item->record()) != 0;
            });
            for (auto item = first; item != last; ++item)
                checkDuplicate(first, item);
            first = last;
        }
    }

    // Reports `item` if one before it, from `first` on, has an equal block transform, too.
    void checkDuplicate(std::vector<const Item*>::const_iterator first,
                        std::vector<const Item*>::const_iterator item) {
        const auto earlier = std::find_if(first, item, [item](const Item* other) {
            return detail::isSameTransform(*other->record(), *(*item)->record());
        });
        if (earlier != item)
            mFindings.add("The set is unique, but ", (*earlier)->place(), " and ", (*item)->place(),
                          " are equal");
    }

    // The vectors of this set that use a block.
    struct Uses {
        const KvVectorBlock* block;
        std::uint64_t count;
        const char* field;
        const Item* first;
    };

    const GxapSelectSet& mSet;
    Findings mFindings;
    std::unordered_map<const Page*, std::size_t> mPages;
    std::unordered_map<const Slot*, std::size_t> mBlocks;
    std::uint32_t mOccupied = 0;
    std::vector<Item> mItems;
    std::unordered_map<unsigned long, std::size_t> mItemAt; // by slot address
    std::unordered_map<const GxapSelectSet::ConstIterator*, int> mRegistered;
    std::unordered_map<const void*, Owner> mOwners;
    std::vector<Uses> mUses;
    std::unordered_map<const KvVectorBlock*, std::size_t> mUseOf; // positions in mUses
};

} // namespace

std::vector<std::string> validate(const GxapSelectSet& set, std::size_t most) {
    return Validation(set, most).run();
}

} // namespace kv
