// Drawing objects and the database that applications use; see InMemoryDatabase.h.
#include "platform/inmemory/DatabaseBooks.h"
#include "platform/inmemory/InMemoryDatabase.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace kvinmemory {

// ---- Drawing objects

namespace {

void* bookMemory(std::size_t bytes) {
    return BookAllocator<char>().allocate(bytes);
}

void freeBookMemory(void* memory) noexcept {
    BookAllocator<char>().deallocate(static_cast<char*>(memory), 0);
}

} // namespace

bool isSamePart(const GxDbSubentId& a, const GxDbSubentId& b) noexcept {
    return a.type == b.type && a.index == b.index && a.extra == b.extra;
}

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
    return isSamePart(a.part, b.part) && a.ids == b.ids;
}

bool operator!=(const PathContents& a, const PathContents& b) {
    return !(a == b);
}

Entity::~Entity() = default;

void* Entity::operator new(std::size_t bytes) {
    return bookMemory(bytes);
}

void Entity::operator delete(void* memory) noexcept {
    freeBookMemory(memory);
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

const BookVector<Entity::Highlight>& Entity::highlights() const noexcept {
    return mHighlights;
}

NonEntity::~NonEntity() = default;

void* NonEntity::operator new(std::size_t bytes) {
    return bookMemory(bytes);
}

void NonEntity::operator delete(void* memory) noexcept {
    freeBookMemory(memory);
}

// ---- The database

Database::Database(std::size_t capacity) : mBooks(new Books(capacity)) {}

Database::~Database() = default;

GxDbObjectId Database::add(std::unique_ptr<GxDbObject> object, std::string_view name) {
    return mBooks->add(std::move(object), name);
}

GxDbObjectId Database::addEntity(std::string_view name) {
    return add(std::make_unique<Entity>(), name);
}

GxDbObjectId Database::addNonResident(Factory factory, std::string_view name) {
    return mBooks->addNonResident(std::move(factory), name);
}

GxDbObjectId Database::addNonResident(std::string_view name) {
    return addNonResident([] { return std::make_unique<Entity>(); }, name);
}

GxDbObjectId Database::addInvalid() {
    return mBooks->addInvalid();
}

std::size_t Database::size() const noexcept {
    return mBooks->stubs().size();
}

GxDbObjectId Database::idAt(std::size_t i) const {
    if (i >= size())
        throw std::out_of_range("the database has issued fewer ids");
    return GxDbObjectId(&mBooks->stubs()[i]);
}

std::uint64_t Database::handleOf(GxDbObjectId id) const noexcept {
    const Stubs& stubs = mBooks->stubs();
    return stubs.contains(id.stub()) ? stubs.indexOf(id.stub()) + 1 : 0;
}

GxDbObjectId Database::findByHandle(std::uint64_t handle) const noexcept {
    if (handle == 0 || handle > size())
        return GxDbObjectId();
    return GxDbObjectId(&mBooks->stubs()[handle - 1]);
}

std::string_view Database::nameOf(GxDbObjectId id) const {
    return mBooks->nameOf(id);
}

GxDbObjectId Database::findByName(std::string_view name) const {
    return mBooks->findByName(name);
}

GxDbObject* Database::object(GxDbObjectId id) const noexcept {
    return mBooks->stubs().contains(id.stub()) ? id.stub()->object : nullptr;
}

GxDbEntity* Database::entity(GxDbObjectId id) const noexcept {
    return mBooks->stubs().contains(id.stub()) ? id.stub()->entity : nullptr;
}

void Database::erase(GxDbObjectId id) {
    mBooks->stubOf(id).erased = true;
}

void Database::unerase(GxDbObjectId id) {
    mBooks->stubOf(id).erased = false;
}

bool Database::isErased(GxDbObjectId id) const {
    return mBooks->stubOf(id).erased;
}

void Database::invalidate(GxDbObjectId id) {
    mBooks->stubOf(id).invalid = true;
}

void Database::forceOpenStatus(GxDbObjectId id, GxErrorStatus status, bool yieldsObject) {
    mBooks->forceOpenStatus(id, status, yieldsObject);
}

void Database::allowOpen(GxDbObjectId id) {
    mBooks->allowOpen(id);
}

int Database::openCount(GxDbObjectId id) const {
    const int opened = mBooks->stubOf(id).opened.load();
    return opened == GxDbStub::kWriter ? 1 : opened;
}

} // namespace kvinmemory
