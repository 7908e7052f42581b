// Looks into sets without changing them: checks, texts and differences. Also removes one exact item, and
// makes entity infos. items() is in Items.h.
#pragma once

#include "aids/AidsExport.h"
#include "aids/Items.h"
#include "selectcontext/GxapSSetWriteAccessor.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kv {

// Every function of this header takes any set, also one without data, which counts as empty. Costs: n is the
// number of items. Thread safety: that of the set. Functions that take a const set may run on a copy of the
// set on another thread.

// ---- Checks

// Returns one sentence for every broken invariant of the set. Returns nothing if all hold. A sentence names
// the place: an item by its position, its page and its slot, an index entry or a registered iterator by its
// number. Positions, pages, slots and entries are counted from 0.
//
// Checks the registered iterators, the reference counts and flags, the chain of pages, the count and slots of
// every page, `entityCount`, the index, and in each record the main id, the flags, the vectors, the infos,
// and that nothing has two owners. In a set whose `unique` is true, also reports items that are equal.
//
// Not every sentence is about an error of the library. A caller may have changed records or the index by
// hand. A removal by main id and sub id leaves items without index entries. merge() leaves equal items in a
// unique set.
//
// Gives at most `most` sentences, and then one more that says how many are left out. Reads the set only.
// Follows the pointers in the set, so they must lead to pages, slots and records. Throws std::bad_alloc only.
// O(n log n), and O(k * k) for k items that differ in their block transform only.
KV_AIDS_API std::vector<std::string> validate(const GxapSelectSet& set, std::size_t most = 100);

// ---- Texts

// Returns the text of an id. The functions below never call it for the null id, whose text is "null". It must
// not edit the set. An exception that it throws passes through them.
using IdText = std::function<std::string(const GxDbObjectId&)>;

// Writes the set as text: one line for the set, and one for each item. Sets have the same text exactly if
// they have the same flags, and items with the same fields in the same order. Exceptions: ids count as the
// same if `idText` gives them the same text; `extra` of a path's part is not written; an info without
// optional data counts as none, and so does an empty list of segments; a sub-selection counts only if
// `hasSubselPaths` is true. The text has no addresses, and does not depend on the locale. Throws what
// `idText` and the stream throw, and std::bad_alloc. O(n).
KV_AIDS_API void dump(const GxapSelectSet& set, std::ostream& out, const IdText& idText);

// Returns one sentence for each difference between two sets: other flags, items that one of them lacks, items
// in another order, and items with other fields. Returns nothing if there is no difference. Two items are the
// same item if main id, sub id, marker (0 equals -1) and nested path are equal. Of items in another order,
// reports as few as possible. Compares ids by the application, and takes only their texts from `idText`.
// Throws what `idText` throws, and std::bad_alloc. O(n log n), or O(1) for sets that share their data.
KV_AIDS_API std::vector<std::string> difference(const GxapSelectSet& a, const GxapSelectSet& b,
                                                const IdText& idText);

// ---- Iterators

// Why an iterator has an item or has none.
enum class IteratorState {
    kOnItem,
    kAtEnd,
    kBeforeFirst,    // stepping moves it to the first item
    kOutside,        // made with an index beyond the end
    kOnRemovedItem,  // its item was removed; stepping goes on
    kOnReleasedPage, // its item was removed with the whole page; stepping moves it to the end
    kOnOtherStore,   // its set has other data by now; stepping moves it to the end
    kDisabled,       // its set has released the data that it walked, or somebody called disable()
    kSetHasNoData,
    kSetIsGone // its set was destroyed, or it never had a set
};

// Returns the state, as far as the public fields tell it. Never throws. The set of an iterator that is not
// registered must exist: such an iterator is not told when its set is destroyed. O(1), or O(n / 4096) after a
// page was freed.
KV_AIDS_API IteratorState whyDone(const GxapSelectSet::ConstIterator& it);

// Returns a phrase for the state, such as "on an item". The text is a literal.
KV_AIDS_API const char* textOf(IteratorState state) noexcept;

// Returns the calls in which its set last disabled the iterator, the innermost first: the name of each
// function that is exported, or the place in its file, as addr2line reads it. Returns nothing if the library
// was built without KV_TRACE_ITERATORS, if no set has disabled the iterator, or if 256 others were disabled
// since. Throws std::bad_alloc only. Any thread may call it.
KV_AIDS_API std::vector<std::string> whereDisabled(const GxapSelectSet::ConstIterator& it);

// ---- Stale items

// An item whose main id does not open.
struct StaleItem {
    int position; // in the set, when staleItems() was called
    GxDbObjectId mainEntId;
    GxErrorStatus status; // of the opening
};

// Opens the entity of every main id for reading, and closes it again. Returns the items whose main id does
// not open, in the order of the set. Opens each id once, and one entity at a time. Opening an entity may edit
// the set: the result is about the items as they were. Throws what opening and closing throw, and
// std::bad_alloc. O(n log n), plus the openings. Call it on the thread that uses the database.
KV_AIDS_API std::vector<StaleItem> staleItems(const GxapSelectSet& set);

// ---- One exact item

// Removes the very item of the iterator, also if others have the same keys. removeAt() would remove the first
// of them. As with removeAt(), the record stays allocated, and belongs to whoever has its address.
// takeExactly() in Reclaim.h gives it an owner.
//
// Returns false, and changes nothing, if the iterator is on no item of this set. Otherwise the next step()
// moves the iterator to the item behind the removed one. This holds also if the removed item was the first,
// and if the data was shared. If it was, the other iterators of the set are disabled.
//
// Throws std::bad_alloc or KvErrorStatus 6 if there is no memory to make shared data private; the set's items
// are then as before. O(log n + items of the main id + n / 4096), or O(n) if the data was shared. Later
// look-ups make the set's hashes anew.
KV_AIDS_API bool removeExactly(GxapSelectSet& set, GxapSelectSet::ConstIterator& it);

// ---- Entity infos

// Destroys an info that no set owns.
struct InfoDeleter {
    void operator()(GxapSelectedEntInfo* info) const noexcept {
        info->~GxapSelectedEntInfo();
        _kvFree(info);
    }
};

// Owns an info until it is handed over: edit.select(main, sub, marker, info.release(), &path).
using OwnedInfo = std::unique_ptr<GxapSelectedEntInfo, InfoDeleter>;

// What a new info has. The defaults give an info without any optional data.
struct InfoFields {
    std::uint32_t word0 = 0;
    std::uint32_t word1 = 0;
    std::int16_t halfWord = -1;
    std::vector<GxGePoint3d> points;
    std::optional<SelFenceIntersectInfo> fence; // not stored if its index is negative
    std::optional<GxGeMatrix3d> transform;      // the compound block transform
};

// The `word0` of an item that the library makes for a sub-selection.
constexpr std::uint32_t kSubselectionWord = 6;

// Makes an info in memory from _kvMalloc, as select() wants it. Throws std::bad_alloc or KvErrorStatus 6 if
// there is no memory. O(points).
KV_AIDS_API OwnedInfo makeInfo(const InfoFields& fields = {});

} // namespace kv
