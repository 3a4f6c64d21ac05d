// The random generator, tolerances and comparisons of numbers.
#include <gtest/gtest.h>
#include <kalmora/helpers.hpp>

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

constexpr std::int64_t modulus = 2147483647;
constexpr std::int64_t seed_mask = 123495867;
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

// The generator without Schrage's detour.
std::int64_t next_state(std::int64_t state) { return state * 69621 % modulus; }

float number_of(std::int64_t state) {
  return static_cast<float>(static_cast<double>(state) * 4.656612875245797e-10);
}

float with_low_bits(float value, std::uint32_t mask, bool set) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  return std::bit_cast<float>(set ? bits | mask : bits & ~mask);
}

TEST(RandomDraw, FollowsTheMultiplicativeSequence) {
  std::int64_t seed = 0;
  std::int64_t state = seed_mask;
  for (int i = 0; i < 100000; ++i) {
    state = next_state(state);
    ASSERT_EQ(erand0(&seed), number_of(state)) << i;
    ASSERT_EQ(seed, state ^ seed_mask) << i;
  }
}

TEST(RandomDraw, RepeatsFromTheSameSeed) {
  std::int64_t first = 4711;
  std::int64_t second = 4711;
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(erand0(&first), erand0(&second));
}

TEST(RandomDraw, StaysAtZeroWhenTheStateIsZero) {
  std::int64_t seed = seed_mask;
  EXPECT_EQ(erand0(&seed), 0.0f);
  EXPECT_EQ(seed, seed_mask);
}

TEST(RandomDraw, RoundsTheLargestStatesUpToOne) {
  // The state before the largest one: its product with the multiplier leaves modulus - 1.
  std::int64_t before = 1;
  for (std::int64_t power = modulus - 2, base = 69621; power > 0; power /= 2) {
    if (power % 2 == 1) before = before * base % modulus;
    base = base * base % modulus;
  }
  std::int64_t seed = ((modulus - before) % modulus) ^ seed_mask;
  EXPECT_EQ(erand0(&seed), 1.0f);
  EXPECT_EQ(seed ^ seed_mask, modulus - 1);
}

TEST(RandomDraw, RoundsExactlySixtyFourStatesUpToOne) {
  int rounded = 0;
  for (std::int64_t state = modulus - 1000; state < modulus; ++state) {
    rounded += number_of(state) == 1.0f;
  }
  EXPECT_EQ(rounded, 64);
}

TEST(RandomDraw, TakesSeedsOfTheWholeSixtyFourBits) {
  for (const auto start : {std::numeric_limits<std::int64_t>::min(), std::int64_t{-1},
                           std::numeric_limits<std::int64_t>::max()}) {
    std::int64_t seed = start;
    const std::int64_t state = start ^ seed_mask;
    const std::int64_t k = state / 30845;
    std::int64_t expected = 69621 * (state - k * 30845) - 23902 * k;
    if (expected < 0) expected += modulus;
    EXPECT_EQ(erand0(&seed), number_of(expected));
    EXPECT_EQ(seed, expected ^ seed_mask);
  }
}

TEST(Tolerance, IsOneUnitInTheLastPlaceForOneBit) {
  EXPECT_EQ(kal_flt_tolerance(1.0f, 1, 1), std::nextafter(1.0f, 2.0f) - 1.0f);
  EXPECT_EQ(kal_dbl_tolerance(1.0, 1, 1), std::nextafter(1.0, 2.0) - 1.0);
}

TEST(Tolerance, TakesTheMaskOfThatManyLowBits) {
  const std::array<std::uint32_t, 8> masks{1, 3, 7, 15, 31, 63, 127, 255};
  for (int digits = 1; digits <= 8; ++digits) {
    const auto mask = masks[static_cast<std::size_t>(digits - 1)];
    EXPECT_EQ(kal_flt_tolerance(1.0f, digits, 1), std::ldexp(static_cast<float>(mask), -23));
    EXPECT_EQ(kal_dbl_tolerance(1.0, digits, 1), std::ldexp(static_cast<double>(mask), -52));
  }
}

