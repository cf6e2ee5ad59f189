#include "KezEvpn/frame/Explain.h"

#include "Vex/Clock.h"

#include <algorithm>
#include <cmath>

namespace Kez {

namespace {

template< size_t kind = 0 >
bool readKey( std::string_view word, Vex::TextCursor & in, Subjects::Key & key ) {
  if constexpr ( kind == Subjects::words.size() ) {
    return false;
  } else {
    if ( word != Subjects::words[ kind ] ) {
      return readKey< kind + 1 >( word, in, key );
    }
    parseBriefText( in, key.emplace< kind >() );
    return true;
  }
}

Vex::String wordList() {
  Vex::String list;
  for ( const auto word : Subjects::words ) {
    list += list.empty() ? "" : word == Subjects::words.back() ? " or " : ", ";
    list += word;
  }
  return list;
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
  if ( !readKey( word, ahead, subject.key ) ) {
    in.fail( wordList() );
  }
  in = ahead;
  std::visit( [ & ]( auto & key ) { check( in, key ); }, subject.key );
  return subject;
}

Vex::String text( const Subject & subject ) {
  Vex::TextBuffer out;
  out.append( Subjects::words[ subject.key.index() ] );
  out.append( ' ' );
  std::visit( [ & ]( const auto & key ) { appendBriefText( out, key ); }, subject.key );
  return out.str();
}

Vex::String Explanation::text() const {
  Vex::String all;
  for ( const auto & clause : clauses_ ) {
    all += ( all.empty() ? "" : "; " ) + clause.text;
  }
  return all;
}

Standing Explanation::standing() const {
  auto gravest = Standing::settled;
  for ( const auto & clause : clauses_ ) {
    gravest = std::max( gravest, clause.standing );
  }
  return gravest;
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
