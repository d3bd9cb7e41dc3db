// Interrupts code between any two of its instructions, as a signal may. For x86-64, whose trap flag
// makes the processor report every instruction.
#pragma once

#include <signal.h>
#include <ucontext.h>

#include <csignal>
#include <functional>
#include <utility>

namespace kelp_test {

// Calls `interruption` in a signal handler after every instruction of `run`'s body that lies from
// the first one given to the last one; 1 is the first.
class SingleStep {
 public:
  SingleStep(long first, long last, std::function<void()> interruption)
      : m_first(first), m_last(last), m_interruption(std::move(interruption)) {
    struct sigaction action {};
    action.sa_sigaction = step;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGTRAP, &action, &m_old);
  }
  ~SingleStep() { sigaction(SIGTRAP, &m_old, nullptr); }
  SingleStep(const SingleStep&) = delete;
  SingleStep& operator=(const SingleStep&) = delete;

  // Whether the body reached the first of these instructions.
  template <class Body>
  bool run(Body body) {
    m_running = this;
    __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() | trapFlag);
    body();
    __builtin_ia32_writeeflags_u64(__builtin_ia32_readeflags_u64() & ~trapFlag);
    return m_steps >= m_first;
  }

 private:
  static constexpr unsigned long trapFlag = 0x100;

  static void step(int, siginfo_t*, void* context) {
    SingleStep& self = *m_running;
    if (++self.m_steps >= self.m_first) {
      self.m_interruption();
    }
    if (self.m_steps >= self.m_last) {
      static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] &=
          ~static_cast<greg_t>(trapFlag);
    }
  }

  static inline thread_local SingleStep* m_running = nullptr;

  const long m_first;
  const long m_last;
  const std::function<void()> m_interruption;
  long m_steps = 0;
  struct sigaction m_old {};
};

// One interruption for each instruction of the body, in a run of its own, on what `makeReady` made.
template <class MakeReady, class Body, class Interruption, class Check>
void interruptAtEachInstruction(MakeReady makeReady, Body body, Interruption interruption,
                                Check check) {
  bool reached = true;
  for (long n = 1; reached; ++n) {
    makeReady();
    SingleStep step(n, n, interruption);
    reached = step.run(body);
    if (reached) {
      check(n);
    }
  }
}

}  // namespace kelp_test
