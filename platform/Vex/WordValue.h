// What all values of one unsigned word have alike: equality, order, hashes, and a text form, the
// number. A class derives from WordValue< itself, its word >, is made from a number, and says
//
//   static constexpr std::string_view vexTypeName();
//   static constexpr Word vexLowest, vexHighest;       the numbers that text may give
//   static constexpr std::string_view vexExpected;     what they are, for the parse error
//
// A class that prints otherwise has an appendText and a parseText of its own. One whose values are
// kept in great numbers, and never use some upper bytes, keeps its word as a NarrowWord.
#pragma once

#include "Vex/NarrowWord.h"
#include "Vex/Value.h"

namespace Vex {

template< class T, std::unsigned_integral Word, class Kept = Word > class WordValue {
public:
  using VexWord = Word;
  using VexWordValue = WordValue;
  using VexEqualAsBytes = void;

  constexpr Word value() const { return word_; }
  constexpr uint64_t vexWord() const { return value(); }
  uint32_t hash( uint32_t seed ) const { return hashOf( value(), seed ); }

  friend constexpr bool operator==( const T & a, const T & b ) { return a.value() == b.value(); }
  friend constexpr std::strong_ordering operator<=>( const T & a, const T & b ) {
    return a.value() <=> b.value();
  }
  friend std::ostream & operator<<( std::ostream & out, const T & value ) {
    return out << text( value );
  }

protected:
  explicit constexpr WordValue( Word word ) : word_( word ) {}

private:
  Kept word_;
};

template< class T, class Word, class Kept >
void appendText( TextBuffer & out, const WordValue< T, Word, Kept > & value ) {
  appendText( out, value.value() );
}

template< class T >
  requires std::derived_from< T, typename T::VexWordValue >
void parseText( TextCursor & in, T & value ) {
  const char * const begin = in.at();
  typename T::VexWord number{};
  if ( !readNumber( in, number ) || !in.atWordEnd() || number < T::vexLowest ||
       number > T::vexHighest ) [[unlikely]] {
    in.atIs( begin );
    in.fail( String( T::vexExpected ) );
  }
  value = T( number );
}

} // namespace Vex
