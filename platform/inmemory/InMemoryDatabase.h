// The drawing database of the in-memory libKvDatabase, and its switches and logs.
//
// An application makes a Database, derives its entities from Entity, and hands them over; the ids that it
// gets in return work with everything that KvDatabase.h declares. A database, its entities and the switches
// are for one thread at a time, but ids may be compared, objects opened and closed, and paths copied on
// several threads at once.
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

// ---- Statuses of gxdbOpenObject beside eOk

constexpr GxErrorStatus kInvalidId = static_cast<GxErrorStatus>(101);    // no database knows such an object
constexpr GxErrorStatus kErasedObject = static_cast<GxErrorStatus>(102); // and erased ones were not asked for
constexpr GxErrorStatus kNotAnEntity = static_cast<GxErrorStatus>(103);
constexpr GxErrorStatus kOpenOtherwise =
    static_cast<GxErrorStatus>(104); // a writer tolerates nobody beside itself

// ---- Drawing objects

// What a path said at some moment.
struct PathContents {
    MallocVector<GxDbObjectId> ids;
    GxDbSubentId part;
};
KV_SEAM_API PathContents contentsOf(const GxDbFullSubentPath& path);
KV_SEAM_API bool operator==(const PathContents& a, const PathContents& b);
KV_SEAM_API bool operator!=(const PathContents& a, const PathContents& b);

// An entity that knows what of it is highlighted, so that an application can draw it. To be derived from; a
// plain one serves where only an id is wanted. Lives on malloc's memory, like all of the platform's own.
class KV_SEAM_API Entity : public GxDbEntity {
public:
    struct Highlight {
        PathContents path;
        bool entityFlag;
    };

    ~Entity() override;

    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory) noexcept;

    // Adds one highlight; equal ones add up.
    GxErrorStatus highlight(const GxDbFullSubentPath& path, bool entityFlag) const override;

    // Takes back the newest highlight of an equal path, whatever its flag; without one nothing happens.
    GxErrorStatus unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const override;

    // Oldest first.
    const MallocVector<Highlight>& highlights() const noexcept;

private:
    mutable MallocVector<Highlight> mHighlights;
};

// An object that is in the database but cannot be drawn, such as a layer. Opening it as an entity fails.
class KV_SEAM_API NonEntity : public GxDbObject {
public:
    ~NonEntity() override;

    static void* operator new(std::size_t bytes);
    static void operator delete(void* memory) noexcept;
};

// Holds objects and issues their ids. Ids are ordered as they were issued. Erased objects stay and can come
// back; objects go only with their database, and their ids, no longer valid then, must not be opened
// afterwards.
class KV_SEAM_API Database {
public:
    using Factory = std::function<std::unique_ptr<GxDbEntity>()>;

    static constexpr std::size_t kDefaultCapacity = std::size_t{1} << 24;

    // capacity: how many ids can be issued; address space is reserved for them, memory is taken as they come.
    // std::bad_alloc without address space.
    explicit Database(std::size_t capacity = kDefaultCapacity);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database();

    // Takes an object in and issues its id. name: what findByName finds it by; may be empty; the first of
    // several objects of one name is the one that is found. std::invalid_argument for null, std::length_error
    // beyond the capacity.
    GxDbObjectId add(std::unique_ptr<GxDbObject> object, std::string_view name = {});

    // The same with a new plain Entity.
    GxDbObjectId addEntity(std::string_view name = {});

    // An id that opens as a fresh, non-resident entity each time, made by the factory and deleted by its
    // opener.
    GxDbObjectId addNonResident(Factory factory, std::string_view name = {});
    GxDbObjectId addNonResident(std::string_view name = {}); // of plain entities

    // An id that no object belongs to.
    GxDbObjectId addInvalid();

    // Ids issued so far, of erased and invalid objects too, and the id number i of them from 0.
    std::size_t size() const noexcept;
    GxDbObjectId idAt(std::size_t i) const;

    // Handles count from 1 as the ids are issued. The null id and an id of another database have handle 0; a
    // handle or name that is not there finds the null id.
    std::uint64_t handleOf(GxDbObjectId id) const noexcept;
    GxDbObjectId findByHandle(std::uint64_t handle) const noexcept;
    std::string_view nameOf(GxDbObjectId id) const;
    GxDbObjectId findByName(std::string_view name) const;