TEST(Tolerance, HoldsTheBitCountWithinOneToEight) {
  EXPECT_EQ(kal_flt_tolerance(1.0f, 0, 1), kal_flt_tolerance(1.0f, 1, 1));
  EXPECT_EQ(kal_flt_tolerance(1.0f, std::numeric_limits<int>::min(), 1),
            kal_flt_tolerance(1.0f, 1, 1));
  EXPECT_EQ(kal_flt_tolerance(1.0f, 9, 1), kal_flt_tolerance(1.0f, 8, 1));
  EXPECT_EQ(kal_dbl_tolerance(1.0, 0, 1), kal_dbl_tolerance(1.0, 1, 1));
  EXPECT_EQ(kal_dbl_tolerance(1.0, std::numeric_limits<int>::max(), 1),
            kal_dbl_tolerance(1.0, 8, 1));
}

TEST(Tolerance, DoesNotDependOnTheBitsThatItMeasures) {
  const float value = with_low_bits(3.14159f, 0x55, true);
  EXPECT_EQ(kal_flt_tolerance(value, 8, 1),
            with_low_bits(value, 255, true) - with_low_bits(value, 255, false));
  EXPECT_EQ(kal_flt_tolerance(value, 8, 1), kal_flt_tolerance(2.0f, 8, 1));
}

TEST(Tolerance, FollowsTheMagnitudeAndTheSign) {
  EXPECT_EQ(kal_flt_tolerance(-1024.0f, 1, 1), -1024.0f * kal_flt_tolerance(1.0f, 1, 1));
  EXPECT_EQ(kal_dbl_tolerance(-1024.0, 3, 1), -1024.0 * kal_dbl_tolerance(1.0, 3, 1));
}

TEST(Tolerance, OfZeroIsTheSmallestNumber) {
  EXPECT_EQ(kal_flt_tolerance(0.0f, 1, 1), std::numeric_limits<float>::denorm_min());
  EXPECT_EQ(kal_dbl_tolerance(0.0, 1, 1), std::numeric_limits<double>::denorm_min());
}

TEST(Tolerance, DividesItsExponentByTheFactor) {
  EXPECT_EQ(kal_flt_tolerance(1.0f, 1, 2), std::ldexp(1.0f, -11));  // -23 / 2, towards zero
  EXPECT_EQ(kal_flt_tolerance(1.0f, 1, 23), std::ldexp(1.0f, -1));
  EXPECT_EQ(kal_flt_tolerance(1.0f, 1, 24), 1.0f);
  EXPECT_EQ(kal_dbl_tolerance(1.0, 1, 5), std::ldexp(1.0, -10));
  EXPECT_EQ(kal_dbl_tolerance(1.0, 1, std::numeric_limits<int>::max()), 1.0);
}

TEST(Tolerance, KeepsSignAndMantissaUnderTheFactor) {
  EXPECT_EQ(kal_flt_tolerance(-1.0f, 2, 2), std::ldexp(-1.5f, -11));  // -3 * 2^-23 before
  EXPECT_EQ(kal_dbl_tolerance(-1.0, 2, 3), std::ldexp(-1.5, -17));    // -3 * 2^-52 before
}

TEST(Tolerance, DividesPositiveExponentsToo) {
  EXPECT_EQ(kal_flt_tolerance(std::ldexp(1.0f, 30), 1, 2), std::ldexp(1.0f, 3));
  EXPECT_EQ(kal_dbl_tolerance(std::ldexp(1.0, 60), 1, 3), std::ldexp(1.0, 2));
}

TEST(Tolerance, IgnoresFactorsUpToOne) {
  for (const int factor : {1, 0, -1, std::numeric_limits<int>::min()}) {
    EXPECT_EQ(kal_flt_tolerance(1.0f, 4, factor), kal_flt_tolerance(1.0f, 4, 1));
    EXPECT_EQ(kal_dbl_tolerance(1.0, 4, factor), kal_dbl_tolerance(1.0, 4, 1));
  }
}

