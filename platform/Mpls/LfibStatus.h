// The label forwarding table as its publisher has it, the routes that it wants programmed, and
// what hardware made of them. The tables are shared ones where their records allow it: those that
// name an interface stay in private memory.
#pragma once

#include "Mpls/Lfib.h"
#include "Rook/TableAttribute.h"

namespace Mpls {

class LfibStatus : public Vex::Entity {
  VEX_ENTITY( LfibStatus, "Mpls::LfibStatus" )
  VEX_TABLE( 1, route, LfibRoute, routeKey )
  VEX_TABLE( 2, viaSet, LfibViaSet, viaSetId )
  VEX_TABLE( 3, mplsVia, LfibMplsVia, viaKey )
  VEX_TABLE( 4, evpnEthernetSegmentFilterVia, LfibEvpnEthernetSegmentFilterVia, viaKey )
  VEX_ATTRIBUTES( route, viaSet, mplsVia, evpnEthernetSegmentFilterVia )

public:
  // Raises std::runtime_error when a table cannot be mounted.
  explicit LfibStatus( const Vex::String & name );
};

// Who publishes routes tells here which have changed.
class LfibTrackingStatus : public Vex::Entity {
  VEX_ENTITY( LfibTrackingStatus, "Mpls::LfibTrackingStatus" )
  // The routes that have changed in any way, until they are dealt with.
  VEX_SET( 1, routeKeyBacklog, RouteKey )
  VEX_ATTRIBUTES( routeKeyBacklog )
};

// The routes that hardware does not have, and why.
class LfibHwStatus : public Vex::Entity {
  VEX_ENTITY( LfibHwStatus, "Mpls::LfibHwStatus" )
  VEX_TABLE( 1, unprogrammedRoute, RouteInfo, routeKey )
  VEX_ATTRIBUTES( unprogrammedRoute )

public:
  static constexpr Vex::Access vexAccess = Vex::Access::readOnly;
  // Raises std::runtime_error when the table cannot be mounted.
  explicit LfibHwStatus( const Vex::String & name );
};

} // namespace Mpls
