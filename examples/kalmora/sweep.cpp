// Sweeps the records of a directory: a malformed one, which goes, and one of a vanished process,
// which stays.
#include <qal/files.h>
#include <qal/startup.h>
#include <sys/stat.h>
#include <kalmora/sweep.hpp>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>

int main() {
  std::signal(SIGPIPE, SIG_IGN);  // a server may hang up while it is written to
  if (qal_utils_init() != QAL_STATUS_OK) return 1;

  const char directory[] = "sweep.example";
  mkdir(directory, 0700);
  std::ofstream{"sweep.example/halix_server1.dat"} << "not a record\n";
  std::ofstream{"sweep.example/halix_server2.dat"} << "http://localhost/ ada secret 2147483647\n";
  std::ofstream{"sweep.example/notes.dat"} << "something else\n";

  // The last entry is the directory itself and no record.
  std::printf("%zu entries before\n", find_files(directory, "*.dat").size());
  process_directory(directory);
  for (const char *name : {"halix_server1.dat", "halix_server2.dat", "notes.dat"}) {
    const bool there = std::filesystem::exists(std::filesystem::path{directory} / name);
    std::printf("%-18s %s\n", name, there ? "kept" : "deleted");
  }

  qal_file_rmdir(directory, QAL_RMDIR_RECURSIVE);
  qal_utils_done();
  return 0;
}
