#include "scripted_resolver.h"

#include "next_symbol.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>

namespace kelp_test {
namespace {

ScriptedResolver* current = nullptr;

int (*failureRule)(ResolverCall call) = nullptr;

int failureOf(ResolverCall call) { return failureRule == nullptr ? 0 : failureRule(call); }

// What a failing call leaves where its result belongs.
char neverAList;
constexpr const char* neverAName = "never-a-name";

bool isNumeric(const std::string& text) {
  in6_addr address;
  return inet_pton(AF_INET, text.c_str(), &address) == 1 ||
         inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

std::vector<ResolverNode> itself(const std::string& text) {
  if (text.find(':') == std::string::npos) {
    return {{text}};
  }
  return {{text, AF_INET6, SOCK_STREAM, IPPROTO_TCP, std::nullopt, sizeof(sockaddr_in6)}};
}

std::string describe(const addrinfo* hints) {
  if (hints == nullptr) {
    return "no hints";
  }
  const bool restIsZero = hints->ai_socktype == 0 && hints->ai_protocol == 0 &&
                          hints->ai_addrlen == 0 && hints->ai_addr == nullptr &&
                          hints->ai_canonname == nullptr && hints->ai_next == nullptr;
  return "flags " + std::to_string(hints->ai_flags) + ", family " +
         std::to_string(hints->ai_family) + (restIsZero ? "" : ", more hints");
}

int store(const std::string& name, char* host, socklen_t size) {
  const int written = std::snprintf(host, size, "%s", name.c_str());
  return written >= 0 && static_cast<socklen_t>(written) < size ? 0 : EAI_OVERFLOW;
}

}  // namespace

void setResolverRule(int (*rule)(ResolverCall call)) { failureRule = rule; }

struct ScriptedResolver::List {
  struct Entry {
    addrinfo info;
    sockaddr_storage address;
    ResolverNode node;
  };

  explicit List(const std::vector<ResolverNode>& nodes) {
    for (const ResolverNode& node : nodes) {
      entries.push_back({{}, {}, node});
    }
    for (size_t i = 0; i < entries.size(); ++i) {
      Entry& entry = entries[i];
      entry.info.ai_family = entry.node.family;
      entry.info.ai_socktype = entry.node.socktype;
      entry.info.ai_protocol = entry.node.protocol;
      entry.info.ai_addrlen = entry.node.length;
      entry.info.ai_addr = reinterpret_cast<sockaddr*>(&entry.address);
      entry.info.ai_canonname =
          entry.node.canonicalName ? entry.node.canonicalName->data() : nullptr;
      entry.info.ai_next = i + 1 < entries.size() ? &entries[i + 1].info : nullptr;
    }
  }

