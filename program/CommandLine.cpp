#include "program/CommandLine.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Program {

using Vex::String;

namespace {

constexpr std::string_view endOfOptions = "--";

bool asksFor( const Arguments & arguments, std::initializer_list< std::string_view > words ) {
  const auto end = std::find( arguments.begin(), arguments.end(), endOfOptions );
  return std::find_first_of( arguments.begin(), end, words.begin(), words.end() ) != end;
}

int answered( const About & about, const Arguments & arguments, std::ostream & out,
              const std::function< int( const Arguments & ) > & body ) {
  if ( asksFor( arguments, { "--help", "-h" } ) ||
       ( !arguments.empty() && arguments[ 0 ] == "help" ) ) {
    out << about.usage;
    return 0;
  }
  if ( asksFor( arguments, { "--version" } ) ) {
    out << about.name << " " KEZ_VERSION "\n";
    return 0;
  }
  return body( arguments );
}

} // namespace

String choice( const std::vector< String > & names ) {
  String all;
  for ( const auto & each : names ) {
    all += all.empty() ? "" : &each == &names.back() ? " or " : ", ";
    all += each;
  }
  return all;
}

Option range( std::string_view name, uint64_t & first, uint64_t & last ) {
  return { name, true, [ & ]( const String & value ) {
            const auto dash = value.find( '-' );
            first = Vex::parseBriefly< uint64_t >( value.substr( 0, dash ) );
            last = dash == String::npos ? first
                                        : Vex::parseBriefly< uint64_t >( value.substr( dash + 1 ) );
          } };
}

Arguments takeOptions( const Arguments & arguments, const std::vector< Option > & options ) {
  Arguments words;
  for ( auto at = arguments.begin(); at != arguments.end(); ++at ) {
    if ( *at == endOfOptions ) {
      words.insert( words.end(), at + 1, arguments.end() );
      break;
    }
    if ( *at == "-" || !at->starts_with( "-" ) ) {
      words.push_back( *at );
      continue;
    }
    const auto equals = at->find( '=' );
    const auto name = at->substr( 0, equals );
    const auto option = std::find_if( options.begin(), options.end(),
                                      [ & ]( const Option & each ) { return each.name == name; } );
    if ( option == options.end() ) {
      Arguments names;
      for ( const auto & each : options ) {
        names.emplace_back( each.name );
      }
      throw UsageError( "expected " + ( names.empty() ? "no option" : choice( names ) ) +
                        ", found '" + *at + "'" );
    }
    String value;
    if ( !option->hasValue && equals != String::npos ) {
      throw UsageError( name + ": expected no value" );
    }
    if ( option->hasValue ) {
      value = equals != String::npos      ? at->substr( equals + 1 )
              : at + 1 != arguments.end() ? *++at
                                          : "";
      if ( value.empty() ) {
        throw UsageError( name + ": expected a value" );
      }
    }
    try {
      option->take( value );
    } catch ( const Vex::ParseError & error ) {
      throw UsageError( name + ": " + error.what() );
    }
  }
  return words;
}

int run( const About & about, const Arguments & arguments, std::ostream & out, std::ostream & err,
         const std::function< int( const Arguments & ) > & body ) {
  try {
    const int status = answered( about, arguments, out, body );
    if ( !out.flush() ) {
      throw std::runtime_error( String( "cannot write standard output: " ) +
                                std::strerror( errno ) );
    }
    return status;
  } catch ( const UsageError & error ) {
    err << about.name << ": " << error.what() << "\ntry " << about.name << " help\n";
  } catch ( const std::exception & error ) {
    err << about.name << ": " << error.what() << '\n';
  }
  return 2;
}

} // namespace Program
