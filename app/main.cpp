// kalmora-sweep: sweeps the server records of the user's resource directory and of the temporary
// directory. Takes no arguments and never prints.
#include <fcntl.h>
#include <qal/startup.h>
#include <sys/resource.h>
#include <unistd.h>
#include <kalmora/directories.hpp>
#include <kalmora/sweep.hpp>
#include <qal/identity.hpp>

#include <csignal>
#include <cstdlib>

#include "confinement.hpp"

namespace {

// The tool prints nothing, so the messages of the libraries that libcurl uses go to the null device
// (one of them reports on standard error, while it is loaded, that memory is short). The device
// also takes the place of a standard stream that is closed, that of standard input as it is opened:
// a record or a connection must not get such a number. The first call is how robustness/tracing.py
// knows that the tool has begun.
void silence_streams() {
  const int null_device = open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) dup2(null_device, stream);
  if (null_device > STDERR_FILENO) close(null_device);
}

// The memory holds credentials.
void forbid_core_dump() {
  const rlimit none = {0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

void harden_process() {
  silence_streams();
  std::signal(SIGPIPE, SIG_IGN);  // a server may hang up while it is being written to
  forbid_core_dump();
}

qal::internal::Directories directories_to_sweep() {
  // The text is empty only when it did not fit; an empty directory would mean "/".
  const bool has_resources = *User_resource_directory != '\0';
  return {has_resources ? User_resource_directory : nullptr, std::getenv("TMPDIR")};
}

void sweep() {
  const auto directories = directories_to_sweep();
  qal::internal::confine_to(directories);
  for (const char *const directory : directories) {
    if (directory) process_directory(directory);
  }
}

bool swept = false;

// Ends the process before the libraries that libcurl has loaded clean up: without memory, one of
// them would end the process with a status of its own. Exit handlers have run by now.
[[gnu::destructor]] void end_process() {
  if (swept) _exit(EXIT_SUCCESS);
}

}  // namespace

int main(int, char **argv) {
  harden_process();
  QalIdentity identity{argv[0] ? argv[0] : ""};
  identity.setProduct(QAL_PRODUCT_KALMORA);
  identity.setComponent(QAL_COMPONENT_CLIENT);
  QalIdentity::currentIdentity = &identity;
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  query_env_vars("kalmora");
  sweep();
  swept = true;
  // Deliberate: the library is not shut down; the end of the process releases everything.
  return 0;
}
