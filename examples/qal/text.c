/* Takes a line of a parts list apart. */
#include <qal/text.h>
#include <stdio.h>

int main(void) {
  char line[64] = "   Front Axle;2 pieces  # see drawing";
  qal_strip_at_the_chars(line, "#");
  qal_strip_pre_post_spaces(line, line);
  printf("[%s]\n", line);

  char *separator = qal_strchr(line, ';');
  if (!separator) return 1;
  *separator = '\0';
  const char *amount = separator + 1;
  qal_changecase(line, QAL_CASE_LOWER);
  qal_strrepl(line, " ", "_", QAL_REPLACE_ALL); /* in place: the result must fit the room */
  printf("name: %s, amount: %s\n", line, amount);

  if (qal_strcasestr(amount, "PIECES")) puts("counted in pieces");

  char label[12];
  if (qal_snprintf(label, sizeof label, "%s/%s", line, amount) != QAL_SNPRINTF_WHOLE)
    printf("no room for the whole label: %s\n", label);
  return 0;
}
