#pragma once
// Links of the kernel through rtnetlink (libnl-route): lookup, VLAN links,
// change and deletion.

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

struct nl_cache;
struct nl_object;
struct nl_sock;
struct rtnl_link;

namespace corvo::netlink {

// A failed libnl call: "call: libnl's error text (number)".
class NetlinkException : public std::runtime_error {
 public:
  NetlinkException(const std::string& call, int error);
  int Error() const noexcept { return m_error; }

 private:
  int m_error;
};

// One reference to a libnl link object.
class Link {
 public:
  // Takes a reference of its own to obj, which must be a link.
  explicit Link(struct nl_object* obj);
  ~Link();
  Link(const Link& other);
  Link& operator=(const Link& other);

  struct rtnl_link* Get() const {
    return m_link;
  }
  std::string Name() const;
  int Index() const;

 private:
  struct rtnl_link* m_link;
};

// A route socket and a cache of every link the kernel has.
class InterfaceLinkConfiguration {
 public:
  InterfaceLinkConfiguration();
  ~InterfaceLinkConfiguration();
  InterfaceLinkConfiguration(const InterfaceLinkConfiguration&) = delete;
  InterfaceLinkConfiguration& operator=(const InterfaceLinkConfiguration&) = delete;

  // Reads the links from the kernel again; the cache does not follow our own changes.
  void Refresh();

  // Raises "Link not found" when the cache has no link of that name.
  Link GetLink(const std::string& name) const;

  // Calls back for every VLAN link whose parent is the given link, in cache order.
  void EnumerateVlanLinksOn(const Link& link,
                            const std::function<void(const Link&)>& callback) const;

  void AddVlanLink(const Link& parent, std::uint16_t id, const std::string& name);
  // Applies the settings of changes to the link.
  void ChangeLink(const Link& link, struct rtnl_link* changes);
  void SetUp(const Link& link);
  void DeleteLink(const Link& link);
  // Every IPv4 address of the link, and every IPv6 one but the link-local ones.
  void DeleteAddresses(const Link& link);

 private:
  void Release() noexcept;

  struct nl_sock* m_sock = nullptr;
  struct nl_cache* m_link_cache = nullptr;
};

}  // namespace corvo::netlink
