// The registry of ids beside a map. An input is a row of operations, each a byte and its arguments.
// The registry is the process's own and goes on counting from input to input; every input retires
// what it registered.
#include <qal/uid.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>

#include "input.hpp"
#include "require.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::require;

struct Values {
  std::uint64_t first, second;
};
using Model = std::map<std::uint64_t, Values>;

constexpr std::uint64_t counted_bits = (std::uint64_t{1} << 48) - 1;

// A registered id, or one near the next; now and then with other upper bits, of which the lowest
// still counts.
std::uint64_t any_id(const Model &model, Input &input) {
  constexpr std::array<std::uint64_t, 4> upper_bits{
      0, std::uint64_t{1} << 48, std::uint64_t{0xFFFF} << 48, std::uint64_t{1} << 47};
  const std::size_t which = input.below(model.size() + 3);
  const std::uint64_t upper = upper_bits[input.below(upper_bits.size())];
  if (which >= model.size()) return (qal_uid_next() - 1 + which - model.size()) | upper;
  return std::next(model.begin(), static_cast<std::ptrdiff_t>(which))->first | upper;
}

void add(Model &model, Values values) {
  const std::uint64_t expected = qal_uid_next();
  require(qal_uid_new(values.first, values.second) == expected, "ids count up");
  require(qal_uid_next() == expected + 1, "the next id is one more");
  model[expected] = values;
}

void find(const Model &model, std::uint64_t id) {
  Values values{7, 8};
  const int status = qal_uid_find(id, &values.first, &values.second);
  const auto known = model.find(id & counted_bits);
  if (known == model.end()) {
    require(status == 4 && values.first == 7 && values.second == 8, "an unknown id is not found");
    return;
  }
  require(
      status == 0 && values.first == known->second.first && values.second == known->second.second,
      "an id is found with its values");
  require(qal_uid_find(id, nullptr, nullptr) == 0, "values need not be wanted");
}

void retire(Model &model, std::uint64_t id) {
  const bool known = model.erase(id & counted_bits) == 1;
  require(qal_uid_destroy(id) == (known ? 0 : 6), "what is registered can be retired");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  require(qal_uid_init() == 0, "the registry can be made");
  Input input(data, size);
  Model model;
  while (input.left()) {
    switch (input.below(4)) {
      case 0:
        find(model, any_id(model, input));
        break;
      case 1:
        retire(model, any_id(model, input));
        break;
      default:
        add(model, {input.byte() * ~std::uint64_t{0} / 255, input.byte()});
    }
    for (const auto &entry : model) find(model, entry.first);
  }
  while (!model.empty()) retire(model, model.begin()->first);
  return 0;
}
