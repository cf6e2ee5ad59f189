#include "sim/Expectations.h"

#include "sim/HostExpectations.h"
#include "sim/TunnelExpectations.h"

// What depends on history, and is therefore not asked for, or only as far as it does not:
//
//   - Whether an interface is a member of a VLAN that it is not configured in is judged when it
//     comes up or goes down there, not when its traffic comes to be filtered or ceases to
//     (judgeMembers); and anew with all others at a start, and when a mark on the machine ends.
//
// What hardware lags behind unless a tunable makes it follow, and is asked for only then:
//
//   - `reprogramChangedEsi`: ESI data stays as it was programmed when only the hardware tunnel id
//   or
//     the value of the local label changes; so does, where data is created over what is there, that
//     of a forwarder before one whose tunnel has no hardware tunnel id (esiData).
//   - `unprogramUnusableLabel`: a remote label of a wrong encapsulation type leaves what stands,
//     ports that left the LAG meanwhile included (esiData).
//   - `retryLackingTunnel`: a zombie whose id a segment's tunnel took has none though it may be
//     counted; a tunnel keeps an id of another type than it needs, where there was none of that
//     type; and an id that becomes free other than by a tunnel's doing, because a pool grew or a
//     fault passed, wakes nobody (tunnelDifferences).
//   - `unprogramOtherViaType`: a route that asks for no port map any more keeps the one that it has
//     (esiPortMaps).
//
// What is one of several that are right, and who came first decides which:
//
//   - Which tunnels have ids where there are too few, and which tunnel has which
//   (tunnelDifferences);
//     which path and which chain has which FEC number (floodSetDifferences, hostDifferences).
//   - Which of several routes that name an interface has its port map (esiPortMaps). What a route
//     asks for counts when it was told of since, or stood at a start.
//   - A host whose chain is not complete may keep the FEC of another that is (hostDifferences).
//   - A published VLAN that hardware has no room to create again keeps its mappings until it is
//     created (dot1qMappings).
//   - A filtered flood set has the type that it had when a destination was last added, which is not
//     compared (floodSetDifferences).

