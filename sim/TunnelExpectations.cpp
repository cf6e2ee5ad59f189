#include "sim/TunnelExpectations.h"

namespace Sim {

using Bridging::VlanIdOrNone;
using Switch::Table;
using Tunnel::TunnelTable::TunnelId;
using Wire::IntfId;

namespace {

// The segments that use a tunnel: all, and those with the shared label.
struct Users {
  size_t all = 0;
  size_t shared = 0;
};

std::map< TunnelId, Users > segmentUsers( const System & system ) {
  std::map< TunnelId, Users > users;
  for ( const auto & [ intfId, segment ] : system.evpnStatus->ethernetSegmentStatus() ) {
    std::set< TunnelId > tunnels;
    for ( const auto & [ tep, label ] : segment->remoteEsiLabel() ) {
      tunnels.insert( tep.tunnelId() );
    }
    for ( const auto tunnelId : tunnels ) {
      ++users[ tunnelId ].all;
      users[ tunnelId ].shared += segment->sharedEsiLabel() != Wire::MplsLabel() ? 1 : 0;
    }
  }
  return users;
}

std::map< TunnelId, uint32_t > counts( const System & system ) {
  std::map< TunnelId, uint32_t > all;
  for ( const auto & [ vlanId, vlan ] : system.floodSetOutput->vlanFloodSet() ) {
    for ( const auto & [ mac, set ] : vlan->floodSet() ) {
      for ( const auto & dest : set->destSet() ) {
        if ( dest.destType() == L2Rib::destTypeMpls_ && dest.mpls().tunnelId() != TunnelId() ) {
          ++all[ dest.mpls().tunnelId() ];
        }
      }
    }
  }
  return all;
}

constexpr Kez::HwTunnelIdType types[] = { Kez::hwTunnelIdTypeDefault,
                                          Kez::hwTunnelIdTypeSharedEsi };
Table poolOf( Kez::HwTunnelIdType type ) {
  return type == Kez::hwTunnelIdTypeDefault ? Table::hwTunnelIdTypeDefault
                                            : Table::hwTunnelIdTypeSharedEsi;
}

// Each id of a pool is free or mapped, and there once.
void conservation( const System & system, Differences & out ) {
  std::set< Kez::HwTunnelId > all, there;
  std::set< std::pair< Kez::HwTunnelId, TunnelId > > mapped, inUse;
  for ( const auto & [ tunnelId, id ] : system.tunnelIdHwTunnelId->tunnelIdToHwTunnelId() ) {
    out.expect( there.insert( id ).second, "two tunnels have " + textOf( id ) );
    mapped.emplace( id, tunnelId );
  }
  size_t numbers = 0;
  for ( const auto type : types ) {
    if ( const auto pool = system.hardware->hwTunnelIdPool( type ) ) {
      for ( const auto & [ id, tunnelId ] : pool->inUse() ) {
        inUse.emplace( id, tunnelId );
      }
      for ( const auto & [ index, id ] : pool->released() ) {
        there.insert( id );
      }
      numbers += pool->inUses() + pool->releaseds();
      for ( uint32_t number = 1; number <= pool->inUses() + pool->releaseds(); ++number ) {
        all.emplace( type, number );
      }
    }
  }
  out.same( "hardware tunnel ids in use", mapped, inUse );
  out.same( "hardware tunnel ids", all, there );
  out.expect( all.size() == numbers, "a hardware tunnel id is there twice" );
}

} // namespace

void tunnelDifferences( const System & system, const History & history, Differences & out ) {
  conservation( system, out );
  const auto users = segmentUsers( system );
  const auto counted = counts( system );
  out.same( "remoteTunnelId", pairsOf< TunnelId, uint32_t >( counted ),
            pairsOf< TunnelId, uint32_t >( system.evpnRemoteInfo->remoteTunnelId() ) );
  const auto & mapping = *system.tunnelIdHwTunnelId;
  const auto parkedHas = [ & ]( TunnelId tunnelId ) {
    return system.hwTunnelIdSm->unprogrammedTunnelHas( tunnelId );
  };
  std::map< Kez::HwTunnelIdType, bool > available; // to a tunnel that a segment uses
  for ( const auto type : types ) {
    available[ type ] = system.hardware->hasRoom( poolOf( type ) );
  }
  for ( const auto & [ tunnelId, id ] : mapping.tunnelIdToHwTunnelId() ) {
    if ( !users.contains( tunnelId ) ) {
      available[ id.hwTunnelIdType() ] = true;
    }
  }
  // What a machine that tries again has no need to know.
  const bool retries = system.hwTunnelIdSm->retryLackingTunnel();
  const bool disturbed = history.poolsDisturbed && !retries;
  auto needed = counted;
  for ( const auto & [ tunnelId, use ] : users ) {
    needed[ tunnelId ];
    const auto type = use.shared ? Kez::hwTunnelIdTypeSharedEsi : Kez::hwTunnelIdTypeDefault;
    const auto record = mapping.tunnelIdToHwTunnelId( tunnelId );
    const auto text = "tunnel " + textOf( tunnelId );
    const bool parked = parkedHas( tunnelId );
    out.expect( record || parked, text + " has no id and is not parked" );
    out.expect( !record || ( retries ? parked : history.poolsLimited ) ||
                    record->hwTunnelId.hwTunnelIdType() == type,
                text + " has an id of the wrong type" );
    out.expect(
        !parked || disturbed ||
            ( !available[ type ] && ( record || !available[ Kez::hwTunnelIdTypeDefault ] ) ),
        text + " is parked while there is an id for it" );
  }
  for ( const auto & [ tunnelId, count ] : needed ) {
    const auto text = "tunnel " + textOf( tunnelId );
    const bool mapped = mapping.tunnelIdToHwTunnelIdHas( tunnelId );
    const bool parked = parkedHas( tunnelId );
    out.expect( mapped || ( retries ? parked : history.poolsLimited ),
                text + " has no id though pools have no end" );
    out.expect( !parked || mapped || disturbed ||
                    !system.hardware->hasRoom( Table::hwTunnelIdTypeDefault ),
                text + " is parked while an id is free" );
  }
}

// --- Flood sets

std::set< Kez::VlanMacDest > mplsDests( const L2Rib::FloodSetOutput & output ) {
  std::set< Kez::VlanMacDest > all;
  for ( const auto & [ vlanId, vlan ] : output.vlanFloodSet() ) {
    for ( const auto & [ mac, set ] : vlan->floodSet() ) {
      for ( const auto & dest : set->destSet() ) {
        if ( dest.destType() == L2Rib::destTypeMpls_ ) {
          all.insert( { vlanId, mac, dest } );
        }
      }
    }
  }
  return all;
}

namespace {

void mplsFloodSets( const System & system, Differences & out ) {
  std::set< Kez::VlanMacDest > present;
  for ( const auto & [ vlanId, vlan ] : system.mplsFloodSetOutput->vlanFloodSet() ) {
    out.expect( vlan->floodSets() > 0, "mplsFloodSetOutput has an empty VLAN" );
    for ( const auto & [ mac, set ] : vlan->floodSet() ) {
      out.expect( set->destSets() > 0, "mplsFloodSetOutput has an empty flood set" );
      for ( const auto & dest : set->destSet() ) {
        present.insert( { vlanId, mac, dest } );
      }
    }
  }
  out.same( "mplsFloodSetOutput", mplsDests( *system.floodSetOutput ), present );
  out.expect( system.mplsFloodSetOutput->source() == system.floodSetOutput->source(),
              "mplsFloodSetOutput has another source" );
}

Kez::HwTunnelId hwTunnelIdOf( const System & system, TunnelId tunnelId ) {
  const auto record = system.tunnelIdHwTunnelId->tunnelIdToHwTunnelId( tunnelId );
  return record ? record->hwTunnelId : Kez::HwTunnelId();
}

// Each path has a FEC of its own, and each FEC its request and answer.
void floodSetFecs( const System & system, Differences & out ) {
  std::set< Kez::MplsFloodSetVia > paths;
  for ( const auto & dest : mplsDests( *system.floodSetOutput ) ) {
    if ( pathOf( dest ).tunnelId != TunnelId() ) {
      paths.insert( pathOf( dest ) );
    }
  }
  const auto & hardware = *system.hardware;
  const bool room = hardware.hasRoom( Table::fec );
  using Way = std::pair< IntfId, Wire::MplsLabel >;
  std::multiset< Way > wanted, requested;
  for ( const auto & path : paths ) {
    wanted.emplace( Wire::DynamicTunnelIntfId::intfId( path.tunnelId ), path.label );
  }
  std::map< uint64_t, Way > answered; // by hardware FEC id
  std::set< std::pair< uint64_t, KezHelper::HwFec > > programmed, present;
  for ( const auto & [ fecId, fec ] : system.fecRequest->fec() ) {
    out.expect( fec.via.size() == 1 && fec.fecId == fecId && fecId.value() >= 0x0B00000000000000,
                "FEC " + textOf( fecId ) + " is not one of a path" );
    const Way way( fec.via.front().intfId, fec.via.front().mplsLabel );
    requested.insert( way );
    const auto hwTunnelId =
        hwTunnelIdOf( system, Wire::DynamicTunnelIntfId::tunnelId( way.first ) );
    out.expect( system.fecRequest->hwFecIdRequest( fecId ) ==
                    Kez::HwFecIdRequest( fecId, hwTunnelId ),
                "FEC " + textOf( fecId ) + " is requested wrongly" );
    const auto answer = system.fecResponse->hwFecIdResponse( fecId );
    out.expect( !room || answer.l2IntfId == way.first,
                "FEC " + textOf( fecId ) + " has no answer" );
    if ( answer.l2IntfId != IntfId() ) {
      answered[ answer.hwFecId ] = way;
      programmed.emplace( answer.hwFecId, KezHelper::HwFec( false, fec.via, hwTunnelId ) );
    }
  }
  out.expect( wanted == requested, "other FECs are requested than paths are used" );
  out.expect( system.fecRequest->hwFecIdRequests() == requested.size(),
              "a FEC is requested by half" );
  for ( const auto & [ hwFecId, fec ] : hardware.fec() ) {
    if ( Switch::hwFecKindOf( hwFecId ) == 0 ) {
      present.emplace( hwFecId, fec );
    }
  }
  out.same( "switch.fec", programmed, present );
  out.expect( present.size() == answered.size() &&
                  system.fecResponse->hwFecIdResponses() == answered.size() &&
                  system.hwInfoMapping->mappings() == answered.size(),
              "answers, FECs in hardware and hwInfoMapping differ in number" );
  for ( const auto & [ path, info ] : system.hwInfoMapping->mapping() ) {
    const auto at = answered.find( info.hwIdForTunnelProgramming );
    out.expect( paths.contains( path ) && at != answered.end() &&
                    at->second ==
                        Way( Wire::DynamicTunnelIntfId::intfId( path.tunnelId ), path.label ) &&
                    info.l2IntfId == at->second.first,
                "hwInfoMapping is wrong about " + textOf( path ) );
    if ( at != answered.end() ) {
      answered.erase( at ); // no other path has it
    }
  }
}

void floodSetDests( const System & system, Differences & out ) {
  const auto & hardware = *system.hardware;
  std::set< Kez::FloodSetMplsDestConfig > expected, published, statuses;
  for ( const auto & dest : mplsDests( *system.floodSetOutput ) ) {
    const auto path = pathOf( dest );
    if ( system.hwInfoMapping->mappingHas( path ) ) {
      const auto info = system.hwInfoMapping->mapping( path );
      expected.insert( { dest.macVlanPair(),
                         { path.tunnelId, path.label, hwTunnelIdOf( system, path.tunnelId ),
                           info.hwIdForTunnelProgramming, info.l2IntfId } } );
    }
  }
  for ( const auto & [ pair, entry ] : system.hwConfig->config() ) {
    out.expect( entry->mplsDestConfigs() > 0, "vlanFloodSetHwConfig has an empty flood set" );
    for ( const auto & config : entry->mplsDestConfig() ) {
      published.insert( { pair, config } );
    }
  }
  for ( const auto & [ pair, entry ] : system.hwStatus->status() ) {
    for ( const auto & [ config, status ] : entry->mplsDestStatus() ) {
      statuses.insert( { pair, config } );
      out.expect( ( status == Kez::HwProgrammingStatus::programmed ) ==
                      hardware.floodSetDestHas( { pair, config } ),
                  "a status differs from hardware" );
    }
  }
  out.same( "vlanFloodSetHwConfig", expected, published );
  out.same( "vlanFloodSetHwStatus", expected, statuses );
  out.same( "switch.floodSetDest", expected, setOf( hardware.floodSetDest() ),
            hardware.hasRoom( Table::floodSetDest ) );
}

} // namespace

Kez::MplsFloodSetVia pathOf( const Kez::VlanMacDest & dest ) {
  const auto & mpls = dest.dest.mpls();
  const auto tunnelId = Wire::FecIdIntfId::isSrTePolicyIntfId( mpls.intfId() )
                            ? Wire::FecIdIntfId::tunnelId( mpls.intfId() )
                            : mpls.tunnelId();
  const bool perVlan = ( tunnelId.value() >> 44 ) == 14;
  return { tunnelId, mpls.label(), perVlan ? VlanIdOrNone( dest.vlanId ) : VlanIdOrNone() };
}

void floodSetDifferences( const System & system, Differences & out ) {
  mplsFloodSets( system, out );
  floodSetFecs( system, out );
  floodSetDests( system, out );
}

bool tunnelsComplete( const System & system ) {
  auto users = segmentUsers( system );
  for ( const auto & [ tunnelId, count ] : counts( system ) ) {
    users[ tunnelId ];
  }
  for ( const auto & [ tunnelId, use ] : users ) {
    const auto type = use.shared ? Kez::hwTunnelIdTypeSharedEsi : Kez::hwTunnelIdTypeDefault;
    const auto id = hwTunnelIdOf( system, tunnelId );
    if ( !id.valid() || id.hwTunnelIdType() != type ) {
      return false;
    }
  }
  return true;
}

} // namespace Sim
