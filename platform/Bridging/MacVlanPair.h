// A MAC address in a VLAN.
#pragma once

#include "Bridging/VlanId.h"
#include "Wire/EthAddr.h"

namespace Bridging {

struct MacVlanPair {
  Wire::EthAddr macAddr;
  VlanId vlanId;
  VEX_VALUE( MacVlanPair, "Bridging::MacVlanPair", macAddr, vlanId )
};
static_assert( sizeof( MacVlanPair ) == 8 );

} // namespace Bridging
