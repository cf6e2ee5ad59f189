#include "KezEvpn/frame/PortProgrammingSm.h"

namespace Kez {

PortProgrammingSm::PortProgrammingSm( Ringlog::Handle & traceHandle, const ParkingPolicy & policy,
                                      Out< KezHelper::EvpnFloodingSmHelper > floodingHelper,
                                      Out< Loom::TaskScheduler > scheduler,
                                      In< EvpnLagMemberInfo > evpnLagMemberInfo,
                                      In< Evpn::EvpnStatus > evpnStatus )
    : RetryingSm( traceHandle, policy ), floodingHelper_( floodingHelper ), scheduler_( scheduler ),
      evpnLagMemberInfo_( evpnLagMemberInfo ), evpnStatus_( evpnStatus ),
      evpnLagMemberInfoReactor_( *this ) {}

void PortProgrammingSm::VexEvpnLagMemberInfo::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == EvpnLagMemberInfo::lagToPortAttr ) {
    sm()->handleLagPort( EvpnLagMemberInfo::lagToPortAttr.key( key ) );
  }
}

void PortProgrammingSm::addToIndex( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  const auto vlans = intfVlanSetIs( intfId );
  const auto before = vlans->vlanIds();
  vlans->vlanIdIs( vlanId );
  if ( vlans->vlanIds() != before ) { // else both have the pair
    vlanIntfSetIs( vlanId )->intfIdIs( intfId );
  }
}

void PortProgrammingSm::removeFromIndex( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  intfVlanSetMemberDel( intfId, vlanId );
  vlanIntfSetMemberDel( vlanId, intfId );
}

void PortProgrammingSm::check( Findings & out ) const {
  RetryingSm::check( out );
  for ( const auto & [ intfId, vlans ] : intfVlanSet() ) {
    out.expect( vlans->vlanIds() > 0, "intfVlanSet has an empty interface ", intfId );
    for ( const auto vlanId : vlans->vlanId() ) {
      const auto intfs = vlanIntfSet( vlanId );
      out.expect( intfs && intfs->intfIdHas( intfId ), "vlanIntfSet lacks ", intfId, " in VLAN ",
                  vlanId );
    }
  }
  for ( const auto & [ vlanId, intfs ] : vlanIntfSet() ) {
    out.expect( intfs->intfIds() > 0, "vlanIntfSet has an empty VLAN ", vlanId );
    for ( const auto intfId : intfs->intfId() ) {
      const auto vlans = intfVlanSet( intfId );
      out.expect( vlans && vlans->vlanIdHas( vlanId ), "intfVlanSet lacks VLAN ", vlanId, " of ",
                  intfId );
    }
  }
}

} // namespace Kez
