// The number helpers: random numbers, tolerances, comparisons.
#include <kalmora/helpers.hpp>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

template <typename Value>
struct Layout;

template <>
struct Layout<float> {
  using Bits = std::uint32_t;
  static constexpr int exponent_bits = 8;
};

template <>
struct Layout<double> {
  using Bits = std::uint64_t;
  static constexpr int exponent_bits = 11;
};

// Divides the binary exponent and puts it back into its field. Bits that the field is too narrow
// for are lost.
template <typename Value>
Value divide_exponent(Value value, int divisor) {
  using Bits = typename Layout<Value>::Bits;
  constexpr int shift = std::numeric_limits<Value>::digits - 1;
  constexpr Bits field = (Bits{1} << Layout<Value>::exponent_bits) - 1;
  constexpr int bias = std::numeric_limits<Value>::max_exponent - 1;

  const Bits bits = std::bit_cast<Bits>(value);
  const int exponent = static_cast<int>((bits >> shift) & field) - bias;
  const Bits divided = static_cast<Bits>(exponent / divisor + bias) & field;
  return std::bit_cast<Value>((bits & ~(field << shift)) | (divided << shift));
}

template <typename Value>
Value tolerance(Value value, int digits, int factor) {
  using Bits = typename Layout<Value>::Bits;
  const Bits mask = (Bits{1} << std::clamp(digits, 1, 8)) - 1;
  const Bits bits = std::bit_cast<Bits>(value);
  const Value size = std::bit_cast<Value>(bits | mask) - std::bit_cast<Value>(bits & ~mask);
  return factor > 1 ? divide_exponent(size, factor) : size;
}

// Deliberate: negative zero is not below zero and keeps its sign.
template <typename Value>
Value absolute(Value x) {
  using Bits = typename Layout<Value>::Bits;
  if (!(x < 0)) return x;
  return std::bit_cast<Value>(std::bit_cast<Bits>(x) & (~Bits{0} >> 1));
}

std::uint32_t number_at(const void *address) {
  std::uint32_t number;
  std::memcpy(&number, address, sizeof number);
  return number;
}

}  // namespace

float erand0(std::int64_t *seed) {
  constexpr std::int64_t modulus = 2147483647;
  constexpr std::int64_t multiplier = 69621;
  constexpr std::int64_t quotient = 30845;   // modulus / multiplier
  constexpr std::int64_t remainder = 23902;  // modulus % multiplier
  constexpr std::int64_t mask = 123495867;   // keeps a seed of 0 off the generator's fixed point

  std::int64_t state = *seed ^ mask;
  const std::int64_t k = state / quotient;
  state = multiplier * (state - k * quotient) - remainder * k;
  if (state < 0) state += modulus;
  *seed = state ^ mask;
  return static_cast<float>(static_cast<double>(state) * 4.656612875245797e-10);
}

float kal_flt_tolerance(float value, int digits, int factor) {
  return tolerance(value, digits, factor);
}

double kal_dbl_tolerance(double value, int digits, int factor) {
  return tolerance(value, digits, factor);
}

float our_fabsf(float x) { return absolute(x); }

double our_fabsd(double x) { return absolute(x); }

// Deliberate: the difference wraps around, so this is no consistent order over the whole range.
int numcompar(const void *a, const void *b) {
  return static_cast<int>(number_at(a) - number_at(b));
}

int in_range(float x, float low, float high) { return low <= x && x <= high; }
