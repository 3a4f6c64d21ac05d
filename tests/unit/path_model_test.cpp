// Every short path, compared with models that follow the rules step by step on std::string.
#include <gtest/gtest.h>
#include <qal/path.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "support/guarded_room.hpp"
#include "support/path_model.hpp"
#include "support/scratch.hpp"

namespace {

using qal::test::absolute_model;
using qal::test::basename_model;
using qal::test::convert_model;
using qal::test::dirname_model;
using qal::test::extension_dot;
using qal::test::GuardedRoom;
using qal::test::join_model;
using qal::test::normalise_model;
using qal::test::Normalised;
using qal::test::Part;
using qal::test::ScratchDir;
using std::string;

// Calls `check` with every text over `letters` of at most `longest` bytes.
template <typename Check>
void for_all_texts(const string &letters, std::size_t longest, const Check &check) {
  string text;
  const auto extend = [&](const auto &self) -> void {
    check(text);
    if (text.size() == longest || testing::Test::HasFailure()) return;
    for (const char letter : letters) {
      text.push_back(letter);
      self(self);
      text.pop_back();
    }
  };
  extend(extend);
}

void check_convert(const string &path, std::uint32_t flags) {
  GuardedRoom converted{path};
  ASSERT_EQ(0, qal_convert_pathname(converted.data(), flags));
  ASSERT_EQ(convert_model(path, flags), converted.data()) << path << " with " << flags;
  ASSERT_TRUE(converted.guards_are_intact()) << path << " with " << flags;
}

void check_normalise(const string &path, const string &already, int out_size) {
  const Normalised expected = normalise_model(path, already, out_size);
  GuardedRoom out{out_size, already};
  const string where = path + " onto '" + already + "' of " + std::to_string(out_size);
  ASSERT_EQ(expected.result, qal_get_norm_path(path.c_str(), out.data(), out_size)) << where;
  if (expected.result != 0 || out_size < 1) {
    ASSERT_TRUE(out.is_untouched()) << where;
  } else {
    ASSERT_EQ(expected.text, out.text()) << where;
  }
  ASSERT_TRUE(out.guards_are_intact()) << where;
}

void check_cut(const string &path, Part (*model)(const string &), const char *(*function)(char *)) {
  GuardedRoom cut{path};
  const Part expected = model(path);
  ASSERT_EQ(expected.answer, function(cut.data())) << path;
  ASSERT_EQ(expected.path, cut.data()) << path;
  ASSERT_TRUE(cut.guards_are_intact()) << path;
}

TEST(PathConvertModel, AgreesOnEveryShortPathAndSetting) {
  for_all_texts("a./\\:", 7, [](const string &path) {
    for (const std::uint32_t mode : {0U, 2U, 3U}) {
      for (const std::uint32_t settings : {0U, 0x100U, 0x200U, 0x300U}) {
        check_convert(path, mode | settings);
      }
    }
  });
}

TEST(PathConvertModel, AgreesOnLongerCompactions) {
  for_all_texts("a./", 11, [](const string &path) { check_convert(path, QAL_PATH_COMPACT); });
}

TEST(PathConvertModel, AgreesOnEveryIllegalCharacter) {
  for_all_texts("C:*?\"<>|", 4, [](const string &path) {
    check_convert(path, QAL_PATH_FIX_ILLEGAL);
    check_convert(path, QAL_PATH_FIX_ILLEGAL | QAL_PATH_TO_BACKSLASH);
  });
}

TEST(PathNormaliseModel, AgreesOnEveryShortPath) {
  for_all_texts("a./\\:", 7, [](const string &path) { check_normalise(path, "", 64); });
}

TEST(PathNormaliseModel, AgreesOnLongerPaths) {
  for_all_texts("a./", 11, [](const string &path) { check_normalise(path, "", 64); });
}

TEST(PathNormaliseModel, AgreesAtEverySize) {
  for_all_texts("a./\\", 6, [](const string &path) {
    for (int size = -1; size < 12; ++size) check_normalise(path, "", size);
  });
}

TEST(PathNormaliseModel, AgreesOnTextInTheBuffer) {
  for_all_texts("a./\\", 5, [](const string &path) {
    for (int size = 4; size < 14; ++size) check_normalise(path, "p\\q", size);
  });
}

TEST(PathDirnameModel, AgreesOnEveryShortPath) {
  for_all_texts("a /\\.", 7,
                [](const string &path) { check_cut(path, dirname_model, qal_dirname); });
}

TEST(PathBasenameModel, AgreesOnEveryShortPath) {
  for_all_texts("a /\\.", 7,
                [](const string &path) { check_cut(path, basename_model, qal_basename); });
}

TEST(PathAbsoluteModel, AgreesOnEveryPairOfBytes) {
  for (int first = 1; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::array<char, 3> path{static_cast<char>(first), static_cast<char>(second), '\0'};
      const int expected = absolute_model(path.data()) ? 1 : 0;
      ASSERT_EQ(expected, qal_path_is_absolute(path.data())) << first << " " << second;
    }
  }
}

