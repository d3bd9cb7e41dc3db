/* A C program that uses every header of the C routines: they compile as C and link by their plain
 * names. */
#include "Q_sscanf.h"
#include "Q_strings.h"
#include "Q_strtoimax.h"
#include "Q_strtoumax.h"
#include "Q_vfscanf.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

static int failures = 0;

static void expect(int condition, const char* what) {
  if (!condition) {
    fprintf(stderr, "failed: %s\n", what);
    ++failures;
  }
}

static int scan(ScanSource* source, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int assigned = Q_vfscanf(source, format, args);
  va_end(args);
  return assigned;
}

static void useNarrowText(void) {
  char text[16];
  size_t length = 0;
  expect(Q_strlcpy(text, "one", sizeof text) == 3, "Q_strlcpy");
  expect(Q_strlcat(text, ", two", sizeof text) == 5, "Q_strlcat");
  expect(Q_strlncat(text, ", three", 3, sizeof text) == 3, "Q_strlncat");
  expect(strcmp(text, "one, two, t") == 0, "the narrow text");
  expect(Q_strverify(text, sizeof text, &length) == 0 && length == 11, "Q_strverify");
  expect(Q_strlncpy(text, "one", 5, sizeof text) == 5, "Q_strlncpy");
  expect(Q_snprintf(text, sizeof text, "%d:%s", 7, "x") == 3, "Q_snprintf");
}

static void useWideText(void) {
  wchar_t text[16];
  size_t length = 0;
  expect(Q_wcslcpy(text, L"one", 16) == 3, "Q_wcslcpy");
  expect(Q_wcslcat(text, L", two", 16) == 5, "Q_wcslcat");
  expect(Q_wcslncat(text, L", three", 3, 16) == 3, "Q_wcslncat");
  expect(wcscmp(text, L"one, two, t") == 0, "the wide text");
  expect(Q_wstrverify(text, 16, &length) == 0 && length == 11, "Q_wstrverify");
  expect(Q_wcslncpy(text, L"one", 5, 16) == 5, "Q_wcslncpy");
  expect(Q_snwprintf(text, 16, L"%d:%ls", 7, L"x") == 3, "Q_snwprintf");
}

static void useBlocks(void) {
  void* block = NULL;
  expect(Q_dumb_realloc(&block, 10) == block && block != NULL, "Q_dumb_realloc");
  free(block);
}

static void useScanner(void) {
  const char input[] = "9 rest";
  ScanSource source = {input, 6, Q_SCAN_EOF, input, 6, eofread, NULL};
  int number = 0;
  char word[8];
  expect(Q_sscanf("12 apples", "%d %s", &number, 4, word, 8) == 2 && number == 12, "Q_sscanf");
  expect(strcmp(word, "apples") == 0, "the scanned word");
  expect(scan(&source, "%d", &number, 4) == 1 && number == 9, "Q_vfscanf");
  expect(source.unread == 5 && source.position == input + 1, "the source's position");
  expect(__Qrefill(&source) == -1, "__Qrefill");
}

static void useConverters(void) {
  char* end = NULL;
  expect(__Qstrtoimax("-0x10", &end, 0) == -16 && *end == '\0', "__Qstrtoimax");
  expect(__Qstrtoumax("777", &end, 8) == 511 && *end == '\0', "__Qstrtoumax");
}

int main(void) {
  useNarrowText();
  useWideText();
  useBlocks();
  useScanner();
  useConverters();
  return failures == 0 ? 0 : 1;
}
