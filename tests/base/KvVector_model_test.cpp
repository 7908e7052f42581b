// Random operations on several vectors that share blocks, and on their models. The model of a vector is a
// shared pointer to the model of a block. Vectors that share a block have the same pointer.
#include "base/KvVector.h"

#include "tests/base/ContainerTest.h"
#include "tests/base/Invariants.h"
#include "tests/base/VectorValues.h"
#include "tests/support/Ids.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

struct ModelBlock {
    std::vector<int> numbers; // element i is value<Vector>(numbers[i])
    int capacity = 0;
    int growLength = 8;
};

using ModelVector = std::shared_ptr<ModelBlock>;

constexpr std::size_t kVectors = 6;
constexpr int kLongest = 40;

template <class Vector>
class Actors {
public:
    explicit Actors(unsigned seed) : mRandom(seed), mEmpty(std::make_shared<ModelBlock>()) {
        mModels.fill(mEmpty);
    }

    void step() {
        const std::size_t actor = below(kVectors);
        switch (below(12)) {
        case 0:
        case 1:
        case 2:
            assign(actor, below(kVectors));
            break;
        case 3:
        case 4:
            setLength(actor, static_cast<int>(below(kLongest)));
            break;
        case 5:
            setLength(actor, length(actor) + 1);
            break;
        case 6:
            copyBeforeWrite(actor, static_cast<unsigned>(below(12)));
            break;
        case 7:
            reset(actor);
            break;
        case 8:
            if (mModels[actor] != mEmpty)
                setGrowLength(actor, static_cast<int>(below(12)));
            break;
        case 9:
        case 10:
            if (length(actor) > 0)
                write(actor, static_cast<int>(below(static_cast<std::size_t>(length(actor)))));
            break;
        default:
            if (length(actor) > 0)
                removeAt(actor, static_cast<int>(below(static_cast<std::size_t>(length(actor)))));
            break;
        }
    }

    void check() const {
        for (std::size_t i = 0; i < kVectors; ++i) {
            SCOPED_TRACE(::testing::Message() << "vector " << i);
            const Vector& vector = mVectors[i];
            const ModelVector& model = mModels[i];
            ASSERT_TRUE(kvtest::invariants(vector));
            ASSERT_EQ(kvtest::contents(vector), kvtest::values<Vector>(model->numbers));
            ASSERT_EQ(vector.physicalLength(), model->capacity);
            ASSERT_EQ(vector.growLength(), model->growLength);
            ASSERT_EQ(kvtest::shares(vector), expectedShares(model));
            for (std::size_t j = 0; j < i; ++j)
                ASSERT_EQ(vector.data.block == mVectors[j].data.block, model == mModels[j]);
        }
    }

private:
    std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(mRandom);
    }

    int length(std::size_t actor) const { return static_cast<int>(mModels[actor]->numbers.size()); }

    // Returns the reference count that the block must have. The empty block also has references from outside
    // this class, for example from the platform. The number of these references does not change.
    std::uint32_t expectedShares(const ModelVector& model) const {
        const auto own = static_cast<std::uint32_t>(std::count(mModels.begin(), mModels.end(), model));
        return model == mEmpty ? own + mSharesElsewhere : own;
    }

    bool isShared(const ModelVector& model) const { return expectedShares(model) >= 2; }

    void assign(std::size_t target, std::size_t source) {
        mVectors[target] = mVectors[source];
        mModels[target] = mModels[source];
    }

    void reset(std::size_t actor) {
        mVectors[actor] = Vector();
        mModels[actor] = mEmpty;
    }

    void makePrivate(std::size_t actor, std::size_t kept) {
        const ModelVector old = mModels[actor];
        if (!isShared(old))
            return;
        auto fresh = std::make_shared<ModelBlock>(*old);
        if (kept != 0 && kept < fresh->numbers.size())
            fresh->numbers.resize(kept);
        fresh->capacity = old->capacity == 0 ? 16 : old->capacity;
        mModels[actor] = fresh;
    }

    void copyBeforeWrite(std::size_t actor, unsigned kept) {
        mVectors[actor].copyBeforeWrite(kept);
        makePrivate(actor, kept);
    }

    // Sets the length of a vector and of its model. Gives each new element a value with a new number.
    void setLength(std::size_t actor, int n) {
        const int before = length(actor);
        mVectors[actor].setLogicalLength(n);
        if (n == before)
            return;
        if (n <= mModels[actor]->capacity)
            makePrivate(actor, 0);
        else
            replaceByLarger(actor, n);
        mModels[actor]->numbers.resize(static_cast<std::size_t>(n), -1);
        for (int i = before; i < n; ++i)
            write(actor, i);
    }

    void replaceByLarger(std::size_t actor, int n) {
        auto fresh = std::make_shared<ModelBlock>(*mModels[actor]);
        fresh->capacity = std::max(static_cast<int>(fresh->numbers.size()) + fresh->growLength, n);
        mModels[actor] = fresh;
    }

    void setGrowLength(std::size_t actor, int growLength) {
        mVectors[actor].data.block->growLength = growLength;
        mModels[actor]->growLength = growLength;
    }

    void write(std::size_t actor, int i) {
        mVectors[actor].at(i) = kvtest::value<Vector>(mNextNumber);
        makePrivate(actor, 0);
        mModels[actor]->numbers[static_cast<std::size_t>(i)] = mNextNumber++;
    }

    void removeAt(std::size_t actor, int i) {
        mVectors[actor].removeAt(i);
        makePrivate(actor, 0);
        auto& numbers = mModels[actor]->numbers;
        numbers.erase(numbers.begin() + i);
    }

    const std::uint32_t mSharesElsewhere = kvtest::emptyBlockCount();
    std::mt19937 mRandom;
    ModelVector mEmpty;
    std::array<Vector, kVectors> mVectors;
    std::array<ModelVector, kVectors> mModels;
    int mNextNumber = 0;
};

template <class Vector>
class KvVectorModelOf : public kvtest::ContainerTest {};

TYPED_TEST_SUITE(KvVectorModelOf, kvtest::VectorTypes, kvtest::VectorTypeName);

TYPED_TEST(KvVectorModelOf, SharingVectorsAgreeWithTheirModelAfterEveryStep) {
    for (const unsigned seed : {1u, 2u, 3u, 5u}) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        Actors<TypeParam> actors(seed);
        for (int i = 0; i < 600; ++i) {
            SCOPED_TRACE(::testing::Message() << "step " << i);
            actors.step();
            ASSERT_NO_FATAL_FAILURE(actors.check());
        }
    }
}

} // namespace
