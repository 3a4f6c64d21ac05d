// The longest that either matcher takes on a name and a pattern of 1023 bytes, in milliseconds. The
// patterns are those that make a matcher which tries every star at every place take ages.
#include <qal/wildcard.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t longest = 1023;
constexpr unsigned flag_combinations = 64;

std::string repeated(std::string_view piece, std::string_view end) {
  std::string text;
  while (text.size() + piece.size() + end.size() <= longest) text += piece;
  return text.append(end);
}

std::string times(std::size_t count, std::string_view piece) {
  std::string text;
  while (count-- > 0) text += piece;
  return text;
}

// Few stars with much to try at each place, and many stars with little.
std::vector<std::string> patterns() {
  std::vector<std::string> all;
  for (const char *end : {"", "b", "/", "*b*a"}) {
    for (const char *piece : {"a", "?", "[ab]", "[!b]", "a/"}) {
      const std::size_t half = longest / 2 / std::string_view{piece}.size();
      all.push_back("*" + times(half, piece) + end);
      all.push_back("*?a*" + times(half, piece) + end);
      all.push_back("*" + times(half / 2, piece) + "*" + times(half / 2, piece) + end);
    }
    for (const char *piece : {"a*", "*a", "?*", "[ab]*", "*/", "*aaaaaaaaaaaaaaaa"}) {
      all.push_back(repeated(piece, end));
    }
  }
  return all;
}

std::vector<std::string> names() {
  return {repeated("a", ""),    repeated("a", "b"),        repeated("a", "/"), repeated("a/", ""),
          repeated("a/", "b/"), repeated("aaaaaaa/", "c"), repeated(".a", "/")};
}

const unsigned char *bytes(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.c_str());
}

double processor_milliseconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

template <typename Match>
double milliseconds(Match match) {
  const double start = processor_milliseconds();
  volatile const int answer = match();
  static_cast<void>(answer);
  return processor_milliseconds() - start;
}

// What has taken longer than anything before is measured again: a disturbance does not come twice.
class Worst {
 public:
  template <typename Match>
  void look_at(Match match) {
    double took = milliseconds(match);
    for (int i = 0; took > worst_ && i < 3; ++i) took = std::min(took, milliseconds(match));
    worst_ = std::max(worst_, took);
  }

  void look_at(const std::string &pattern, const std::string &name) {
    look_at([&] { return zul_fnmatch(bytes(pattern), bytes(name)); });
    for (unsigned flags = 0; flags < flag_combinations; ++flags) {
      look_at([&] { return qal_fnmatch(bytes(pattern), name.c_str(), flags); });
    }
  }

  double result() const { return worst_; }

 private:
  double worst_ = 0;
};

}  // namespace

int main() {
  Worst worst;
  for (const auto &pattern : patterns()) {
    for (const auto &name : names()) worst.look_at(pattern, name);
  }
  std::printf("%.3f\n", worst.result());
}
