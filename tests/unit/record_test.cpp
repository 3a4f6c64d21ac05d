#include "record.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "internal/handles.hpp"
#include "support/record_model.hpp"
#include "support/scratch.hpp"

namespace {

using std::string_view_literals::operator""sv;
using qal::internal::Descriptor;
using qal::internal::read_record;
using qal::internal::Record;
using qal::internal::record_scan_bytes;
using qal::internal::RecordStatus;
using qal::test::model_of;
using qal::test::ModelRecord;
using qal::test::ScratchDir;

struct Reading {
  RecordStatus status = {};
  std::optional<ModelRecord> record;  // when it is whole
  off_t bytes_read = -1;
};

Reading read_from(int descriptor) {
  struct stat info;
  EXPECT_EQ(fstat(descriptor, &info), 0);
  Record record;
  Reading reading;
  reading.status = read_record(descriptor, info, record);
  if (reading.status == RecordStatus::whole) {
    reading.record = ModelRecord{record.url, record.user, record.password, record.pid};
  }
  reading.bytes_read = lseek(descriptor, 0, SEEK_CUR);
  return reading;
}

// Reads contents through one file.
class RecordRead : public testing::Test {
 protected:
  Reading read_all(std::string_view content) const {
    const auto size = static_cast<ssize_t>(content.size());
    EXPECT_EQ(ftruncate(file_.get(), 0), 0);
    EXPECT_EQ(pwrite(file_.get(), content.data(), content.size(), 0), size);
    lseek(file_.get(), 0, SEEK_SET);
    return read_from(file_.get());
  }
  std::optional<ModelRecord> read(std::string_view content) const {
    return read_all(content).record;
  }
  bool is_malformed(std::string_view content) const {
    return read_all(content).status == RecordStatus::malformed;
  }

  std::optional<int> pid_of(std::string_view number) const {
    const auto record = read("http://h u p " + std::string(number));
    return record ? std::optional<int>{record->pid} : std::nullopt;
  }

