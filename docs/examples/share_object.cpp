// Shares an object among holders; the last one deletes it.
#include <cmnrefcount.h>
#include <cmnsmartptr.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

class Job : public CCmnRefCount {
 public:
  using Holder = CCmnSmartPtr<Job, CCmnNullAllocator<Job>>;

  explicit Job(int number) : m_number(number) {}
  ~Job() override { std::printf("job %d ends\n", m_number); }

  Holder next;

 private:
  int m_number;
};

int main() {
  Job::Holder head(new Job(1));
  head->next = new Job(2);
  {
    const Job::Holder another = head;
    std::printf("holders: %d\n", head->getCount());
  }
  std::printf("holders: %d\n", head->getCount());

  const Job::Holder next = head->next;  // first, as the old job holds it
  head = next;
  std::printf("the second job has %d holders\n", head->getCount());
  return 0;
}