namespace Sim {

using Bridging::VlanId;
using Bridging::VlanIdOrNone;
using Switch::PortVlanKey;
using Switch::Table;
using Tunnel::TunnelTable::TunnelId;
using Wire::IntfId;

namespace {

// --- LAGs, VLAN members

std::set< IntfId > portsOf( const System & system, IntfId intfId ) {
  if ( !Wire::isLag( intfId ) ) {
    return { intfId };
  }
  std::set< IntfId > ports;
  if ( const auto lag = system.lagConfigDir->lagConfig( intfId ) ) {
    for ( const auto & [ port, how ] : lag->member() ) {
      ports.insert( port );
    }
  }
  return ports;
}

void lagMembers( const System & system, Differences & out ) {
  std::set< std::pair< IntfId, IntfId > > expected, present;
  for ( const auto & [ intfId, lag ] : system.lagConfigDir->lagConfig() ) {
    for ( const auto port : portsOf( system, intfId ) ) {
      expected.emplace( intfId, port );
    }
  }
  for ( const auto & [ intfId, ports ] : system.evpnLagMemberInfo->lagToPort() ) {
    out.expect( ports.ports() > 0, "lagToPort has an empty LAG" );
    for ( const auto port : ports ) {
      present.emplace( intfId, port );
    }
  }
  out.same( "lagToPort", expected, present );
}

// Configuration counts for an interface whose encapsulated BUM traffic is filtered, status for any
// other.
bool isMember( const History & inputs, const VlanIntf & pair ) {
  return inputs.filtered.contains( pair.second ) ? inputs.configured.contains( pair )
                                                 : inputs.up.contains( pair );
}

History membershipInputs( const System & system ) {
  History inputs;
  for ( const auto & [ vlanId, config ] : system.bridgingConfig->vlanConfig() ) {
    for ( const auto & [ intfId, how ] : config->intf() ) {
      inputs.configured.emplace( VlanIntf( vlanId, intfId ), how );
    }
  }
  for ( const auto & [ vlanId, status ] : system.vlanStatusDir->vlanStatus() ) {
    for ( const auto & [ intfId, how ] : status->vlanPortStatus() ) {
      inputs.up.emplace( VlanIntf( vlanId, intfId ), how );
    }
  }
  inputs.filtered = setOf( system.evpnStatus->encapBumFilter() );
  return inputs;
}

template< class Map > auto valueAt( const Map & map, const typename Map::key_type & key ) {
  const auto at = map.find( key );
  return at == map.end() ? std::nullopt : std::optional( at->second );
}

void vlanMembers( const System & system, const History & history, Differences & out ) {
  std::set< VlanIntf > present;
  for ( const auto & [ vlanId, info ] : system.evpnVlanStatus->vlanStatus() ) {
    out.expect( info->members() > 0, "vlanStatus has an empty VLAN" );
    for ( const auto intfId : info->member() ) {
      present.emplace( vlanId, intfId );
    }
  }
  out.same( "vlanStatus", history.members, present );
}

// --- VLANs and their tags, flood filters

void dot1qMappings( const System & system, const History & history, Differences & out ) {
  const auto & hardware = *system.hardware;
  std::set< std::pair< VlanId, VlanIdOrNone > > vlans;
  for ( const auto & [ vlanId, dot1q ] : system.evpnStatus->vlanToDot1q() ) {
    const bool own = dot1q == VlanIdOrNone() && system.evpnMplsConfig->vlanServiceDot1qEnabled();
    vlans.emplace( vlanId, own ? VlanIdOrNone( vlanId ) : dot1q );
  }
  out.same( "switch.vlan", vlans, pairsOf< VlanId, VlanIdOrNone >( hardware.vlan() ),
            hardware.hasRoom( Table::vlan ) );

  std::set< std::pair< PortVlanKey, VlanIdOrNone > > mappings;
  for ( const auto & [ vlanId, dot1q ] : vlans ) {
    for ( const auto & [ memberVlanId, intfId ] : history.members ) {
      if ( memberVlanId == vlanId && hardware.vlanHas( vlanId ) ) {
        for ( const auto port : portsOf( system, intfId ) ) {
          mappings.emplace( PortVlanKey( intfId, port, vlanId ), dot1q );
        }
      }
    }
  }
  auto present = pairsOf< PortVlanKey, VlanIdOrNone >( hardware.dot1qMapping() );
  std::erase_if( present, [ & ]( const auto & mapping ) {
    const auto & [ parent, port, vlanId ] = mapping.first;
    return !hardware.vlanHas( vlanId ) && system.evpnStatus->vlanToDot1qHas( vlanId ) &&
           history.members.contains( { vlanId, parent } );
  } );
  out.same( "switch.dot1qMapping", mappings, present, hardware.hasRoom( Table::dot1qMapping ) );
}

void floodFilters( const System & system, Differences & out ) {
  std::set< PortVlanKey > expected;
  for ( const auto & [ vlanId, status ] : system.evpnStatus->evpnVlanFloodStatus() ) {
    for ( const auto intfId : status->floodFilter() ) {
      for ( const auto port : portsOf( system, intfId ) ) {
        expected.emplace( intfId, port, vlanId );
      }
    }
  }
  out.same( "switch.nonDfPort", expected, setOf( system.hardware->nonDfPort() ),
            system.hardware->hasRoom( Table::nonDfPort ) );
}

// --- Segments

// What must be there. What is there besides must be what history may have left.
void esiData( const System & system, const History & history, Differences & out ) {
  const auto & hardware = *system.hardware;
  const bool reprograms = system.esiSm->reprogramChangedEsi();
  const bool unprograms = system.esiSm->unprogramUnusableLabel();
  std::set< std::pair< PortVlanKey, Switch::EsiData > > expected, present;
  const auto mapped = [ & ]( TunnelId tunnelId ) {
    const auto record = system.tunnelIdHwTunnelId->tunnelIdToHwTunnelId( tunnelId );
    return record ? record->hwTunnelId : Kez::HwTunnelId();
  };
  const auto add = [ & ]( auto & entries, const PortVlanKey & key, Switch::EsiData data ) {
    if ( !reprograms ) {
      data.hwTunnelId = {};
      data.localEsiLabel = {};
    }
    entries.emplace( key, data );
  };
  for ( const auto & [ key, data ] : hardware.esiData() ) {
    out.expect( data.hwTunnelId.valid(), "switch.esiData without a hardware tunnel id" );
    out.expect( !reprograms || data.hwTunnelId == mapped( data.tunnelId ),
                "switch.esiData with the hardware tunnel id of another tunnel" );
    add( present, key, data );
  }
  for ( const auto & [ intfId, segment ] : system.evpnStatus->ethernetSegmentStatus() ) {
    const auto local = system.evpnStatus->localEsiLabel( intfId );
    for ( const auto & [ vlanId, forwarder ] : segment->designatedForwarderTep() ) {
      if ( local == Evpn::EncapTypeLabel() || !segment->remoteEsiLabelHas( forwarder ) ) {
        continue;
      }
      const auto label = segment->remoteEsiLabel( forwarder );
      const bool usable = label.encapType() >= 2;
      const auto hwTunnelId = mapped( forwarder.tunnelId() );
      const auto ports = portsOf( system, intfId );
      if ( usable && hwTunnelId.valid() ) {
        for ( const auto port : ports ) {
          add( expected, PortVlanKey( intfId, port, vlanId ),
               { forwarder.tunnelId(), hwTunnelId, label.mplsLabel(), local.mplsLabel() } );
        }
      } else if ( usable ? history.updatesInPlace && !reprograms : !unprograms ) {
        std::erase_if( present, [ &, intf = intfId, vlan = vlanId ]( const auto & entry ) {
          const auto & [ parent, port, entryVlan ] = entry.first;
          return parent == intf && entryVlan == vlan && ( !usable || ports.contains( port ) );
        } );
      }
    }
  }
  out.same( "switch.esiData", expected, present, hardware.hasRoom( Table::esiData ) );
}

// --- Label routes

void esiPortMaps( const System & system, const History & history, Differences & out ) {
  const auto & hardware = *system.hardware;
  const auto told = [ & ]( Mpls::RouteKey routeKey ) {
    const auto at = history.told.find( routeKey );
    return at == history.told.end() ? std::nullopt : std::optional( at->second );
  };
  // As the machine has it on record.
  const auto ownerOf = [ & ]( IntfId intfId ) {
    const Kez::EsiFilteringDecapSm & sm = *system.decapSm;
    return sm.intfRouteHas( intfId ) ? std::optional( sm.intfRoute( intfId ) ) : std::nullopt;
  };
  for ( const auto & [ routeKey, asked ] : history.told ) {
    const auto parked = system.lfibHwStatus->unprogrammedRoute( routeKey );
    const auto text = "route " + textOf( routeKey );
    if ( asked.kind != Wish::portMap ) {
      out.expect( !parked, text + " is parked and asks for nothing" );
      continue;
    }
    const auto owner = ownerOf( asked.intfId );
    if ( !parked ) {
      out.expect( owner == routeKey && hardware.esiPortMapHas( asked.intfId ),
                  text + " is neither programmed nor parked" );
    } else if ( parked->returnCode == Mpls::LfibHwProgrammingReturnCode::conflict ) {
      out.expect( owner && owner != routeKey, text + " conflicts with none" );
    } else {
      out.expect( !hardware.hasRoom( Table::esiPortMap ), text + " is parked with room for it" );
    }
  }
  for ( const auto & [ intfId, label ] : hardware.esiPortMap() ) {
    const auto owner = ownerOf( intfId );
    const auto asked = owner ? told( *owner ) : std::nullopt;
    out.expect( owner.has_value(), "the port map of " + textOf( intfId ) + " is nobody's" );
    const bool keeps =
        asked && asked->kind == Wish::other && !system.decapSm->unprogramOtherViaType();
    out.expect( !asked || keeps || *asked == Wish{ Wish::portMap, label, intfId },
                "the port map of " + textOf( intfId ) + " is not what its route asks for" );
  }
}

// Hardware that has room leaves nothing waiting.
void parked( const System & system, Differences & out ) {
  const auto room = [ & ]( Table table ) { return system.hardware->hasRoom( table ); };
  out.expect( system.dot1qSm->unprogrammedDot1qs() == 0 || !room( Table::vlan ) ||
                  !room( Table::dot1qMapping ),
              "a VLAN or a mapping is parked with room for it" );
  out.expect( system.floodFilterSm->unprogrammedFilters() == 0 || !room( Table::nonDfPort ),
              "a flood filter is parked with room for it" );
  out.expect( system.esiSm->unprogrammedEsis() == 0 || !room( Table::esiData ),
              "ESI data is parked with room for it" );
  out.expect( system.switchFloodSets->pendingAnswers() == 0 || !room( Table::fec ) ||
                  !room( Table::floodSetDest ),
              "an answer is due with room for it" );
  out.expect( system.switchMacs->pendingAnswers() == 0 || !room( Table::fec ) ||
                  !room( Table::macEntry ),
              "an answer for a host is due with room for it" );
}

} // namespace

Wish wish( const Mpls::LfibStatus & status, Mpls::RouteKey routeKey ) {
  const auto route = status.route( routeKey );
  const auto viaSet = route ? status.viaSet( route->viaSetId ) : std::nullopt;
  if ( !viaSet || viaSet->viaKeys.size() == 0 ) {
    return {};
  }
  const auto first = *viaSet->viaKeys.begin();
  if ( first.viaType() != Mpls::LfibViaType::evpnEthernetSegmentFilter ) {
    return { Wish::other, {}, {} };
  }
  const auto via = status.evpnEthernetSegmentFilterVia( first );
  return via ? Wish{ Wish::portMap, via->label, via->intfId } : Wish();
}

void judgeMembers( const System & system, History & history ) {
  const auto now = membershipInputs( system );
  std::set< VlanIntf > pairs;
  for ( const History * inputs : std::initializer_list< const History * >{ &history, &now } ) {
    for ( const auto & [ pair, how ] : inputs->configured ) {
      pairs.insert( pair );
    }
    for ( const auto & [ pair, how ] : inputs->up ) {
      pairs.insert( pair );
    }
  }
  for ( const auto & pair : pairs ) {
    const auto intfId = pair.second;
    const bool judged = valueAt( history.configured, pair ) != valueAt( now.configured, pair ) ||
                        valueAt( history.up, pair ) != valueAt( now.up, pair ) ||
                        ( history.filtered.contains( intfId ) != now.filtered.contains( intfId ) &&
                          now.configured.contains( pair ) );
    if ( judged && isMember( now, pair ) ) {
      history.members.insert( pair );
    } else if ( judged ) {
      history.members.erase( pair );
    }
  }
  history.configured = now.configured;
  history.up = now.up;
  history.filtered = now.filtered;
}

void judgeMembersAnew( const System & system, History & history ) {
  history.configured.clear();
  history.up.clear();
  history.members.clear();
  judgeMembers( system, history );
}

void startAnew( const System & system, History & history ) {
  judgeMembersAnew( system, history );
  for ( const auto & [ routeKey, route ] : system.lfibStatus->route() ) {
    history.told[ routeKey ] = wish( *system.lfibStatus, routeKey );
  }
  if ( !system.wiring.takeover ) {
    history.poolsLimited = false;
    history.poolsDisturbed = false;
    history.updatesInPlace = false;
  }
}

Vex::String differences( const System & system, const History & history ) {
  Differences out;
  lagMembers( system, out );
  vlanMembers( system, history, out );
  dot1qMappings( system, history, out );
  floodFilters( system, out );
  esiData( system, history, out );
  tunnelDifferences( system, history, out );
  floodSetDifferences( system, out );
  hostDifferences( system, out );
  esiPortMaps( system, history, out );
  parked( system, out );
  return out.text();
}

bool complete( const System & system, const History & history ) {
  History anew;
  judgeMembers( system, anew );
  if ( anew.members != history.members ) {
    return false;
  }
  if ( !tunnelsComplete( system ) ) {
    return false;
  }
  return system.dot1qSm->unprogrammedDot1qs() + system.floodFilterSm->unprogrammedFilters() +
             system.esiSm->unprogrammedEsis() + system.lfibHwStatus->unprogrammedRoutes() +
             system.hwTunnelIdSm->unprogrammedTunnels() + system.switchFloodSets->pendingAnswers() +
             system.switchMacs->pendingAnswers() ==
         0;
}

Vex::String switchContents( const System & system ) {
  const auto & hardware = *system.hardware;
  std::multiset< Vex::String > entries;
  const auto add = [ & ]( const char * table, const auto & range ) {
    for ( const auto & entry : range ) {
      entries.insert( table + ( " " + textOf( entry ) ) );
    }
  };
  add( "vlan", pairsOf< VlanId, VlanIdOrNone >( hardware.vlan() ) );
  add( "dot1qMapping", pairsOf< PortVlanKey, VlanIdOrNone >( hardware.dot1qMapping() ) );
  add( "nonDfPort", setOf( hardware.nonDfPort() ) );
  for ( const auto & [ key, data ] : hardware.esiData() ) {
    entries.insert( "esiData " + textOf( key ) + " " + textOf( data.tunnelId ) + " " +
                    textOf( data.dfEsiLabel ) + " " + textOf( data.localEsiLabel ) );
  }
  for ( const auto & [ intfId, label ] : hardware.esiPortMap() ) {
    entries.insert( "esiPortMap " + textOf( intfId ) );
  }
  for ( const auto & [ macVlanPair, config ] : hardware.floodSetDest() ) {
    entries.insert( "floodSetDest " + textOf( macVlanPair ) + " " + textOf( config.tunnelId ) +
                    " " + textOf( config.label ) + " " + textOf( config.l2IntfId ) );
  }
  entries.merge( macEntries( system ) );
  Vex::String all;
  for ( const auto & entry : entries ) {
    all += entry + "\n";
  }
  return all;
}

} // namespace Sim
