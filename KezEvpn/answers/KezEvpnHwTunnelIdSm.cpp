#include "KezEvpn/KezEvpnHwTunnelIdSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezHelper/Audit.h"
#include "KezHelper/TableView.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

// --- What an operator is told

static std::string_view nameOf( HwTunnelIdType type ) {
  return type == hwTunnelIdTypeDefault ? "default" : "shared-ESI";
}

void EvpnHwTunnelIdSm::explain( const Subject & subject, Explanation & out ) const {
  const auto * const tunnelId = subject.get< TunnelId >();
  if ( !initialized() || !tunnelId ) {
    explainSegment( subject, out );
    return;
  }
  const bool used = usedBySegment( *tunnelId );
  if ( used ) {
    out.say( "used by segments ", Members{ tunnelInfo( *tunnelId )->intfId() } );
  }
  const auto [ record, damage ] =
      tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable().examine( *tunnelId );
  if ( damage ) {
    out.awaits( damage->what() );
    return;
  }
  if ( record ) {
    out.say( "has hardware tunnel id ", record->hwTunnelId );
    if ( !used ) {
      out.say( "gives it up when a segment's tunnel needs one" );
    }
  }
  if ( unprogrammedTunnelHas( *tunnelId ) ) {
    explainWait( *tunnelId, out );
  } else {
    explainLack( *tunnelId, out );
  }
}

void EvpnHwTunnelIdSm::explainWait( TunnelId tunnelId, Explanation & out ) const {
  const auto lack = lackOf( tunnelId );
  if ( lack == Lack::nothing ) {
    out.say( "waited for a hardware tunnel id; nothing uses it any more" );
  } else if ( !refusalHas( tunnelId ) ) {
    out.awaits( "waiting for room to publish a hardware tunnel id, next try ", nextTry() );
    if ( const auto & room = tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdLack(); !room.empty() ) {
      out.awaits( room );
    }
  } else {
    const auto type = neededType( tunnelId );
    const bool either = lack == Lack::id && type != hwTunnelIdTypeDefault;
    out.refused( "waiting for a ", nameOf( type ), either ? " or default" : "",
                 " hardware tunnel id, none was free; ", Refused{ refusal( tunnelId ) },
                 ", next try ",
                 nextTry( "when an id is given back or a tunnel's last segment leaves it" ) );
  }
}

void EvpnHwTunnelIdSm::explainSegment( const Subject & subject, Explanation & out ) const {
  const auto * const segment = subject.get< Segment >();
  const auto tunnels = segment ? intfTunnelSet( segment->intfId ) : nullptr;
  if ( !tunnels ) {
    return;
  }
  out.say( "uses tunnels ", Members{ tunnels->tunnelId() } );
  Missing missing;
  for ( const auto tunnelId : tunnels->tunnelId() ) {
    addLack( tunnelId, missing );
  }
  explainGroups( missing, out );
}

void EvpnHwTunnelIdSm::addLack( TunnelId tunnelId, Missing & out ) const {
  const auto lack = lackOf( tunnelId );
  if ( lack == Lack::nothing ) {
    return;
  }
  const bool ofOtherType = lack == Lack::type;
  const auto what = ofOtherType ? "with a hardware tunnel id of another type than its segments need"
                                : "without a hardware tunnel id";
  if ( refusalHas( tunnelId ) ) {
    const auto & refused = refusal( tunnelId );
    out.add( { Standing::refused, refused.first, nextTry( {} ).time }, tunnelId, what,
             ", none was free", Because{ refused.why } );
  } else if ( unprogrammedTunnelHas( tunnelId ) ) {
    out.add( { Standing::waiting, {}, nextTry( {} ).time }, tunnelId, what,
             ", waiting for room to publish one" );
  } else {
    out.add( {}, tunnelId, what,
             ofOtherType ? ", none was free" : ", given up to a segment's tunnel" );
  }
}

