// Reads an order out of XML: the attributes and the text of its items.
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/TransService.hpp>

#include <cmnsaxhandler.h>
#include <cmnsaxparser.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace kelp_cmn_4_4;
using XercesText = std::basic_string<XMLCh>;

static std::string utf8(const XercesText& text) {
  const xercesc::TranscodeToStr converted(text.data(), text.length(), "UTF-8");
  return std::string(reinterpret_cast<const char*>(converted.str()), converted.length());
}

class Order : public CCmnSaxParseHandler {
 public:
  void startElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/, const XMLCh* qname,
                    const xercesc::Attributes& attributes) override {
    m_text.clear();
    if (utf8(qname) == "item") {
      const XMLCh* const count = attributes.getValue(u"count");  // null where there is none
      m_count = count != nullptr ? utf8(count) : "1";
    }
  }

  void endElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/, const XMLCh* qname) override {
    if (utf8(qname) == "item") {
      std::printf("%s x %s\n", m_count.c_str(), utf8(m_text).c_str());
    }
  }

  using CCmnSaxParseHandler::characters;  // or compilers warn that the next one hides it

  // The operation that the reader calls. A long text comes in pieces.
  void characters(const XMLCh* const text, const XMLSize_t length) override {
    m_text.append(text, length);
  }

 private:
  std::string m_count;
  XercesText m_text;
};

int main() {
  Order order;  // before the parser: it must outlive it
  CCmnSaxParser parser(&order);
  const std::vector<std::string> parts = {"<order><item count='2'>kelp &amp; ",
                                          "dulse</item><item>côte</item></order>"};
  parser.parse(parts);
  std::printf("%s\n", order.hasErrorOccurred() ? "not well-formed" : "well-formed");
  return 0;
}
