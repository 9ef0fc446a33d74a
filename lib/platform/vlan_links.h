#pragma once
// The VLAN links of an interface, by name. The interface step works through
// this so that it can be exercised without a kernel that has 802.1Q.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvo {

class VlanLinks {
 public:
  virtual ~VlanLinks() = default;
  // Names of the VLAN links on the parent; raises "Link not found" when there
  // is no such parent.
  virtual std::vector<std::string> ListVlansOn(const std::string& parent) = 0;
  virtual void DeleteLink(const std::string& name) = 0;
  virtual void AddVlan(const std::string& parent, std::uint16_t id, const std::string& name) = 0;
  virtual void SetUp(const std::string& name) = 0;
};

// The kernel's links over one netlink socket, held until the object goes.
std::unique_ptr<VlanLinks> OpenVlanLinks();

}  // namespace corvo
