// What test-printers looks at: values, references and collections of all kinds, as they stand when
// `look` is called. Prints each value's name and what the library makes of it.
#include "Evpn/EncapTypeLabel.h"
#include "Kez/KezPortList.h"
#include "KezEvpn/FecRequests.h"
#include "KezEvpn/FloodSets.h"
#include "KezEvpn/KezEvpn.h"
#include "L2Rib/HostOutput.h"
#include "Mpls/Lfib.h"
#include "Vex/Attributes.h"
#include "Wire/EthAddr.h"

#include <iostream>

namespace Subject {

class Port : public Vex::Entity {
  VEX_ENTITY( Port, "Subject::Port" )
  VEX_KEY( Port, intfId, Wire::IntfId )
  VEX_ATTRIBUTE( 1, speed, uint32_t, 100 )
  VEX_ATTRIBUTES( speed )
};

class Node : public Vex::Entity {
  VEX_ENTITY( Node, "Subject::Node" )
  VEX_SET( 1, vlan, Bridging::VlanId )
  VEX_MAP( 2, pair, Kez::IntfVlanKey, L2Rib::Dest )
  VEX_COUNTER( 3, uses, Tunnel::TunnelTable::TunnelId )
  VEX_QUEUE( 4, waiting, Wire::EthAddr )
  VEX_ENTITIES( 5, port, Port )
  VEX_ATTRIBUTES( vlan, pair, uses, waiting, port )
};

// Not to be left out, nor called before what it looks at is there.
[[gnu::noinline]] void look( const Node & node ) {
  asm volatile( "" : : "r"( &node ) : "memory" );
}

} // namespace Subject

#define SAY( name ) std::cout << #name " " << Vex::briefText( name ) << '\n'

int main() {
  const Wire::IntfId ethernet( "Ethernet3" );
  const Wire::IntfId lane( "Ethernet3/1/2" );
  const Wire::IntfId lag( "Port-Channel7" );
  const Wire::IntfId vlan( "Vlan10" );
  const Wire::IntfId tunnel( "DynamicTunnel1.7" );
  const Wire::IntfId policy( "SrTePolicy2.9" );
  const Wire::IntfId cpu( "Cpu" );
  const Wire::IntfId empty;
  const Wire::EthAddr mac( 0x001c730a0b0c );
  const Wire::Ip4Addr ip( 0x0a000001 );
  const Wire::MplsLabel label( 100 );
  const Kez::HwTunnelId hwTunnelId( Kez::hwTunnelIdTypeSharedEsi, 7 );
  const Evpn::EncapTypeLabel encapTypeLabel( 2, label );
  const Mpls::LfibViaKey viaKey( Mpls::LfibViaType::mpls, 7 );
  const Mpls::LfibViaSet viaSet( 3, { viaKey, viaKey } );
  const Mpls::RouteInfo route( label, Mpls::LfibHwProgrammingReturnCode::tableFull );
  const Kez::IntfVlanTunnelKey key( ethernet, 10, 5 );
  const Rook::Fib::Fec fec( 9, { { ethernet, 101 }, { vlan, 102 } } );
  const Kez::HwFecIdRequest one( 9, hwTunnelId );
  const std::array two{ hwTunnelId, Kez::HwTunnelId() };
  const auto twoIds = Kez::HwTunnelIds::of( two );
  const auto intf = L2Rib::Dest::ofIntf( lag );
  const auto vxlan = L2Rib::Dest::ofVxlan( ip );
  const auto tunnelled = L2Rib::Dest::ofTunnel( 5 );
  const auto mpls = L2Rib::Dest::ofMpls( { ethernet, label, 5 } );
  const Kez::VlanMacDest vlanMacDest( 10, mac, mpls );
  const Kez::MplsDestConfig config( 5, label, hwTunnelId, 9, vlan );
  const L2Rib::ObjectIds objects{ 8, 7 };
  const Kez::Refusal refusal{ 2, 3, 8.5, "no room" };
  Kez::KezPortList few;
  few.portIs( lag, true );
  Kez::KezPortList many;
  for ( const auto intfId : { ethernet, lane, lag, vlan, cpu } ) {
    many.portIs( intfId, true );
  }
  const Wire::IntfId other( "swp12" );
  SAY( ethernet );
  SAY( lane );
  SAY( lag );
  SAY( vlan );
  SAY( tunnel );
  SAY( policy );
  SAY( cpu );
  SAY( empty );
  SAY( mac );
  SAY( ip );
  SAY( label );
  SAY( hwTunnelId );
  SAY( encapTypeLabel );
  SAY( viaKey );
  SAY( viaSet );
  SAY( route );
  SAY( key );
  SAY( fec );
  SAY( one );
  SAY( twoIds );
  SAY( intf );
  SAY( vxlan );
  SAY( tunnelled );
  SAY( mpls );
  SAY( vlanMacDest );
  SAY( config );
  SAY( objects );
  SAY( refusal );
  SAY( few );
  SAY( many );
  SAY( other );
  std::cout << std::flush;

  const auto node = Vex::makePtr< Subject::Node >();
  [[maybe_unused]] const Vex::Ptr< const Vex::Entity > again = node;
  [[maybe_unused]] const Vex::Ptr< Vex::Entity > none;
  [[maybe_unused]] const Vex::Ptr< Vex::Entity > info = Vex::makePtr< Kez::EvpnRemoteInfo >();
  for ( const uint16_t vlanId : { 10, 20, 30, 5 } ) {
    node->vlanIs( vlanId );
  }
  node->vlanDel( 20 );
  node->vlanIs( 40 );
  node->pairIs( { "Ethernet1", 10 }, mpls );
  node->usesInc( 7, 3 );
  node->waitingEnq( mac );
  node->portIs( "Ethernet1" )->speedIs( 400 );
  Subject::look( *node );
}
