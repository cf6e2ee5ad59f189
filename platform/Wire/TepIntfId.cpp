#include "Wire/TepIntfId.h"

namespace Wire {

TepIntfId::TepIntfId( IntfId intfId ) : IntfId( intfId ) {
  tunnelId();
}

Tunnel::TunnelTable::TunnelId TepIntfId::tunnelId() const {
  return FecIdIntfId::isSrTePolicyIntfId( *this ) ? FecIdIntfId::tunnelId( *this )
                                                  : DynamicTunnelIntfId::tunnelId( *this );
}

void parseText( Vex::TextCursor & in, TepIntfId & intfId ) {
  IntfId any;
  parseText( in, any );
  intfId = any;
}

} // namespace Wire
