#include "rows.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <cmnsaxhandler.h>
#include <cmnsaxparser.h>

#include <memory>
#include <string>

#ifdef KELP_BENCH_EXPAT
#include <expat.h>
#endif

namespace kelp_bench {
namespace {

std::string document(size_t size) {
  std::string xml = "<order>";
  for (int item = 0; xml.size() < size; ++item) {
    xml += "<item number=\"" + std::to_string(item) + "\"><name>Bolt &amp; nut</name></item>\n";
  }
  return xml + "</order>";
}

class Counter : public kelp_cmn_4_4::CCmnSaxParseHandler {
 public:
  using CCmnSaxParseHandler::characters;
  void startElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/, const XMLCh* /*qname*/,
                    const xercesc::Attributes& /*attrs*/) override {
    ++elements;
  }
  long elements = 0;
};

long parseByLibrary(const std::string& xml) {
  Counter counter;
  kelp_cmn_4_4::CCmnSaxParser parser(&counter);
  parser.parse(xml);
  return counter.elements;
}

long parseByReader(const std::string& xml) {
  Counter counter;
  const std::unique_ptr<xercesc::SAX2XMLReader> reader(
      xercesc::XMLReaderFactory::createXMLReader());
  for (const XMLCh* const feature :
       {xercesc::XMLUni::fgSAX2CoreValidation, xercesc::XMLUni::fgSAX2CoreNameSpaces,
        xercesc::XMLUni::fgXercesSchema, xercesc::XMLUni::fgXercesSchemaFullChecking,
        xercesc::XMLUni::fgSAX2CoreNameSpacePrefixes}) {
    reader->setFeature(feature, false);
  }
  reader->setContentHandler(&counter);
  reader->setErrorHandler(&counter);
  reader->parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(xml.data()),
                                           xml.length(), "bench"));
  return counter.elements;
}

#ifdef KELP_BENCH_EXPAT
long parseByExpat(const std::string& xml) {
  long elements = 0;
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetUserData(parser, &elements);
  XML_SetElementHandler(
      parser, [](void* data, const XML_Char*, const XML_Char**) { ++*static_cast<long*>(data); },
      [](void*, const XML_Char*) {});
  XML_Parse(parser, xml.data(), static_cast<int>(xml.size()), 1);
  XML_ParserFree(parser);
  return elements;
}
#endif

}  // namespace

void addXmlRows() {
  // As a host does that parses often: so a parser's life does not begin Xerces-C anew.
  xercesc::XMLPlatformUtils::Initialize();
  const std::string xml = document(10 << 20);
  Row& row = addRow("parse 10 MB", 1.02, Row::Pace::slow);
  row.library([xml] { return parseByLibrary(xml); });
  row.peer("Xerces-C reader", [xml] { return parseByReader(xml); });
#ifdef KELP_BENCH_EXPAT
  row.peer("expat", [xml] { return parseByExpat(xml); });
#endif
  growths().push_back({"parse", 10000, [](size_t size) {
                         return [xml = document(size)] {
                           benchmark::DoNotOptimize(parseByLibrary(xml));
                         };
                       }});
}

}  // namespace kelp_bench
