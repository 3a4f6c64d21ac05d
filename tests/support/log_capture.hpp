// Collects what the library logs while it lives.
#pragma once

#include <qal/logger.h>

#include <cerrno>
#include <string>
#include <vector>

namespace qal::test {

class LogCapture {
 public:
  LogCapture() { qal_logger_init(&lines_, &collect, nullptr, nullptr); }
  ~LogCapture() { qal_logger_done(); }
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;

  // Each line as it reached the console callback, marker included ("ERROR: …").
  const std::vector<std::string> &lines() const { return lines_; }
  std::string text() const {
    std::string all;
    for (const auto &line : lines_) all += line;
    return all;
  }
  void clear() { lines_.clear(); }

 private:
  // The finished line arrives in the format position and is taken as it is.
  static void collect(void *stream, const char *line, ...) {
    static_cast<std::vector<std::string> *>(stream)->emplace_back(line);
  }

  std::vector<std::string> lines_;
};

// What is logged when the system has no memory for a call, "QAL_MALLOC" or "QAL_REALLOC".
inline std::vector<std::string> allocation_report(const std::string &call, int size, int line,
                                                  const std::string &file,
                                                  const std::string &label) {
  return {"ERROR: Cannot allocate memory: " + std::to_string(ENOMEM) + "\n",
          "ERROR: " + call + ": Memory allocation (size " + std::to_string(size) + ") failed:\n",
          "ERROR: At line " + std::to_string(line) + " in file " + file + "\n",
          "ERROR: " + label + ": Memory allocation failed.\n"};
}

}  // namespace qal::test
