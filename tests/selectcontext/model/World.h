// The ids, nested paths, infos and sub-entity paths of a random test. Each of them exists twice: for the
// library and for the model.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "selectcontext/KvSelectContext.h"
#include "tests/selectcontext/model/Model.h"
#include "tests/selectcontext/model/Operation.h"
#include "tests/selectcontext/model/WorldNumbers.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kvmodel {

// What a callback of the application throws.
struct CallbackFailure {};

class World : public WorldNumbers {
public:
    explicit World(const Profile& profile);
    World(const World&) = delete;
    World& operator=(const World&) = delete;
    ~World();

    const IdRules& rules() const { return mRules; }
    void makeEqual(int a, int b);

    // Returns the id with this number. 0 is the null id.
    const GxDbObjectId& id(int number) const { return mIds[static_cast<std::size_t>(number)]; }
    int numberOf(const GxDbObjectId& id) const;
    bool opens(int number) const;

    // Returns the last id of the path. Returns nothing if there is none, or if it is null or invalid.
    std::optional<int> entityOf(const SubentPath& path) const;

    // Return the nested path with this number. -1 gives null.
    const KvVector<GxDbObjectId>* nestedPath(int number) const;
    const Vector<int>* modelNestedPath(int number) const;

    // makeInfo() makes the info with this number in memory from _kvMalloc. modelInfo() makes the model of
    // that info. -1 gives none.
    static GxapSelectedEntInfo* makeInfo(int number);
    static std::optional<Info> modelInfo(int number);

    const GxDbFullSubentPath& subentPath(int number) const {
        return *mSubentPaths[static_cast<std::size_t>(number)];
    }
    const SubentPath& modelSubentPath(int number) const {
        return mModelSubentPaths[static_cast<std::size_t>(number)];
    }

    static GxGeMatrix3d matrix(int number);

    // Returns the highlight calls since takeHighlightCalls() was last called, one line each: "+" or "-" for
    // highlighting on or off, the flag, and the address of the path.
    std::vector<std::string> takeHighlightCalls();

    // Makes the nth highlight call from now on throw a CallbackFailure. 0: none.
    static void throwAtHighlight(int nth);
    static std::string highlightCall(bool on, bool flag, const void* path);

private:
    void addNestedPath(const std::vector<int>& ids);
    void addPathsOfRuns();
    void addSubentPath(const SubentPath& path);

    kvinmemory::Database mDatabase;
    std::vector<GxDbObjectId> mIds;
    IdRules mRules;
    int mInvalid;
    int mErased;
    std::vector<KvVector<GxDbObjectId>> mNestedPaths;
    std::vector<Vector<int>> mModelNestedPaths;
    std::vector<std::unique_ptr<GxDbFullSubentPath>> mSubentPaths;
    std::vector<SubentPath> mModelSubentPaths;
};

} // namespace kvmodel
