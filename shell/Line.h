// Reading one line of input. A Vex::TextCursor over the whole line tells where it stands; what is
// wrong there is a Vex::ParseError whose offset counts from the beginning of the line.
#pragma once

#include "Vex/Text.h"

#include <optional>

namespace KezShell {

// Where a line stands, for reports: in words, "<file>:<line>", and its number if it has one.
struct Place {
  Place( const char * words ) : text( words ) {}
  Place( const Vex::String & words, size_t line = 0 ) : text( words ), number( line ) {}
  Vex::String text;
  size_t number = 0;
};

// A line that cannot be executed; it has changed nothing. Columns are bytes and count from 1.
class BadLine : public std::runtime_error {
public:
  // What was expected at the column, and what is there.
  struct Mismatch {
    Vex::String expected;
    Vex::String found; // empty at the end of the line
  };
  BadLine( size_t at, const Vex::String & message,
           const std::optional< Mismatch > & difference = {} )
      : std::runtime_error( Vex::printable( message ) ), column( at ), mismatch( difference ) {}
  const size_t column;
  const std::optional< Mismatch > mismatch; // none where the message is more than that
};

// Turns what `operation` finds wrong in a text that begins at `column` into a BadLine.
template< class Operation > auto inTextAt( size_t column, Operation && operation ) {
  try {
    return operation();
  } catch ( const Vex::ParseError & error ) {
    throw BadLine( column + error.offset(), error.what(),
                   BadLine::Mismatch{ error.expected(), error.found() } );
  } catch ( const Vex::RangeError & error ) {
    throw BadLine( column, error.what() );
  }
}

std::string_view trimmed( std::string_view text );

// The characters before the next one of `stops`, or all.
std::string_view takeUntil( Vex::TextCursor & in, std::string_view stops );
// The next word, which ends at a blank, and the blanks after it; empty at the end of the line.
std::string_view takeWord( Vex::TextCursor & in );
std::string_view takeRest( Vex::TextCursor & in );

[[noreturn]] void failAt( size_t offset, const Vex::String & expected, std::string_view found );

} // namespace KezShell
