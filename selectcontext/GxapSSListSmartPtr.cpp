#include "selectcontext/GxapSSListSmartPtr.h"

#include <memory>
#include <utility>

GxapSSListSmartPtr::GxapSSListSmartPtr() : list(nullptr), refCount(nullptr) {
    auto fresh = std::make_unique<GxapSelectSetList>();
    refCount = new std::int32_t(1);
    list = fresh.release();
}

GxapSSListSmartPtr::GxapSSListSmartPtr(const GxapSSListSmartPtr& other) : GxapSSListSmartPtr(&other) {}

GxapSSListSmartPtr::GxapSSListSmartPtr(const GxapSSListSmartPtr* other) : list(nullptr), refCount(nullptr) {
    if (other)
        assign(*other);
}

GxapSSListSmartPtr& GxapSSListSmartPtr::assign(const GxapSSListSmartPtr& other) {
    if (this == &other)
        return *this;
    release();
    list = other.list;
    refCount = other.refCount;
    if (list && refCount)
        ++*refCount;
    return *this;
}

GxapSSListSmartPtr& GxapSSListSmartPtr::operator=(const GxapSSListSmartPtr& other) {
    return assign(other);
}

void GxapSSListSmartPtr::release() {
    GxapSelectSetList* const doomedList = std::exchange(list, nullptr);
    std::int32_t* const count = std::exchange(refCount, nullptr);
    if (!count || --*count != 0)
        return;
    delete doomedList;
    delete count;
}

GxapSSListSmartPtr::~GxapSSListSmartPtr() {
    release();
}
