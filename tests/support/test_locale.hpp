// Locales that the machine may not have installed.
#pragma once

#include <clocale>
#include <cstdlib>
#include <string>

#include "support/child.hpp"
#include "support/scratch.hpp"

namespace qal::test {

// A locale compiled for one test, given by its name or by a source file, and set while this lives.
class TestLocale {
 public:
  TestLocale(const std::string &source, const std::string &charmap, int category = LC_CTYPE)
      : category_(category) {
    const std::string compiler = "/usr/bin/localedef";
    if (!exists(compiler)) return;
    // The C library remembers a locale by its name, so each needs another.
    const std::string name = "for_" + charmap;
    run_program({compiler, "--no-archive", "-c", "-i", source, "-f", charmap, scratch_ / name},
                {{"PATH", "/usr/bin:/bin"}});
    setenv("LOCPATH", scratch_.path().c_str(), 1);
    is_set_ = std::setlocale(category_, name.c_str()) != nullptr;
  }
  ~TestLocale() { std::setlocale(category_, "C"); }
  TestLocale(const TestLocale &) = delete;
  TestLocale &operator=(const TestLocale &) = delete;

  // False where the system cannot compile it.
  bool is_set() const { return is_set_; }

 private:
  ScratchDir scratch_;
  int category_;
  bool is_set_ = false;
};

}  // namespace qal::test
