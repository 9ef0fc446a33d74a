#include <optional>
#include <stdexcept>

#include "lib/platform/system/netlink.h"
#include "lib/platform/system/real_os.h"

namespace corvo {

namespace {

class NetlinkVlanLinks : public VlanLinks {
 public:
  std::vector<std::string> ListVlansOn(const std::string& parent) override {
    std::vector<std::string> names;
    m_links.EnumerateVlanLinksOn(
        Lookup(parent), [&names](const netlink::Link& vlan) { names.push_back(vlan.Name()); });
    return names;
  }

  void DeleteLink(const std::string& name) override {
    m_links.DeleteLink(Lookup(name));
    m_stale = true;
  }

  void AddVlan(const std::string& parent, std::uint16_t id, const std::string& name) override {
    m_links.AddVlanLink(Lookup(parent), id, name);
    m_stale = true;
  }

  void SetUp(const std::string& name) override {
    m_links.SetUp(Lookup(name));
    m_stale = true;
  }

 private:
  // The cache is read again after our own changes, so a lookup sees them.
  netlink::Link Lookup(const std::string& name) {
    if (m_stale) {
      m_links.Refresh();
      m_stale = false;
    }
    return m_links.GetLink(name);
  }

  netlink::InterfaceLinkConfiguration m_links;
  bool m_stale = false;
};

}  // namespace

std::unique_ptr<VlanLinks> OpenNetlinkVlanLinks() { return std::make_unique<NetlinkVlanLinks>(); }

void RemoveNetlinkAddresses(const std::string& ifname) {
  netlink::InterfaceLinkConfiguration links;
  std::optional<netlink::Link> link;
  try {
    link = links.GetLink(ifname);
  } catch (const std::runtime_error&) {
    return;  // the interface is gone, and its addresses with it
  }
  links.DeleteAddresses(*link);
}

}  // namespace corvo
