/* The two matchers: the small one for names, the other one for paths. */
#include <qal/wildcard.h>
#include <stdio.h>

static const unsigned char *bytes(const char *text) { return (const unsigned char *)text; }

static void try_name(const char *pattern, const char *name) {
  const int result = zul_fnmatch(bytes(pattern), bytes(name));
  printf("%-18s %-22s %s\n", pattern, name, result == QAL_FNM_MATCH ? "match" : "none");
}

static void try_path(const char *pattern, const char *path, unsigned flags) {
  const int result = qal_fnmatch(bytes(pattern), path, flags);
  printf("%-18s %-22s %s\n", pattern, path, result == QAL_FNM_MATCH ? "match" : "none");
}

int main(void) {
  try_name("halix_server*.dat", "halix_server12.dat");
  try_name("part[0-9].dat", "part7.dat");
  try_name("part[!0-9].dat", "part7.dat");
  try_name("what\\?", "what?");

  try_path("scenes/*", "scenes/engine/parts", 0);
  try_path("scenes/*", "scenes/engine/parts", QAL_FNM_PATHNAME);
  try_path("*.DAT", "piston.dat", QAL_FNM_CASEFOLD);
  try_path("*", ".hidden", QAL_FNM_PERIOD);
  return 0;
}
