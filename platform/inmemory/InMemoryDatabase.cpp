// Drawing objects and their database. KvDatabase.cpp has the switches and the logs.
#include "platform/inmemory/InMemoryDatabase.h"

#include "platform/inmemory/detail/ObjectTable.h"
#include "platform/inmemory/detail/SubentId.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace kvinmemory {

// ---- Drawing objects

PathContents contentsOf(const GxDbFullSubentPath& path) {
    const GxArray<GxDbObjectId>& ids = path.objectIds();
    PathContents contents;
    contents.ids.reserve(static_cast<std::size_t>(ids.logicalLength()));
    for (int i = 0; i < ids.logicalLength(); ++i)
        contents.ids.push_back(ids[i]);
    contents.part = path.subentId();
    return contents;
}

bool operator==(const PathContents& a, const PathContents& b) {
    return detail::isEqual(a.part, b.part) && a.ids == b.ids;
}

bool operator!=(const PathContents& a, const PathContents& b) {
    return !(a == b);
}

Entity::~Entity() = default;

void* Entity::operator new(std::size_t bytes) {
    return detail::allocateObject(bytes);
}

void Entity::operator delete(void* memory) noexcept {
    detail::deallocateObject(memory);
}

GxErrorStatus Entity::highlight(const GxDbFullSubentPath& path, bool entityFlag) const {
    const GxErrorStatus status = GxDbEntity::highlight(path, entityFlag);
    mHighlights.push_back({contentsOf(path), entityFlag});
    return status;
}

GxErrorStatus Entity::unhighlight(const GxDbFullSubentPath& path, bool entityFlag) const {
    const GxErrorStatus status = GxDbEntity::unhighlight(path, entityFlag);
    const PathContents contents = contentsOf(path);
    const auto newest = std::find_if(mHighlights.rbegin(), mHighlights.rend(),
                                     [&](const Highlight& one) { return one.path == contents; });
    if (newest != mHighlights.rend())
        mHighlights.erase(std::next(newest).base());
    return status;
}

const MallocVector<Entity::Highlight>& Entity::highlights() const noexcept {
    return mHighlights;
}

NonEntity::~NonEntity() = default;

void* NonEntity::operator new(std::size_t bytes) {
    return detail::allocateObject(bytes);
}

void NonEntity::operator delete(void* memory) noexcept {
    detail::deallocateObject(memory);
}

// ---- The database

Database::Database(std::size_t capacity) : mTable(new detail::ObjectTable(capacity)) {}

Database::~Database() = default;

GxDbObjectId Database::add(std::unique_ptr<GxDbObject> object, std::string_view name) {
    return mTable->add(std::move(object), name);
}

GxDbObjectId Database::addEntity(std::string_view name) {
    return add(std::make_unique<Entity>(), name);
}

GxDbObjectId Database::addNonResident(Factory factory, std::string_view name) {
    return mTable->addNonResident(std::move(factory), name);
}

GxDbObjectId Database::addNonResident(std::string_view name) {
    return addNonResident([] { return std::make_unique<Entity>(); }, name);
}

GxDbObjectId Database::addInvalid() {
    return mTable->addInvalid();
}

std::size_t Database::size() const noexcept {
    return mTable->stubs().size();
}

GxDbObjectId Database::idAt(std::size_t i) const {
    if (i >= size())
        throw std::out_of_range("the database has issued fewer ids");
    return GxDbObjectId(&mTable->stubs()[i]);
}

std::uint64_t Database::handleOf(GxDbObjectId id) const noexcept {
    const detail::StubArray& stubs = mTable->stubs();
    return stubs.contains(id.stub()) ? stubs.indexOf(id.stub()) + 1 : 0;
}

GxDbObjectId Database::findByHandle(std::uint64_t handle) const noexcept {
    if (handle == 0 || handle > size())
        return GxDbObjectId();
    return GxDbObjectId(&mTable->stubs()[handle - 1]);
}

std::string_view Database::nameOf(GxDbObjectId id) const {
    return mTable->nameOf(id);
}

GxDbObjectId Database::findByName(std::string_view name) const {
    return mTable->findByName(name);
}

GxDbObject* Database::object(GxDbObjectId id) const noexcept {
    return mTable->stubs().contains(id.stub()) ? id.stub()->object : nullptr;
}

GxDbEntity* Database::entity(GxDbObjectId id) const noexcept {
    return mTable->stubs().contains(id.stub()) ? id.stub()->entity : nullptr;
}

void Database::erase(GxDbObjectId id) {
    mTable->stubOf(id).erased = true;
}

void Database::unerase(GxDbObjectId id) {
    mTable->stubOf(id).erased = false;
}

bool Database::isErased(GxDbObjectId id) const {
    return mTable->stubOf(id).erased;
}

void Database::invalidate(GxDbObjectId id) {
    mTable->stubOf(id).invalid = true;
}

void Database::forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject) {
    mTable->forceOpenStatus(id, status, yieldsObject);
}

void Database::allowOpen(GxDbObjectId id) {
    mTable->clearForcedStatus(id);
}

int Database::openCount(GxDbObjectId id) const {
    return mTable->stubOf(id).openCount();
}

} // namespace kvinmemory
