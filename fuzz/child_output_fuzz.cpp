// However a child's output arrives, the lines are those of a plain splitter, whatever room there is
// for each. The runs of one object follow each other, and some are given up midway.
#include "cmnexecpipe.h"
#include "expect.h"
#include "input.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <string>

namespace {

using kelp_fuzz::expect;

constexpr size_t blockSize = 512;
constexpr size_t mostPieces = 16;  // which a pipe has room for, whoever runs it

enum class End { endOfFile, silence, error };

// A pipe in which each piece stays one: no read gets more than one, nor part of one.
class PieceWisePipe {
 public:
  PieceWisePipe() {
    int ends[2];
    expect(pipe2(ends, O_DIRECT | O_CLOEXEC) == 0, "a pipe");
    m_readEnd = ends[0];
    m_writeEnd = ends[1];
  }
  ~PieceWisePipe() { endOutput(); }  // the read end is the reader's
  PieceWisePipe(const PieceWisePipe&) = delete;
  PieceWisePipe& operator=(const PieceWisePipe&) = delete;

  void put(const std::string& piece) const {
    expect(write(m_writeEnd, piece.data(), piece.size()) == static_cast<ssize_t>(piece.size()),
           "room for the piece");
  }

  void endOutput() {
    if (m_writeEnd != -1) {
      close(m_writeEnd);
    }
    m_writeEnd = -1;
  }

  // Gives the read end a number that is not small, if there may be such.
  void moveReadEnd(int least) {
    const int moved = fcntl(m_readEnd, F_DUPFD, least);
    if (moved != -1) {
      close(m_readEnd);
      m_readEnd = moved;
    }
  }

  int readEnd() const { return m_readEnd; }

 private:
  int m_readEnd = -1;
  int m_writeEnd = -1;
};

// Reading it always fails, and never has to wait.
int unreadable() {
  static const int directory = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return directory;
}

// The output as it is still to come.
class PlainOutput {
 public:
  void begin(End end) {
    m_pieces.clear();
    m_end = end;
    m_open = true;
  }
  void add(const std::string& piece) { m_pieces.push_back(piece); }
  void breakOff() {
    m_pieces.clear();
    m_end = End::error;
  }
  void giveUp() { m_open = false; }  // what was read ahead stays
  bool isOpen() const { return m_open; }

  bool readLine(size_t size, std::string& line, bool& timedOut) {
    line.clear();
    timedOut = false;
    if (!m_open || size < 2) {
      return false;
    }
    while (line.size() < size - 1 && (line.empty() || line.back() != '\n')) {
      if (m_readAhead.empty()) {
        if (m_pieces.empty()) {
          m_open = false;
          timedOut = m_end == End::silence;
          return !line.empty() && m_end != End::error;
        }
        m_readAhead = m_pieces.front();
        m_pieces.pop_front();
      }
      line += m_readAhead.front();
      m_readAhead.erase(0, 1);
    }
    return true;
  }

 private:
  std::string m_readAhead;
  std::deque<std::string> m_pieces;
  End m_end = End::endOfFile;
  bool m_open = false;
};

class Reader : public kelp_cmn_4_4::CCmnExecPipePosix {
 public:
  void begin(int readEnd) { m_readFd = readEnd; }

  void giveUp() { Close(0); }

  void breakOff() const { expect(dup2(unreadable(), m_readFd) == m_readFd, "a broken read end"); }

  // The buffer is just as large as the reader is told.
  void expectLine(size_t size, PlainOutput& plain) {
    std::string line;
    bool timedOut = false;
    const bool stored = plain.readLine(size, line, timedOut);
    const auto buffer = std::make_unique<char[]>(size);
    unsigned char mark = 0xee;
    expect(ReadLine(buffer.get(), static_cast<int>(size), &mark, 0) == stored, "a line, or none");
    expect(mark == (timedOut ? 1 : 0), "whether the time ran out");
    expect(!stored || std::memcmp(buffer.get(), line.c_str(), line.size() + 1) == 0, "the line");
    expect((m_readFd != -1) == plain.isOpen(), "closed at the end");
  }
};

// Begins a run, whose output stays there as long as the pipe that is given.
std::unique_ptr<PieceWisePipe> begun(kelp_fuzz::Input& input, Reader& reader, PlainOutput& plain) {
  constexpr int leastNumbers[] = {0, 1024, 8192};
  auto pipe = std::make_unique<PieceWisePipe>();
  const bool isSilent = input.choice();
  pipe->moveReadEnd(leastNumbers[input.upTo(2)]);
  reader.begin(pipe->readEnd());
  plain.begin(isSilent ? End::silence : End::endOfFile);
  for (size_t pieces = input.upTo(mostPieces); pieces > 0 && !input.empty(); --pieces) {
    const size_t length = 1 + input.upTo(blockSize - 1);
    const std::string piece = input.bytes(length);
    if (!piece.empty()) {
      pipe->put(piece);
      plain.add(piece);
    }
  }
  if (!isSilent) {
    pipe->endOutput();
  }
  return pipe;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr size_t usualSize = 8191;
  kelp_fuzz::Input input(data, size);
  Reader reader;
  PlainOutput plain;
  std::unique_ptr<PieceWisePipe> pipe;
  while (!input.empty()) {
    switch (input.upTo(7)) {
      case 0:
        reader.giveUp();
        pipe = begun(input, reader, plain);
        break;
      case 1:
        reader.giveUp();
        plain.giveUp();
        break;
      case 2:
        if (plain.isOpen()) {
          reader.breakOff();
          plain.breakOff();
        }
        break;
      case 3:
        reader.expectLine(usualSize, plain);
        break;
      case 4:
      case 5:
        reader.expectLine(input.upTo(1200), plain);
        break;
      default:
        reader.expectLine(input.upTo(30), plain);
    }
  }
  return 0;
}
