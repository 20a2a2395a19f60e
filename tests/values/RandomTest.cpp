#include <zq/values/Random.h>

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace {

using zq::Random;

std::vector<unsigned int> steps(Random r, int n) {
  std::vector<unsigned int> out;
  for (int i = 0; i < n; ++i) out.push_back(r.random());
  return out;
}

// The first simple step from 1 by hand: 12345 - 0x3E39B193 = 0xC1C67EA6 in 32 bits; bits 16..30
// of that are 0x41C6 = 16838.
TEST(RandomTest, SimpleSequencesAreBitExact) {
  EXPECT_EQ((std::vector<unsigned int>{16838, 14666, 10953, 11665, 7451}),
            steps(Random(1u, Random::ALGORITHM_SIMPLE), 5));
  EXPECT_EQ((std::vector<unsigned int>{19081, 1483, 1992, 20242, 21029}),
            steps(Random(42u, Random::ALGORITHM_SIMPLE), 5));
  EXPECT_EQ((std::vector<unsigned int>{7169, 29274, 28324, 22717, 14941}),
            steps(Random(0xDEADBEEFu, Random::ALGORITHM_SIMPLE), 5));
  // Zero is a fixed point of the simple step.
  EXPECT_EQ((std::vector<unsigned int>{0, 0}), steps(Random(), 2));

  // The static step is the simple one, on the caller's state.
  unsigned int state = 42;
  unsigned int& same = Random::random(state);
  EXPECT_EQ(&state, &same);
  EXPECT_EQ(19081u, state);
  EXPECT_EQ(1483u, Random::random(state));
}

TEST(RandomTest, MixedSequencesAreBitExact) {
  EXPECT_EQ((std::vector<unsigned int>{0x0732D37Fu, 0x2221CC6Au, 0x3001DED8u, 0xE0032109u}),
            steps(Random(1u, Random::ALGORITHM_MIXED), 4));
  EXPECT_EQ((std::vector<unsigned int>{0x104E2E78u, 0x70007EE7u, 0x1FFAC0ABu, 0x2A170385u}),
            steps(Random(42u, Random::ALGORITHM_MIXED), 4));
  // Any non-zero algorithm value selects the mixed one.
  EXPECT_EQ(steps(Random(42u, Random::ALGORITHM_MIXED), 3), steps(Random(42u, static_cast<Random::EAlgorithm>(5)), 3));
}

TEST(RandomTest, SimpleStateLivesIn15Bits) {
  for (unsigned int seed : {1u, 0x8000u, 0xFFFFFFFFu, 0x12345678u}) {
    Random r(seed, Random::ALGORITHM_SIMPLE);
    const unsigned int first = r.random();
    EXPECT_LT(first, 32768u) << seed;
    // Any seed with the same 15 bits continues alike.
    Random other(first, Random::ALGORITHM_SIMPLE);
    EXPECT_EQ(steps(r, 10), steps(other, 10));
  }
}

TEST(RandomTest, CallJoins15BitPieces) {
  Random r(42u, Random::ALGORITHM_SIMPLE);
  EXPECT_EQ(19081u, r(100));  // not reduced to the limit
  EXPECT_EQ(19081u, Random(42u, Random::ALGORITHM_SIMPLE)(32767));
  EXPECT_EQ((19081u << 15) + 1483u, Random(42u, Random::ALGORITHM_SIMPLE)(40000));
  EXPECT_EQ((19081u << 15) + 1483u, Random(42u, Random::ALGORITHM_SIMPLE)(0x3FFFFFFFu));
  // Three pieces at most; the third shifts the first out of the top.
  Random three(42u, Random::ALGORITHM_SIMPLE);
  EXPECT_EQ(0x42E587C8u, three(0xFFFFFFFFu));
  EXPECT_EQ(1992u, three.get());
  // The mixed algorithm's pieces are the low 15 bits of each step.
  EXPECT_EQ(0x2DD72D12u, Random(7u, Random::ALGORITHM_MIXED)(0x40000000u));
}

TEST(RandomTest, ValueOperations) {
  Random a(5u, Random::ALGORITHM_SIMPLE);
  const Random b(5u, Random::ALGORITHM_SIMPLE);
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != Random(5u, Random::ALGORITHM_SIMPLE));
  EXPECT_TRUE(a != Random(5u, Random::ALGORITHM_MIXED));  // the algorithm counts
  EXPECT_TRUE(a != Random(6u, Random::ALGORITHM_SIMPLE));
  Random c(Random::ALGORITHM_MIXED);
  EXPECT_EQ(0u, c.get());
  c = a;
  EXPECT_TRUE(c == a);
  c.set(77);
  EXPECT_EQ(77u, c.get());
  EXPECT_EQ(&c.get(), &c.random());
}

TEST(RandomTest, CreateSeedsDifferentlyEachCall) {
  std::set<unsigned int> seen;
  for (int i = 0; i < 12; ++i) {
    Random r(Random::ALGORITHM_SIMPLE);
    const unsigned int& s = r.create();
    EXPECT_EQ(&r.get(), &s);
    seen.insert(s);
  }
  // Steps squeeze some seeds into 15 bits, so allow a rare collision there, not a pattern.
  EXPECT_GE(seen.size(), 10u);
}

}  // namespace
