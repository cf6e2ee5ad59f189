#include "Mpls/LfibStatus.h"

namespace Mpls {

LfibStatus::LfibStatus( const Vex::String & name ) {
  nameIs( name );
  routeMount();
  viaSetMount();
  mplsViaMount();
  evpnEthernetSegmentFilterViaMount();
}

LfibHwStatus::LfibHwStatus( const Vex::String & name ) {
  nameIs( name );
  unprogrammedRouteMount();
}

} // namespace Mpls
