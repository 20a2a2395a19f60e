// Random: a small deterministic pseudo-random generator with two algorithms. Its numbers are
// stored by programs above the library, so every step is bit-exact and must stay so. It is no
// source of secure randomness.
#pragma once

#include <zq/Export.h>

namespace zq {

// A value with its state; belongs to one thread at a time.
class ZQ_API Random {
 public:
  // Only 0 and non-zero are told apart: any other value selects the mixed algorithm (the fixed
  // underlying type makes every int a valid value).
  enum EAlgorithm : int { ALGORITHM_SIMPLE = 0, ALGORITHM_MIXED = 1 };

  Random();  // state 0, simple
  explicit Random(EAlgorithm algorithm);
  Random(const unsigned int& seed, EAlgorithm algorithm);

  Random(const Random&) = default;
  Random(Random&&) = default;
  Random& operator=(const Random&) = default;
  Random& operator=(Random&&) = default;

  // State and algorithm both count.
  bool operator==(const Random& other) const;
  bool operator!=(const Random& other) const;

  const unsigned int& get() const { return m_value; }
  void set(const unsigned int& value) { m_value = value; }

  // Seeds from the present time in seconds and a process-wide call count, so two calls within
  // one second differ. Returns the new state.
  const unsigned int& create();
  // One step of the generator's algorithm; returns the new state.
  const unsigned int& random();
  // One simple step on the caller's state; returns `state`.
  static unsigned int& random(unsigned int& state);

  // Joins 15-bit pieces, one step each, until they cover `limit` (at most three pieces, 32 bits).
  // The result is not reduced to `limit`: r(100) may give up to 32767.
  unsigned int operator()(unsigned int limit);

 private:
  unsigned int m_value;
  EAlgorithm m_algorithm;
};

}  // namespace zq