TEST(Tolerance, OfTheSmallestNumbersDividesTheFieldAsItStands) {
  // The field is 0, which reads as exponent -127 and -1023.
  EXPECT_EQ(std::bit_cast<std::uint32_t>(kal_flt_tolerance(0.0f, 1, 2)), (64u << 23) | 1u);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(kal_dbl_tolerance(0.0, 1, 2)),
            (std::uint64_t{512} << 52) | 1u);
}

TEST(Tolerance, OfInfinityIsNoNumber) {
  EXPECT_TRUE(std::isnan(kal_flt_tolerance(std::numeric_limits<float>::infinity(), 1, 1)));
  EXPECT_TRUE(std::isnan(kal_dbl_tolerance(std::numeric_limits<double>::infinity(), 1, 1)));
}

TEST(AbsoluteValue, DropsTheSignOfValuesBelowZero) {
  EXPECT_EQ(our_fabsf(-2.5f), 2.5f);
  EXPECT_EQ(our_fabsf(2.5f), 2.5f);
  EXPECT_EQ(our_fabsd(-1e300), 1e300);
  EXPECT_EQ(our_fabsd(1e300), 1e300);
  EXPECT_EQ(our_fabsf(-std::numeric_limits<float>::infinity()),
            std::numeric_limits<float>::infinity());
  EXPECT_EQ(our_fabsd(-std::numeric_limits<double>::denorm_min()),
            std::numeric_limits<double>::denorm_min());
}

TEST(AbsoluteValue, KeepsTheSignOfZeroAndOfNoNumber) {
  EXPECT_TRUE(std::signbit(our_fabsf(-0.0f)));
  EXPECT_TRUE(std::signbit(our_fabsd(-0.0)));
  EXPECT_TRUE(std::signbit(our_fabsf(std::copysign(not_a_number, -1.0f))));
  EXPECT_TRUE(std::signbit(our_fabsd(std::copysign(double{not_a_number}, -1.0))));
}

int compared(std::int32_t a, std::int32_t b) { return numcompar(&a, &b); }

TEST(NumberCompare, GivesTheDifference) {
  EXPECT_EQ(compared(7, 3), 4);
  EXPECT_EQ(compared(3, 7), -4);
  EXPECT_EQ(compared(-5, -5), 0);
}

TEST(NumberCompare, ReadsNumbersThatAreNotAligned) {
  struct [[gnu::packed]] Record {
    char head;
    std::int32_t number;
  } const a{'a', 10}, b{'b', 4};
  const char *const bytes_a = reinterpret_cast<const char *>(&a);
  const char *const bytes_b = reinterpret_cast<const char *>(&b);
  EXPECT_EQ(numcompar(bytes_a + 1, bytes_b + 1), 6);
}

TEST(NumberCompare, WrapsAroundOverTheWholeRange) {
  constexpr auto lowest = std::numeric_limits<std::int32_t>::min();
  constexpr auto highest = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(compared(highest, lowest), -1);
  EXPECT_EQ(compared(lowest, highest), 1);
  EXPECT_EQ(compared(lowest, 1), highest);
  EXPECT_EQ(compared(highest, -1), lowest);
}

TEST(RangeCheck, IncludesBothEnds) {
  EXPECT_EQ(in_range(1.0f, 1.0f, 2.0f), 1);
  EXPECT_EQ(in_range(1.5f, 1.0f, 2.0f), 1);
  EXPECT_EQ(in_range(2.0f, 1.0f, 2.0f), 1);
  EXPECT_EQ(in_range(std::nextafter(1.0f, 0.0f), 1.0f, 2.0f), 0);
  EXPECT_EQ(in_range(std::nextafter(2.0f, 3.0f), 1.0f, 2.0f), 0);
}

TEST(RangeCheck, IsFalseForAReversedRangeAndForNoNumber) {
  EXPECT_EQ(in_range(1.5f, 2.0f, 1.0f), 0);
  EXPECT_EQ(in_range(not_a_number, 1.0f, 2.0f), 0);
  EXPECT_EQ(in_range(1.0f, not_a_number, 2.0f), 0);
  EXPECT_EQ(in_range(1.0f, 1.0f, not_a_number), 0);
}

}  // namespace