    // The object itself, not opened, erased or not; null when there is none resident. For the database's
    // owner.
    GxDbObject* object(GxDbObjectId id) const noexcept;
    GxDbEntity* entity(GxDbObjectId id) const noexcept; // null for an object that is not one

    // The following take an id of this database; any other is std::invalid_argument.
    void erase(GxDbObjectId id);
    void unerase(GxDbObjectId id);
    bool isErased(GxDbObjectId id) const;

    // The id is not valid any more and cannot be opened; its object stays until the database goes.
    void invalidate(GxDbObjectId id);

    // Whatever else holds, opening answers this status. yieldsObject: and yields the object all the same.
    void forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject = false);
    void allowOpen(GxDbObjectId id);

    // How often the object is open just now. Non-resident objects are not counted.
    int openCount(GxDbObjectId id) const;

private:
    std::unique_ptr<detail::ObjectTable> mTable;
};

// ---- Switches

// Makes two ids equal although they are distinct; both then have one place in the order of ids, that of the
// lower. Adds up: ids that are equal to one id are equal to each other. One of them may be null.
KV_SEAM_API void makeEqual(GxDbObjectId a, GxDbObjectId b);

// What the switches below throw, by value.
struct KV_SEAM_API PlatformFailure {
    long call; // the number of the call that failed, as it was ordered
};

// Lets the nth call from now on (1: the next) throw a PlatformFailure; the ones after it work again. Calls of
// highlight and unhighlight of any entity count together.
KV_SEAM_API void throwFromHighlight(long nth) noexcept;
KV_SEAM_API void throwFromPathCopy(long nth) noexcept;       // copy construction
KV_SEAM_API void throwFromPathAssignment(long nth) noexcept; // copy assignment

struct HighlightCall {
    const GxDbEntity& entity;
    const GxDbFullSubentPath& path;
    bool entityFlag;
    bool on; // else an unhighlight
};

// Called within every highlight and unhighlight that reaches GxDbEntity, after it was written down; what it
// throws leaves the call. An empty function ends that.
KV_SEAM_API void onHighlight(std::function<void(const HighlightCall&)> callback);

// ---- Counts and logs

// Objects that exist, whether logging is on or not.
KV_SEAM_API long livePaths() noexcept;
KV_SEAM_API long liveObjects() noexcept;

// Objects that are open just now, of all databases. Non-resident objects are not counted.
KV_SEAM_API long openObjects() noexcept;

enum class DatabaseCall {
    Open,
    Close,
    Delete, // of any database object, also by its database
    Highlight,
    Unhighlight,
    PathCopy,
    PathAssignment,
    PathDestruction
};

struct DatabaseEvent {
    std::uint64_t sequence;
    DatabaseCall call;
    GxDbObjectId id; // Open: the id that was asked for; otherwise the object's own
    const GxDbObject*
        object; // the object opened, closed, deleted or highlighted; Open: null when it yielded none
    const GxDbFullSubentPath* path;   // the path highlighted, destroyed, or written to
    const GxDbFullSubentPath* source; // PathCopy, PathAssignment: the path read
    PathContents contents;            // Highlight, Unhighlight, PathCopy, PathAssignment: of the path read
    bool entityFlag;                  // Highlight, Unhighlight
    GxErrorStatus status;             // Open, Close: the answer
    GxDb::OpenMode mode;              // Open
    bool openErased;                  // Open
};

// Calls while logging was on, oldest first; of all kinds, or of one.
KV_SEAM_API MallocVector<DatabaseEvent> databaseEvents();
KV_SEAM_API MallocVector<DatabaseEvent> databaseEvents(DatabaseCall call);

struct NameKeyCall {
    std::uint64_t sequence;
    const long* name;
    long word0; // as it was when the call came
    long word1; // as the call left it: counts from 1
};

// Calls of gxdbInitGdsNameKey while logging was on, oldest first.
KV_SEAM_API MallocVector<NameKeyCall> nameKeyCalls();

// Puts every switch of all four libraries back and empties all logs. Databases stay with all they hold, but
// for forced statuses.
KV_SEAM_API void resetAll();

} // namespace kvinmemory
