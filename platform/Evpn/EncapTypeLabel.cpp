#include "Evpn/EncapTypeLabel.h"

namespace Evpn {

void appendText( Vex::TextBuffer & out, EncapTypeLabel label ) {
  appendText( out, uint32_t( label.encapType() ) );
  out.append( ':' );
  appendText( out, label.mplsLabel() );
}

void parseText( Vex::TextCursor & in, EncapTypeLabel & label ) {
  Vex::TextCursor word( in.peekWord() );
  uint8_t encapType = 0;
  uint32_t number = 0;
  if ( !Vex::readNumber( word, encapType ) || !word.skip( ":" ) ||
       !Vex::readNumber( word, number ) || !word.done() || number >= Wire::MplsLabel::none ) {
    in.fail( "an encapsulation type and MPLS label, <0 to 255>:<0 to 1048575>, or 0:0 for none" );
  }
  in.word();
  label = EncapTypeLabel( encapType, number );
}

} // namespace Evpn
