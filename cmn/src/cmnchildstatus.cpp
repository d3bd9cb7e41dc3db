#include "cmnchildstatus.h"

#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <utility>

namespace kelp_cmn_4_4 {
namespace {

constexpr long patienceNanoseconds = 100'000'000;
constexpr int yieldsBeforeSleeping = 100;
constexpr timespec shortSleep{0, 100'000};

long nanosecondsNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

// Lets others run. To yield is not enough in a real-time thread, whose yielding lets no ordinary
// one run. The sleep is a bare system call, because nobody may be cancelled here.
void giveWay(int attempt) {
  if (attempt < yieldsBeforeSleeping) {
    sched_yield();
  } else {
    syscall(SYS_nanosleep, &shortSleep, nullptr);
  }
}

// A handler in another thread is done within microseconds of getting a processor. What keeps it
// longer may keep it for ever; hence the bound.
template <class Condition>
bool comesTrueSoon(Condition condition) {
  if (condition()) {
    return true;
  }
  const long start = nanosecondsNow();
  for (int attempt = 0; nanosecondsNow() - start < patienceNanoseconds; ++attempt) {
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

// Holds the map, if it could be had.
class ChildStatusRecorder::MapUse {
 public:
  MapUse(ChildStatusRecorder& recorder, bool taken) : m_recorder(recorder), m_taken(taken) {}
  ~MapUse() {
    if (m_taken) {
      m_recorder.giveMapBack();
    }
  }
  MapUse(const MapUse&) = delete;
  MapUse& operator=(const MapUse&) = delete;
  explicit operator bool() const { return m_taken; }

 private:
  ChildStatusRecorder& m_recorder;
  bool m_taken;
};

ChildStatusRecorder::ChildStatusRecorder() { topUp(); }

ChildStatusRecorder::Visit::Visit(ChildStatusRecorder& recorder) : m_recorder(recorder) {
  m_recorder.m_visits.fetch_add(1);
  m_open = m_recorder.m_open.load();
}

ChildStatusRecorder::Visit::~Visit() { m_recorder.m_visits.fetch_sub(1); }

// Whoever gets hold of the map after close() gave up waiting for its holder must not touch it.
bool ChildStatusRecorder::tryTakeMap() {
  pthread_t nobody = 0;
  if (!m_mapHolder.compare_exchange_strong(nobody, pthread_self())) {
    return false;
  }
  if (!m_open.load()) {
    giveMapBack();
    return false;
  }
  return true;
}

void ChildStatusRecorder::giveMapBack() { m_mapHolder.store(0); }

// Only this thread writes its own number there.
bool ChildStatusRecorder::mapIsMine() const { return m_mapHolder.load() == pthread_self(); }

bool ChildStatusRecorder::awaitMap() {
  if (mapIsMine()) {
    return false;  // this very thread was interrupted in the map
  }
  bool taken = false;
  comesTrueSoon([this, &taken] {
    taken = tryTakeMap();
    return taken || !m_open.load();
  });
  return taken;
}

void ChildStatusRecorder::record(Map& statuses, int pid, int status) {
  const MapUse use(*this, tryTakeMap());
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

bool ChildStatusRecorder::take(Map& statuses, int pid, int& status) {
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

void ChildStatusRecorder::prepare(Map& statuses) {
  const MapUse use(*this, awaitMap());
  if (use) {
    drain(statuses);
    topUp();
  }
}

void ChildStatusRecorder::close() {
  awaitMap();  // and never given back
  m_open.store(false);
}

void ChildStatusRecorder::beforeFork() {
  if (mapIsMine()) {
    ++m_forksInside;  // it was interrupted in the map and goes on there afterwards
  } else {
    awaitMap();
  }
}

void ChildStatusRecorder::afterFork(Map& statuses) {
  if (!mapIsMine()) {
    return;  // it could not be had
  }
  if (m_forksInside > 0) {
    --m_forksInside;
  } else {
    drainPrepared(statuses);  // the new child may have ended already
    giveMapBack();
  }
}

// Of the threads that were in the recorder, only this one is left.
void ChildStatusRecorder::afterForkInChild(Map& statuses) {
  if (!mapIsMine() || m_forksInside > 0) {
    m_open.store(false);  // somebody was changing the map
  } else if (m_visits.exchange(0) != 0) {
    const AllSignalsBlocked blocked;
    m_queue.forgetUnfinished();
  }
  afterFork(statuses);
}

}  // namespace kelp_cmn_4_4
