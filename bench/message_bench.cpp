#include "rows.h"

#include <unicode/resbund.h>

#include <Q_sscanf.h>
#include <Q_strings.h>
#include <cmnicucatalog.h>
#include <cmnicumessage.h>
#include <cmnstringtool.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace kelp_bench {
namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using icu::Formattable;

constexpr char resources[] = "/usr/tulsk/resources/";
constexpr char tagFormat[] = "<ARGVALUE INDEX=%d TYPE=%d>";
constexpr char headerFormat[] = "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>";

std::shared_ptr<kelp_cmn_4_4::CCmnIcuMessage> message() {
  auto made = std::make_shared<kelp_cmn_4_4::CCmnIcuMessage>("MSG_DISK_FULL", 2);
  const Formattable arguments[] = {Formattable("/dev/sda1"), Formattable(97.5), Formattable(17),
                                   Formattable("backupd"), Formattable(1234567)};
  made->setArguments(arguments, 5);
  return made;
}

// The formatting and the conversions that serializing stands on, each into a buffer.
long formatParts() {
  char buffer[1024];
  long length = Q_snprintf(buffer, sizeof buffer, "<SERIALIZED_MESSAGE MSGID=%s SEVERITY=%d>\n",
                           "MSG_DISK_FULL", 2);
  for (int index = 0; index < 5; ++index) {
    length += Q_snprintf(buffer, sizeof buffer, "\t<ARGVALUE INDEX=%d TYPE=%d>", index, 3);
    length += Q_snprintf(buffer, sizeof buffer, "%s\n", "</ARGVALUE>");
  }
  for (const char* text : {"/dev/sda1", "backupd"}) {
    icu::UnicodeString wide(text);
    length += static_cast<long>(Tool::ustr2str(wide).length());
  }
  length += static_cast<long>(Tool::double2str(97.5).length());
  length += static_cast<long>(Tool::int2str(17).length() + Tool::int2str(1234567).length());
  return length + 22;  // the closing tag
}

// The scanning and the conversions that reading stands on.
long scanParts() {
  char id[1024];
  int severity = 0;
  Q_sscanf("<SERIALIZED_MESSAGE MSGID=MSG_DISK_FULL SEVERITY=2>", headerFormat, id, 1024, &severity,
           4);
  for (const char* tag :
       {"<ARGVALUE INDEX=0 TYPE=3>", "<ARGVALUE INDEX=1 TYPE=1>", "<ARGVALUE INDEX=2 TYPE=2>",
        "<ARGVALUE INDEX=3 TYPE=3>", "<ARGVALUE INDEX=4 TYPE=2>"}) {
    int index = 0;
    int type = 0;
    Q_sscanf(tag, tagFormat, &index, 4, &type, 4);
    benchmark::DoNotOptimize(type);
  }
  std::string first = "/dev/sda1";
  std::string second = "backupd";
  const Formattable arguments[] = {
      Formattable(Tool::str2ustr(first)), Formattable(Tool::str2double("97.5")),
      Formattable(Tool::str2int("17")), Formattable(Tool::str2ustr(second)),
      Formattable(Tool::str2int("1234567"))};
  Formattable list;
  list.setArray(arguments, 5);
  int count = 0;
  list.getArray(count);
  return count;
}

void addSerializedRows() {
  addRow("serialize 5 arguments", 1.5)
      .library([sent = message()] { return static_cast<long>(sent->serialize()->length); })
      .peer("the bare parts", formatParts);
  addRow("deserialize 5 arguments", 1.5)
      .library([text = std::string(message()->serialize()->text),
                received = std::make_shared<kelp_cmn_4_4::CCmnIcuMessage>()]() mutable {
        const kelp_cmn_4_4::SCmnMessageInfo info{text.data(), static_cast<int>(text.length())};
        received->deserialize(&info);
        return static_cast<long>(received->getArgumentCount());
      })
      .peer("the bare parts", scanParts);
}

void addCatalogRow() {
  std::filesystem::create_directories(resources);
  std::filesystem::copy(
      KELP_BENCH_RESOURCES, resources,
      std::filesystem::copy_options::recursive | std::filesystem::copy_options::overwrite_existing);
  const auto catalog = std::make_shared<kelp_cmn_4_4::CCmnIcuMessageCatalog>("en", "bench");
  if (catalog->init() != 0) {
    throw std::runtime_error("the message file of the benchmarks cannot be opened");
  }
  UErrorCode status = U_ZERO_ERROR;
  const auto bundle = std::make_shared<icu::ResourceBundle>(
      (std::string(resources) + "libbench").c_str(), icu::Locale("en"), status);
  const std::string id = "MSG_DISK_FULL";
  addRow("getMessage of an active catalog", 1.5)
      .library([=] { return std::string(catalog->getMessage(id, nullptr).c_str()); })
      .peer("ResourceBundle, UTF-8", [=] {
        UErrorCode error = U_ZERO_ERROR;
        icu::UnicodeString text = bundle->getStringEx(id.c_str(), error);
        return "bench: " + Tool::ustr2str(text);
      });
}

// As the library has to meet it from a stranger: no tag ends.
std::string unclosed(size_t size) {
  std::string text = "<SERIALIZED_MESSAGE MSGID=a SEVERITY=1>";
  while (text.size() < size) {
    text += "<ARGVALUE  ";
  }
  return text;
}

}  // namespace

void addMessageRows() {
  addSerializedRows();
  if (std::getenv("KELP_PRIVATE_VIEW") == nullptr) {
    std::fputs("bench: the row of the catalog runs in the private view only\n", stderr);
  } else {
    addCatalogRow();
  }
  growths().push_back({"deserialize, tags that do not end", 500, [](size_t size) {
                         return [text = unclosed(size)]() mutable {
                           const kelp_cmn_4_4::SCmnMessageInfo info{text.data(), 0};
                           try {
                             kelp_cmn_4_4::CCmnIcuMessage().deserialize(&info);
                           } catch (const std::out_of_range&) {
                             return;
                           }
                         };
                       }});
}

}  // namespace kelp_bench
