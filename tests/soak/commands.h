// What the soak runs, and what each command does.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace kelp_soak {

// The same everywhere for the same seed.
class Random {
 public:
  explicit Random(uint64_t seed) : m_engine(seed) {}
  size_t below(size_t limit) { return static_cast<size_t>(m_engine() % limit); }
  size_t between(size_t first, size_t last) { return first + below(last - first + 1); }
  bool oneIn(size_t count) { return below(count) == 0; }
  template <class T>
  const T& of(const std::vector<T>& all) {
    return all[below(all.size())];
  }

 private:
  std::mt19937_64 m_engine;
};

// How a process ended: by a signal, or with an exit status.
struct End {
  bool bySignal;
  int number;
};

struct Command {
  std::string name;   // its row in the table
  std::string line;   // what is run
  std::string input;  // a file; empty for none
  std::string output;
  End end;
  bool endless = false;  // the output is numbered lines for ever
  bool runsOn = false;   // ends only by force

  // How it may end: when its output is read to the end, and when it is closed before.
  std::vector<End> ends(bool early) const;
};

// A command that ends by itself; one of them reads the file, which is written for it.
Command someEndingCommand(Random& random, const std::string& inputFile);
Command tellingCommand(Random& random);  // tells its status in its output, too
Command countingCommand(Random& random);

// One that does not.
Command someLastingCommand(Random& random);
Command closedForEverCommand();
Command silentCommand();
Command endlessCommand();

// What is no command at all.
Command unparsableCommand(Random& random);
Command missingCommand(Random& random);

// That many bytes of the output of an endless command.
std::string numberedLines(size_t bytes);

}  // namespace kelp_soak
