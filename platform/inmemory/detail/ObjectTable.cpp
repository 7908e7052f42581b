#include "platform/inmemory/detail/ObjectTable.h"

#include "platform/inmemory/detail/DatabaseRegistry.h"

#include <stdexcept>
#include <utility>

namespace kvinmemory::detail {

namespace {

// Gives access to GxDbObject::mStub, which is protected.
class ObjectAccess : public GxDbObject {
public:
    static void setStub(GxDbObject& object, GxDbStub* stub) { object.*(&ObjectAccess::mStub) = stub; }
};

} // namespace

ObjectTable::ObjectTable(std::size_t capacity) : mStubs(capacity) {
    databaseRegistry().add(this);
}

ObjectTable::~ObjectTable() {
    databaseRegistry().remove(this);
    for (std::size_t i = 0; i < mStubs.size(); ++i) {
        while (mStubs[i].close()) {}
        delete mStubs[i].object;
    }
}

void* ObjectTable::operator new(std::size_t bytes) {
    return allocateObject(bytes);
}

void ObjectTable::operator delete(void* memory) noexcept {
    deallocateObject(memory);
}

GxDbObjectId ObjectTable::add(std::unique_ptr<GxDbObject> object, std::string_view name) {
    if (object == nullptr)
        throw std::invalid_argument("there is no object to add");
    GxDbStub& stub = mStubs.append();
    stub.entity = dynamic_cast<GxDbEntity*>(object.get());
    stub.object = object.release();
    ObjectAccess::setStub(*stub.object, &stub);
    return nameStub(stub, name);
}

GxDbObjectId ObjectTable::addNonResident(Database::Factory factory, std::string_view name) {
    GxDbStub& stub = mStubs.append();
    mFactories.emplace(&stub, std::move(factory));
    stub.hasFactory = true;
    return nameStub(stub, name);
}

GxDbObjectId ObjectTable::addInvalid() {
    GxDbStub& stub = mStubs.append();
    stub.invalid = true;
    return GxDbObjectId(&stub);
}

GxDbObjectId ObjectTable::nameStub(GxDbStub& stub, std::string_view name) {
    const GxDbObjectId id(&stub);
    if (name.empty())
        return id;
    mNames.emplace(&stub, MallocString(name));
    mIdsByName.emplace(MallocString(name), id);
    return id;
}

GxDbStub& ObjectTable::stubOf(GxDbObjectId id) const {
    if (!mStubs.contains(id.stub()))
        throw std::invalid_argument("the id is not one of this database");
    return *id.stub();
}

std::string_view ObjectTable::nameOf(GxDbObjectId id) const {
    const auto found = mNames.find(id.stub());
    return found == mNames.end() ? std::string_view() : std::string_view(found->second);
}

GxDbObjectId ObjectTable::findByName(std::string_view name) const {
    const auto found = mIdsByName.find(MallocString(name));
    return found == mIdsByName.end() ? GxDbObjectId() : found->second;
}

void ObjectTable::forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject) {
    GxDbStub& stub = stubOf(id);
    mForcedStatuses[&stub] = ForcedStatus{status, yieldsObject};
    stub.hasForcedStatus = true;
}

void ObjectTable::clearForcedStatus(GxDbObjectId id) {
    GxDbStub& stub = stubOf(id);
    mForcedStatuses.erase(&stub);
    stub.hasForcedStatus = false;
}

void ObjectTable::clearForcedStatuses() {
    for (auto& [stub, forced] : mForcedStatuses)
        stub->hasForcedStatus = false;
    mForcedStatuses.clear();
}

GxErrorStatus ObjectTable::open(GxDbEntity*& entity, GxDbStub& stub, GxDb::OpenMode mode,
                                bool openErased) const {
    if (stub.hasForcedStatus)
        return openForced(entity, stub);
    if (stub.invalid)
        return kInvalidId;
    if (stub.erased && !openErased)
        return kErasedObject;
    return openObject(entity, stub, mode);
}

GxErrorStatus ObjectTable::openForced(GxDbEntity*& entity, GxDbStub& stub) const {
    const ForcedStatus& forced = mForcedStatuses.at(&stub);
    if (forced.yieldsObject)
        openObject(entity, stub, GxDb::kForRead);
    return forced.status;
}

GxErrorStatus ObjectTable::openObject(GxDbEntity*& entity, GxDbStub& stub, GxDb::OpenMode mode) const {
    if (stub.hasFactory) {
        entity = mFactories.at(&stub)().release();
        return eOk;
    }
    if (stub.entity == nullptr)
        return kNotAnEntity;
    if (!stub.open(mode))
        return kOpenOtherwise;
    entity = stub.entity;
    return eOk;
}

} // namespace kvinmemory::detail
