#include "KezHelper/EvpnFloodingSmHelperLater.h"

namespace KezHelper {

using Kez::HwProgrammingStatus;

EvpnFloodingSmHelperLater::EvpnFloodingSmHelperLater( const Vex::String & name,
                                                      const Vex::Ptr< LateCalls > & calls,
                                                      const Vex::Ptr< EvpnFloodingSmHelper > & chip,
                                                      const Vex::Ptr< const Vex::Entity > & owner,
                                                      const EvpnFloodingLateChips & chips )
    : EvpnFloodingSmHelperOver( name, chip ), owner_( owner ),
      vlan_( calls, chips.vlan, HwProgrammingStatus::programmed, chip->inventory().vlan,
             vlanOrder() ),
      dot1qMapping_( calls, chips.dot1qMapping, HwProgrammingStatus::programmed,
                     chip->inventory().dot1qMapping, mappingOrder() ),
      nonDfPort_( calls, chips.nonDfPort, HwProgrammingStatus::programmed,
                  chip->inventory().nonDfPort ),
      esiData_( calls, chips.esiData, HwProgrammingStatus::programmed, chip->inventory().esiData,
                esiDataOrder() ) {
  watchChip();
}

void EvpnFloodingSmHelperLater::forEachWaiting( Bridging::VlanId vlanId, const auto & what ) {
  if ( const auto waiting = mappingsWaiting_.extract( vlanId ) ) {
    for ( const auto & key : waiting.mapped() ) {
      what( key );
    }
  }
}

LateOrder< Bridging::VlanId > EvpnFloodingSmHelperLater::vlanOrder() {
  LateOrder< Bridging::VlanId > order;
  order.isUsedByOthers = true;
  order.created = [ this ]( Bridging::VlanId vlanId ) {
    forEachWaiting( vlanId, [ this ]( const auto & key ) { dot1qMapping_.retry( key ); } );
  };
  order.lost = [ this ]( Bridging::VlanId vlanId ) {
    forEachWaiting( vlanId, [ this ]( const auto & key ) { dot1qMapping_.lose( key ); } );
  };
  return order;
}

LateOrder< PortVlanKey > EvpnFloodingSmHelperLater::mappingOrder() {
  LateOrder< PortVlanKey > order;
  order.need = [ this ]( const PortVlanKey & key ) {
    if ( vlan_.stands( key.vlanId ) ) {
      return LateNeed::there;
    }
    return vlan_.find( key.vlanId ) ? LateNeed::awaited : LateNeed::missing;
  };
  order.await = [ this ]( const PortVlanKey & key ) {
    mappingsWaiting_[ key.vlanId ].push_back( key );
  };
  return order;
}

LateOrder< PortVlanKey > EvpnFloodingSmHelperLater::esiDataOrder() {
  LateOrder< PortVlanKey > order;
  order.writesOver = [ this ] { return updateSupportedOnCreateEsiData(); };
  return order;
}

} // namespace KezHelper
