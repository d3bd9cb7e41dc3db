// Prints the elements of an XML document as an outline: a name a line, indented by its depth, with
// the text that stands in it.
#include <xercesc/util/TransService.hpp>

#include <cmnsaxhandler.h>
#include <cmnsaxparser.h>
#include <cmnstringtool.h>

#include <cstdio>
#include <fstream>
#include <sstream>
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

  // The operation that the reader calls. A long text comes in pieces that may end inside a
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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: sax_outline FILE\n", stderr);
    return wrongUsage;
  }
  std::ifstream file(argv[1], std::ios::binary);
  std::ostringstream document;
  document << file.rdbuf();
  if (!file.is_open()) {
    std::fprintf(stderr, "sax_outline: %s cannot be opened\n", argv[1]);
    return 1;
  }

  Outline outline;
  CCmnSaxParser parser(&outline);
  parser.parse(document.str());
  if (outline.hasErrorOccurred()) {
    const xercesc::SAXParseException& problem = outline.getLastException();
    std::fflush(stdout);
    std::fprintf(
        stderr, "%s:%lu:%lu: %s\n", argv[1], static_cast<unsigned long>(problem.getLineNumber()),
        static_cast<unsigned long>(problem.getColumnNumber()), utf8(problem.getMessage()).c_str());
    return 1;
  }
  return 0;
}
