#include "sim/PrivateState.h"

#include "sim/TunnelExpectations.h"

#include <algorithm>
#include <iterator>

namespace Sim {

using Kez::IntfVlanKey;
using Kez::MplsFloodSetVia;
using Kez::VlanMacDest;
using Switch::PortVlanKey;
using Tunnel::TunnelTable::TunnelId;
using Wire::IntfId;

namespace {

using Pairs = std::set< IntfVlanKey >;

// What the machines that program ports have in common: for the pairs that they are to know, but for
// those that they have not dealt with yet, and the ports that hardware has.
template< class Statuses >
void portProgramming( const Vex::String & machine, const Kez::PortProgrammingSm & sm,
                      const Statuses & statuses, const Pairs & parked, const Pairs & known,
                      const Pairs & queued, const std::set< PortVlanKey > & inHardware,
                      Report & report ) {
  Pairs byIntf, byVlan, indexed, unprogrammed, waiting;
  for ( const auto & [ intfId, vlans ] : sm.intfVlanSet() ) {
    report.check( vlans->vlanIds() > 0, machine + ": intfVlanSet has an empty interface" );
    for ( const auto vlanId : vlans->vlanId() ) {
      byIntf.insert( { intfId, vlanId } );
    }
  }
  for ( const auto & [ vlanId, intfs ] : sm.vlanIntfSet() ) {
    report.check( intfs->intfIds() > 0, machine + ": vlanIntfSet has an empty VLAN" );
    for ( const auto intfId : intfs->intfId() ) {
      byVlan.insert( { intfId, vlanId } );
    }
  }
  report.same( machine + ".vlanIntfSet", byIntf, byVlan );
  std::set_difference( byIntf.begin(), byIntf.end(), queued.begin(), queued.end(),
                       std::inserter( indexed, indexed.end() ) );
  report.same( machine + ".intfVlanSet", known, indexed );

  std::set< PortVlanKey > programmed;
  for ( const auto & [ key, status ] : statuses ) {
    for ( const auto port : status->unprogrammed() ) {
      report.check( !status->programmedHas( port ) || status->forceReprogramHas( port ),
                    machine + ": a port waits that is programmed" );
      unprogrammed.insert( key );
    }
    for ( const auto port : status->forceReprogram() ) {
      report.check( status->programmedHas( port ), machine + ": a mark on nothing" );
    }
    for ( const auto port : status->programmed() ) {
      programmed.emplace( key.intfId, port, key.vlanId );
    }
  }
  report.same( machine + ": programmed", inHardware, programmed );
  for ( const auto & key : parked ) {
    if ( key.intfId != IntfId() ) { // else a VLAN's own
      waiting.insert( key );
    }
  }
  report.same( machine + ": parked", unprogrammed, waiting );
}

template< class Value, class Range > std::set< PortVlanKey > keysOf( const Range & range ) {
  std::set< PortVlanKey > keys;
  for ( const auto & [ key, value ] : pairsOf< PortVlanKey, Value >( range ) ) {
    keys.insert( key );
  }
  return keys;
}

void dot1q( const System & system, Report & report ) {
  using Bridging::VlanId;
  using Bridging::VlanIdOrNone;
  const Kez::EvpnFloodingDot1qSm & sm = *system.dot1qSm;
  const auto & mappings = system.hardware->dot1qMapping();
  Pairs members;
  for ( const auto & [ vlanId, info ] : system.evpnVlanStatus->vlanStatus() ) {
    for ( const auto intfId : info->member() ) {
      if ( !sm.intfVlanQueueHas( { intfId, vlanId } ) ) {
        members.insert( { intfId, vlanId } );
      }
    }
  }
  portProgramming( "evpnFloodingDot1qSm", sm, sm.dot1qStatus(), setOf( sm.unprogrammedDot1q() ),
                   members, setOf( sm.intfVlanQueue() ), keysOf< VlanIdOrNone >( mappings ),
                   report );
  for ( const auto & [ key, tag ] : mappings ) {
    report.check( sm.intfVlanDot1q( { key.parentIntfId, key.vlanId } ) == tag,
                  "evpnFloodingDot1qSm: another tag is on record" );
  }
  report.same( "evpnFloodingDot1qSm.programmedDot1q",
               pairsOf< VlanId, VlanIdOrNone >( system.hardware->vlan() ),
               pairsOf< VlanId, VlanIdOrNone >( sm.programmedDot1q() ) );
  report.check( sm.intfVlanQueues() == 0 || sm.reviewIntfVlan()->isScheduled(),
                "evpnFloodingDot1qSm: a pair is queued and no review is due" );
}

void floodFilter( const System & system, Report & report ) {
  const Kez::KezEvpnFloodFilterSm & sm = *system.floodFilterSm;
  Pairs filtered;
  for ( const auto & [ vlanId, status ] : system.evpnStatus->evpnVlanFloodStatus() ) {
    for ( const auto intfId : status->floodFilter() ) {
      filtered.insert( { intfId, vlanId } );
    }
  }
  portProgramming( "kezEvpnFloodFilterSm", sm, sm.programmedStatus(),
                   setOf( sm.unprogrammedFilter() ), filtered, {},
                   setOf( system.hardware->nonDfPort() ), report );
}

void esi( const System & system, Report & report ) {
  const Kez::EvpnFloodingEsiSm & sm = *system.esiSm;
  Pairs forwarded;
  for ( const auto & [ intfId, segment ] : system.evpnStatus->ethernetSegmentStatus() ) {
    for ( const auto & [ vlanId, forwarder ] : segment->designatedForwarderTep() ) {
      forwarded.insert( { intfId, vlanId } );
    }
  }
  portProgramming( "evpnFloodingEsiSm", sm, sm.esiStatus(), setOf( sm.unprogrammedEsi() ),
                   forwarded, {}, keysOf< Switch::EsiData >( system.hardware->esiData() ), report );
  using Triple = Kez::IntfVlanTunnelKey;
  std::set< Triple > triples, byTunnel, byIntfTunnel;
  for ( const auto & [ key, tunnelId ] : sm.intfVlanTunnel() ) {
    triples.insert( { key.intfId, key.vlanId, tunnelId } );
  }
  for ( const auto & [ tunnelId, pairs ] : sm.tunnelIntfVlanSet() ) {
    report.check( pairs->intfVlans() > 0, "tunnelIntfVlanSet has an empty tunnel" );
    for ( const auto & key : pairs->intfVlan() ) {
      byTunnel.insert( { key.intfId, key.vlanId, tunnelId } );
    }
  }
  for ( const auto & [ key, vlans ] : sm.intfTunnelVlanSet() ) {
    report.check( vlans->vlanIds() > 0, "intfTunnelVlanSet has an empty member" );
    for ( const auto vlanId : vlans->vlanId() ) {
      byIntfTunnel.insert( { key.intfId, vlanId, key.tunnelId } );
    }
  }
  report.same( "evpnFloodingEsiSm.tunnelIntfVlanSet", triples, byTunnel );
  report.same( "evpnFloodingEsiSm.intfTunnelVlanSet", triples, byIntfTunnel );
  for ( const auto & [ key, label ] : sm.intfVlanTunnelLabel() ) {
    report.check( triples.contains( key ), "intfVlanTunnelLabel has what is of another tunnel" );
  }
}

// Which segments use a tunnel, and which tunnels have an id that no segment uses.
void hwTunnelIds( const System & system, Report & report ) {
  using Use = std::pair< TunnelId, IntfId >;
  const Kez::EvpnHwTunnelIdSm & sm = *system.hwTunnelIdSm;
  std::set< Use > uses, sharedUses, info, sharedInfo, bySegment;
  for ( const auto & [ intfId, segment ] : system.evpnStatus->ethernetSegmentStatus() ) {
    for ( const auto & [ tep, label ] : segment->remoteEsiLabel() ) {
      uses.emplace( tep.tunnelId(), intfId );
      if ( segment->sharedEsiLabel() != Wire::MplsLabel() ) {
        sharedUses.emplace( tep.tunnelId(), intfId );
      }
    }
  }
  for ( const auto & [ tunnelId, users ] : sm.tunnelInfo() ) {
    report.check( users->intfIds() > 0, "tunnelInfo has a tunnel that no segment uses" );
    for ( const auto intfId : users->intfId() ) {
      info.emplace( tunnelId, intfId );
    }
    for ( const auto intfId : users->sharedEsiLabelConfiguredIntf() ) {
      sharedInfo.emplace( tunnelId, intfId );
    }
  }
  for ( const auto & [ intfId, tunnels ] : sm.intfTunnelSet() ) {
    report.check( tunnels->tunnelIds() > 0, "intfTunnelSet has an empty segment" );
    for ( const auto tunnelId : tunnels->tunnelId() ) {
      bySegment.emplace( tunnelId, intfId );
    }
  }
  report.same( "evpnHwTunnelIdSm.tunnelInfo", uses, info );
  report.same( "evpnHwTunnelIdSm.tunnelInfo, shared", sharedUses, sharedInfo );
  report.same( "evpnHwTunnelIdSm.intfTunnelSet", uses, bySegment );

  std::set< std::pair< Kez::HwTunnelIdType, TunnelId > > unused, zombies;
  for ( const auto & [ tunnelId, id ] : system.tunnelIdHwTunnelId->tunnelIdToHwTunnelId() ) {
    report.check( !sm.unprogrammedTunnelHas( tunnelId ), "a mapped tunnel is parked" );
    if ( !sm.tunnelInfoHas( tunnelId ) ) {
      unused.emplace( id.hwTunnelIdType(), tunnelId );
    }
  }
  for ( const auto & [ type, tunnels ] : sm.zombieTunnelId() ) {
    for ( const auto tunnelId : tunnels->tunnelId() ) {
      zombies.emplace( type, tunnelId );
    }
  }
  report.same( "evpnHwTunnelIdSm.zombieTunnelId", unused, zombies );
}

template< class Entries >
std::set< VlanMacDest > destsOf( const char * what, const Entries & entries, Report & report ) {
  std::set< VlanMacDest > all;
  for ( const auto & [ key, entry ] : entries ) {
    report.check( entry->vlanMacDestSets() > 0, Vex::String( what ) + " has an empty member" );
    for ( const auto & dest : entry->vlanMacDestSet() ) {
      all.insert( dest );
    }
  }
  return all;
}

void floodSets( const System & system, Report & report ) {
  const Kez::EvpnVlanFloodSetSm & sm = *system.floodSetSm;
  const auto dests = mplsDests( *system.mplsFloodSetOutput );
  report.same( "evpnVlanFloodSetSm.tunnelToFloodSetEntry", dests,
               destsOf( "tunnelToFloodSetEntry", sm.tunnelToFloodSetEntry(), report ) );
  report.same( "evpnVlanFloodSetSm.hwInfoMapKeyToFloodSetEntry", dests,
               destsOf( "hwInfoMapKeyToFloodSetEntry", sm.hwInfoMapKeyToFloodSetEntry(), report ) );
  std::set< Kez::FloodSetMplsDestConfig > recorded, published;
  for ( const auto & [ dest, config ] : sm.mplsDestHwConfig() ) {
    recorded.insert( { dest.macVlanPair(), config } );
    report.check( dests.contains( dest ), "mplsDestHwConfig has what is no destination" );
  }
  for ( const auto & [ pair, entry ] : system.hwConfig->config() ) {
    for ( const auto & config : entry->mplsDestConfig() ) {
      published.insert( { pair, config } );
    }
  }
  report.same( "vlanFloodSetHwConfig", recorded, published );
  size_t further = 0;
  for ( const auto & [ config, count ] : sm.furtherDest() ) {
    further += count;
  }
  report.check( further + published.size() == sm.mplsDestHwConfigs(),
                "furtherDest does not make up for configurations that are shared" );
}

void fecs( const System & system, Report & report ) {
  const Kez::EvpnFloodSetFecSm & sm = *system.fecSm;
  std::set< MplsFloodSetVia > requested, byTunnel;
  std::set< std::pair< MplsFloodSetVia, Bridging::MacVlanPair > > programmed, recorded;
  for ( const auto & [ fecId, via ] : sm.fecIdCache() ) {
    report.check( sm.mplsFloodSetViaCache( via ) == fecId, "a path has another FEC on record" );
    report.check( system.fecRequest->fecHas( fecId ) ||
                      system.fecResponse->hwFecIdResponseHas( fecId ),
                  "a FEC is on record that is neither requested nor answered" );
    report.check( system.fecRequest->fecHas( fecId ) || !sm.floodSetEntryCacheHas( via ),
                  "a path that is used is not requested" );
    if ( system.fecRequest->fecHas( fecId ) ) {
      requested.insert( via );
    }
  }
  report.check( sm.mplsFloodSetViaCaches() == sm.fecIdCaches() &&
                    sm.numAllocatorStatus()->counts().used == sm.fecIdCaches(),
                "FECs, paths and numbers in use differ in number" );
  for ( const auto & [ tunnelId, entry ] : sm.tunnelInfoCache() ) {
    report.check( entry->mplsFloodSetViaSets() > 0, "tunnelInfoCache has an empty tunnel" );
    for ( const auto & via : entry->mplsFloodSetViaSet() ) {
      byTunnel.insert( via );
    }
  }
  report.same( "evpnFloodSetFecSm.tunnelInfoCache", requested, byTunnel );
  for ( const auto & [ pair, entry ] : system.hwStatus->status() ) {
    for ( const auto & [ config, how ] : entry->mplsDestStatus() ) {
      if ( how == Kez::HwProgrammingStatus::programmed ) {
        programmed.emplace( Kez::mplsFloodSetVia( config.tunnelId, config.label, pair.vlanId ),
                            pair );
      }
    }
  }
  for ( const auto & [ via, entry ] : sm.floodSetStatusCache() ) {
    report.check( entry->statuss() > 0, "floodSetStatusCache has an empty path" );
    for ( const auto & pair : entry->status() ) {
      recorded.emplace( via, pair );
    }
  }
  report.same( "evpnFloodSetFecSm.floodSetStatusCache", programmed, recorded );
  std::set< VlanMacDest > dests;
  for ( const auto & dest : mplsDests( *system.mplsFloodSetOutput ) ) {
    if ( pathOf( dest ).tunnelId != TunnelId() ) {
      dests.insert( dest );
    }
  }
  report.same( "evpnFloodSetFecSm.floodSetEntryCache", dests,
               destsOf( "floodSetEntryCache", sm.floodSetEntryCache(), report ) );
}

// One route an interface, and hardware has the labels on record.
void routes( const System & system, Report & report ) {
  const Kez::EsiFilteringDecapSm & sm = *system.decapSm;
  std::set< std::pair< IntfId, Wire::MplsLabel > > programmed;
  for ( const auto & [ routeKey, via ] : sm.routeEsiFilterVia() ) {
    report.check( sm.intfRoute( via.intfId ) == routeKey, "intfRoute names another route" );
    report.check( !system.lfibHwStatus->unprogrammedRouteHas( routeKey ),
                  "a programmed route is parked" );
    programmed.emplace( via.intfId, via.label );
  }
  report.check( sm.intfRoutes() == sm.routeEsiFilterVias(), "an interface has no such route" );
  report.same( "esiFilteringDecapSm.routeEsiFilterVia",
               pairsOf< IntfId, Wire::MplsLabel >( system.hardware->esiPortMap() ), programmed );
}

// Where an interface is configured.
void membership( const System & system, Report & report ) {
  std::set< std::pair< IntfId, Bridging::VlanId > > configured, recorded;
  for ( const auto & [ vlanId, config ] : system.bridgingConfig->vlanConfig() ) {
    for ( const auto & [ intfId, how ] : config->intf() ) {
      configured.emplace( intfId, vlanId );
    }
  }
  for ( const auto & [ intfId, vlans ] : system.membershipSm->intfVlanConfigSet() ) {
    report.check( vlans->vlanIds() > 0, "intfVlanConfigSet has an empty interface" );
    for ( const auto vlanId : vlans->vlanId() ) {
      recorded.emplace( intfId, vlanId );
    }
  }
  report.same( "kezEvpnVlanMembershipSm.intfVlanConfigSet", configured, recorded );
}

} // namespace

Vex::String brokenState( const System & system ) {
  Report report;
  membership( system, report );
  dot1q( system, report );
  floodFilter( system, report );
  esi( system, report );
  hwTunnelIds( system, report );
  floodSets( system, report );
  fecs( system, report );
  routes( system, report );
  return report.text();
}

} // namespace Sim
