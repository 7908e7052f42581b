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

namespace kvinmemory {

namespace detail {
class ObjectTable;
} // namespace detail

// ---- Statuses of gxdbOpenObject besides eOk

constexpr GxErrorStatus kInvalidId = static_cast<GxErrorStatus>(101); // no database knows the object
constexpr GxErrorStatus kErasedObject =
    static_cast<GxErrorStatus>(102); // the call does not open erased objects
constexpr GxErrorStatus kNotAnEntity = static_cast<GxErrorStatus>(103);
constexpr GxErrorStatus kOpenOtherwise =
    static_cast<GxErrorStatus>(104); // a writer excludes every other opening

// ---- Drawing objects

// A copy of the ids and the part of a path. The copy stays valid when the path is destroyed.
struct PathContents {
    MallocVector<GxDbObjectId> ids;
    GxDbSubentId part;
};
KV_SEAM_API PathContents contentsOf(const GxDbFullSubentPath& path);
KV_SEAM_API bool operator==(const PathContents& a, const PathContents& b);
KV_SEAM_API bool operator!=(const PathContents& a, const PathContents& b);

// An entity that records its highlighted parts, so that an application can draw these parts. Applications
// derive their entities from Entity. An application that needs no more than an id can use Entity itself.
//
// Invariants:
//  1. highlights() lists each successful call of highlight() whose highlight unhighlight() has not ended,
//     oldest first.
//  2. The objects are in memory from malloc. MallocAllocator explains why.
//
// Thread safety: an entity belongs to one thread at a time.
class KV_SEAM_API Entity : public GxDbEntity {
public:
    struct Highlight {
        PathContents path;
        bool entityFlag;
    };

    ~Entity() override;

    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory) noexcept;

    // Adds one highlight. Equal highlights are counted separately.
    GxErrorStatus highlight(const GxDbFullSubentPath& path, bool entityFlag) const override;

    // Ends the newest highlight of an equal path. Does not compare `entityFlag`. Does nothing if there is no
    // such highlight.
    GxErrorStatus unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const override;

    const MallocVector<Highlight>& highlights() const noexcept;

private:
    mutable MallocVector<Highlight> mHighlights;
};

// An object that cannot be drawn, such as a layer. gxdbOpenObject() does not open such an object.
//
// Invariant: the objects are in memory from malloc. MallocAllocator explains why.
//
// Thread safety: an object belongs to one thread at a time.
class KV_SEAM_API NonEntity : public GxDbObject {
public:
    ~NonEntity() override;

    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory) noexcept;
};

// Owns objects and issues their ids.
//
// Invariants:
//  1. Ids ascend in the order of their issue.
//  2. An erased object stays in the database. unerase() restores it.
//  3. The destructor deletes the objects. Their ids are then invalid, and must not be opened.
//
// Thread safety: a database belongs to one thread at a time. Other threads may open and close its objects
// while that thread does not edit the database.
class KV_SEAM_API Database {
public:
    using Factory = std::function<std::unique_ptr<GxDbEntity>()>;

    static constexpr std::size_t kDefaultCapacity = std::size_t{1} << 24;

    // `capacity` is the largest number of ids. The constructor reserves address space for that many ids.
    // Memory is taken when ids are issued. Throws std::bad_alloc if there is no address space.
    explicit Database(std::size_t capacity = kDefaultCapacity);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    // Adds an object and issues its id. The database owns the object. findByName() finds the first object of
    // a name. An empty name counts as no name. Throws std::invalid_argument for null, and std::length_error
    // if the database has issued `capacity` ids.
    GxDbObjectId add(std::unique_ptr<GxDbObject> object, std::string_view name = {});

    // Adds a new plain Entity.
    GxDbObjectId addEntity(std::string_view name = {});

    // Issues an id for non-resident entities. Each opening calls the factory to make a new entity. The code
    // that opens the entity deletes it.
    GxDbObjectId addNonResident(Factory factory, std::string_view name = {});

    // Issues an id for non-resident objects of class Entity.
    GxDbObjectId addNonResident(std::string_view name = {});

    // Issues an id without an object.
    GxDbObjectId addInvalid();

    // Returns the number of ids issued so far, including those of erased and invalid objects.
    std::size_t size() const noexcept;

    // Returns the id that was issued as number i, counted from 0. Throws std::out_of_range if fewer ids were
    // issued.
    GxDbObjectId idAt(std::size_t i) const;

