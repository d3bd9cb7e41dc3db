#include "cmnchildstatus.h"

#include <sched.h>

#include <utility>

namespace kelp_cmn_4_4 {
namespace {

// A handler in another thread is done within microseconds of getting a processor. In the child of a
// fork that caught it there it never is; hence the bound.
template <class Condition>
bool comesTrueSoon(Condition condition) {
  constexpr int patience = 20000;
  for (int attempt = 0; attempt < patience; ++attempt) {
    if (condition()) {
      return true;
    }
    sched_yield();
  }
  return false;
}

}  // namespace

// Holds the map, if it could be had.
class ChildStatusRecorder::MapUse {
 public:
  MapUse(ChildStatusRecorder& recorder, bool taken) : m_recorder(recorder), m_taken(taken) {}
  ~MapUse() {
    if (m_taken) {
      m_recorder.m_mapTaken.store(false, std::memory_order_release);
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

bool ChildStatusRecorder::tryTakeMap() {
  return !m_mapTaken.exchange(true, std::memory_order_acquire);
}

bool ChildStatusRecorder::awaitMap() {
  // A handler that has reaped a child already will soon have recorded it.
  comesTrueSoon([this] { return m_visits.load() == 0; });
  return comesTrueSoon([this] { return tryTakeMap(); });
}

void ChildStatusRecorder::record(Map& statuses, int pid, int status) {
  const MapUse use(*this, tryTakeMap());
  if (!use) {
    m_ring.push({pid, status});
    return;
  }
  drainPrepared(statuses);
  if (m_ring.empty() && placePrepared(statuses, {pid, status})) {
    return;
  }
  if (!m_ring.push({pid, status})) {
    drain(statuses);  // may re-enter malloc; better than to lose the child
    topUp();
    placePrepared(statuses, {pid, status});
  }
}

bool ChildStatusRecorder::placePrepared(Map& statuses, StatusRing::Record record) {
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
  const StatusRing::Record* oldest = m_ring.front();
  while (oldest != nullptr && placePrepared(statuses, *oldest)) {
    m_ring.pop();
    oldest = m_ring.front();
  }
}

void ChildStatusRecorder::drain(Map& statuses) {
  drainPrepared(statuses);
  while (m_ring.front() != nullptr) {
    topUp();
    if (m_prepared.empty()) {
      return;
    }
    drainPrepared(statuses);
  }
}

void ChildStatusRecorder::topUp() {
  try {
    while (m_prepared.size() < preparedNodes) {
      m_prepared.emplace(0, 0);
    }
  } catch (...) {
    return;  // fewer nodes will do: the ring takes what they cannot
  }
}

bool ChildStatusRecorder::take(Map& statuses, int pid, int& status) {
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
  m_open.store(false);
  awaitMap();  // and never given back
}

}  // namespace kelp_cmn_4_4
