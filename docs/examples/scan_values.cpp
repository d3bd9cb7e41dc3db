// Reads values out of a text by a format.
#include <Q_sscanf.h>

#include <cerrno>
#include <cstdio>

int main() {
  // Every destination comes with its size in bytes, as an int.
  int count = 0;
  char name[6];
  int assigned = Q_sscanf("12 pineapples", "%d %s", &count, static_cast<int>(sizeof count), name,
                          static_cast<int>(sizeof name));
  std::printf("%d values: %d, %s\n", assigned, count, name);

  char key[8];
  double ratio = 0;
  assigned = Q_sscanf("ratio=0.25", "%[a-z]=%lf", key, static_cast<int>(sizeof key), &ratio,
                      static_cast<int>(sizeof ratio));
  std::printf("%d values: %s, %g\n", assigned, key, ratio);

  std::printf("no match: %d\n", Q_sscanf("apples", "%d", &count, static_cast<int>(sizeof count)));
  std::printf("no input: %d\n", Q_sscanf("", "%d", &count, static_cast<int>(sizeof count)));

  // Only errno tells that a number was out of range.
  errno = 0;
  long large = 0;
  Q_sscanf("99999999999999999999", "%ld", &large, static_cast<int>(sizeof large));
  std::printf("%ld: %s\n", large, errno == ERANGE ? "out of range" : "in range");
  return 0;
}
