// Locales that the machine may not have installed.
#pragma once

#include <gtest/gtest.h>

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
    // The C library remembers a locale by its name, so each needs another.
    const std::string name = "for_" + charmap;
    run_program(
        {"/usr/bin/localedef", "--no-archive", "-c", "-i", source, "-f", charmap, scratch_ / name},
        {{"PATH", "/usr/bin:/bin"}});
    setenv("LOCPATH", scratch_.path().c_str(), 1);
    EXPECT_STREQ(std::setlocale(category_, name.c_str()), name.c_str());
  }
  ~TestLocale() { std::setlocale(category_, "C"); }
  TestLocale(const TestLocale &) = delete;
  TestLocale &operator=(const TestLocale &) = delete;

 private:
  ScratchDir scratch_;
  int category_;
};

}  // namespace qal::test
