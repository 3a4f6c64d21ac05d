// Notifies servers of their records: one authenticated GET each, through libcurl.
#pragma once

#include <cstdint>

#include "record.hpp"

namespace qal::internal {

// Makes the requests of one sweep and keeps its time budget: servers that do not answer may cost a
// sweep about a minute, after that each of them gets only a moment.
class Notifier {
 public:
  // Requests the record's URL. The result does not matter. libcurl is loaded by the first call in
  // the process; without it nothing happens.
  void notify(const Record &record);

 private:
  long time_limit_ms() const;

  std::int64_t lost_ms_ = 0;  // spent on requests that timed out
};

}  // namespace qal::internal
