// How the statuses of ended children get from the SIGCHLD handler into a map.
#ifndef CMNCHILDSTATUS_H
#define CMNCHILDSTATUS_H

#include "cmnstatusqueue.h"

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <map>

namespace kelp_cmn_4_4 {

// A handler that simply inserted into the map would now and then re-enter malloc, or meet the map
// half changed. So the handler inserts nodes that were allocated beforehand, and only when nobody
// else is in the map; otherwise it leaves its record in a queue, which the main line moves into the
// map before it looks. The signal is never blocked, and the handler neither allocates from a heap
// nor waits for anybody.
class ChildStatusRecorder {
 public:
  using Map = std::map<int, int>;

  static constexpr size_t preparedNodes = 64;

  ChildStatusRecorder();

  // The handler's side. Everything that a handler does with children happens while a
  // Visit is alive.
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

  // The main line's side: takes a child's record out, if there is one.
  bool extract(Map& statuses, int pid, int& status);

  // The main line's side: moves the queue's records into the map and allocates new nodes
  // for used ones.
  void drainAndTopUp(Map& statuses);

  // Ends all recording, for good; the map may be destroyed afterwards. Nobody waits any more.
  void close();

  // Around every fork of the process, so that the child gets a map that nobody was changing. Where
  // the map cannot be had in time, or is held by this very thread, the child's recorder is closed:
  // waitpid alone tells it then how its own children ended.
  void beforeFork();
  void afterFork(Map& statuses);
  void afterForkInChild(Map& statuses);

 private:
  class MapUse;

  bool tryHoldMap();
  bool awaitMap();
  void releaseMap();
  bool isMapMine() const;
  bool placePrepared(Map& statuses, StatusQueue::Record record);
  void drainPrepared(Map& statuses);
  void drain(Map& statuses);  // allocates, but never throws: what there is no memory for stays
  void topUp();

  static_assert(std::atomic<pthread_t>::is_always_lock_free &&
                    std::atomic<int>::is_always_lock_free,
                "a signal handler may use nothing that locks");

  StatusQueue m_queue;
  std::multimap<int, int> m_prepared;  // only its nodes matter; used by whoever holds the map

  // These three are used in the strongest order, which is the default. Weaker ones would do for
  // each of them, as told below; but nobody comes here often enough to feel it, and what meets in
  // extract() and close() is easier to be sure of in one order.

  // False for good after close(). Where that got the map nobody else gets it any more; where it
  // did not in time, this alone keeps others out. It carries no data, so it could be relaxed, but
  // it has to be asked after the map was taken: tryHoldMap()'s exchange, which acquires, keeps it
  // there. Asked before, it could be older than the hold, and the map destroyed in between.
  std::atomic<bool> m_open{true};

  // The thread that is in the map; 0 for nobody. A lock that is only ever tried: the exchange in
  // tryHoldMap() acquires what releaseMap() released, that is the map, the nodes and the heads of
  // the queue's rings. Relaxed, the next one could meet a tree whose links are half written.
  std::atomic<pthread_t> m_mapHolder{0};

  // The handlers that are at work. A handler counts itself before it asks waitpid, and out again
  // when it has recorded; the latter releases the record to extract(), which acquires it with the 0
  // that it waits for. Relaxed, extract() could find nobody at work and no record either, and the
  // child's status would count as lost. That the count is seen by whoever then finds the child
  // reaped is the kernel's doing, which orders the two calls of waitpid.
  std::atomic<int> m_visits{0};

  // Forks begun by a thread that was in the map already; used by that thread.
  int m_forksInside = 0;
};

}  // namespace kelp_cmn_4_4

#endif
