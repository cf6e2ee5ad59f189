#include "switch/SwitchHwTunnelIdHelper.h"

#include "Ringlog/Trace.h"
#include "switch/SwitchTable.h"

static Ringlog::Handle traceHandle( "KezSwitchHwTunnelIdHelper" );

namespace Switch {

using Tunnel::TunnelTable::TunnelId;

std::optional< TunnelId >
SwitchHwTunnelIdHelper::IdsInUse::find( const Kez::HwTunnelId & hwTunnelId ) const {
  const auto pool = helper_.simulatedSwitch()->hwTunnelIdPool( hwTunnelId.hwTunnelIdType() );
  return pool ? entryOf( pool->inUseHas( hwTunnelId ), pool->inUse( hwTunnelId ) ) : std::nullopt;
}

std::unique_ptr< SwitchHwTunnelIdHelper::HwTunnelIds::Walk >
SwitchHwTunnelIdHelper::IdsInUse::walk() const {
  class OverPools final : public Walk {
  public:
    explicit OverPools( const SimulatedSwitch & hardware ) {
      for ( const auto & [ hwTunnelIdType, pool ] : hardware.hwTunnelIdPool() ) {
        for ( const auto & [ hwTunnelId, tunnelId ] : pool->inUse() ) {
          entries_.push_back( { hwTunnelId, tunnelId } );
        }
      }
    }
    std::optional< Entry > next() override {
      return at_ < entries_.size() ? std::optional( entries_[ at_++ ] ) : std::nullopt;
    }

  private:
    std::vector< Entry > entries_; // there are few
    size_t at_ = 0;
  };
  return std::make_unique< OverPools >( *helper_.simulatedSwitch() );
}

Kez::HwTunnelId SwitchHwTunnelIdHelper::getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType ) {
  return getHwTunnelIdForTunnel( hwTunnelIdType, TunnelId::invalid() );
}

Kez::HwTunnelId SwitchHwTunnelIdHelper::getHwTunnelIdForTunnel( Kez::HwTunnelIdType hwTunnelIdType,
                                                                TunnelId tunnelId ) {
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
  const auto id = fails ? Kez::HwTunnelId() : pool->takeFor( tunnelId );
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
