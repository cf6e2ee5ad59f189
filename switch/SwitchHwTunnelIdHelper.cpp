#include "switch/SwitchHwTunnelIdHelper.h"

#include "Ringlog/Trace.h"

static Ringlog::Handle traceHandle( "KezSwitchHwTunnelIdHelper" );

namespace Switch {

Kez::HwTunnelId SwitchHwTunnelIdHelper::getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType ) {
  auto & hardware = *simulatedSwitch_;
  const auto firstPool = static_cast< uint32_t >( typeOf( Operation::getHwTunnelId ).table );
  const auto table = static_cast< Table >( firstPool + static_cast< uint32_t >( hwTunnelIdType ) );
  const auto pool = hardware.hwTunnelIdPoolIs( hwTunnelIdType );
  const bool fails = hardware
                         .creation(
                             Operation::getHwTunnelId, hardware.hasRoom( table ), std::nullopt,
                             [ & ] { return stringValue( hwTunnelIdType ); },
                             [ & ] { return Vex::briefText( pool->next() ); } )
                         .has_value();
  const auto id = fails ? Kez::HwTunnelId() : pool->take();
  TRACE( 5, "getHwTunnelId ", hwTunnelIdType, ": ", id );
  return id;
}

void SwitchHwTunnelIdHelper::releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) {
  auto & hardware = *simulatedSwitch_;
  TRACE( 5, "releaseHwTunnelId ", hwTunnelId );
  const auto pool = hardware.hwTunnelIdPoolIs( hwTunnelId.hwTunnelIdType() );
  const bool inUse = pool->inUseHas( hwTunnelId );
  if ( hardware.deletion( Operation::releaseHwTunnelId, wrongIf( !inUse, "it is not in use" ),
                          [ & ] { return Vex::text( hwTunnelId ); } ) &&
       inUse ) {
    pool->giveBack( hwTunnelId );
  }
}

} // namespace Switch
