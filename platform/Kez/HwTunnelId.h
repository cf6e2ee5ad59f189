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
  const auto text = in.peekWord();
  const char * const textEnd = text.data() + text.size();
  uint32_t type = types;
  uint32_t number = 0;
  const auto [ colon, typeError ] = std::from_chars( text.data(), textEnd, type );
  if ( type < types && colon != textEnd && *colon == ':' ) {
    const auto [ end, error ] = std::from_chars( colon + 1, textEnd, number );
    if ( error == std::errc() && end == textEnd ) {
      in.atIs( end );
      id = HwTunnelId( static_cast< HwTunnelIdType >( type ), number );
      return;
    }
  }
  in.fail( "a hardware tunnel id, <type>:<number>" );
}

} // namespace Kez
