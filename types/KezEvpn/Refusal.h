// How often in a row something was refused, from when on, when last, and why.
//
// Text form: "2 since 3, last 8: no room"; without a reason the colon and what follows are left
// out.
#pragma once

#include "Vex/Text.h"

#include <compare>

namespace Kez {

struct Refusal {
  uint32_t tries = 0; // in a row, each of which was refused
  double first = 0;   // the time of Vex::Clock of the first of them
  double last = 0;    // and of the last
  Vex::String why;    // of the last one; empty where whoever refused it does not say

  // Once more, now.
  Refusal again( std::string_view reason ) const;

  static constexpr std::string_view vexTypeName() { return "Kez::Refusal"; }
  friend bool operator==( const Refusal &, const Refusal & ) = default;
};

void appendText( Vex::TextBuffer & out, const Refusal & refusal );
void parseText( Vex::TextCursor & in, Refusal & refusal );
std::ostream & operator<<( std::ostream & out, const Refusal & refusal );

} // namespace Kez
