// Prints the elements of an XML document as an outline: a name a line, indented by its depth, with
// the text that stands in it.
#include <xercesc/util/TransService.hpp>

#include <cmnsaxhandler.h>
#include <cmnsaxparser.h>
#include <cmnstringtool.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

using kelp_cmn_4_4::CCmnSaxParseHandler;
using kelp_cmn_4_4::CCmnSaxParser;
using kelp_cmn_4_4::CCmnStringTool;

constexpr int wrongUsage = 64;  // EX_USAGE of <sysexits.h>

std::string utf8(const std::basic_string<XMLCh>& text) {
  const xercesc::TranscodeToStr converted(text.data(), text.length(), "UTF-8");
  return std::string(reinterpret_cast<const char*>(converted.str()), converted.length());
}

class Outline : public CCmnSaxParseHandler {
 public:
  void startElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/, const XMLCh* qname,
                    const xercesc::Attributes& /*attrs*/) override {
    printLine();
    m_name = utf8(qname);
    ++m_depth;
  }

  void endElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/,
                  const XMLCh* /*qname*/) override {
    printLine();
    --m_depth;
  }

  using CCmnSaxParseHandler::characters;  // or compilers warn that the next one hides it

  // The operation that the reader calls. A text comes in pieces, which may even end inside a
  // surrogate pair, so it is converted as a whole.
  void characters(const XMLCh* const chars, const XMLSize_t length) override {
    m_text.append(chars, length);
  }

 private:
  // The element that was opened last, if it has no line yet, and the text since then.
  void printLine() {
    const std::string text = CCmnStringTool::trim(utf8(m_text));
    if (!m_name.empty()) {
      std::printf("%*s%s%s%s\n", 2 * (m_depth - 1), "", m_name.c_str(), text.empty() ? "" : ": ",
                  text.c_str());
    } else if (!text.empty()) {
      std::printf("%*s%s\n", 2 * m_depth, "", text.c_str());
    }
    m_name.clear();
    m_text.clear();
  }

  int m_depth = 0;
  std::string m_name;
  std::basic_string<XMLCh> m_text;
};

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

bool readFile(const char* name, std::string& content) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(name, "rb"));
  if (file == nullptr) {
    return false;
  }
  char buffer[65536];
  for (size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0;) {
    content.append(buffer, count);
  }
  return std::ferror(file.get()) == 0;
}

void print(const xercesc::SAXParseException& problem, const char* document) {
  // The parser names its documents so itself; any other name is that of an external entity.
  const std::string place = utf8(problem.getSystemId());
  std::fprintf(stderr, "%s:%lu:%lu: %s\n", place == "kelp_sax_parser" ? document : place.c_str(),
               static_cast<unsigned long>(problem.getLineNumber()),
               static_cast<unsigned long>(problem.getColumnNumber()),
               utf8(problem.getMessage()).c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: sax_outline FILE\n", stderr);
    return wrongUsage;
  }
  std::string document;
  if (!readFile(argv[1], document)) {
    std::fprintf(stderr, "sax_outline: %s: %s\n", argv[1], std::strerror(errno));
    return 1;
  }

  Outline outline;
  CCmnSaxParser parser(&outline);
  parser.parse(document);  // a document of your own: it can have other files read
  if (std::fflush(stdout) != 0) {
    std::perror("sax_outline: standard output");
    return 1;
  }
  if (outline.hasErrorOccurred()) {
    print(outline.getLastException(), argv[1]);
    return 1;
  }
  return 0;
}
