// Collects what the library logs while it lives.
#pragma once

#include <qal/logger.h>

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

}  // namespace qal::test
