// Counting the tunnels of flood-set destinations: the start-up of the counting machine against a
// plain loop over std::unordered_maps that makes the same counts. Times are per destination.
#include "Ratio.h"

#include "KezEvpn/KezEvpnRemoteInfoFinderSm.h"

#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace {

constexpr uint32_t tunnels = 10'000;

// What of an MPLS destination tells it from others here.
struct PlainDest {
  uint64_t intf, label, tunnel;
  bool operator==( const PlainDest & ) const = default;
};
struct PlainHash {
  size_t operator()( const PlainDest & dest ) const {
    return dest.intf ^ dest.label * 31 ^ dest.tunnel * 1009;
  }
};
using PlainSet = std::unordered_set< PlainDest, PlainHash >;
using PlainVlan = std::unordered_map< uint64_t, PlainSet >;

// So many destinations, so many of them in each VLAN's flood set.
void tunnelsCounted( benchmark::State & state ) {
  const auto dests = static_cast< uint32_t >( state.range( 0 ) );
  const auto vlans = static_cast< uint32_t >( dests / state.range( 1 ) );
  constexpr uint64_t mac = 0xffff'ffff'ffff;
  const auto output = Vex::makePtr< L2Rib::FloodSetOutput >();
  std::unordered_map< uint64_t, PlainVlan > plainOutput;
  for ( uint32_t i = 0; i < dests; ++i ) {
    const auto vlan = static_cast< uint16_t >( i % vlans + 1 );
    const uint64_t tunnel = i % tunnels * 2654435761u % tunnels + 1;
    const uint32_t label = i / tunnels;
    output->vlanFloodSetIs( vlan )->floodSetIs( mac )->destSetIs(
        L2Rib::Dest::ofMpls( { {}, label, tunnel } ) );
    plainOutput[ vlan ][ mac ].insert( { 0, label, tunnel } );
  }
  struct Result {
    Vex::Ptr< Kez::EvpnRemoteInfo > info;
    Vex::Ptr< Kez::EvpnRemoteInfoFinderSm > sm;
  };
  Bench::compare(
      state, dests,
      [ & ] {
        Result result{ Kez::evpnRemoteInfoFactory(), nullptr };
        result.sm = Kez::evpnRemoteInfoFinderSmFactory( output, result.info );
        return result;
      },
      [ & ] {
        auto counts = std::make_unique< std::unordered_map< uint64_t, uint32_t > >();
        for ( const auto & [ vlan, floodSets ] : plainOutput ) {
          for ( const auto & [ mac, set ] : floodSets ) {
            for ( const auto & dest : set ) {
              ++( *counts )[ dest.tunnel ];
            }
          }
        }
        return counts;
      } );
}
BENCHMARK( tunnelsCounted )
    ->Args( { 10'000, 250 } )
    ->Args( { 100'000, 250 } )
    ->Args( { 1'000'000, 250 } )
    ->Args( { 10'000, 5 } )
    ->UseManualTime()
    ->Unit( benchmark::kMillisecond );

} // namespace
