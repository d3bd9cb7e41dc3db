#include "cmnchildstatus.h"

#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <utility>

namespace kelp_cmn_4_4 {
namespace {

constexpr long longestWaitNanoseconds = 100'000'000;
constexpr int yieldsBeforeSleeping = 100;
constexpr timespec shortSleep{0, 100'000};

long nanosecondsNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

// Lets others run. A real-time thread must sleep for that: when it yields, no ordinary thread runs.
// The sleep is a bare system call, as pthread_cancel may end a thread in nanosleep().
void giveWay(int attempt) {
  if (attempt < yieldsBeforeSleeping) {
    sched_yield();
  } else {
    syscall(SYS_nanosleep, &shortSleep, nullptr);
  }
}

// Waits for a handler or a look-up in another thread, which takes microseconds once it runs. One
// that takes much longer may never end, so the wait is bounded.
template <class Condition>
bool comesTrueSoon(Condition condition) {
  if (condition()) {
    return true;
  }
  const long start = nanosecondsNow();
  for (int attempt = 0; nanosecondsNow() - start < longestWaitNanoseconds; ++attempt) {
    giveWay(attempt);
    if (condition()) {
      return true;
    }
  }
  return false;
}

class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t m_before{};
};

}  // namespace

// Releases the map in the end, if it could be had.
class ChildStatusRecorder::MapUse {
 public:
  MapUse(ChildStatusRecorder& recorder, bool held) : m_recorder(recorder), m_held(held) {}
  ~MapUse() {
    if (m_held) {
      m_recorder.releaseMap();
    }
  }
  MapUse(const MapUse&) = delete;
  MapUse& operator=(const MapUse&) = delete;
  explicit operator bool() const { return m_held; }

 private:
  ChildStatusRecorder& m_recorder;
  bool m_held;
};

ChildStatusRecorder::ChildStatusRecorder() { topUp(); }

ChildStatusRecorder::Visit::Visit(ChildStatusRecorder& recorder) : m_recorder(recorder) {
  m_recorder.m_visits.fetch_add(1);
  m_open = m_recorder.m_open.load();
}

ChildStatusRecorder::Visit::~Visit() { m_recorder.m_visits.fetch_sub(1); }

// close() does not wait for ever, so somebody may get hold of the map after it. By then the map may
// be destroyed.
bool ChildStatusRecorder::tryHoldMap() {
  pthread_t nobody = 0;
  if (!m_mapHolder.compare_exchange_strong(nobody, pthread_self())) {
    return false;
  }
  if (!m_open.load()) {
    releaseMap();
    return false;
  }
  return true;
}

void ChildStatusRecorder::releaseMap() { m_mapHolder.store(0); }

// No other thread stores this one's number, so the answer cannot change meanwhile, and no order is
// needed for it.
bool ChildStatusRecorder::isMapMine() const { return m_mapHolder.load() == pthread_self(); }

bool ChildStatusRecorder::awaitMap() {
  if (isMapMine()) {
    return false;  // this very thread was interrupted in the map
  }
  bool held = false;
  comesTrueSoon([this, &held] {
    held = tryHoldMap();
    return held || !m_open.load();
  });
  return held;
}

void ChildStatusRecorder::record(Map& statuses, int pid, int status) {
  const MapUse use(*this, tryHoldMap());
  if (use) {
    drainPrepared(statuses);
    if (m_queue.empty() && placePrepared(statuses, {pid, status})) {
      return;
    }
  }
  m_queue.push({pid, status});
}

bool ChildStatusRecorder::placePrepared(Map& statuses, StatusQueue::Record record) {
  const auto found = statuses.find(record.pid);
  if (found != statuses.end()) {
    found->second = record.status;
    return true;
  }
  if (m_prepared.empty()) {
    return false;
  }
  auto node = m_prepared.extract(m_prepared.begin());
  node.key() = record.pid;
  node.mapped() = record.status;
  statuses.insert(std::move(node));
  return true;
}

void ChildStatusRecorder::drainPrepared(Map& statuses) {
  m_queue.handOut(
      [this, &statuses](StatusQueue::Record record) { return placePrepared(statuses, record); });
}

void ChildStatusRecorder::drain(Map& statuses) {
  m_queue.handOut([this, &statuses](StatusQueue::Record record) {
    if (m_prepared.empty()) {
      topUp();
    }
    return placePrepared(statuses, record);
  });
}

void ChildStatusRecorder::topUp() {
  try {
    while (m_prepared.size() < preparedNodes) {
      m_prepared.emplace(0, 0);
    }
  } catch (...) {
    return;  // fewer nodes will do: the queue takes what they cannot
  }
}

bool ChildStatusRecorder::extract(Map& statuses, int pid, int& status) {
  // A handler that has reaped a child already will soon have recorded it.
  comesTrueSoon([this] { return m_visits.load() <= 0 || !m_open.load(); });
  const MapUse use(*this, awaitMap());
  if (!use) {
    return false;
  }
  drain(statuses);
  const auto found = statuses.find(pid);
  const bool known = found != statuses.end();
  if (known) {
    status = found->second;
    auto node = statuses.extract(found);
    if (m_prepared.size() < preparedNodes) {
      m_prepared.insert(std::move(node));
    }
  }
  topUp();
  return known;
}

void ChildStatusRecorder::drainAndTopUp(Map& statuses) {
  const MapUse use(*this, awaitMap());
  if (use) {
    drain(statuses);
    topUp();
  }
}

void ChildStatusRecorder::close() {
  awaitMap();  // and never releases it
  m_open.store(false);
}

void ChildStatusRecorder::beforeFork() {
  if (isMapMine()) {
    ++m_forksInside;  // it was interrupted in the map and goes on there afterwards
  } else {
    awaitMap();
  }
}

void ChildStatusRecorder::afterFork(Map& statuses) {
  if (!isMapMine()) {
    return;  // it could not be had
  }
  if (m_forksInside > 0) {
    --m_forksInside;
  } else {
    drainPrepared(statuses);  // the new child may have ended already
    releaseMap();
  }
}

// Of the threads that were in the recorder, only this one is left.
void ChildStatusRecorder::afterForkInChild(Map& statuses) {
  if (!isMapMine() || m_forksInside > 0) {
    m_open.store(false);  // somebody was changing the map
  } else if (m_visits.exchange(0) != 0) {
    const AllSignalsBlocked blocked;
    m_queue.forgetUnfinished();
  }
  afterFork(statuses);
}

}  // namespace kelp_cmn_4_4
