#include "shell/Line.h"

namespace KezShell {

namespace {

constexpr std::string_view blanks = " \t\r";

} // namespace

std::string_view trimmed( std::string_view text ) {
  const auto first = text.find_first_not_of( blanks );
  return first == text.npos ? std::string_view()
                            : text.substr( first, text.find_last_not_of( blanks ) + 1 - first );
}

std::string_view takeUntil( Vex::TextCursor & in, std::string_view stops ) {
  const auto text = in.rest().substr( 0, in.rest().find_first_of( stops ) );
  in.skip( text );
  return text;
}

std::string_view takeWord( Vex::TextCursor & in ) {
  const auto word = takeUntil( in, blanks );
  const auto next = in.rest().find_first_not_of( blanks );
  in.atIs( next == std::string_view::npos ? in.end() : in.at() + next );
  return word;
}

std::string_view takeRest( Vex::TextCursor & in ) {
  const auto rest = in.rest();
  in.atIs( in.end() );
  return rest;
}

void failAt( size_t offset, const Vex::String & expected, std::string_view found ) {
  throw Vex::ParseError( expected, Vex::String( found ), offset );
}

} // namespace KezShell
