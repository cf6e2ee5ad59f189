// The free hardware tunnel ids of one type, first in, first out. Indices only grow: a queue that
// was emptied goes on where its numbering stood, with the index that its last member had.
#pragma once

#include "Kez/HwTunnelId.h"
#include "Vex/Attributes.h"

namespace KezHelper {

class HwTunnelIdQueue : public Vex::Entity {
  VEX_ENTITY( HwTunnelIdQueue, "KezHelper::HwTunnelIdQueue" )
  VEX_KEY( HwTunnelIdQueue, hwTunnelIdType, Kez::HwTunnelIdType )
  VEX_QUEUE( 1, hwTunnelId, Kez::HwTunnelId )
  VEX_ATTRIBUTES( hwTunnelId )

public:
  using VexHwTunnelId = Vex::Collection< uint32_t, Kez::HwTunnelId >::Member; // index and id
  using HwTunnelIdMetadata = Vex::QueueMetadata;
};

} // namespace KezHelper
