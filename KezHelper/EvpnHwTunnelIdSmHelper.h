// The door through which hardware tunnel ids are got and given back. A platform derives from this
// class; what it leaves out is refused as unimplemented.
#pragma once

#include "Kez/HwTunnelId.h"
#include "KezHelper/KezBaseHelper.h"

namespace KezHelper {

class EvpnHwTunnelIdSmHelper : public Kez::KezBaseHelper {
  VEX_ENTITY( EvpnHwTunnelIdSmHelper, "KezHelper::EvpnHwTunnelIdSmHelper", Kez::KezBaseHelper )
  VEX_ATTRIBUTES()

public:
  using KezBaseHelper::KezBaseHelper;

  // A free id of the type, which is in use from now on; one that is not valid when none is free.
  virtual Kez::HwTunnelId getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType );
  // An id that was got and is in use no more.
  virtual void releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId );
};

} // namespace KezHelper
