// The interface of a TEP (tunnel endpoint): an interface that stands for a tunnel, a dynamic
// tunnel's or an SR-TE policy's. Made of any other interface, or of one whose tunnel id is out of
// range, it raises Vex::RangeError, so that inputs with such keys or values take no others. Only
// the default, the empty id, which absent values read as, leads to no tunnel.
#pragma once

#include "Tunnel/TunnelTable.h"

namespace Wire {

class TepIntfId : public IntfId {
public:
  constexpr TepIntfId() = default;
  TepIntfId( IntfId intfId );

  // Raises Vex::RangeError for the default.
  Tunnel::TunnelTable::TunnelId tunnelId() const;

  static constexpr std::string_view vexTypeName() { return "Wire::TepIntfId"; }
};

void parseText( Vex::TextCursor & in, TepIntfId & intfId );

} // namespace Wire
