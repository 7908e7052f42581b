// The library's classes without inline functions: every member function is only declared. The classes have
// the same fields as in the public headers, except that SSetData has only the first field.
#pragma once

#include "base/GxArray.h"
#include "base/KvVector.h"
#include "platform/KvDatabase.h"

#include <atomic>
#include <cstdint>

class GxapSelectedEntInfo;
struct selected_entity;

class GxapSelectSet {
public:
    class SSetData {
    public:
        void addRef() const;
        void delRef() const;

        mutable std::atomic<std::uint32_t> refCount;
    };

    class ConstIterator {
    public:
        ConstIterator(const ConstIterator& other);
        ~ConstIterator();
        bool isDone() const;
        bool step(bool forward = true) const;
        selected_entity* get() const;
        GxDbObjectId mainEntId() const;
        GxDbObjectId subEntId() const;
        long gsMarker() const;

        const GxapSelectSet* set;
        mutable std::int32_t index;
        void* truckerIterator;
    };

    explicit GxapSelectSet(bool ignored = true);
    GxapSelectSet(const GxapSelectSet& other);
    GxapSelectSet& operator=(const GxapSelectSet& other);
    ~GxapSelectSet();

    ConstIterator begin() const;
    selected_entity* getAt(int index) const;

    mutable SSetData* sharedData;
    mutable GxArray<ConstIterator*> iterators;
    std::int64_t lispRefCnt;
};

class GxapSSetWriteAccessor : public GxapSelectSet {
public:
    using GxapSelectSet::GxapSelectSet;

    void select(const GxDbObjectId& mainId, const GxDbObjectId& subId, long gsMarker,
                GxapSelectedEntInfo* entInfo, const KvVector<GxDbObjectId>* nestedPath);
};
