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

EvpnFloodingSmHelperLater::VlanOrder EvpnFloodingSmHelperLater::vlanOrder() {
  VlanOrder order;
  order.isUsedByOthers = true;
  order.created = [ this ]( Bridging::VlanId vlanId ) {
    forEachWaiting( vlanId, [ this ]( const auto & key ) { dot1qMapping_.retry( key ); } );
  };
  order.absent = [ this ]( Bridging::VlanId vlanId ) {
    forEachWaiting( vlanId, [ this ]( const auto & key ) { dot1qMapping_.lose( key ); } );
  };
  return order;
}

EvpnFloodingSmHelperLater::MappingOrder EvpnFloodingSmHelperLater::mappingOrder() {
  MappingOrder order;
  // The VLAN with the same tag.
  order.need = [ this ]( const PortVlanKey & key, Bridging::VlanIdOrNone dot1q ) {
    const auto wanted = vlan_.find( key.vlanId );
    return !wanted                                         ? LateNeed::missing
           : wanted == dot1q && vlan_.stands( key.vlanId ) ? LateNeed::there
                                                           : LateNeed::awaited;
  };
  order.await = [ this ]( const PortVlanKey & key ) {
    mappingsWaiting_[ key.vlanId ].push_back( key );
  };
  return order;
}

EvpnFloodingSmHelperLater::EsiDataOrder EvpnFloodingSmHelperLater::esiDataOrder() {
  EsiDataOrder order;
  order.writesOver = [ this ] { return updateSupportedOnCreateEsiData(); };
  return order;
}

} // namespace KezHelper