TEST(PathFullModel, AgreesAtEverySize) {
  const ScratchDir scratch;
  for (const string &directory : {scratch.directory("plain"), scratch.directory("b\\s")}) {
    ASSERT_EQ(0, qal_setcwd(directory.c_str()));
    const string joint = directory.find('\\') == string::npos ? "/" : "\\";
    for_all_texts("a./\\:~", 4, [&](const string &path) {
      const string expected = absolute_model(path) ? path : directory + joint + path;
      const int needed = path.empty() ? -1 : static_cast<int>(expected.size()) + 1;
      for (const int size : {-1, 0, needed - 1, needed, needed + 1}) {
        GuardedRoom out{size, ""};
        const bool fits = !path.empty() && size >= needed;
        ASSERT_EQ(fits ? 0 : needed, qal_get_full_path(path.c_str(), out.data(), size)) << path;
        ASSERT_TRUE(fits ? out.text() == expected : out.is_untouched()) << path;
        ASSERT_TRUE(out.guards_are_intact()) << path;
      }
    });
  }
}

TEST(PathFindDotModel, AgreesOnEveryShortPath) {
  for_all_texts("a./\\:", 7, [](const string &path) {
    const std::size_t dot = extension_dot(path, '/', '\\');
    const char *expected = dot == string::npos ? nullptr : path.c_str() + dot;
    ASSERT_EQ(expected, qal_find_dot_in_filename(path.c_str())) << path;
  });
}

TEST(PathRemoveExtensionModel, AgreesOnEveryShortPath) {
  for_all_texts("a./\\:", 7, [](const string &path) {
    GuardedRoom cut{path};
    const std::size_t dot = extension_dot(path, '\\', '/');
    ASSERT_EQ(dot == string::npos ? 0 : 1, qal_remove_ext(cut.data())) << path;
    ASSERT_EQ(path.substr(0, dot), cut.data()) << path;
    ASSERT_TRUE(cut.guards_are_intact()) << path;
  });
}

TEST(PathAddModel, AgreesOnEveryShortList) {
  for_all_texts("a/:", 2, [](const string &base) {
    for_all_texts("b/", 2, [&](const string &one) {
      for_all_texts("c.", 2, [&](const string &two) {
        for (const string *start : {static_cast<const string *>(nullptr), &base}) {
          const char *first = start ? start->c_str() : nullptr;
          std::array<char, 32> list{};
          qal_addpath(list.data(), first, nullptr);
          ASSERT_EQ(join_model(start, {}), list.data());
          qal_addpath(list.data(), first, one.c_str(), nullptr);
          ASSERT_EQ(join_model(start, {one}), list.data());
          qal_addpath(list.data(), first, one.c_str(), two.c_str(), nullptr);
          ASSERT_EQ(join_model(start, {one, two}), list.data());
        }
      });
    });
  });
}

TEST(PathExpandModel, CopiesEveryShortPathWithoutTildeAtEverySize) {
  for_all_texts("a~/\\.", 5, [](const string &path) {
    if (path.substr(0, 1) == "~") return;
    for (int size = 1; size < 8; ++size) {
      GuardedRoom out{size, ""};
      const bool fits = static_cast<int>(path.size()) < size;
      ASSERT_EQ(fits ? 0 : 6, qal_expand_pathname(path.c_str(), out.data(), size)) << path;
      ASSERT_EQ(fits ? path : "", out.text()) << path;
      ASSERT_TRUE(out.guards_are_intact()) << path;
    }
  });
}

}  // namespace
