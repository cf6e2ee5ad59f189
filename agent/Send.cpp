#include "agent/Send.h"

#include "shell/Line.h"
#include "shell/Show.h"
#include "switch/ForwardingPlane.h"

#include <algorithm>

namespace Agent {

using KezShell::BadLine;
using Switch::Crossing;
using Switch::skipWord;
using Vex::String;

namespace {

template< class T >
Vex::Ptr< const T > entityOf( const KezShell::Roots & roots, std::string_view name ) {
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

// Reads "PORT [tag N] [from MAC] to MAC" or "tunnel T labels A[,B] [from MAC] to MAC" and the
// blanks behind it, and has the switch forward that frame.
Switch::Forwarded forwarded( const KezShell::Roots & roots, Vex::TextCursor & in ) {
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
  Switch::Forwarded all;
  plane->forward( crossing, frame, all );
  return all;
}

// Where the copy that is not made would have gone; empty when that is nowhere in particular.
String placeOf( const Switch::Stop & stop ) {
  return stop.intfId != Wire::IntfId() ? "to " + Vex::text( stop.intfId )
         : stop.tunnelId.value() != 0  ? "over tunnel " + Vex::text( stop.tunnelId )
                                       : "";
}

void send( const KezShell::Roots & roots, Vex::TextCursor & in, KezShell::Session & session ) {
  const auto all = forwarded( roots, in );
  Vex::expectEnd( in );
  if ( auto * const json = session.json() ) {
    json->line( [ & ] { putForwarded( *json, all ); } );
  } else {
    showForwarded( session.out(), all );
  }
}

// Reads a frame as `send` does, "copies", and these, separated by a comma and a blank, or "none".
void expectSend( const KezShell::Roots & roots, Vex::TextCursor & in,
                 KezShell::Session & session ) {
  const auto begin = in.at();
  const auto all = forwarded( roots, in );
  const String frame( KezShell::trimmed( { begin, static_cast< size_t >( in.at() - begin ) } ) );
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
  const auto inOrder = copiesText( std::move( expected ) );
  const auto found = copiesText( all.copies );
  session.judge( found == inOrder, "send " + frame, inOrder, found );
}

} // namespace

void showForwarded( std::ostream & out, const Switch::Forwarded & all ) {
  if ( all.vlanId == Bridging::VlanIdOrNone() ) {
    out << "of no VLAN\n";
  } else {
    out << "VLAN " << all.vlanId << ( all.flooded ? ", flooded\n" : "\n" );
  }
  for ( const auto & copy : all.copies ) {
    out << "  " << Vex::text( copy ) << '\n';
  }
  std::vector< std::vector< String > > rows;
  for ( const auto & stop : all.stopped ) {
    const auto where = placeOf( stop );
    rows.push_back( { "  not" + ( where.empty() ? "" : " " + where ),
                      String( reasonText( stop.reason ) ), entryPath( stop ) } );
  }
  KezShell::showTable( out, rows );
}

void putForwarded( Vex::JsonWriter & out, const Switch::Forwarded & all ) {
  out.member( "vlan", all.vlanId == Bridging::VlanIdOrNone()
                          ? std::nullopt
                          : std::optional( all.vlanId.value() ) );
  out.member( "flooded", all.flooded );
  out.arrayMember( "copies", [ & ] {
    for ( const auto & copy : all.copies ) {
      out.put( Vex::text( copy ) );
    }
  } );
  out.arrayMember( "stops", [ & ] {
    for ( const auto & stop : all.stopped ) {
      out.object( [ & ] {
        out.member( "where", placeOf( stop ) );
        out.member( "reason", reasonText( stop.reason ) );
        out.member( "entry", entryPath( stop ) );
      } );
    }
  } );
}

void addSend( KezShell::Shell & shell ) {
  shell.commandIs(
      { "send", "FRAME", "tell what the switch does to a frame",
        "Shows the copies that the switch makes of it by its tables, and for each that it does not\n"
        "make the entry that stopped it. FRAME is one of\n"
        "  PORT [tag N] [from MAC] to MAC\n"
        "  tunnel T labels LABEL[,ESI-LABEL] [from MAC] to MAC\n"
        "With expect before it, and copies and what they are behind it, it checks these, in any\n"
        "order.\n"
        "  send Ethernet1 tag 110 from 00:00:00:00:00:01 to ff:ff:ff:ff:ff:ff\n"
        "  send tunnel 5 labels 100,500 to ff:ff:ff:ff:ff:ff\n"
        "  expect send Ethernet1 to ff:ff:ff:ff:ff:ff copies Ethernet2 tag 110, tunnel 5 labels 100\n"
        "  expect send Ethernet3 to 00:00:00:00:00:02 copies none\n",
        KezShell::Effect::none,
        [ &shell ]( Vex::TextCursor & in, KezShell::Session & session ) {
          send( shell.roots(), in, session );
        },
        false,
        [ &shell ]( Vex::TextCursor & in, KezShell::Session & session ) {
          expectSend( shell.roots(), in, session );
        } },
      "explain" );
}

} // namespace Agent
