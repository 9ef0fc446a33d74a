#include "lib/platform/system/netlink.h"

#include <cstring>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <netlink/cache.h>
#include <netlink/errno.h>
#include <netlink/netlink.h>
#include <netlink/object.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/link/vlan.h>
#include <netlink/socket.h>
#include <sys/socket.h>
#include <vector>

#include "lib/platform/base/assert.h"

// Runs a libnl call that returns a negative error number on failure; the
// exception names the call as written.
#define CORVO_NL_CHECK(call)                                     \
  do {                                                           \
    const int nl_result = (call);                                \
    if (nl_result < 0) throw NetlinkException(#call, nl_result); \
  } while (false)

namespace corvo::netlink {

namespace {

struct nl_object* AsObject(struct rtnl_link* link) {
  return reinterpret_cast<struct nl_object*>(link);
}

using LinkPtr = std::unique_ptr<struct rtnl_link, void (*)(struct rtnl_link*)>;

}  // namespace

NetlinkException::NetlinkException(const std::string& call, int error)
    : std::runtime_error(call + ": " + nl_geterror(error) + " (" + std::to_string(error) + ")"),
      m_error(error) {}

Link::Link(struct nl_object* obj) {
  CORVO_ASSERT_PTR(obj);
  CORVO_ASSERT(!strcmp(nl_object_get_type(obj), "route/link"));
  nl_object_get(obj);
  m_link = reinterpret_cast<struct rtnl_link*>(obj);
}

Link::~Link() { rtnl_link_put(m_link); }

Link::Link(const Link& other) : m_link(other.m_link) { nl_object_get(AsObject(m_link)); }

Link& Link::operator=(const Link& other) {
  if (this != &other) {
    nl_object_get(AsObject(other.m_link));
    rtnl_link_put(m_link);
    m_link = other.m_link;
  }
  return *this;
}

std::string Link::Name() const {
  const char* name = rtnl_link_get_name(m_link);
  return name ? name : "";
}

int Link::Index() const { return rtnl_link_get_ifindex(m_link); }

InterfaceLinkConfiguration::InterfaceLinkConfiguration() {
  try {
    m_sock = nl_socket_alloc();
    if (m_sock == nullptr) throw NetlinkException("nl_socket_alloc()", -NLE_NOMEM);
    CORVO_NL_CHECK(nl_connect(m_sock, NETLINK_ROUTE));
    CORVO_NL_CHECK(rtnl_link_alloc_cache(m_sock, AF_UNSPEC, &m_link_cache));
  } catch (...) {
    Release();
    throw;
  }
}

InterfaceLinkConfiguration::~InterfaceLinkConfiguration() { Release(); }

void InterfaceLinkConfiguration::Release() noexcept {
  if (m_link_cache != nullptr) {
    nl_cache_free(m_link_cache);
    m_link_cache = nullptr;
  }
  if (m_sock != nullptr) {
    nl_close(m_sock);
    nl_socket_free(m_sock);
    m_sock = nullptr;
  }
}

void InterfaceLinkConfiguration::Refresh() {
  CORVO_NL_CHECK(nl_cache_refill(m_sock, m_link_cache));
}

Link InterfaceLinkConfiguration::GetLink(const std::string& name) const {
  LinkPtr found(rtnl_link_get_by_name(m_link_cache, name.c_str()), rtnl_link_put);
  if (!found) throw std::runtime_error("Link not found");
  return Link(AsObject(found.get()));
}

void InterfaceLinkConfiguration::EnumerateVlanLinksOn(
    const Link& link, const std::function<void(const Link&)>& callback) const {
  // Collected first, so that the callback may change the kernel's links.
  std::vector<Link> vlans;
  for (struct nl_object* obj = nl_cache_get_first(m_link_cache); obj != nullptr;
       obj = nl_cache_get_next(obj)) {
    auto* candidate = reinterpret_cast<struct rtnl_link*>(obj);
    if (rtnl_link_is_vlan(candidate) && rtnl_link_get_link(candidate) == link.Index()) {
      vlans.emplace_back(obj);
    }
  }
  for (const Link& vlan : vlans) callback(vlan);
}

void InterfaceLinkConfiguration::AddVlanLink(const Link& parent, std::uint16_t id,
                                             const std::string& name) {
  LinkPtr new_link_owner(rtnl_link_vlan_alloc(), rtnl_link_put);
  struct rtnl_link* new_link = new_link_owner.get();
  if (new_link == nullptr) throw NetlinkException("rtnl_link_vlan_alloc()", -NLE_NOMEM);
  const int master = rtnl_link_name2i(m_link_cache, parent.Name().c_str());
  if (master <= 0) throw std::runtime_error("Master link not found");
  rtnl_link_set_link(new_link, master);
  rtnl_link_set_name(new_link, name.c_str());
  CORVO_NL_CHECK(rtnl_link_vlan_set_id(new_link, id));
  CORVO_NL_CHECK(rtnl_link_add(m_sock, new_link, NLM_F_CREATE));
}

void InterfaceLinkConfiguration::ChangeLink(const Link& target, struct rtnl_link* changes) {
  struct rtnl_link* link = target.Get();
  CORVO_NL_CHECK(rtnl_link_change(m_sock, link, changes, 0));
}

void InterfaceLinkConfiguration::SetUp(const Link& link) {
  LinkPtr changes(rtnl_link_alloc(), rtnl_link_put);
  if (!changes) throw NetlinkException("rtnl_link_alloc()", -NLE_NOMEM);
  rtnl_link_set_flags(changes.get(), IFF_UP);
  ChangeLink(link, changes.get());
}

void InterfaceLinkConfiguration::DeleteLink(const Link& target) {
  struct rtnl_link* link = target.Get();
  CORVO_NL_CHECK(rtnl_link_delete(m_sock, link));
}

}  // namespace corvo::netlink

namespace corvo::netlink {

void InterfaceLinkConfiguration::DeleteAddresses(const Link& link) {
  struct nl_cache* addresses = nullptr;
  CORVO_NL_CHECK(rtnl_addr_alloc_cache(m_sock, &addresses));
  const std::unique_ptr<struct nl_cache, void (*)(struct nl_cache*)> owner(addresses,
                                                                           nl_cache_free);
  std::vector<struct rtnl_addr*> doomed;
  for (struct nl_object* obj = nl_cache_get_first(addresses); obj != nullptr;
       obj = nl_cache_get_next(obj)) {
    auto* address = reinterpret_cast<struct rtnl_addr*>(obj);
    if (rtnl_addr_get_ifindex(address) != link.Index()) continue;
    const int family = rtnl_addr_get_family(address);
    if (family == AF_INET6) {
      // The kernel's own fe80::/10 address stays: it comes with the link, not a configuration.
      const struct nl_addr* local = rtnl_addr_get_local(address);
      const auto* bytes =
          local != nullptr ? static_cast<const unsigned char*>(nl_addr_get_binary_addr(local))
                           : nullptr;
      if (bytes == nullptr || (bytes[0] == 0xfe && (bytes[1] & 0xc0) == 0x80)) continue;
    } else if (family != AF_INET) {
      continue;
    }
    doomed.push_back(address);
  }
  for (struct rtnl_addr* address : doomed) {
    const int result = rtnl_addr_delete(m_sock, address, 0);
    // One that went meanwhile (with an earlier one of its subnet, say) is gone all the same.
    if (result < 0 && result != -NLE_NOADDR && result != -NLE_OBJ_NOTFOUND) {
      throw NetlinkException("rtnl_addr_delete(m_sock, address, 0)", result);
    }
  }
}

}  // namespace corvo::netlink
