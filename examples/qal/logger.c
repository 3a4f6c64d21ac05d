/* Messages go where the host wants them. Nothing is written until it says so. */
#include <qal/logger.h>
#include <stdio.h>

int main(void) {
  qal_error("nobody sees this\n");

  /* The levels for people to standard output, the log channel nowhere. */
  qal_logger_init(stdout, _qal_logger_func, NULL, NULL);
  qal_info("loading %d parts\n", 3);
  qal_warn("part %s has no drawing\n", "piston");
  qal_error("part %s is missing\n", "gear box");
  qal_log("a silent channel\n");

  /* Text from elsewhere is not a format. */
  qal_info("%s", "100% done\n");

  qal_logger_done();
  qal_error("nor this\n");
  return 0;
}
