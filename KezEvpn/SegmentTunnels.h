// Which Ethernet segments use which tunnels, and which type of hardware tunnel id that asks for.
//
// A machine owns one, over two of its collections: the tunnels that each segment's remote ESI
// labels lead to; and the segments that use each tunnel, with those of them that have the shared
// ESI label configured. Both say the same uses, and have no member that is in none. The machine
// adds and removes the uses as it hears of labels.
#pragma once

#include "Evpn/EvpnStatus.h"
#include "KezEvpn/KezEvpn.h"

namespace Kez {

class SegmentTunnels {
public:
  using TunnelId = Tunnel::TunnelTable::TunnelId;

  SegmentTunnels( Vex::Entity & owner, Vex::EntityStorage< IntfTunnelSet > & tunnelsOf,
                  Vex::AttrId tunnelsOfId, Vex::EntityStorage< TunnelInfo > & infoOf,
                  Vex::AttrId infoOfId, const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus )
      : owner_( owner ), tunnelsOf_( tunnelsOf ), tunnelsOfId_( tunnelsOfId ), infoOf_( infoOf ),
        infoOfId_( infoOfId ), evpnStatus_( evpnStatus ) {}

  // What the input says.
  bool labelled( Wire::IntfId esIntfId, TunnelId tunnelId ) const;
  bool sharedEsiLabelConfigured( Wire::IntfId esIntfId ) const;

  // The shared-ESI type if one of the tunnel's segments has the shared ESI label configured, else
  // the default one.
  HwTunnelIdType neededType( TunnelId tunnelId ) const;

  void add( Wire::IntfId esIntfId, TunnelId tunnelId );
  // A use that is there.
  void remove( Wire::IntfId esIntfId, TunnelId tunnelId );

private:
  Vex::Entity & owner_;
  Vex::EntityStorage< IntfTunnelSet > & tunnelsOf_;
  const Vex::AttrId tunnelsOfId_;
  Vex::EntityStorage< TunnelInfo > & infoOf_;
  const Vex::AttrId infoOfId_;
  const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus_;
};

} // namespace Kez
