/**
 * @file cmnnetwork.h
 * @brief Names and addresses of hosts, and whether two designations denote one host.
 */
#ifndef CMNNETWORK_H
#define CMNNETWORK_H

#include "cmnexport.h"

#include <netdb.h>

#include <set>
#include <string>
#include <vector>

namespace kelp_cmn_4_4 {

/** @name Statuses of the lookups of CCmnNetwork */
///@{
constexpr int networkOk = 0;            ///< found
constexpr int networkLookupFailed = 3;  ///< the resolver failed, or there was nothing to look up
constexpr int networkNoAddress = -1;    ///< the name has no address, so that it has no full name
///@}

/** What is known of a host; a plain value, empty at first. */
struct KELP_CMN_API CCmnHostInfo {
  /**
   * The name as the caller gave it; for a numeric address the name that its reverse lookup gave.
   */
  std::string m_name;
  /** The numeric addresses, such as "10.1.2.3" or "fe80::1", in the order of plain texts. */
  std::set<std::string> m_addresses;
  /** The fully qualified name that the reverse lookup gave. */
  std::string m_fqdn;
};

/**
 * Questions to the system's resolver (POSIX `getaddrinfo`, `getnameinfo`, `gethostname`).
 *
 * Static functions only, without a cache: every call asks afresh, and takes as long as the resolver
 * does. As safe in several threads as those three are. Nothing is traced, and nothing thrown but
 * allocation failures. An output argument is written only on success. A text is looked up up to its
 * first zero byte.
 *
 * Where one of several addresses is needed, it is the first in the order of plain texts ("10.0.0.9"
 * before "9.1.1.1"), not the first that the resolver gave: that is meant.
 */
class KELP_CMN_API CCmnNetwork {
 public:
  CCmnNetwork() = delete;

  /** @name This machine, addresses, resolver lists */
  ///@{

  /**
   * Whether a text is a numeric address.
   * @param text  a NUL-terminated text, or null
   * @return whether it is a numeric IPv4 or IPv6 address by `getaddrinfo` with AI_NUMERICHOST; so
   *         "127.1" is one, and a host name is not
   */
  static bool validateIPAddress(const char* text);

  /**
   * This machine's name.
   * @return this machine's name as `gethostname` stores it, which has room for 254 bytes: Linux
   *         needs 64 at most. Whether it fails is not looked at: then the name is what it has
   *         stored all the same, or empty.
   */
  static std::string getComputerName();

  /**
   * The addresses of a resolver list.
   * @param list  a list from `getaddrinfo`, which stays the caller's; null for none
   * @return the numeric text of each node's address, without those that have none
   */
  static std::set<std::string> extractIPAddress(addrinfo* list);

  /**
   * Describes a resolver list, for diagnostics.
   * @param list  as above
   * @return a line for each node, without "foundName" where the address has no numeric text:
   * @code{.unparsed}
   * ai_family = 10,ai_socktype = 1,ai_protocol = 6,ai_canonname = ,ai_addrlen = 28,foundName = ::1,
   * @endcode
   */
  static std::vector<std::string> addrinfoBlob(addrinfo* list);

  ///@}
  /** @name Lookups */
  ///@{

  /**
   * Looks up the addresses of a host.
   * @param host       a name, or a numeric address, which is answered by itself as the system
   *                   writes it: "127.1" by "127.0.0.1"
   * @param addresses  receives the addresses, in place of what it held
   * @return networkOk, also where the resolver gives an empty list; networkLookupFailed if it fails
   */
  static int getAddrByHost(const std::string& host, std::set<std::string>& addresses);

  /** What getAddrByHost() stores; empty if it fails. */
  static std::set<std::string> getAddressListForHost(const std::string& host);

  /**
   * Looks up the name of an address.
   * @param address  a numeric address
   * @param name     receives the name as the resolver writes it, or the address's numeric text if
   *                 it has no name
   * @return networkOk, or networkLookupFailed if the text is no numeric address, or the resolver
   *         fails or gives an empty list
   */
  static int getHostbyAddr(const std::string& address, std::string& name);

  /**
   * Looks up a fully qualified name: the reverse lookup of the address given, or of the first
   * address of the name given. The name given is never just echoed.
   * @param host  a name or a numeric address
   * @param fqdn  receives the name, in lower case by the process
   *              locale (CCmnStringTool::tostrlower)
   * @return networkOk; networkLookupFailed for a null or empty host, or if the reverse lookup
   *         fails; networkNoAddress if a name has no address
   */
  static int getFQDN(const char* host, std::string& fqdn);

  /** getFQDN() of getComputerName(). */
  static int getFQDN(std::string& fqdn);

  /**
   * Collects what is known of a host.
   * @param host  a name or a numeric address; empty for an empty record
   * @return for a name: the name as given, its addresses and, if it has any, its fully qualified
   *         name in lower case. For an address: the name that its reverse lookup gave, as name and
   *         as fully qualified name, in the resolver's writing, and the addresses of that name,
   *         among which the one given may be missing. What cannot be found stays empty.
   */
  static CCmnHostInfo resolve(const std::string& host);

  /** resolve() of getComputerName(). */
  static CCmnHostInfo resolve();

  ///@}
  /**
   * @name Comparison
   * Names without regard to case (CCmnStringTool::CompareNoCase), addresses as texts: "10.0.0.1" is
   * not "10.0.0.01", nor "127.1" the "127.0.0.1" of a record. No name is shortened or completed.
   */
  ///@{

  /**
   * Whether two texts denote one host, by asking the resolver.
   * @return whether both texts, names or addresses, resolve to one host, `a` being asked for first;
   *         false if one is empty, and then nothing is asked
   */
  static bool compare(const std::string& a, const std::string& b);

  /**
   * Whether two records denote one host.
   * @return whether the records have an address in common, or equal names, or equal fully qualified
   *         names. Empty names are equal to nothing.
   */
  static bool compare(const CCmnHostInfo& a, const CCmnHostInfo& b);

  /**
   * Whether a text denotes a record's host, without asking the resolver.
   * @return whether the text, which is not resolved, is one of the record's addresses, its fully
   *         qualified name or its name; false if the text is empty
   */
  static bool compare(const std::string& a, const CCmnHostInfo& b);

  ///@}
};

}  // namespace kelp_cmn_4_4

#endif
