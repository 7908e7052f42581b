// Vectors of several element types and allocators, and values for their elements.
#pragma once

#include "base/KvVector.h"
#include "platform/KvDatabase.h"
#include "tests/support/Ids.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kvtest {

struct Sample {
    int number = 0;
    double weight = 0;
};

inline bool operator==(const Sample& a, const Sample& b) {
    return a.number == b.number && a.weight == b.weight;
}

// Makes value number n of an element type. Different numbers give different values.
template <class T>
struct ValueOf;

template <>
struct ValueOf<int> {
    static int number(int n) { return 100 + n; }
};

template <>
struct ValueOf<double> {
    static double number(int n) { return 0.5 + n; }
};

template <>
struct ValueOf<std::string> {
    // The string is too long for the buffer inside std::string. So each copy allocates memory.
    static std::string number(int n) {
        return "an element with memory of its own, number " + std::to_string(n);
    }
};

template <>
struct ValueOf<Sample> {
    static Sample number(int n) { return {n + 1, 0.25 * n}; }
};

template <>
struct ValueOf<GxDbObjectId> {
    static GxDbObjectId number(int n) { return id(static_cast<unsigned long>(n) + 1); }
};

template <class Vector>
struct ElementOf;

template <class T, class Allocator, class RefCounter, class GrowPolicy>
struct ElementOf<KvVector<T, Allocator, RefCounter, GrowPolicy>> {
    using type = T;
    using allocator = Allocator;
};

template <class Vector>
using Element = typename ElementOf<Vector>::type;

template <class Vector>
Element<Vector> value(int n) {
    return ValueOf<Element<Vector>>::number(n);
}

// The vector types of a typed test, and their names in the output of the test.
using VectorTypes = ::testing::Types<KvVector<int>, KvVector<std::string>, KvVector<GxDbObjectId>>;

struct VectorTypeName {
    template <class Vector>
    static std::string GetName(int index) {
        static const char* const kNames[] = {"Int", "String", "ObjectId"};
        return kNames[index];
    }
};

// Sets the elements from index `from` on to the values with the numbers first, first + 1, ...
template <class Vector>
void setValues(Vector& vector, int from, int first) {
    for (int i = from; i < vector.logicalLength(); ++i)
        vector.at(i) = value<Vector>(first + i - from);
}

// Returns a vector of the values with the numbers 0, 1, ... length - 1.
template <class Vector>
Vector filled(int length) {
    Vector vector;
    vector.setLogicalLength(length);
    setValues(vector, 0, 0);
    return vector;
}

// Returns the elements, without making the vector's block private.
template <class Vector>
std::vector<Element<Vector>> contents(const Vector& vector) {
    std::vector<Element<Vector>> elements;
    for (int i = 0; i < vector.logicalLength(); ++i)
        elements.push_back(vector.at(i));
    return elements;
}

// Returns the values with these numbers. Tests compare them with contents().
template <class Vector>
std::vector<Element<Vector>> values(const std::vector<int>& numbers) {
    std::vector<Element<Vector>> elements;
    for (const int n : numbers)
        elements.push_back(value<Vector>(n));
    return elements;
}

template <class Vector>
std::uint32_t shares(const Vector& vector) {
    return vector.data.block ? vector.data.block->refCount.load() : 0;
}

} // namespace kvtest