  std::deque<Entry> entries;
};

ScriptedResolver::ScriptedResolver() { current = this; }

ScriptedResolver::~ScriptedResolver() {
  current = nullptr;
  EXPECT_EQ(m_lists.size(), 0U) << "lists were not released";
}

addrinfo* ScriptedResolver::makeList(const std::vector<ResolverNode>& nodes) {
  List list(nodes);
  addrinfo* const head = &list.entries.front().info;
  m_ownLists.emplace(head, std::move(list));
  return head;
}

size_t ScriptedResolver::listsInUse() const { return m_lists.size(); }

const ResolverNode* ScriptedResolver::find(const sockaddr* address) const {
  for (const auto* lists : {&m_lists, &m_ownLists}) {
    for (const auto& [head, list] : *lists) {
      for (const List::Entry& entry : list.entries) {
        if (entry.info.ai_addr == address) {
          return &entry.node;
        }
      }
    }
  }
  return nullptr;
}

int ScriptedResolver::getAddrInfo(const char* node, const char* service, const addrinfo* hints,
                                  addrinfo** list) {
  addrInfoCalls.push_back((node == nullptr ? "no node" : std::string(node)) + ": " +
                          describe(hints) + (service == nullptr ? "" : ", a service"));
  *list = reinterpret_cast<addrinfo*>(&neverAList);
  if (static_cast<int>(addrInfoCalls.size()) == addrInfoFailure.nth) {
    return addrInfoFailure.result;
  }
  const std::string text = node == nullptr ? "" : node;
  const bool numericOnly = hints != nullptr && (hints->ai_flags & AI_NUMERICHOST) != 0;
  const auto known = hosts.find(text);
  if (!isNumeric(text) && (numericOnly || known == hosts.end())) {
    return EAI_NONAME;
  }
  List answer(known != hosts.end() ? known->second : itself(text));
  if (answer.entries.empty()) {
    *list = nullptr;
    return 0;
  }
  *list = &answer.entries.front().info;
  m_lists.emplace(*list, std::move(answer));
  ++m_listsGiven;
  return 0;
}

int ScriptedResolver::getNameInfo(const sockaddr* address, socklen_t length, char* host,
                                  socklen_t hostSize, const char* service, socklen_t serviceSize,
                                  int flags) {
  const ResolverNode* const node = find(address);
  if (node == nullptr) {
    ADD_FAILURE() << "getnameinfo with an address of no list in use";
    return EAI_FAMILY;
  }
  nameInfoCalls.push_back(
      node->address + ": flags " + std::to_string(flags) + ", " + std::to_string(hostSize) +
      " bytes" + (length == node->length ? "" : ", another length") +
      (service == nullptr ? "" : ", a service") + (serviceSize == 0 ? "" : ", a service's size"));
  std::snprintf(host, hostSize, "%s", neverAName);
  if (static_cast<int>(nameInfoCalls.size()) == nameInfoFailure.nth) {
    if (nameInfoThrows) {
      throw 1;
    }
    return nameInfoFailure.result;
  }
  if ((flags & NI_NUMERICHOST) != 0) {
    return withoutText.count(node->address) != 0 ? EAI_FAMILY
                                                 : store(node->address, host, hostSize);
  }
  const auto name = names.find(node->address);
  return store(name == names.end() ? node->address : name->second, host, hostSize);
}

void ScriptedResolver::freeAddrInfo(addrinfo* list) {
  if (m_lists.erase(list) == 0) {
    ADD_FAILURE() << "freeaddrinfo of what is no list in use";
  }
}

int ScriptedResolver::getHostName(char* buffer, size_t size) {
  hostNameCalls.push_back(size);
  return hostName ? hostName(buffer, size) : -1;
}

}  // namespace kelp_test

using kelp_test::current;
using kelp_test::failureOf;
using kelp_test::nextSymbol;
using kelp_test::ResolverCall;

extern "C" {

int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** list) {
  if (const int failure = failureOf(ResolverCall::getaddrinfo); failure != 0) {
    return failure;
  }
  return current != nullptr
             ? current->getAddrInfo(node, service, hints, list)
             : nextSymbol<decltype(getaddrinfo)>("getaddrinfo")(node, service, hints, list);
}

int getnameinfo(const sockaddr* address, socklen_t length, char* host, socklen_t hostSize,
                char* service, socklen_t serviceSize, int flags) {
  if (const int failure = failureOf(ResolverCall::getnameinfo); failure != 0) {
    return failure;
  }
  return current != nullptr
             ? current->getNameInfo(address, length, host, hostSize, service, serviceSize, flags)
             : nextSymbol<decltype(getnameinfo)>("getnameinfo")(address, length, host, hostSize,
                                                                service, serviceSize, flags);
}

void freeaddrinfo(addrinfo* list) noexcept {
  if (current != nullptr) {
    current->freeAddrInfo(list);
  } else {
    nextSymbol<decltype(freeaddrinfo)>("freeaddrinfo")(list);
  }
}

int gethostname(char* buffer, size_t size) noexcept {
  if (const int failure = failureOf(ResolverCall::gethostname); failure != 0) {
    errno = failure;
    return -1;
  }
  return current != nullptr ? current->getHostName(buffer, size)
                            : nextSymbol<decltype(gethostname)>("gethostname")(buffer, size);
}

}  // extern "C"