    // Handles ascend from 1 in the order in which ids are issued. The null id and an id of another database
    // have the handle 0. For an unknown handle or name, the functions return the null id.
    std::uint64_t handleOf(GxDbObjectId id) const noexcept;
    GxDbObjectId findByHandle(std::uint64_t handle) const noexcept;
    std::string_view nameOf(GxDbObjectId id) const;
    GxDbObjectId findByName(std::string_view name) const;

    // Returns the resident object of an id, or null if there is none. Does not open the object. The object
    // may be erased.
    GxDbObject* object(GxDbObjectId id) const noexcept;

    // Returns the resident entity of an id, or null if there is none.
    GxDbEntity* entity(GxDbObjectId id) const noexcept;

    // The following functions take an id of this database. They throw std::invalid_argument for any other id.

    void erase(GxDbObjectId id);
    void unerase(GxDbObjectId id);
    bool isErased(GxDbObjectId id) const;

    // Makes the id invalid, so that gxdbOpenObject() no longer opens its object. Its object lives until the
    // database is destroyed.
    void invalidate(GxDbObjectId id);

    // Makes every gxdbOpenObject() of the id return this status. If `yieldsObject` is true, gxdbOpenObject()
    // also returns the object.
    void forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject = false);

    // Ends the effect of forceOpenStatus() for the id.
    void allowOpen(GxDbObjectId id);

    // Returns the number of current openings of the object. Non-resident objects are not counted.
    int openCount(GxDbObjectId id) const;

private:
    std::unique_ptr<detail::ObjectTable> mTable;
};

// ---- Switches

// Makes two distinct ids equal. Both ids then have the place of the lower id in the order of ids. Ids that
// were made equal to either id before are then equal to both. One of the ids may be null.
KV_SEAM_API void makeEqual(GxDbObjectId a, GxDbObjectId b);

// Starts or stops counting the comparisons of ids, and sets both counts to 0. This function and the counts
// may be called on any thread. They do not synchronise threads.
KV_SEAM_API void countIdComparisons(bool on) noexcept;
KV_SEAM_API long idEqualityCalls() noexcept; // of c5ObjIdIsEqualTo
KV_SEAM_API long idOrderCalls() noexcept;    // of c5ObjIdIsLessThan

// The exception that the following switches throw, by value.
struct KV_SEAM_API PlatformFailure {
    long call; // the number that was passed to the switch
};

// Make the nth call from now on throw a PlatformFailure. If `nth` is 1, the next call throws. 0 turns the
// switch off. The calls after the nth call do not throw. Calls of highlight and unhighlight of all entities
// count together.
KV_SEAM_API void throwFromHighlight(long nth) noexcept;
KV_SEAM_API void throwFromPathCopy(long nth) noexcept;       // copy construction
KV_SEAM_API void throwFromPathAssignment(long nth) noexcept; // copy assignment

struct HighlightCall {
    const GxDbEntity& entity;
    const GxDbFullSubentPath& path;
    bool entityFlag;
    bool on; // false: an unhighlight
};

// Installs a callback for every highlight and unhighlight that reaches GxDbEntity. An empty `callback`
// removes the installed callback. The callback is called after the highlight was logged. highlight() and
// unhighlight() throw what the callback throws.
KV_SEAM_API void onHighlight(std::function<void(const HighlightCall&)> callback);

// ---- Counts and logs

// Return the numbers of existing paths and objects. setLogging() has no effect on them.
KV_SEAM_API long livePaths() noexcept;
KV_SEAM_API long liveObjects() noexcept;

// Returns the number of current openings in all databases. Non-resident objects are not counted.
KV_SEAM_API long openObjects() noexcept;

enum class DatabaseCall {
    Open,
    Close,
    Delete, // of any object, including deletion by its database
    Highlight,
    Unhighlight,
    PathCopy,
    PathAssignment,
    PathDestruction
};

struct DatabaseEvent {
    std::uint64_t sequence;
    DatabaseCall call;
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

struct NameKeyCall {
    std::uint64_t sequence;
    const long* name;
    long word0; // at the beginning of the call
    long word1; // at the end of the call; the calls are numbered from 1
};

// Returns the calls of gxdbInitGdsNameKey that were made while logging was on, oldest first.
KV_SEAM_API MallocVector<NameKeyCall> nameKeyCalls();

// Turns all switches of the four libraries off and empties all logs. Ends the effect of every
// forceOpenStatus(). Changes nothing else in the databases.
KV_SEAM_API void resetAll();

} // namespace kvinmemory
