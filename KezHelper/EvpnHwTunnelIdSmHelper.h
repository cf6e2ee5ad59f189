// The door through which hardware tunnel ids are got and given back. A platform derives from this
// class; what it leaves out is refused as unimplemented.
#pragma once

#include "Kez/HwTunnelId.h"
#include "KezHelper/HwTable.h"
#include "KezHelper/KezBaseHelper.h"
#include "Tunnel/TunnelTable.h"

namespace KezHelper {

class EvpnHwTunnelIdSmHelper : public Kez::KezBaseHelper {
  VEX_ENTITY( EvpnHwTunnelIdSmHelper, "KezHelper::EvpnHwTunnelIdSmHelper", Kez::KezBaseHelper )
  // Counted up by a helper that has ids again other than by `releaseHwTunnelId()`: tunnels that
  // wait for one are looked at again.
  VEX_ATTRIBUTE( 50, idsFreed, uint64_t )
  // While it is set tunnels keep the ids that they have: what asks for them, and for which type, is
  // not known of all yet, or ids that were given back cannot be had again yet. A machine that
  // starts while it is set goes on with those that are in use.
  VEX_ATTRIBUTE( 51, idsStay, bool )
  VEX_ATTRIBUTES( idsFreed, idsStay )

public:
  using KezBaseHelper::KezBaseHelper;

  // A free id of the type, which is in use from now on; one that is not valid when none is free.
  virtual Kez::HwTunnelId getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType );
  // The same, for a helper that can say later which tunnel an id was got for; the machine calls
  // this one.
  virtual Kez::HwTunnelId getHwTunnelIdForTunnel( Kez::HwTunnelIdType hwTunnelIdType,
                                                  Tunnel::TunnelTable::TunnelId tunnelId );
  // An id that was got and is in use no more.
  virtual void releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId );

  // The ids in use and the tunnels that they were got for, one that is not valid where that is not
  // known; null where hardware cannot be asked.
  using HwTunnelIds = HwTable< Kez::HwTunnelId, Tunnel::TunnelTable::TunnelId >;
  virtual const HwTunnelIds * hwTunnelIdsInUse() const { return nullptr; }
};

} // namespace KezHelper
