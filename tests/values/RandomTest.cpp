#include <zq/values/Random.h>

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace {

using zq::Random;
const Random::EAlgorithm kSimple = Random::ALGORITHM_SIMPLE, kMixed = Random::ALGORITHM_MIXED;

std::vector<unsigned int> steps(Random r, int n) {
  std::vector<unsigned int> out;
  out.reserve(n);
  for (int i = 0; i < n; ++i) out.push_back(r.random());
  return out;
}

// Stored values depend on these. By hand, the first simple step from 1:
// 12345 - 0x3E39B193 = 0xC1C67EA6 in 32 bits; bits 16..30 of that are 0x41C6 = 16838.
TEST(RandomTest, SequencesAreBitExact) {
  using V = std::vector<unsigned int>;
  EXPECT_EQ((V{16838, 14666, 10953, 11665, 7451}), steps(Random(1u, kSimple), 5));
  EXPECT_EQ((V{19081, 1483, 1992, 20242, 21029}), steps(Random(42u, kSimple), 5));
  EXPECT_EQ((V{0, 0}), steps(Random(), 2));  // zero is a fixed point
  EXPECT_EQ((V{0x0732D37Fu, 0x2221CC6Au, 0x3001DED8u, 0xE0032109u}), steps(Random(1u, kMixed), 4));
  EXPECT_EQ((V{0x104E2E78u, 0x70007EE7u, 0x1FFAC0ABu, 0x2A170385u}), steps(Random(42u, kMixed), 4));
  EXPECT_EQ(steps(Random(42u, kMixed), 3), steps(Random(42u, static_cast<Random::EAlgorithm>(5)), 3));
  EXPECT_TRUE(Random(5u, kSimple) == Random(5u, kSimple));
  EXPECT_TRUE(Random(5u, kSimple) != Random(5u, kMixed) && Random(5u, kSimple) != Random(6u, kSimple));

  // The static step is the simple one, on the caller's state.
  unsigned int state = 42;
  EXPECT_EQ(&state, &Random::random(state));
  EXPECT_EQ(19081u, state);
}

TEST(RandomTest, SimpleStateLivesIn15Bits) {
  for (unsigned int seed : {1u, 0x8000u, 0xFFFFFFFFu, 0x12345678u}) {
    Random r(seed, kSimple);
    const unsigned int first = r.random();
    EXPECT_LT(first, 32768u);
    EXPECT_EQ(steps(r, 10), steps(Random(first, kSimple), 10));
  }
}

TEST(RandomTest, CallJoins15BitPieces) {
  EXPECT_EQ(19081u, Random(42u, kSimple)(100));  // not reduced to the limit
  EXPECT_EQ(19081u, Random(42u, kSimple)(32767));
  EXPECT_EQ((19081u << 15) + 1483u, Random(42u, kSimple)(32768));
  // Three pieces at most; the third shifts the first out of the top.
  Random three(42u, kSimple);
  EXPECT_EQ(0x42E587C8u, three(0xFFFFFFFFu));
  EXPECT_EQ(1992u, three.get());
  // The mixed algorithm's pieces are the low 15 bits of each step.
  EXPECT_EQ(0x2DD72D12u, Random(7u, kMixed)(0x40000000u));
}

TEST(RandomTest, CreateSeedsDifferentlyEachCall) {
  std::set<unsigned int> seen;
  for (int i = 0; i < 12; ++i) seen.insert(Random(kSimple).create());
  // Steps squeeze some seeds into 15 bits: a rare collision, not a pattern.
  EXPECT_GE(seen.size(), 10u);
}

}  // namespace
