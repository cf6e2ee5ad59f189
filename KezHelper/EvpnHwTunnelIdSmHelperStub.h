// A hardware tunnel id helper without hardware: hands out the ids that its user queued for each
// type, oldest first, and puts one that is given back behind all that wait. Counts the calls of
// each operation and keeps the argument of the latest. A type that it is asked for, or given an
// id of, must have a queue.
#pragma once

#include "KezHelper/EvpnHwTunnelIdSmHelper.h"
#include "KezHelper/HwTunnelIdQueue.h"

namespace KezHelper {

class EvpnHwTunnelIdSmHelperStub : public EvpnHwTunnelIdSmHelper {
  VEX_ENTITY( EvpnHwTunnelIdSmHelperStub, "KezHelper::EvpnHwTunnelIdSmHelperStub",
              EvpnHwTunnelIdSmHelper )
  VEX_ENTITIES( 1, freeHwTunnelId, HwTunnelIdQueue )
  VEX_ATTRIBUTE( 2, getHwTunnelIdCount, uint32_t )
  VEX_ATTRIBUTE( 3, getHwTunnelIdHwTunnelIdType, Kez::HwTunnelIdType )
  VEX_ATTRIBUTE( 4, releaseHwTunnelIdCount, uint32_t )
  VEX_ATTRIBUTE( 5, releaseHwTunnelIdHwTunnelId, Kez::HwTunnelId )
  VEX_ATTRIBUTES( freeHwTunnelId, getHwTunnelIdCount, getHwTunnelIdHwTunnelIdType,
                  releaseHwTunnelIdCount, releaseHwTunnelIdHwTunnelId )

public:
  using EvpnHwTunnelIdSmHelper::EvpnHwTunnelIdSmHelper;

  void getHwTunnelIdCountInc() { getHwTunnelIdCountIs( getHwTunnelIdCount() + 1 ); }
  void releaseHwTunnelIdCountInc() { releaseHwTunnelIdCountIs( releaseHwTunnelIdCount() + 1 ); }

  Kez::HwTunnelId getHwTunnelId( Kez::HwTunnelIdType hwTunnelIdType ) override;
  void releaseHwTunnelId( const Kez::HwTunnelId & hwTunnelId ) override;
};

Vex::Ptr< EvpnHwTunnelIdSmHelperStub >
evpnHwTunnelIdSmHelperStubFactory( const Vex::String & name );

} // namespace KezHelper
