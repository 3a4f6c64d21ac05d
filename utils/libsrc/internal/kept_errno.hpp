// Keeps errno over a scope, for code whose callers look at it afterwards.
#pragma once

#include <cerrno>

namespace qal::internal {

class KeptErrno {
 public:
  KeptErrno() = default;
  ~KeptErrno() { errno = saved_; }
  KeptErrno(const KeptErrno &) = delete;
  KeptErrno &operator=(const KeptErrno &) = delete;

 private:
  int saved_ = errno;
};

}  // namespace qal::internal
