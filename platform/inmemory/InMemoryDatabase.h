// The drawing database of the in-memory libKvDatabase, with its switches and logs.
//
// An application makes a Database, derives its entities from Entity, and adds them to the database. The
// returned ids work with everything that KvDatabase.h declares.
//
// Thread safety: a database, its entities and the switches belong to one thread at a time. Several threads
// may compare ids, open and close objects, and copy paths at once. The counts and the logs may be read on any
// thread.
#pragma once

#include "platform/KvDatabase.h"
#include "platform/inmemory/InMemoryGeometry.h"
#include "platform/inmemory/InMemoryOsBase.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

// The in-memory platform: its drawing database, and its switches and logs for tests.
namespace kvinmemory {

namespace detail {
class ObjectTable;
} // namespace detail

// ---- Statuses of gxdbOpenObject besides eOk

constexpr GxErrorStatus kInvalidId = static_cast<GxErrorStatus>(101); // no database knows the object
// The object is erased, and the caller did not ask for erased objects.
constexpr GxErrorStatus kErasedObject = static_cast<GxErrorStatus>(102);
constexpr GxErrorStatus kNotAnEntity = static_cast<GxErrorStatus>(103); // the object cannot be drawn
// The object is open already, and one of the two openings is for writing.
constexpr GxErrorStatus kOpenOtherwise = static_cast<GxErrorStatus>(104);

// ---- Drawing objects

// A copy of the ids and the part of a path. The copy stays valid when the path is destroyed.
struct PathContents {
    MallocVector<GxDbObjectId> ids; // outermost first
    GxDbSubentId part;              // the null part: the whole entity
};

// Returns a copy of what the path has.
KV_SEAM_API PathContents contentsOf(const GxDbFullSubentPath& path);

// Returns whether both have equal ids in the same order, and the same part.
KV_SEAM_API bool operator==(const PathContents& a, const PathContents& b);

// Returns the opposite of ==.
KV_SEAM_API bool operator!=(const PathContents& a, const PathContents& b);

// An entity that records which of its parts are highlighted. An application can then draw these parts.
// Applications derive their entities from Entity. An application that needs only ids can use Entity itself.
//
// Invariants:
//  1. highlights() lists the highlights that are on, oldest first.
//  2. Entities are allocated with malloc. MallocAllocator explains why.
//
// Thread safety: an entity belongs to one thread at a time.
class KV_SEAM_API Entity : public GxDbEntity {
public:
    // A highlight that is on.
    struct Highlight {
        PathContents path; // what is highlighted
        bool entityFlag;   // the flag that highlight() was given
    };

    // Called by the database, or by the code that opened a non-resident entity.
    ~Entity() override;

    // Allocate with malloc, and free. Throw std::bad_alloc if there is no memory.
    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory) noexcept;

    // Adds one highlight, even if an equal highlight is on already.
    GxErrorStatus highlight(const GxDbFullSubentPath& path, bool entityFlag) const override;

    // Ends the newest highlight whose path equals `path`. Does not compare `entityFlag`. If there is no such
    // highlight, highlights() does not change.
    GxErrorStatus unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const override;

    // Returns the highlights that are on. The entity owns the list, which its next highlight changes.
    const MallocVector<Highlight>& highlights() const noexcept;

private:
    mutable MallocVector<Highlight> mHighlights;
};

// An object that cannot be drawn, such as a layer. gxdbOpenObject() does not open such an object.
//
// Invariant: the objects are allocated with malloc. MallocAllocator explains why.
//
// Thread safety: an object belongs to one thread at a time.
class KV_SEAM_API NonEntity : public GxDbObject {
public:
    // Called by the database.
    ~NonEntity() override;

    // Allocate with malloc, and free. Throw std::bad_alloc if there is no memory.
    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory) noexcept;
};

// Owns objects and issues their ids.
//
// Invariants:
//  1. Ids ascend in the order in which they are issued.
//  2. An erased object stays in the database. unerase() restores it.
//  3. The destructor deletes the objects. Their ids are then invalid, and must not be opened.
//
// Thread safety: a database belongs to one thread at a time. Other threads may open and close its objects
// while that thread does not edit the database.
class KV_SEAM_API Database {
public:
    // Makes a non-resident entity. Called each time the id is opened.
    using Factory = std::function<std::unique_ptr<GxDbEntity>()>;

