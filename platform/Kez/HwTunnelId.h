// Hardware tunnel ids: a number and the type of the pool that it was drawn from, two 32-bit
// words. The number 0 is not valid, and is the default. Text form: "<type>:<number>", "1:7".
#pragma once

#include "Vex/WordValue.h"

namespace Kez {

VEX_ENUM( HwTunnelIdType, "Kez::HwTunnelIdType", hwTunnelIdTypeDefault, hwTunnelIdTypeSharedEsi )
using enum HwTunnelIdType;

// What the class has that keeps a hardware tunnel id as `Kept`.
template< class T, class Kept = uint64_t >
class HwTunnelIdKeptAs : public Vex::WordValue< T, uint64_t, Kept > {
public:
  constexpr HwTunnelIdType hwTunnelIdType() const {
    return static_cast< HwTunnelIdType >( this->value() >> 32 );
  }
  constexpr uint32_t number() const { return static_cast< uint32_t >( this->value() ); }
  constexpr bool valid() const { return number() != 0; }

  static constexpr std::string_view vexTypeName() { return "Kez::HwTunnelId"; }

protected:
  using HwTunnelIdKeptAs::WordValue::WordValue;
};

class HwTunnelId : public HwTunnelIdKeptAs< HwTunnelId > {
public:
  constexpr HwTunnelId() : HwTunnelIdKeptAs( 0 ) {}
  constexpr HwTunnelId( HwTunnelIdType type, uint32_t number )
      : HwTunnelIdKeptAs( uint64_t( type ) << 32 | number ) {}
};

// The same in five bytes, one of them the type's, for what is kept in great numbers.
class NarrowHwTunnelId
    : public HwTunnelIdKeptAs< NarrowHwTunnelId, Vex::NarrowWord< uint64_t, uint8_t, 5 > > {
public:
  constexpr NarrowHwTunnelId( HwTunnelId id = {} ) : HwTunnelIdKeptAs( id.value() ) {}
  constexpr NarrowHwTunnelId( HwTunnelIdType type, uint32_t number )
      : NarrowHwTunnelId( HwTunnelId( type, number ) ) {}
  constexpr operator HwTunnelId() const { return { hwTunnelIdType(), number() }; }

  friend constexpr bool operator==( NarrowHwTunnelId a, HwTunnelId b ) {
    return a.value() == b.value();
  }
};
static_assert( sizeof( NarrowHwTunnelId ) == 5 );

inline void appendText( Vex::TextBuffer & out, HwTunnelId id ) {
  appendText( out, static_cast< uint32_t >( id.hwTunnelIdType() ) );
  out.append( ':' );
  appendText( out, id.number() );
}

inline void parseText( Vex::TextCursor & in, HwTunnelId & id ) {
  constexpr auto types = vexNames( HwTunnelIdType() ).size();
  Vex::TextCursor word( in.peekWord() );
  uint64_t type = 0;
  uint32_t number = 0;
  if ( !Vex::readNumber( word, type ) || type >= types || !word.skip( ":" ) ||
       !Vex::readNumber( word, number ) || !word.done() ) {
    in.fail( "a hardware tunnel id, <type>:<number>" );
  }
  in.word();
  id = HwTunnelId( static_cast< HwTunnelIdType >( type ), number );
}

inline void appendText( Vex::TextBuffer & out, NarrowHwTunnelId id ) {
  appendText( out, HwTunnelId( id ) );
}

inline void parseText( Vex::TextCursor & in, NarrowHwTunnelId & id ) {
  HwTunnelId read;
  parseText( in, read );
  id = read;
}

} // namespace Kez
