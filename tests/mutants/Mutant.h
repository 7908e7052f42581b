// The switch between the mutants of a build. scripts/trust-mutants writes calls of it into a copied tree.
#pragma once

#include <type_traits>

namespace kvmutant {

constexpr unsigned kMostMutants = 1 << 16;

// 0: the mutant is off. 1: the program is this mutant. 2: the program notes whether it reaches the mutant.
extern "C" unsigned char kvMutantStates[kMostMutants];
// Returns whether the program is this mutant. Notes that the mutant was reached.
extern "C" [[gnu::cold]] bool kvReachMutant(unsigned mutant) noexcept;

// Mutants of memory orders are judged in a build that has no other mutants: the thread sanitizer is slow.
#ifdef KV_MUTANTS_OF_ORDERS
constexpr bool on(unsigned /*mutant*/) noexcept {
    return false;
}
#else
inline bool on(unsigned mutant) noexcept {
    return __builtin_expect(kvMutantStates[mutant], 0) && kvReachMutant(mutant);
}
#endif

inline bool onOrder(unsigned mutant) noexcept {
    return __builtin_expect(kvMutantStates[mutant], 0) && kvReachMutant(mutant);
}

// Returns another value of the same type: the opposite, the next number, or what the type has as its default.
template <class T>
std::decay_t<T> other(const T& value) {
    using Value = std::decay_t<T>;
    if constexpr (std::is_same_v<Value, bool>)
        return !value;
    else if constexpr (std::is_integral_v<Value>)
        return static_cast<Value>(value + 1);
    else
        return Value();
}

} // namespace kvmutant
