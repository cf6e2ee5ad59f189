#include "KezEvpn/frame/Explain.h"

#include "Vex/Clock.h"

#include <algorithm>
#include <cmath>

namespace Kez {

namespace {

constexpr double noise = 1e-6;
constexpr double mostTenths = 1e15;

void appendTenths( Vex::TextBuffer & out, uint64_t tenths ) {
  appendText( out, tenths / 10 );
  out.append( '.' );
  appendText( out, tenths % 10 );
  out.append( " s" );
}

} // namespace

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
  const auto tenths = static_cast< uint64_t >(
      std::ceil( std::clamp( ( *due.time - Vex::Clock::now() ) * 10 - noise, 0.0, mostTenths ) ) );
  if ( tenths == 0 ) {
    out.append( "at once" );
  } else {
    out.append( "in " );
    appendTenths( out, tenths );
  }
  out.append( due.orLater ? " or in a later run" : "" );
}

void appendText( Vex::TextBuffer & out, const Ago & ago ) {
  const auto tenths = static_cast< uint64_t >(
      std::clamp( ( Vex::Clock::now() - ago.time ) * 10 + noise, 0.0, mostTenths ) );
  if ( tenths == 0 ) {
    out.append( "just now" );
  } else {
    appendTenths( out, tenths );
    out.append( " ago" );
  }
}

void appendText( Vex::TextBuffer & out, const Because & because ) {
  if ( !because.why.empty() ) {
    out.append( " (" );
    out.append( because.why );
    out.append( ')' );
  }
}

void appendText( Vex::TextBuffer & out, const Refused & refused ) {
  const auto & refusal = refused.refusal;
  out.append( "hardware refused " );
  appendText( out, Times{ refusal.tries } );
  appendText( out, Because{ refusal.why } );
  if ( refusal.tries > 1 ) {
    out.append( ", first " );
    appendText( out, Ago{ refusal.first } );
    out.append( ", last " );
  } else {
    out.append( ' ' );
  }
  appendText( out, Ago{ refusal.last } );
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