    // The number of ids for which a database reserves address space if none is given.
    static constexpr std::size_t kDefaultCapacity = std::size_t{1} << 24;

    // `capacity` is the largest number of ids. The constructor reserves address space for that many ids.
    // Memory is taken when ids are issued. Throws std::bad_alloc if there is no address space.
    explicit Database(std::size_t capacity = kDefaultCapacity);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Deletes the objects. O(ids).
    ~Database();

    // Adds an object and issues its id. The database owns the object. An empty name counts as no name. If
    // several objects have one name, findByName() finds the first. Throws std::invalid_argument for null, and
    // std::length_error if the database has issued `capacity` ids.
    GxDbObjectId add(std::unique_ptr<GxDbObject> object, std::string_view name = {});

    // Adds a new plain Entity.
    GxDbObjectId addEntity(std::string_view name = {});

    // Issues an id for non-resident entities. Each opening calls the factory to make a new entity. The code
    // that opens the entity deletes it.
    GxDbObjectId addNonResident(Factory factory, std::string_view name = {});

    // Issues an id for non-resident objects of class Entity.
    GxDbObjectId addNonResident(std::string_view name = {});

    // Issues an invalid id, which names no object.
    GxDbObjectId addInvalid();

    // Returns the number of ids issued so far, including those of erased and invalid objects.
    std::size_t size() const noexcept;

    // Returns the id that was issued as number i, counted from 0. Throws std::out_of_range if fewer ids were
    // issued.
    GxDbObjectId idAt(std::size_t i) const;

    // Convert between ids, handles and names. The first id that the database issues has the handle 1, the
    // second has the handle 2, and so on. handleOf() returns 0 for the null id and for an id of another
    // database. nameOf() returns an empty text for an id without a name. The find functions return the null
    // id for an unknown handle or name.
    std::uint64_t handleOf(GxDbObjectId id) const noexcept;
    GxDbObjectId findByHandle(std::uint64_t handle) const noexcept;
    std::string_view nameOf(GxDbObjectId id) const;
    GxDbObjectId findByName(std::string_view name) const;

    // Returns the resident object of an id without opening the object. The object may be erased. Returns null
    // if there is no such object.
    GxDbObject* object(GxDbObjectId id) const noexcept;

    // As object(), but also returns null if the object is not an entity.
    GxDbEntity* entity(GxDbObjectId id) const noexcept;

    // The following functions take an id of this database. They throw std::invalid_argument for any other id.

    // Erase an object, restore it, and return whether it is erased.
    void erase(GxDbObjectId id);
    void unerase(GxDbObjectId id);
    bool isErased(GxDbObjectId id) const;

    // Makes the id invalid. gxdbOpenObject() then no longer opens the object. The object lives until the
    // database is destroyed.
    void invalidate(GxDbObjectId id);

    // Makes every gxdbOpenObject() of the id return this status. If `yieldsObject` is true, gxdbOpenObject()
    // also tries to open the object for reading, and yields the object if that succeeds.
    void forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject = false);

    // Ends the effect of forceOpenStatus() for the id.
    void allowOpen(GxDbObjectId id);

    // Returns the number of current openings of the object. Non-resident objects are not counted.
    int openCount(GxDbObjectId id) const;

private:
    std::unique_ptr<detail::ObjectTable> mTable;
};

// ---- Switches

// Makes two different ids equal. In the order of ids, both then count as the lower of the two. Equality is
// transitive: all ids that equal `a` then equal all ids that equal `b`. One of the ids may be null.
KV_SEAM_API void makeEqual(GxDbObjectId a, GxDbObjectId b);

// Starts or stops the counting of id comparisons, and sets both counts to 0. Any thread may call this
// function and read the counts. Counting does not synchronise threads.
KV_SEAM_API void countIdComparisons(bool on) noexcept;
KV_SEAM_API long idEqualityCalls() noexcept; // of c5ObjIdIsEqualTo
KV_SEAM_API long idOrderCalls() noexcept;    // of c5ObjIdIsLessThan

