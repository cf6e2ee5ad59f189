#include "agent/Send.h"

#include "shell/Line.h"
#include "shell/Show.h"
#include "switch/ForwardingPlane.h"

#include <algorithm>

namespace Agent {

using Switch::Crossing;
using Switch::skipWord;
using Vex::String;

namespace {

template< class T > Vex::Ptr< const T > entityOf( const Roots & roots, std::string_view name ) {
  const auto * const root = roots.root( name );
  const auto entity = root ? Vex::dynamicCast< T >( root->entity ) : nullptr;
  if ( !entity ) {
    throw BadLine( 1, "there is no agent, which restart makes" );
  }
  return entity;
}

Wire::EthAddr parseAddress( Vex::TextCursor & in ) {
  Wire::EthAddr address;
  parseText( in, address );
  Switch::skipBlanks( in );
  return address;
}

String copiesText( std::vector< Crossing > copies ) {
  std::ranges::sort( copies );
  String text;
  for ( const auto & copy : copies ) {
    text += ( text.empty() ? "" : ", " ) + Vex::text( copy );
  }
  return text.empty() ? "none" : text;
}

} // namespace

Switch::Forwarded send( const Roots & roots, Vex::TextCursor & in ) {
  const auto plane = Vex::makePtr< Switch::ForwardingPlane >(
      entityOf< Switch::SimulatedSwitch >( roots, "switch" ),
      entityOf< Switch::ForwardingInput >( roots, "forwardingInput" ),
      entityOf< Kez::LagCreatorConfigDir >( roots, "lagConfigDir" ),
      entityOf< Evpn::EvpnStatus >( roots, "evpnStatus" ) );
  Crossing crossing;
  parseText( in, crossing );
  Switch::Frame frame;
  if ( skipWord( in, "from" ) ) {
    frame.from = parseAddress( in );
  }
  if ( !skipWord( in, "to" ) ) {
    in.fail( "to and a MAC address" );
  }
  frame.to = parseAddress( in );
  Switch::Forwarded forwarded;
  plane->forward( crossing, frame, forwarded );
  return forwarded;
}

void showForwarded( std::ostream & out, const Switch::Forwarded & forwarded ) {
  if ( forwarded.vlanId == Bridging::VlanIdOrNone() ) {
    out << "of no VLAN\n";
  } else {
    out << "VLAN " << forwarded.vlanId << ( forwarded.flooded ? ", flooded\n" : "\n" );
  }
  for ( const auto & copy : forwarded.copies ) {
    out << "  " << Vex::text( copy ) << '\n';
  }
  std::vector< std::vector< String > > rows;
  for ( const auto & stop : forwarded.stopped ) {
    const auto where = stop.intfId != Wire::IntfId() ? " to " + Vex::text( stop.intfId )
                       : stop.tunnelId.value() != 0  ? " over tunnel " + Vex::text( stop.tunnelId )
                                                     : "";
    rows.push_back( { "  not" + where, String( reasonText( stop.reason ) ), entryPath( stop ) } );
  }
  showTable( out, rows );
}

CopiesExpectation expectCopies( const Roots & roots, Vex::TextCursor & in ) {
  const auto begin = in.at();
  const auto forwarded = send( roots, in );
  const String frame( trimmed( { begin, static_cast< size_t >( in.at() - begin ) } ) );
  if ( !skipWord( in, "copies" ) ) {
    in.fail( "copies and what they are, or none" );
  }
  std::vector< Crossing > expected;
  if ( !skipWord( in, "none" ) ) {
    do {
      parseText( in, expected.emplace_back() );
    } while ( in.skip( ", " ) );
  }
  Vex::expectEnd( in );
  return { frame, copiesText( std::move( expected ) ), copiesText( forwarded.copies ) };
}

} // namespace Agent
