// The part of the expectations that has to do with tunnels: hardware tunnel ids, and flood sets on
// their way to hardware.
#pragma once

#include "sim/Differences.h"
#include "sim/Expectations.h"

namespace Sim {

void tunnelDifferences( const System & system, const History & history, Differences & out );
void floodSetDifferences( const System & system, Differences & out );

std::set< Kez::VlanMacDest > mplsDests( const L2Rib::FloodSetOutput & output );

// What leads a destination out.
Kez::MplsFloodSetVia pathOf( const Kez::VlanMacDest & dest );

// Whether every tunnel that is used has an id of the type that it needs.
bool tunnelsComplete( const System & system );

} // namespace Sim
