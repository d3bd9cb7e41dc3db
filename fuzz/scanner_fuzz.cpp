// Whatever the format and the text, a scan gives what the slow form gives, and leaves what it
// leaves: from a text, from a source in pieces, and from a stream.
#include "Q_sscanf.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "locales.h"
#include "plain_scanner.h"
#include "plain_text.h"
#include "scan.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using kelp_fuzz::expect;
using kelp_test::PlainScanner;
using kelp_test::PlainSlot;

constexpr size_t mostValues = 6;

// What is scanned twice, one scan going on where the other stopped.
struct Task {
  std::string format;
  std::string text;
  std::vector<int> sizes;
};

struct Scan {
  int result = 0;
  int error = 0;
  std::vector<PlainSlot> slots = std::vector<PlainSlot>(mostValues);
  std::string rest;  // what is left of the text

  void expectAsPlain(const Scan& plain) const {
    expect(result == plain.result, "the result of the plain scan");
    expect(slots == plain.slots, "the values of the plain scan");
  }
};

Scan scanPlainly(const Task& task, const std::string& text) {
  Scan scan;
  PlainScanner scanner(text, task.sizes);
  errno = 0;
  scan.result = scanner.scan(task.format);
  scan.error = errno;
  scan.slots = scanner.slots();
  scan.rest = text.substr(scanner.consumed());
  return scan;
}

template <class Call>
Scan scanBy(const Task& task, Call call) {
  Scan scan;
  const auto& s = task.sizes;
  const auto at = [&scan](size_t i) { return scan.slots[i].bytes.data(); };
  errno = 0;
  scan.result = call(task.format.c_str(), at(0), s[0], at(1), s[1], at(2), s[2], at(3), s[3], at(4),
                     s[4], at(5), s[5]);
  scan.error = errno;
  return scan;
}

void checkText(const Task& task) {
  const std::string text = kelp_test::upToZero(task.text);
  const Scan plain = scanPlainly(task, text);
  auto guarded = kelp_fuzz::atEdge(text);
  const char* const scanned = guarded.text().data();
  const Scan scan =
      scanBy(task, [scanned](auto... arguments) { return Q_sscanf(scanned, arguments...); });
  scan.expectAsPlain(plain);
  expect(scan.error == plain.error, "the errno of the plain scan");
}

Scan scanSource(const Task& task, ScanSource* source) {
  return scanBy(task,
                [source](auto... arguments) { return kelp_test::scan(source, arguments...); });
}

// ---- in pieces

// Gives a text out in pieces of the sizes that some bytes say. The largest end at a page that
// nobody may touch.
class PieceSource {
 public:
  PieceSource(const std::string& text, const std::string& sizes)
      : m_record{nullptr, 0, 0, nullptr, 0, give, nullptr}, m_left(text) {
    for (const char size : sizes) {
      m_sizes.push_back(size_t{1} + static_cast<unsigned char>(size));
    }
    const size_t largest = *std::max_element(m_sizes.begin(), m_sizes.end());
    static kelp_fuzz::EdgeBuffer<char> buffer;
    m_record.base = buffer.holding(std::string(largest, '\0'));
    m_record.size = static_cast<int>(largest);
  }

  ScanSource* record() { return &m_record; }

  std::string rest() const {
    return std::string(m_record.position, static_cast<size_t>(m_record.unread)) + m_left;
  }

 private:
  static int give(void* cookie, char* buffer, int /*size*/) {
    auto* const self = reinterpret_cast<PieceSource*>(cookie);  // the record is its first member
    const size_t count = self->m_left.copy(buffer, self->m_sizes[self->m_next]);
    self->m_left.erase(0, count);
    self->m_next = (self->m_next + 1) % self->m_sizes.size();
    return static_cast<int>(count);
  }

  ScanSource m_record;
  std::string m_left;
  std::vector<size_t> m_sizes{1};
  size_t m_next = 0;
};

void checkPieces(const Task& task, const std::string& pieceSizes) {
  PieceSource source(task.text, pieceSizes);
  std::string text = task.text;
  for (int i = 0; i < 2; ++i) {
    const Scan plain = scanPlainly(task, text);
    const Scan scan = scanSource(task, source.record());
    scan.expectAsPlain(plain);
    expect(scan.error == plain.error, "the errno of the plain scan");
    text = plain.rest;
    expect(source.rest() == text, "the rest that the plain scan leaves");
  }
}

// ---- as a stream

FILE* fileOf(const std::string& text) {
  const int file = memfd_create("text", MFD_CLOEXEC);
  expect(write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "a file");
  lseek(file, 0, SEEK_SET);
  return fdopen(file, "r");
}

FILE* pipeOf(const std::string& text) {
  int ends[2];
  expect(pipe(ends) == 0, "a pipe");
  expect(write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()), "a pipe");
  close(ends[1]);
  return fdopen(ends[0], "r");
}

// Of what kind, and with how large a buffer, the byte says.
FILE* streamOf(const std::string& text, size_t kind, char* buffer) {
  constexpr size_t pipeCapacity = 1 << 15;
  const bool isPipe = kind % 2 == 1 && text.size() < pipeCapacity;
  FILE* const stream = isPipe ? pipeOf(text) : fileOf(text);
  const size_t size = kind / 4;
  if (size > 0) {
    setvbuf(stream, buffer, _IOFBF, size);
  } else if (kind % 4 >= 2) {
    setvbuf(stream, nullptr, _IONBF, 0);
  }
  return stream;
}

std::string restOf(FILE* stream) {
  std::string rest;
  for (int c = fgetc(stream); c != EOF; c = fgetc(stream)) {
    rest += static_cast<char>(c);
  }
  return rest;
}

void checkStream(const Task& task, size_t kind) {
  char buffer[64];
  FILE* const stream = streamOf(task.text, kind, buffer);
  ScanSource source{nullptr, 0, 0, nullptr, 0, nullptr, stream};
  std::string text = task.text;
  for (int i = 0; i < 2; ++i) {
    const Scan plain = scanPlainly(task, text);
    scanSource(task, &source).expectAsPlain(plain);
    text = plain.rest;
  }
  if (source.position != nullptr) {  // it has adopted the stream's buffer
    updateFILE(&source);
  }
  expect(restOf(stream) == text, "the rest that the plain scan leaves");
  fclose(stream);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  kelp_fuzz::Input input(data, size);
  Task task;
  task.format = input.text();
  const std::string pieceSizes = input.text();
  const size_t streamKind = input.upTo(255);
  const size_t someSize = input.upTo(255);
  constexpr size_t fewLocales = 6;
  const kelp_fuzz::ChosenLocale locale(input, fewLocales);
  task.text = input.rest();
  for (size_t i = 0; i < mostValues; ++i) {
    task.sizes.push_back(static_cast<int>((someSize + 7 * i) % (kelp_test::plainSlotSize + 1)) - 1);
  }
  if (std::count(task.format.begin(), task.format.end(), '%') <= std::ptrdiff_t{mostValues}) {
    checkText(task);
    checkPieces(task, pieceSizes);
    checkStream(task, streamKind);
  }
  return 0;
}
