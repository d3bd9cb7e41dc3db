// greet RESOURCES LOCALE: prints the greeting in the message files, in a directory or a package.
#include <unicode/resbund.h>
#include <unicode/unistr.h>

#include <cstdio>
#include <string>

int main(int, char** arguments) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::ResourceBundle bundle(arguments[1], icu::Locale(arguments[2]), status);
  std::string greeting;
  bundle.getStringEx("GREETING", status).toUTF8String(greeting);
  std::printf("%s\n", U_SUCCESS(status) ? greeting.c_str() : u_errorName(status));
}
