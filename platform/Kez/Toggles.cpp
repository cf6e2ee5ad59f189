#include "Kez/Toggles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Kez {

namespace {

// Where in the text it stands, and what it expects there.
class Reader {
public:
  explicit Reader( std::string_view text ) : text_( text ) {}

  std::map< Vex::String, bool > object() {
    std::map< Vex::String, bool > toggles;
    expect( "{", "{" );
    if ( !skip( "}" ) ) {
      do {
        member( toggles );
      } while ( skip( "," ) );
      expect( "}", "',' or '}'" );
    }
    blanks();
    if ( at_ < text_.size() ) {
      fail( "the end" );
    }
    return toggles;
  }

private:
  void member( std::map< Vex::String, bool > & toggles ) {
    blanks();
    const auto begin = at_;
    const auto name = string();
    if ( toggles.contains( name ) ) {
      at_ = begin;
      fail( "another name, " + name + " stands already" );
    }
    expect( ":", "':'" );
    const bool on = skip( "true" );
    if ( !on ) {
      expect( "false", "true or false" );
    }
    toggles[ name ] = on;
  }
  // Names of features need no escapes, nor what ends a key in a path.
  Vex::String string() {
    expect( "\"", "a name in double quotes" );
    const auto begin = at_;
    while ( at_ < text_.size() && text_[ at_ ] != '"' ) {
      if ( text_[ at_ ] == '\\' || text_[ at_ ] == ']' ||
           static_cast< unsigned char >( text_[ at_ ] ) < ' ' ) {
        fail( "a name without escapes, brackets and control characters" );
      }
      ++at_;
    }
    auto name = Vex::String( text_.substr( begin, at_ - begin ) );
    if ( at_ == text_.size() || name.empty() ) {
      fail( name.empty() ? "a name" : "'\"'" );
    }
    ++at_;
    return name;
  }

  void blanks() { at_ = std::min( text_.find_first_not_of( " \t\r\n", at_ ), text_.size() ); }
  bool skip( std::string_view token ) {
    blanks();
    const bool there = text_.substr( at_ ).starts_with( token );
    at_ += there ? token.size() : 0;
    return there;
  }
  void expect( std::string_view token, const Vex::String & what ) {
    if ( !skip( token ) ) {
      fail( what );
    }
  }
  [[noreturn]] void fail( const Vex::String & expected ) const {
    const auto before = text_.substr( 0, at_ );
    const auto line = std::count( before.begin(), before.end(), '\n' ) + 1;
    const auto column = at_ - ( before.rfind( '\n' ) + 1 ) + 1;
    const auto rest = text_.substr( at_, text_.find_first_of( " \t\r\n,:{}\"", at_ + 1 ) - at_ );
    throw std::runtime_error( "line " + std::to_string( line ) + ", column " +
                              std::to_string( column ) + ": expected " + expected + ", found " +
                              ( rest.empty() ? "the end" : "'" + Vex::String( rest ) + "'" ) );
  }

  const std::string_view text_;
  size_t at_ = 0;
};

} // namespace

std::map< Vex::String, bool > parseToggles( std::string_view text ) {
  return Reader( text ).object();
}

std::map< Vex::String, bool > readToggles( const Vex::String & file ) {
  std::ifstream in( file );
  std::stringstream text;
  if ( in && in.peek() != std::ifstream::traits_type::eof() ) {
    text << in.rdbuf();
  }
  if ( !in.is_open() || in.bad() ) {
    throw std::runtime_error( "cannot read " + file + ": " + std::strerror( errno ) );
  }
  try {
    return parseToggles( text.str() );
  } catch ( const std::runtime_error & error ) {
    throw std::runtime_error( file + ": " + error.what() );
  }
}

} // namespace Kez
