// The bounded routines and the scanner.
#include "Q_sscanf.h"
#include "Q_strings.h"
#include "Q_vfscanf.h"
#include "job.h"
#include "words.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace kelp_test {
namespace {

template <class Run>
Operation of(const std::string& name, Run run, const std::vector<Allowance>& allowances = {}) {
  return function(name, run, InWords(), allowances);
}

// Keeps its destination, which a failing call must leave as it was.
class WideFormat : public Job {
 public:
  void run() override {
    std::wcscpy(m_text, L"old");
    m_result = Q_snwprintf(m_text, std::size(m_text), L"%ls and %d", L"a text", 12);
  }
  std::string outcome() override { return words(m_result) + ": " + words(std::wstring(m_text)); }

 private:
  int m_result = 0;
  wchar_t m_text[100] = L"";
};

class Resizing : public Job {
 public:
  ~Resizing() override { std::free(m_block); }
  void run() override { m_result = Q_dumb_realloc(&m_block, m_size *= 2); }
  std::string outcome() override {
    return std::string(m_result == nullptr ? "null" : "block") +
           (m_result == m_block ? "" : ", another is kept");
  }

 private:
  size_t m_size = 50;
  void* m_block = std::malloc(m_size);
  void* m_result = nullptr;
};

int scan(ScanSource& source, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = Q_vfscanf(&source, format, args);
  va_end(args);
  return result;
}

struct CloseStream {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};

class StreamScan : public Job {
 public:
  StreamScan() : m_stream(std::tmpfile()) {
    std::fputs("12 words", m_stream.get());
    std::setvbuf(m_stream.get(), m_buffer, _IOFBF, sizeof m_buffer);
  }
  void run() override {
    std::rewind(m_stream.get());
    ScanSource source{};
    source.stream = m_stream.get();
    m_result = scan(source, "%d %s", &m_number, int{sizeof m_number}, m_word, int{sizeof m_word});
  }
  std::string outcome() override {
    return words(m_result) + (m_result > 0 ? ": " + words(m_number) : "") +
           (m_result > 1 ? " " + words(m_word) : "");
  }

 private:
  char m_buffer[4] = "";
  std::unique_ptr<std::FILE, CloseStream> m_stream;
  int m_result = 0;
  int m_number = 0;
  char m_word[20] = "";
};

class Refilling : public Job {
 public:
  Refilling() : m_stream(std::tmpfile()) {
    std::fputs("12 words", m_stream.get());
    std::setvbuf(m_stream.get(), m_buffer, _IOFBF, sizeof m_buffer);
  }
  void run() override {
    std::rewind(m_stream.get());
    m_source = ScanSource();
    m_source.stream = m_stream.get();
    m_result = __Qrefill(&m_source);
  }
  std::string outcome() override {
    return words(m_result) +
           (m_result == 0
                ? ": " + std::string(m_source.position, static_cast<size_t>(m_source.unread))
                : "");
  }

 private:
  char m_buffer[4] = "";
  std::unique_ptr<std::FILE, CloseStream> m_stream;
  ScanSource m_source{};
  int m_result = 0;
};

}  // namespace

Operations scanningOperations() {
  Operations all;
  all.push_back(of("Q_snprintf",
                   [] {
                     char text[100] = "old";
                     const int length = Q_snprintf(text, sizeof text, "%s %d %g", "text", 12, 1.5);
                     return std::make_pair(length, std::string(text));
                   },
                   {{{Call::vsnprintf}, {"0, "}}}));
  all.push_back(operationOf<WideFormat>(
      "Q_snwprintf",
      {{{Call::malloc, Call::anyMemory}, {"-1: old", asEver}}, {{Call::vswprintf}, {"-1: "}}}));
  all.push_back(
      operationOf<Resizing>("Q_dumb_realloc", {{{Call::realloc, Call::anyMemory}, {"null"}}}));
  all.push_back(of("Q_sscanf", [text = "12 " + std::string(3000, '1') + " word"] {
    int number = 0;
    double floating = 0;
    char word[20] = "";
    const int result = Q_sscanf(text.c_str(), "%d %lf %s", &number, int{sizeof number}, &floating,
                                int{sizeof floating}, word, int{sizeof word});
    return result * 100 + number + word[0];
  }));
  // What the platform cannot read is the end of the input.
  all.push_back(operationOf<StreamScan>("Q_vfscanf of a stream",
                                        {{{Call::fscanf}, {"-1", "1: 12", "2: 12 w", asEver}}}));
  all.push_back(operationOf<Refilling>("__Qrefill of a stream", {{{Call::fscanf}, {"-1"}}}));
  return all;
}

}  // namespace kelp_test