// Tunnels are few: each that is wanted is looked at.
void EvpnHwTunnelIdSm::addMissing( Missing & out ) const {
  if ( !initialized() ) {
    return;
  }
  for ( const auto & [ tunnelId, info ] : tunnelInfo() ) {
    addLack( tunnelId, out );
  }
  for ( const auto [ tunnelId, count ] : remoteInfo()->remoteTunnelId() ) {
    if ( !usedBySegment( tunnelId ) ) {
      addLack( tunnelId, out );
    }
  }
}

// What it lacks though nothing tries to get it that.
void EvpnHwTunnelIdSm::explainLack( TunnelId tunnelId, Explanation & out ) const {
  switch ( lackOf( tunnelId ) ) {
  case Lack::nothing:
    return;
  case Lack::id:
    out.awaits( "gave its hardware tunnel id up to a segment's tunnel, and gets one when a segment "
                "or a first flood-set destination uses it again" );
    break;
  case Lack::type:
    out.awaits( "found no ", nameOf( neededType( tunnelId ) ),
                " id free when its segments changed" );
    break;
  }
  out.say( "retryLackingTunnel would try again" );
}

// --- What holds between events

void EvpnHwTunnelIdSm::check( Findings & out ) const {
  RetryingSm::check( out );
  parking_.check( out );
  const auto & mapping = tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable();
  size_t uses = 0, zombies = 0, usedAndMapped = 0;
  for ( const auto & [ esIntfId, tunnels ] : intfTunnelSet() ) {
    out.expect( tunnels->tunnelIds() > 0, "intfTunnelSet has an empty segment ", esIntfId );
    uses += tunnels->tunnelIds();
    for ( const auto tunnelId : tunnels->tunnelId() ) {
      const auto info = tunnelInfo( tunnelId );
      out.expect( info && info->intfIdHas( esIntfId ), "tunnelInfo of ", tunnelId, " lacks ",
                  esIntfId );
      out.expect( labelled( esIntfId, tunnelId ), "segment ", esIntfId,
                  " has no label over tunnel ", tunnelId );
      out.expect( info && info->sharedEsiLabelConfiguredIntfHas( esIntfId ) ==
                              sharedEsiLabelConfigured( esIntfId ),
                  "the shared ESI label of ", esIntfId, " is not as tunnel ", tunnelId, " has it" );
    }
  }
  for ( const auto & [ tunnelId, info ] : tunnelInfo() ) {
    out.expect( info->intfIds() > 0, "tunnelInfo has an unused tunnel ", tunnelId );
    uses -= info->intfIds();
    for ( const auto esIntfId : info->sharedEsiLabelConfiguredIntf() ) {
      out.expect( info->intfIdHas( esIntfId ), esIntfId, " does not use tunnel ", tunnelId );
    }
    const auto [ record, damage ] = mapping.examine( tunnelId );
    out.expect( record || damage || unprogrammedTunnelHas( tunnelId ) || !initialized(), "tunnel ",
                tunnelId, " is used by a segment, and neither mapped nor parked" );
    usedAndMapped += record ? 1 : 0;
  }
  out.expect( uses == 0, "tunnelInfo and intfTunnelSet differ" );
  for ( const auto & [ type, tunnels ] : zombieTunnelId() ) {
    for ( const auto tunnelId : tunnels->tunnelId() ) {
      const auto record = mapping.examine( tunnelId ).record;
      out.expect( record && record->hwTunnelId.hwTunnelIdType() == type, "zombie ", tunnelId,
                  " has no id of type ", type );
      out.expect( !usedBySegment( tunnelId ), "zombie ", tunnelId, " is used by a segment" );
    }
    zombies += tunnels->tunnelIds();
  }
  for ( const auto & [ esIntfId, reactor ] : segmentStatus() ) {
    const auto tunnels = intfTunnelSet( esIntfId );
    for ( const auto & [ tepIntfId, label ] : reactor->notifier()->remoteEsiLabel() ) {
      out.expect( !initialized() || ( tunnels && tunnels->tunnelIdHas( tepIntfId.tunnelId() ) ),
                  "intfTunnelSet lacks tunnel ", tepIntfId.tunnelId(), " of ", esIntfId );
    }
  }
  if ( initialized() ) {
    out.expect( zombies + usedAndMapped == tunnelIdHwTunnelId()->tunnelIdToHwTunnelIds(),
                "a mapped tunnel is neither used by a segment nor a zombie" );
  }
  for ( const auto tunnelId : unprogrammedTunnel() ) {
    out.expect( !mapping.examine( tunnelId ).record || lackOf( tunnelId ) == Lack::type, "tunnel ",
                tunnelId, " is parked and mapped" );
  }
  if ( initialized() && retryLackingTunnel() ) {
    checkRetried( out );
  }
}

