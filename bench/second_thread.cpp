// Linked to a benchmark, gives its process a second thread, which only waits.
#include <unistd.h>

#include <thread>

namespace {

const bool started = [] {
  std::thread([] {
    for (;;) pause();
  }).detach();
  return true;
}();

}  // namespace
