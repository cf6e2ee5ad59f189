#include "KezEvpn/frame/Explain.h"

#include "Vex/Clock.h"

#include <algorithm>
#include <cmath>

namespace Kez {

namespace {

constexpr std::array< std::string_view, std::variant_size_v< decltype( Subject::key ) > > kinds{
  "pair", "vlan", "tunnel", "path", "route"
};

template< size_t kind = 0 >
bool readKey( std::string_view word, Vex::TextCursor & in, Subject & subject ) {
  if constexpr ( kind == kinds.size() ) {
    return false;
  } else {
    if ( word != kinds[ kind ] ) {
      return readKey< kind + 1 >( word, in, subject );
    }
    parseBriefText( in, subject.key.emplace< kind >() );
    return true;
  }
}

void check( const Vex::TextCursor & in, IntfVlanKey & pair ) {
  if ( pair.intfId == Wire::IntfId() ) {
    in.fail( "an interface and a VLAN, separated by a comma" );
  }
}
// Whose path is the same for all VLANs may be asked of with any.
void check( const Vex::TextCursor &, MplsFloodSetVia & path ) {
  path = mplsFloodSetVia( path.tunnelId, path.label, path.vlanId.value() );
}
template< class Key > void check( const Vex::TextCursor &, Key & ) {}

} // namespace

Subject parseSubject( Vex::TextCursor & in ) {
  Subject subject;
  auto ahead = in;
  const auto word = ahead.word();
  ahead.skip( " " );
  if ( !readKey( word, ahead, subject ) ) {
    in.fail( "pair, vlan, tunnel, path or route" );
  }
  in = ahead;
  std::visit( [ & ]( auto & key ) { check( in, key ); }, subject.key );
  return subject;
}

Vex::String text( const Subject & subject ) {
  Vex::TextBuffer out;
  out.append( kinds[ subject.key.index() ] );
  out.append( ' ' );
  std::visit( [ & ]( const auto & key ) { appendBriefText( out, key ); }, subject.key );
  return out.str();
}

void appendText( Vex::TextBuffer & out, const Due & due ) {
  if ( !due.time ) {
    out.append( due.otherwise );
    return;
  }
  // Tenths of a second, rounded up: what is not due yet is not said to be.
  constexpr double noise = 1e-6;
  constexpr double most = 1e15;
  const auto tenths = static_cast< uint64_t >(
      std::ceil( std::clamp( ( *due.time - Vex::Clock::now() ) * 10 - noise, 0.0, most ) ) );
  if ( tenths == 0 ) {
    out.append( "at once" );
  } else {
    out.append( "in " );
    appendText( out, tenths / 10 );
    out.append( '.' );
    appendText( out, tenths % 10 );
    out.append( " s" );
  }
  out.append( due.orLater ? " or in a later run" : "" );
}

void appendText( Vex::TextBuffer & out, const Count & count ) {
  appendText( out, count.number );
  out.append( ' ' );
  out.append( count.what );
  out.append( count.number == 1 ? "" : "s" );
}

void appendText( Vex::TextBuffer & out, const Times & times ) {
  if ( times.number <= 2 ) {
    out.append( times.number == 1 ? "once" : "twice" );
  } else {
    appendText( out, times.number );
    out.append( " times" );
  }
}

} // namespace Kez
