/* What of the library is plain C. */
#include <Q_sscanf.h>
#include <Q_strings.h>
#include <cmnversion.h>
#include <stdio.h>

int main(void) {
  char text[8];
  int number = 0;
  Q_snprintf(text, sizeof text, "%d", 42);
  Q_sscanf(text, "%d", &number, (int)sizeof number);
  printf("%d %d\n", number, KELP_CMN_VERSION_NUMBER >= 40400);
  return 0;
}
