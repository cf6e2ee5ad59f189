// What the command lines of all programs have alike.
//
//   int main( int argc, char ** argv ) {
//     return Program::run( { "kez-x", usage }, { argv + 1, argv + argc }, std::cout, std::cerr,
//                          []( const Program::Arguments & arguments ) { ... } );
//   }
//
// An option's value follows it or stands after a "=", options stand anywhere, and what follows "--"
// is no option.
#pragma once

#include "Vex/Text.h"

#include <functional>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace Program {

using Arguments = std::vector< Vex::String >;

// A command line that cannot be followed.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

struct Option {
  std::string_view name;
  bool hasValue;
  std::function< void( const Vex::String & value ) > take;
};

// An option without a value.
inline Option flag( std::string_view name, bool & to ) {
  return { name, false, [ &to ]( const Vex::String & ) { to = true; } };
}
// One with a value, which is a text, or is read as what `to` is.
inline Option text( std::string_view name, Vex::String & to ) {
  return { name, true, [ &to ]( const Vex::String & value ) { to = value; } };
}
template< class T > Option value( std::string_view name, T & to ) {
  return { name, true,
           [ &to ]( const Vex::String & value ) { to = Vex::parseBriefly< T >( value ); } };
}

// One with a number, or with the first and the last of several, "3" or "3-7".
Option range( std::string_view name, uint64_t & first, uint64_t & last );

// Hands the options' values out, and returns the words that are none. Raises UsageError, as for
// what an option's `take` finds wrong.
Arguments takeOptions( const Arguments & arguments, const std::vector< Option > & options );

// "a, b or c".
Vex::String choice( const std::vector< Vex::String > & names );

struct About {
  Vex::String name;
  Vex::String usage;
};

// The exit status of `body`, or 2 with a message when that raises an exception, or when what was
// written to `out` has not arrived. Answers help and version, wherever they are asked for.
int run( const About & about, const Arguments & arguments, std::ostream & out, std::ostream & err,
         const std::function< int( const Arguments & ) > & body );

} // namespace Program
