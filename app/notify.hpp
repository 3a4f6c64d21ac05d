// Notifies servers of their records: one authenticated GET each, through libcurl.
#pragma once

#include <cstdint>

#include "record.hpp"

namespace qal::internal {

// Makes the requests of one sweep and keeps its time budget: slow servers may cost a sweep about a
// minute, whether they answer or not; after that each of them gets only a moment.
class Notifier {
 public:
  // Requests the record's URL. The result of the request does not matter. False when libcurl, which
  // is loaded by the first call in the process, is missing; the next call tries to load it again.
  bool notify(const Record &record);

 private:
  long time_limit_ms() const;

  std::int64_t spent_ms_ = 0;  // on requests, beyond the first second of each
};

}  // namespace qal::internal