// The exception that the following switches throw, by value.
struct KV_SEAM_API PlatformFailure {
    long call; // the number that was passed to the switch
};

// Make the nth call from now on throw a PlatformFailure. If `nth` is 1, the next call throws. Later calls do
// not throw. 0 turns the switch off. throwFromHighlight() counts the calls of highlight() and unhighlight()
// of all entities together.
KV_SEAM_API void throwFromHighlight(long nth) noexcept;
KV_SEAM_API void throwFromPathCopy(long nth) noexcept;       // copy construction
KV_SEAM_API void throwFromPathAssignment(long nth) noexcept; // copy assignment

// A call of highlight() or unhighlight(). The references are valid during the call.
struct HighlightCall {
    const GxDbEntity& entity;       // the entity that was called
    const GxDbFullSubentPath& path; // the argument
    bool entityFlag;                // the argument
    bool on;                        // false: an unhighlight
};

// Installs a callback that GxDbEntity::highlight() and unhighlight() call after logging. An empty `callback`
// removes the installed callback. If the callback throws, highlight() or unhighlight() throws the same
// exception.
KV_SEAM_API void onHighlight(std::function<void(const HighlightCall&)> callback);

// ---- Counts and logs

// Return the numbers of existing paths and objects. They are counted even while logging is off.
KV_SEAM_API long livePaths() noexcept;
KV_SEAM_API long liveObjects() noexcept;

// Returns the number of current openings in all databases. Non-resident objects are not counted.
KV_SEAM_API long openObjects() noexcept;

// A kind of call that is logged.
enum class DatabaseCall {
    Open,           // gxdbOpenObject()
    Close,          // GxDbObject::close()
    Delete,         // of any object, including deletion by its database
    Highlight,      // GxDbEntity::highlight()
    Unhighlight,    // GxDbEntity::unhighlight()
    PathCopy,       // copy construction of a path
    PathAssignment, // copy assignment of a path
    PathDestruction // the destructor of a path
};

// One logged call. Members that a kind of call does not have are null or 0. Pointers are for comparisons
// only: the objects may be gone.
struct DatabaseEvent {
    std::uint64_t sequence;           // from nextSequence()
    DatabaseCall call;                // the kind of call
    GxDbObjectId id;                  // Open: the argument; otherwise the object's id
    const GxDbObject* object;         // the object of the call; Open: the result, or null
    const GxDbFullSubentPath* path;   // the path that is highlighted, copied to, assigned to or destroyed
    const GxDbFullSubentPath* source; // PathCopy, PathAssignment: the source path
    PathContents contents; // Highlight, Unhighlight: of `path`; PathCopy, PathAssignment: of `source`
    bool entityFlag;       // Highlight, Unhighlight
    GxErrorStatus status;  // Open, Close: the returned status
    GxDb::OpenMode mode;   // Open
    bool openErased;       // Open
};

// Returns the calls that were made while logging was on, oldest first.
KV_SEAM_API MallocVector<DatabaseEvent> databaseEvents();

// Returns the calls of one kind that were made while logging was on, oldest first.
KV_SEAM_API MallocVector<DatabaseEvent> databaseEvents(DatabaseCall call);

// One logged call of gxdbInitGdsNameKey().
struct NameKeyCall {
    std::uint64_t sequence; // from nextSequence()
    const long* name;       // the argument, for comparisons only
    long word0;             // name[0] before the call
    long word1;             // name[1] after the call: 1 after the first call, 2 after the second, and so on
};

// Returns the calls of gxdbInitGdsNameKey that were made while logging was on, oldest first.
KV_SEAM_API MallocVector<NameKeyCall> nameKeyCalls();

// Calls resetOsBase() and resetGeometry(). Turns off the switches that this header declares, and empties the
// logs that it declares. Ends the effect of every forceOpenStatus(). Changes nothing else in the databases.
KV_SEAM_API void resetAll();

} // namespace kvinmemory
