// Lists all contenders whose packages are installed, and names the contenders whose packages are missing.
#pragma once

#include "bench/peers/LinkedList.h"
#include "bench/peers/SelectContext.h"
#include "bench/peers/VectorHash.h"
#ifdef KV_BENCH_BOOST
#include "bench/peers/MultiIndex.h"
#endif
#ifdef KV_BENCH_COLONY
#include "bench/peers/Colony.h"
#endif
#ifdef KV_BENCH_QT
#include "bench/peers/QtContainers.h"
#endif
#ifdef KV_BENCH_OCCT
#include "bench/peers/NCollection.h"
#endif

#include <string>

namespace kvbench {

// A `List` of the set classes of all contenders, such as List<SelectContext, VectorHash, LinkedList>.
template <template <class...> class List>
using ContendersIn = List<SelectContext, VectorHash,
#ifdef KV_BENCH_BOOST
                          MultiIndex,
#endif
#ifdef KV_BENCH_COLONY
                          Colony,
#endif
#ifdef KV_BENCH_QT
                          QtContainers,
#endif
#ifdef KV_BENCH_OCCT
                          NCollection,
#endif
                          LinkedList>;

// Returns the names of the contenders whose packages were not installed at build time, separated by commas.
inline std::string leftOut() {
    std::string names;
#ifndef KV_BENCH_BOOST
    names += ", Boost.MultiIndex";
#endif
#ifndef KV_BENCH_COLONY
    names += ", plf::colony+unordered_multimap";
#endif
#ifndef KV_BENCH_QT
    names += ", QList+QMultiHash";
#endif
#ifndef KV_BENCH_OCCT
    names += ", NCollection List+DataMap";
#endif
    return names.empty() ? names : names.substr(2);
}

} // namespace kvbench