  ScratchDir scratch_;
  const Descriptor file_{open((scratch_ / "record").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
};

void expect_record(const std::optional<ModelRecord> &record, std::string_view url,
                   std::string_view user, std::string_view password, int pid) {
  ASSERT_TRUE(record);
  EXPECT_EQ(record->url, url);
  EXPECT_EQ(record->user, user);
  EXPECT_EQ(record->password, password);
  EXPECT_EQ(record->pid, pid);
}

std::string blanks(std::size_t count) { return std::string(count, ' '); }

TEST_F(RecordRead, TakesFourFieldsInTheirOrder) {
  expect_record(read("http://127.0.0.1:8080/stop halix secret 4711\n"),
                "http://127.0.0.1:8080/stop", "halix", "secret", 4711);
}

TEST_F(RecordRead, TakesARecordThatEndsWithItsNumber) {
  expect_record(read("u n p 42"), "u", "n", "p", 42);
}

TEST_F(RecordRead, IgnoresWhatFollowsTheNumber) {
  expect_record(read("u n p 42 more\nand more 7\n"), "u", "n", "p", 42);
}

TEST_F(RecordRead, SeparatesByAllSixWhiteSpaceBytesInAnyNumber) {
  expect_record(read(" \t\n\v\f\ru\t\tn\v\fp\r\n 42"), "u", "n", "p", 42);
}

TEST_F(RecordRead, TakesNoOtherByteForWhiteSpace) {
  for (int byte = 1; byte < 256; ++byte) {
    const auto character = static_cast<char>(byte);
    const std::string content = std::string("a") + character + "b n p 1";
    const bool separates = " \t\n\v\f\r"sv.find(character) != std::string_view::npos;
    EXPECT_EQ(is_malformed(content), separates) << byte;  // five fields: "p" is no number
  }
}

TEST_F(RecordRead, KeepsEveryByteOfAField) {
  expect_record(read("http://\xff\xfe%n%s\\ \x01\x7f;'\" caf\xc3\xa9 1"), "http://\xff\xfe%n%s\\",
                "\x01\x7f;'\"", "caf\xc3\xa9", 1);
}

TEST_F(RecordRead, NeedsAllFourFields) {
  for (const auto content : {"", " ", "\n\n", "u", "u n", "u n p", "u n p ", "u n p\n"}) {
    EXPECT_TRUE(is_malformed(content)) << content;
  }
}

TEST_F(RecordRead, NeedsANumberAtTheEnd) {
  for (const auto number : {"x", "-", "+", "+-5", "-+5", "--5", "- 5", "+ 5", ".5", "x5", "'5'"}) {
    EXPECT_FALSE(pid_of(number)) << number;
  }
}

TEST_F(RecordRead, ReadsTheNumberAsTheCLibraryDoes) {
  EXPECT_EQ(pid_of("5"), 5);
  EXPECT_EQ(pid_of("+5"), 5);
  EXPECT_EQ(pid_of("-5"), -5);
  EXPECT_EQ(pid_of("005"), 5);
  EXPECT_EQ(pid_of("5abc"), 5);
  EXPECT_EQ(pid_of("12x"), 12);
  EXPECT_EQ(pid_of("0x10"), 0);
  EXPECT_EQ(pid_of("5.9"), 5);
  EXPECT_EQ(pid_of("5+6"), 5);
  EXPECT_EQ(pid_of("5-"), 5);
  EXPECT_EQ(pid_of("0"), 0);
  EXPECT_EQ(pid_of("-0"), 0);
  EXPECT_EQ(pid_of(std::string_view{"5\0006", 3}), 5);
}

TEST_F(RecordRead, TakesEveryNumberThatFitsAndNoOther) {
  EXPECT_EQ(pid_of("2147483647"), INT_MAX);
  EXPECT_EQ(pid_of("+2147483647"), INT_MAX);
  EXPECT_EQ(pid_of("-2147483648"), INT_MIN);
  EXPECT_FALSE(pid_of("2147483648"));
  EXPECT_FALSE(pid_of("-2147483649"));
  EXPECT_FALSE(pid_of("4294967297"));            // 1 in its low 32 bits
  EXPECT_FALSE(pid_of("18446744073709551617"));  // 1 in its low 64 bits
  EXPECT_FALSE(pid_of(std::string(5000, '9')));
  EXPECT_FALSE(pid_of("-" + std::string(5000, '9')));
}

TEST_F(RecordRead, TakesFieldsOfUpTo255Bytes) {
  const std::string longest(255, 'x');
  expect_record(read(longest + " n p 1"), longest, "n", "p", 1);
  expect_record(read("u " + longest + " p 1"), "u", longest, "p", 1);
  expect_record(read("u n " + longest + " 1"), "u", "n", longest, 1);
  expect_record(read(longest + " " + longest + " " + longest + " 1"), longest, longest, longest, 1);
  EXPECT_EQ(pid_of(std::string(245, '0') + "2147483647"), INT_MAX);
  EXPECT_EQ(pid_of("-" + std::string(244, '0') + "2147483648"), INT_MIN);
}

TEST_F(RecordRead, RefusesFieldsOf256BytesWithoutSplittingThem) {
  const std::string over(256, '1');
  EXPECT_TRUE(is_malformed(over + " n p 1"));
  EXPECT_TRUE(is_malformed("u " + over + " p 1"));
  EXPECT_TRUE(is_malformed("u n " + over + " 1"));
  EXPECT_TRUE(is_malformed(over + "1 2 3 4 5"));
  EXPECT_TRUE(is_malformed(std::string(100'000, '1') + " 2 3 4"));
  EXPECT_FALSE(pid_of(std::string(246, '0') + "2147483647"));
  EXPECT_FALSE(pid_of("-" + std::string(245, '0') + "2147483648"));
}

TEST_F(RecordRead, CountsTheBytesBehindANulTowardsTheLimit) {
  const std::string cut = std::string("ab") + '\0';
  expect_record(read(cut + std::string(252, 'x') + " n p 1"), "ab", "n", "p", 1);
  EXPECT_TRUE(is_malformed(cut + std::string(253, 'x') + " n p 1"));
}

TEST_F(RecordRead, TakesAFieldThatBeginsWithNulForAnEmptyText) {
  expect_record(read("\0hidden n p 1"sv), "", "n", "p", 1);
  expect_record(read("u \0 p 1"sv), "u", "", "p", 1);
  expect_record(read("u n \0x 1"sv), "u", "n", "", 1);
  EXPECT_TRUE(is_malformed("u n p \0001"sv));  // a NUL begins no number
}

TEST_F(RecordRead, FindsFieldsWhereverTheBlocksAreSplit) {
  for (std::size_t offset = 4096 - 40; offset <= 4096 + 2; ++offset) {
    expect_record(read(blanks(offset) + "http://h/path user pass -12345 rest"), "http://h/path",
                  "user", "pass", -12345);
  }
}

TEST_F(RecordRead, TakesARecordThatEndsWithTheFirstMebibyte) {
  const std::string record = "u n p 42\n";
  expect_record(read(blanks(record_scan_bytes - record.size()) + record), "u", "n", "p", 42);
  expect_record(read(blanks(record_scan_bytes - record.size()) + record + "rest"), "u", "n", "p",
                42);
  EXPECT_TRUE(is_malformed(blanks(record_scan_bytes - 6) + record));
}

TEST_F(RecordRead, TakesANumberThatEndsTheFileWithTheFirstMebibyte) {
  const std::string record = "u n p 42";
  const std::string content = blanks(record_scan_bytes - record.size()) + record;
  expect_record(read(content), "u", "n", "p", 42);
  EXPECT_TRUE(is_malformed(content + "5")) << "the number that the limit cuts off is another one";
  EXPECT_TRUE(is_malformed(content + " ")) << "whether the number ends there is not known";
}

TEST_F(RecordRead, ReadsNothingBehindTheFirstMebibyte) {
  EXPECT_EQ(read_all(blanks(3 * record_scan_bytes)).bytes_read, off_t{record_scan_bytes});
}

TEST_F(RecordRead, StopsReadingOnceTheFieldsAreComplete) {
  EXPECT_EQ(read_all("u n p 42 " + blanks(100'000)).bytes_read, 4096);
}

TEST_F(RecordRead, StopsReadingOnceTheRecordIsMalformed) {
  EXPECT_EQ(read_all("u n p x " + blanks(100'000)).bytes_read, 4096);
  EXPECT_EQ(read_all(std::string(100'000, 'x')).bytes_read, 4096);
}

TEST_F(RecordRead, ReadsOnFromWhereTheDescriptorStands) {
  const Descriptor file{open(scratch_.file("r", "skipped u n p 1").c_str(), O_RDONLY | O_CLOEXEC)};
  lseek(file.get(), 7, SEEK_SET);
  expect_record(read_from(file.get()).record, "u", "n", "p", 1);
}

TEST_F(RecordRead, RefusesAFifo) {
  const std::string path = scratch_ / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const Descriptor fifo{open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)};
  ASSERT_EQ(write(fifo.get(), "u n p 1\n", 8), 8);
  EXPECT_EQ(read_from(fifo.get()).status, RecordStatus::malformed);
  char rest[16];
  EXPECT_EQ(::read(fifo.get(), rest, sizeof rest), 8) << "it must not be read at all";
}

TEST_F(RecordRead, RefusesAPipe) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const Descriptor out{ends[0]};
  const Descriptor in{ends[1]};
  ASSERT_EQ(write(in.get(), "u n p 1\n", 8), 8);
  EXPECT_EQ(read_from(out.get()).status, RecordStatus::malformed);
}

TEST_F(RecordRead, RefusesDevicesAndDirectories) {
  for (const std::string &path :
       {std::string("/dev/zero"), std::string("/dev/null"), scratch_.path()}) {
    const Descriptor other{open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    ASSERT_TRUE(other) << path;
    EXPECT_EQ(read_from(other.get()).status, RecordStatus::malformed) << path;
  }
}

TEST_F(RecordRead, TellsWhatCannotBeReadFromWhatIsMalformed) {
  const Descriptor file{open(scratch_.file("r", "u n p 1").c_str(), O_WRONLY | O_CLOEXEC)};
  EXPECT_EQ(read_from(file.get()).status, RecordStatus::unreadable);
}

TEST_F(RecordRead, KnowsWhetherATextIsEmpty) {
  Record record;
  EXPECT_FALSE(record.has_all_texts());
  *record.url = *record.user = 'x';
  EXPECT_FALSE(record.has_all_texts());
  *record.password = 'x';
  EXPECT_TRUE(record.has_all_texts());
  *record.url = '\0';
  EXPECT_FALSE(record.has_all_texts());
  *record.url = 'x';
  *record.user = '\0';
  EXPECT_FALSE(record.has_all_texts());
}

TEST(RecordWipe, LeavesNoCredentialsBehind) {
  alignas(Record) std::array<unsigned char, sizeof(Record)> place;
  auto *const record = new (place.data()) Record;
  std::memset(record->url, 'u', sizeof record->url);
  std::memset(record->user, 'n', sizeof record->user);
  std::memset(record->password, 'p', sizeof record->password);
  record->pid = -1;
  record->~Record();
  const volatile unsigned char *const bytes = place.data();
  EXPECT_TRUE(
      std::all_of(bytes, bytes + place.size(), [](unsigned char byte) { return byte == 0; }));
}

// Contents that are mostly close to a record, so that every branch of the model is met.
class Contents {
 public:
  std::string next() {
    std::string content = separator(true);
    for (int field = 0; field < 3; ++field) content += text() + separator(chance(30));
    return content + number() + (chance(2) ? separator(true) + text() : "");
  }

 private:
  bool chance(unsigned one_in) { return pick(one_in) == 0; }
  unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }

  std::string separator(bool may_be_empty) {
    std::string bytes;
    const unsigned count = may_be_empty ? pick(3) : 1 + pick(3);
    for (unsigned i = 0; i < count; ++i) bytes += " \t\n\v\f\r"[pick(6)];
    if (chance(50)) return bytes + blanks(4000 + pick(200));
    if (chance(2000)) return bytes + blanks(record_scan_bytes - pick(300));
    return bytes;
  }

  std::string text() {
    const unsigned length = chance(8) ? 250 + pick(10) : 1 + pick(12);
    std::string bytes;
    for (unsigned i = 0; i < length; ++i) {
      bytes += chance(40) ? static_cast<char>(pick(256)) : static_cast<char>('!' + pick(90));
    }
    return bytes;
  }

  std::string number() {
    static constexpr const char *edges[] = {
        "2147483647", "2147483648", "-2147483648", "-2147483649",          "0x10",
        "+",          "-",          "5abc",        "99999999999999999999", "007"};
    if (chance(3)) return edges[pick(std::size(edges))];
    return (chance(4) ? "-" : chance(4) ? "+" : "") + std::to_string(random_());
  }

  std::mt19937 random_{20240611};
};

TEST_F(RecordRead, AgreesWithTheScannerOfTheCLibrary) {
  Contents contents;
  int complete = 0;
  for (int round = 0; round < 20'000; ++round) {
    const std::string content = contents.next();
    const auto expected = model_of(content);
    const Reading reading = read_all(content);
    ASSERT_EQ(reading.record.has_value(), expected.has_value()) << testing::PrintToString(content);
    EXPECT_LE(reading.bytes_read, off_t{record_scan_bytes});
    if (!expected) continue;
    ++complete;
    expect_record(reading.record, expected->url, expected->user, expected->password, expected->pid);
  }
  EXPECT_GT(complete, 2'000);
  EXPECT_LT(complete, 18'000);
}

}  // namespace
