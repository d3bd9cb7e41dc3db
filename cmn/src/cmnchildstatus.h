// How the statuses of ended children get from the SIGCHLD handler into a map.
#ifndef CMNCHILDSTATUS_H
#define CMNCHILDSTATUS_H

#include "cmnstatusring.h"

#include <atomic>
#include <cstddef>
#include <map>

namespace kelp_cmn_4_4 {

// A handler that simply inserted into the map would now and then re-enter malloc, or meet the map
// half changed. So the handler inserts nodes that were allocated beforehand, and only when nobody
// else is in the map; otherwise it leaves its record in a ring, which the main line takes into the
// map before it looks. The signal is never blocked, and the handler never waits for anybody.
class ChildStatusRecorder {
 public:
  using Map = std::map<int, int>;

  static constexpr size_t preparedNodes = 64;

  ChildStatusRecorder();

  // The handler's side. Everything that a handler does with children happens while a Visit is
  // alive.
  class Visit {
   public:
    explicit Visit(ChildStatusRecorder& recorder);
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    // False once close() was called: there is no map any more.
    explicit operator bool() const { return m_open; }

   private:
    ChildStatusRecorder& m_recorder;
    bool m_open;
  };
  void record(Map& statuses, int pid, int status);

  // The main line's side: removes a child's record, if there is one.
  bool take(Map& statuses, int pid, int& status);

  // The main line's side: takes the ring's records into the map and allocates new nodes for used
  // ones.
  void prepare(Map& statuses);

  // Ends all recording, for good; the map may be destroyed afterwards.
  void close();

 private:
  class MapUse;

  bool tryTakeMap();
  bool awaitMap();
  bool placePrepared(Map& statuses, StatusRing::Record record);
  void drainPrepared(Map& statuses);
  void drain(Map& statuses);  // allocates, but never throws: what there is no memory for stays
  void topUp();

  StatusRing m_ring;
  std::multimap<int, int> m_prepared;  // only its nodes matter; used by whoever holds the map
  std::atomic<bool> m_open{true};
  std::atomic<bool> m_mapTaken{false};
  std::atomic<int> m_visits{0};
};

}  // namespace kelp_cmn_4_4

#endif
