// Writes JSON, without blanks and in the order in which it is put: values one after the other,
// each of which a line may end behind, arrays, and objects.
#pragma once

#include "Vex/Reflection.h"

#include <ranges>

namespace Vex {

class JsonWriter {
public:
  // Characters of `guarded` do not stand in texts as they are, like all that must not.
  explicit JsonWriter( std::ostream & out, std::string_view guarded = {} )
      : out_( out ), guarded_( guarded ) {}

  template< class Members > void object( const Members & members ) {
    open( '{' );
    members();
    close( '}' );
  }
  template< class Elements > void array( const Elements & elements ) {
    open( '[' );
    elements();
    close( ']' );
  }
  // An object on a line of its own.
  template< class Members > void line( const Members & members ) {
    object( members );
    out_ << '\n';
    first_ = true;
  }

  // In an object.
  template< class... Value > void member( std::string_view name, const Value &... value ) {
    this->name( name );
    put( value... );
  }
  template< class Elements > void arrayMember( std::string_view name, const Elements & elements ) {
    this->name( name );
    array( elements );
  }
  // What is put next is this member's value.
  void name( std::string_view name );

  // What is not UTF-8 is replaced.
  void put( std::string_view text );
  void put( const char * text ) { put( std::string_view( text ) ); }
  void put( const String & text ) { put( std::string_view( text ) ); }
  // As what it reads as.
  void put( std::string_view text, TextForm form );
  // Null when it is none.
  void put( double number );
  void put( PlainInteger auto number ) { item() << +number; }
  void put( std::same_as< bool > auto truth ) { item() << ( truth ? "true" : "false" ); }
  template< class Value > void put( const std::optional< Value > & value ) {
    if ( value ) {
      put( *value );
    } else {
      item() << "null";
    }
  }
  template< std::ranges::range Range > void put( const Range & range ) {
    array( [ & ] {
      for ( const auto & each : range ) {
        put( each );
      }
    } );
  }

private:
  void open( char bracket );
  void close( char bracket );
  // Where the next value goes.
  std::ostream & item();

  std::ostream & out_;
  const std::string_view guarded_;
  bool first_ = true; // of an array or object, or on a line
};

} // namespace Vex
