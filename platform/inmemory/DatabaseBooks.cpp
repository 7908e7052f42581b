#include "platform/inmemory/DatabaseBooks.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <utility>

namespace kvinmemory {

namespace {

std::atomic<long> gOpenObjects{0};

// A database's stub pointer is protected in its objects; a pointer to the member reaches it from here.
class ObjectAccess : public GxDbObject {
public:
    static void setStub(GxDbObject& object, GxDbStub* stub) { object.*(&ObjectAccess::mStub) = stub; }
};

class Databases {
public:
    void enter(Database::Books* books) {
        const std::lock_guard<std::shared_mutex> guard(mMutex);
        mAll.push_back(books);
    }

    void strike(Database::Books* books) {
        const std::lock_guard<std::shared_mutex> guard(mMutex);
        mAll.erase(std::remove(mAll.begin(), mAll.end(), books), mAll.end());
    }

    const Database::Books* ownerOf(const GxDbStub* stub) const {
        const std::shared_lock<std::shared_mutex> guard(mMutex);
        for (const Database::Books* books : mAll) {
            if (books->stubs().contains(stub))
                return books;
        }
        return nullptr;
    }

    void allowAllOpens() const {
        const std::lock_guard<std::shared_mutex> guard(mMutex);
        for (Database::Books* books : mAll)
            books->allowAll();
    }

private:
    mutable std::shared_mutex mMutex;
    BookVector<Database::Books*> mAll;
};

// A static object of a program or a plug-in may be a database. The loader constructs this library's objects
// before those of the library's users, and destroys them after those.
Databases gDatabases;

// A reader joins other readers, a writer comes alone.
bool startOpening(GxDbStub& stub, GxDb::OpenMode mode) noexcept {
    int opened = stub.opened.load();
    do {
        if (opened == GxDbStub::kWriter || (mode == GxDb::kForWrite && opened > 0))
            return false;
    } while (
        !stub.opened.compare_exchange_weak(opened, mode == GxDb::kForWrite ? GxDbStub::kWriter : opened + 1));
    ++gOpenObjects;
    return true;
}

} // namespace

const Database::Books* ownerOf(const GxDbStub* stub) {
    return gDatabases.ownerOf(stub);
}

bool isValidStub(const GxDbStub* stub) {
    return ownerOf(stub) != nullptr && !stub->invalid;
}

GxErrorStatus closeStub(GxDbStub& stub) noexcept {
    int opened = stub.opened.load();
    do {
        if (opened == 0)
            return eNotOpen;
    } while (!stub.opened.compare_exchange_weak(opened, opened == GxDbStub::kWriter ? 0 : opened - 1));
    --gOpenObjects;
    return eOk;
}

void allowAllOpens() {
    gDatabases.allowAllOpens();
}

long openObjects() noexcept {
    return gOpenObjects.load();
}

// ---- One database

Database::Books::Books(std::size_t capacity) : mStubs(capacity) {
    gDatabases.enter(this);
}

Database::Books::~Books() {
    gDatabases.strike(this);
    for (std::size_t i = 0; i < mStubs.size(); ++i) {
        while (closeStub(mStubs[i]) == eOk) {}
        delete mStubs[i].object;
    }
}

void* Database::Books::operator new(std::size_t bytes) {
    return BookAllocator<char>().allocate(bytes);
}

void Database::Books::operator delete(void* memory) noexcept {
    BookAllocator<char>().deallocate(static_cast<char*>(memory), 0);
}

GxDbObjectId Database::Books::add(std::unique_ptr<GxDbObject> object, std::string_view name) {
    if (object == nullptr)
        throw std::invalid_argument("there is no object to add");
    GxDbStub& stub = mStubs.issue();
    stub.entity = dynamic_cast<GxDbEntity*>(object.get());
    stub.object = object.release();
    ObjectAccess::setStub(*stub.object, &stub);
    return issued(stub, name);
}

GxDbObjectId Database::Books::addNonResident(Factory factory, std::string_view name) {
    GxDbStub& stub = mStubs.issue();
    mFactories.emplace(&stub, std::move(factory));
    stub.hasFactory = true;
    return issued(stub, name);
}

GxDbObjectId Database::Books::addInvalid() {
    GxDbStub& stub = mStubs.issue();
    stub.invalid = true;
    return GxDbObjectId(&stub);
}

GxDbObjectId Database::Books::issued(GxDbStub& stub, std::string_view name) {
    const GxDbObjectId id(&stub);
    if (name.empty())
        return id;
    mNames.emplace(&stub, BookString(name));
    mIdsByName.emplace(BookString(name), id);
    return id;
}

GxDbStub& Database::Books::stubOf(GxDbObjectId id) const {
    if (!mStubs.contains(id.stub()))
        throw std::invalid_argument("the id is not one of this database");
    return *id.stub();
}

std::string_view Database::Books::nameOf(GxDbObjectId id) const {
    const auto found = mNames.find(id.stub());
    return found == mNames.end() ? std::string_view() : std::string_view(found->second);
}

GxDbObjectId Database::Books::findByName(std::string_view name) const {
    const auto found = mIdsByName.find(BookString(name));
    return found == mIdsByName.end() ? GxDbObjectId() : found->second;
}

void Database::Books::forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject) {
    GxDbStub& stub = stubOf(id);
    mForcedStatuses[&stub] = ForcedStatus{status, yieldsObject};
    stub.hasForcedStatus = true;
}

void Database::Books::allowOpen(GxDbObjectId id) {
    GxDbStub& stub = stubOf(id);
    mForcedStatuses.erase(&stub);
    stub.hasForcedStatus = false;
}

void Database::Books::allowAll() {
    for (auto& [stub, forced] : mForcedStatuses)
        stub->hasForcedStatus = false;
    mForcedStatuses.clear();
}

GxErrorStatus Database::Books::open(GxDbEntity*& entity, GxDbStub& stub, GxDb::OpenMode mode,
                                    bool openErased) const {
    if (stub.hasForcedStatus)
        return openForced(entity, stub);
    if (stub.invalid)
        return kInvalidId;
    if (stub.erased && !openErased)
        return kErasedObject;
    return openObject(entity, stub, mode);
}

GxErrorStatus Database::Books::openForced(GxDbEntity*& entity, GxDbStub& stub) const {
    const ForcedStatus& forced = mForcedStatuses.at(&stub);
    if (forced.yieldsObject)
        openObject(entity, stub, GxDb::kForRead);
    return forced.status;
}

GxErrorStatus Database::Books::openObject(GxDbEntity*& entity, GxDbStub& stub, GxDb::OpenMode mode) const {
    if (stub.hasFactory) {
        entity = mFactories.at(&stub)().release();
        return eOk;
    }
    if (stub.entity == nullptr)
        return kNotAnEntity;
    if (!startOpening(stub, mode))
        return kOpenOtherwise;
    entity = stub.entity;
    return eOk;
}

} // namespace kvinmemory
