// Copies, appends and formats text in a buffer of a fixed size.
#include <Q_strings.h>

#include <cstdio>
#include <initializer_list>

int main() {
  char buffer[8];
  size_t stored = Q_strlcpy(buffer, "kelp", sizeof buffer);
  std::printf("copied %zu: %s\n", stored, buffer);
  stored = Q_strlcat(buffer, " and dulse", sizeof buffer);
  std::printf("appended %zu: %s\n", stored, buffer);
  const int formatted = Q_snprintf(buffer, sizeof buffer, "%d/%s", 12, "kelp");
  std::printf("formatted %d: %s\n", formatted, buffer);

  // A byte more than the longest text tells a text that fits from one that was cut.
  constexpr size_t longest = 6;
  char name[longest + 2];
  for (const char* text : {"kombu", "wakame", "sargassum"}) {
    const bool fits = Q_strlcpy(name, text, sizeof name) <= longest;
    std::printf("%s: %s\n", text, fits ? "fits" : "too long");
  }

  size_t length = 0;
  const char raw[] = {'k', 'e', 'l', 'p'};
  std::printf("terminated: %s\n", Q_strverify(raw, sizeof raw, &length) == 0 ? "yes" : "no");
  return 0;
}