void EvpnHwTunnelIdSm::checkRetried( Findings & out ) const {
  const auto checkOne = [ & ]( TunnelId tunnelId ) {
    out.expect( lackOf( tunnelId ) == Lack::nothing || unprogrammedTunnelHas( tunnelId ), "tunnel ",
                tunnelId, " lacks an id and is not parked" );
  };
  for ( const auto & [ tunnelId, info ] : tunnelInfo() ) {
    checkOne( tunnelId );
  }
  for ( const auto [ tunnelId, count ] : remoteInfo()->remoteTunnelId() ) {
    checkOne( tunnelId );
  }
  out.expect( unprogrammedTunnels() == 0 || reviewUnprogrammed()->isScheduled(),
              "tunnels are parked and no review is due" );
}

// --- What an audit is told

// By the tunnel that hardware has the id in use for; where that is another one, or is not known, by
// all records. While one of these is damaged any id may be its.
std::optional< TunnelId > EvpnHwTunnelIdSm::recordedFor( HwTunnelId hwTunnelId ) const {
  const auto & table = tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable();
  const auto owner = hwTunnelIdHelper()->hwTunnelIdsInUse()->find( hwTunnelId );
  if ( owner && *owner != TunnelId::invalid() ) {
    const auto record = table.examine( *owner ).record;
    if ( record && record->hwTunnelId == hwTunnelId ) {
      return owner;
    }
  }
  size_t records = 0;
  for ( const auto & [ tunnelId, id ] : tunnelIdHwTunnelId()->tunnelIdToHwTunnelId() ) {
    ++records;
    if ( id == hwTunnelId ) {
      return owner && *owner == TunnelId::invalid() ? owner : tunnelId;
    }
  }
  return records == tunnelIdHwTunnelId()->tunnelIdToHwTunnelIds() ? std::nullopt : owner;
}

// An id that hardware gave up cannot be got again: nothing mends that.
void EvpnHwTunnelIdSm::addAuditParts( KezHelper::AuditParts & out ) {
  const auto * const inUse = hwTunnelIdHelper()->hwTunnelIdsInUse();
  KezHelper::AuditedSides< HwTunnelId, TunnelId > sides;
  sides.machine = name();
  sides.table = "hwTunnelIdsInUse";
  sides.rank = KezHelper::SweepRank::hwTunnelId;
  sides.hardware = inUse;
  sides.record = KezHelper::tableView< HwTunnelId, TunnelId >(
      [ this ] { return tunnelIdHwTunnelId()->tunnelIdToHwTunnelId(); },
      []( const auto & member ) { return std::vector{ ( *member ).hwTunnelId }; },
      [ this ]( HwTunnelId hwTunnelId ) { return recordedFor( hwTunnelId ); } );
  sides.remove = [ this ]( HwTunnelId hwTunnelId, TunnelId ) {
    hwTunnelIdHelper()->releaseHwTunnelId( hwTunnelId );
    parking_.freed();
  };
  out.add( std::move( sides ) );
}

} // namespace Kez
