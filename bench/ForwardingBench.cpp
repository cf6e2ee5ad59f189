// Floods into a VLAN of 64 ports and 16 tunnels: the forwarding plane, which finds the VLAN by port
// and tag and the LAGs' ports by the hash, against a plain loop that appends a list of the copies
// as it stands. Times are per frame.
#include "Ratio.h"

#include "switch/ForwardingPlane.h"

namespace {

using Switch::Crossing;

constexpr uint16_t ports = 64;
constexpr uint64_t tunnels = 16;
constexpr uint64_t frames = 10'000;
constexpr uint64_t all = 0xffff'ffff'ffff;

Wire::IntfId portOf( uint16_t number ) {
  return "Ethernet" + std::to_string( number );
}

// A LAG has so many of the ports; 1 is none.
void flood( benchmark::State & state ) {
  const auto inLag = static_cast< uint16_t >( state.range( 0 ) );
  const auto hardware = Vex::makePtr< Switch::SimulatedSwitch >();
  const auto lags = Vex::makePtr< Kez::LagCreatorConfigDir >();
  const Bridging::VlanId vlanId = 10;
  hardware->vlanIs( vlanId, 110 );
  for ( uint16_t i = 0; i < ports; ++i ) {
    const auto port = portOf( i );
    auto parent = port;
    if ( inLag > 1 ) {
      parent = Wire::PortChannelIntfId::intfId( i / inLag );
      lags->lagConfigIs( parent )->memberIs( port, Hardware::Lag::PortProgType::portProgRxTx );
    }
    hardware->dot1qMappingIs( { parent, port, vlanId }, 110 );
  }
  const auto pool = hardware->hwTunnelIdPoolIs( Kez::hwTunnelIdTypeDefault );
  for ( uint64_t tunnel = 1; tunnel <= tunnels; ++tunnel ) {
    const auto hwTunnelId = pool->takeFor( tunnel );
    const auto intfId = Wire::DynamicTunnelIntfId::intfId( tunnel );
    hardware->fecIs( tunnel, { false, { { intfId, 100 } }, hwTunnelId } );
    hardware->floodSetDestIs( { { all, vlanId }, { tunnel, 100, hwTunnelId, tunnel, intfId } } );
  }
  const auto input = Vex::makePtr< Switch::ForwardingInput >();
  const auto evpnStatus = Vex::makePtr< Evpn::EvpnStatus >();
  const auto plane = Vex::makePtr< Switch::ForwardingPlane >( hardware, input, lags, evpnStatus );

  const auto in = Crossing::onPort( portOf( 0 ), 110 );
  Switch::Forwarded forwarded;
  plane->forward( in, { 0, all }, forwarded );
  const auto list = forwarded.copies;
  if ( list.size() != static_cast< size_t >( ports / inLag - 1 + tunnels ) ) {
    state.SkipWithError( "the switch does not flood" );
    return;
  }
  std::vector< Crossing > copies;
  Bench::compare(
      state, frames,
      [ & ] {
        for ( uint64_t i = 0; i < frames; ++i ) {
          plane->forward( in, { i, all }, forwarded );
          benchmark::DoNotOptimize( forwarded.copies.data() );
        }
        return forwarded.copies.size();
      },
      [ & ] {
        for ( uint64_t i = 0; i < frames; ++i ) {
          copies.clear();
          for ( const auto & copy : list ) {
            copies.push_back( copy );
          }
          benchmark::DoNotOptimize( copies.data() );
        }
        return copies.size();
      } );
}
BENCHMARK( flood )->Arg( 1 )->Arg( 2 )->UseManualTime()->Unit( benchmark::kMillisecond );

} // namespace
