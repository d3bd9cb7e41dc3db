// Stands in front of the system's resolver: getaddrinfo, getnameinfo, freeaddrinfo and gethostname.
// A test program that links this in has these calls go through it; they are the system's own as
// long as no script is set.
#pragma once

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kelp_test {

// Is asked before each call of the whole process, scripted or not: another result than 0 becomes
// that of the call, which fails with it; for gethostname it becomes errno. Null for none,
// as at first.
enum class ResolverCall { getaddrinfo, getnameinfo, gethostname };
void setResolverRule(int (*rule)(ResolverCall call));

// A node of a resolver list, at first such as it has for a stream socket.
struct ResolverNode {
  std::string address;  // its numeric text
  int family = AF_INET;
  int socktype = SOCK_STREAM;
  int protocol = IPPROTO_TCP;
  std::optional<std::string> canonicalName = std::nullopt;
  socklen_t length = sizeof(sockaddr_in);
};

// The n-th call from the script's beginning fails with that result, and all others pass.
struct ResolverFailure {
  int nth = 0;
  int result = EAI_FAIL;
};

// Answers and records the calls for as long as it lives; one at a time. A list that is released
// twice, used after its release or not from this script fails the test, and so does one that is
// left in the end.
class ScriptedResolver {
 public:
  ScriptedResolver();
  ~ScriptedResolver();
  ScriptedResolver(const ScriptedResolver&) = delete;
  ScriptedResolver& operator=(const ScriptedResolver&) = delete;

  // What it knows. A numeric text resolves to itself without an entry; another name is not found.
  // An entry without nodes gives an empty list, and success.
  std::map<std::string, std::vector<ResolverNode>> hosts;
  std::map<std::string, std::string> names;  // address -> name; its own text without an entry
  std::set<std::string> withoutText;         // addresses that have no numeric text
  std::function<int(char* buffer, size_t size)> hostName;

  ResolverFailure addrInfoFailure;
  ResolverFailure nameInfoFailure;
  bool nameInfoThrows = false;  // an int, from the call that would fail

  // The calls so far, such as "multi: flags 4, family 0" and "10.0.0.9: flags 1, 256 bytes"; the
  // rest of the arguments appears only where it is not zero or null.
  std::vector<std::string> addrInfoCalls;
  std::vector<std::string> nameInfoCalls;
  std::vector<size_t> hostNameCalls;  // the sizes given

  // A list of the test's own, which the script keeps until it ends.
  addrinfo* makeList(const std::vector<ResolverNode>& nodes);

  size_t listsGiven() const { return m_listsGiven; }
  size_t listsInUse() const;

  // What the calls come to.
  int getAddrInfo(const char* node, const char* service, const addrinfo* hints, addrinfo** list);
  int getNameInfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostSize,
                  const char* service, socklen_t serviceSize, int flags);
  void freeAddrInfo(addrinfo* list);
  int getHostName(char* buffer, size_t size);

 private:
  struct List;

  const ResolverNode* find(const sockaddr* address) const;

  std::map<const addrinfo*, List> m_lists;
  std::map<const addrinfo*, List> m_ownLists;
  size_t m_listsGiven = 0;
};

}  // namespace kelp_test
