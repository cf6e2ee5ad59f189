// Hardware tunnel ids: a number and the type of the pool that it was drawn from, two 32-bit
// words. The number 0 is not valid, and is the default. Text form: "<type>:<number>", "1:7".
#pragma once

#include "Vex/WordValue.h"

namespace Kez {

VEX_ENUM( HwTunnelIdType, "Kez::HwTunnelIdType", hwTunnelIdTypeDefault, hwTunnelIdTypeSharedEsi )
using enum HwTunnelIdType;

class HwTunnelId : public Vex::WordValue< HwTunnelId, uint64_t > {
public:
  constexpr HwTunnelId() : WordValue( 0 ) {}
  constexpr HwTunnelId( HwTunnelIdType type, uint32_t number )
      : WordValue( uint64_t( type ) << 32 | number ) {}

  constexpr HwTunnelIdType hwTunnelIdType() const {
    return static_cast< HwTunnelIdType >( value() >> 32 );
  }
  constexpr uint32_t number() const { return static_cast< uint32_t >( value() ); }
  constexpr bool valid() const { return number() != 0; }

  static constexpr std::string_view vexTypeName() { return "Kez::HwTunnelId"; }
};

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

} // namespace Kez
