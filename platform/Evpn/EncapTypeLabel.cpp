#include "Evpn/EncapTypeLabel.h"

namespace Evpn {

void appendText( Vex::TextBuffer & out, EncapTypeLabel label ) {
  appendText( out, uint32_t( label.encapType() ) );
  out.append( ':' );
  appendText( out, label.mplsLabel() );
}

void parseText( Vex::TextCursor & in, EncapTypeLabel & label ) {
  const auto text = in.peekWord();
  const char * const textEnd = text.data() + text.size();
  uint8_t encapType = 0;
  const auto [ colon, typeError ] = std::from_chars( text.data(), textEnd, encapType );
  if ( typeError == std::errc() && colon != textEnd && *colon == ':' ) {
    uint32_t number = 0;
    const auto [ end, error ] = std::from_chars( colon + 1, textEnd, number );
    if ( error == std::errc() && end == textEnd && number < Wire::MplsLabel::none ) {
      in.atIs( end );
      label = EncapTypeLabel( encapType, number );
      return;
    }
  }
  in.fail( "an encapsulation type and MPLS label, <0 to 255>:<0 to 1048575>, or 0:0 for none" );
}

} // namespace Evpn
