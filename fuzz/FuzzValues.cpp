// Every value type reads any text without harm, and what it takes it prints and takes again. The
// first byte chooses the type.
#include "Evpn/EncapTypeLabel.h"
#include "KezEvpn/FecRequests.h"
#include "KezEvpn/FloodSets.h"
#include "Mpls/Lfib.h"
#include "switch/SimulatedSwitch.h"

#include <cstdlib>

namespace {

template< class T, class Parse, class Print >
void check( std::string_view text, const Parse & parse, const Print & print ) {
  try {
    const T value = parse( text );
    if ( !( parse( print( value ) ) == value ) ) {
      std::abort();
    }
  } catch ( const Vex::ParseError & ) {
  } catch ( const Vex::RangeError & ) {}
}

template< class T > void check( std::string_view text ) {
  check< T >( text, Vex::parse< T >, Vex::text< T > );
  check< T >( text, Vex::parseBriefly< T >, Vex::briefText< T > );
}

template< class... T > void checkOne( size_t which, std::string_view text ) {
  size_t i = 0;
  ( ( i++ == which ? check< T >( text ) : void() ), ... );
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const uint8_t * data, size_t size ) {
  if ( size > 0 ) {
    checkOne< Wire::IntfId, Wire::TepIntfId, Wire::EthAddr, Wire::Ip4Addr, Wire::MplsLabel,
              Bridging::VlanId, Bridging::VlanIdOrNone, Tunnel::TunnelTable::TunnelId,
              Kez::HwTunnelId, Kez::KezPortList, Evpn::EncapTypeLabel, L2Rib::Dest,
              Kez::IntfVlanKey, Kez::IntfVlanTunnelKey, Kez::TunnelIdToHwTunnelId, Kez::VlanMacDest,
              Kez::MplsDestConfig, Kez::MplsFloodSetVia, Kez::MplsDestHwInfo,
              Kez::FloodSetMplsDestConfig, Switch::EsiData, double, bool, Vex::String >(
        data[ 0 ] % 24, { reinterpret_cast< const char * >( data ) + 1, size - 1 } );
  }
  return 0;
}
