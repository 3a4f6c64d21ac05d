// A call that is made to fail. The replacement of the call asks its fault first.
#pragma once

#include <cerrno>
#include <climits>

namespace qal::test {

// Counts the calls of one function and fails some of them. By default none fails.
struct Fault {
  int error = 0;
  int first = 1;     // the first call that fails, counted from 1
  int how_many = 0;  // how many calls fail from there on
  int calls = 0;

  // Whether this call fails; errno is set then.
  bool strikes() {
    if (!is_due()) return false;
    errno = error;
    return true;
  }

  // For functions that return their error: that of this call, or 0.
  int error_of_call() { return is_due() ? error : 0; }

 private:
  bool is_due() {
    ++calls;
    return calls >= first && calls - first < how_many;
  }
};

constexpr Fault fail_nth(int nth, int error) {
  return {.error = error, .first = nth, .how_many = 1};
}
constexpr Fault fail_times(int times, int error) { return {.error = error, .how_many = times}; }
constexpr Fault fail_from(int nth, int error) {
  return {.error = error, .first = nth, .how_many = INT_MAX};
}
constexpr Fault fail_all(int error) { return fail_from(1, error); }

}  // namespace qal::test
