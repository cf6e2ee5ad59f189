#include "KezEvpn/KezEvpnFloodingDot1qSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/detail/PortAudit.h"

namespace Kez {

// --- What an operator is told

void EvpnFloodingDot1qSm::explain( const Subject & subject, Explanation & out ) const {
  if ( !initialized() ) {
    return;
  }
  if ( const auto * const pair = subject.get< IntfVlanKey >() ) {
    explainPair( *pair, out );
  } else if ( const auto * const vlanId = subject.get< Bridging::VlanId >() ) {
    explainVlan( *vlanId, out );
    explainPairsOf( subject, out );
  } else if ( subject.get< Wire::IntfId >() ) {
    explainPairsOf( subject, out );
  }
}

void EvpnFloodingDot1qSm::explainPairsOf( const Subject & subject, Explanation & out ) const {
  const bool namesVlan = !subject.get< Bridging::VlanId >();
  PortTally tally;
  Missing waits;
  forEachPairOf( subject, [ & ]( const IntfVlanKey & key ) {
    const auto lack = lackOf( key );
    if ( intfVlanQueueHas( key ) ) {
      addQueued( key, waits );
    } else if ( lack == Lack::vlan ) {
      addWithoutVlan( key, waits );
    } else if ( lack == Lack::nothing &&
                lagLack( *evpnLagMemberInfo(), key.intfId ) != LagLack::nothing ) {
      waits.add( {}, key, "waiting for member ports" );
    }
    if ( lack == Lack::nothing ) {
      ports_.count( key, namesVlan, tally );
    }
  } );
  explainPorts( "mapped", tally, out );
  explainGroups( waits, out );
}

void EvpnFloodingDot1qSm::addQueued( const IntfVlanKey & key, Missing & out ) const {
  out.add( { Standing::waiting, {}, reviewIntfVlan()->nextRun() }, key,
           "of which changes are being collected" );
}

void EvpnFloodingDot1qSm::addWithoutVlan( const IntfVlanKey & key, Missing & out ) const {
  const auto refusal = parking_.refusal( vlanLevelKey( key.vlanId ) );
  const Missing::Wait wait{ Standing::waiting,
                            refusal.tries > 0 ? std::optional( refusal.first ) : std::nullopt,
                            nextTry( {} ).time };
  out.add( wait, key, "waiting for VLAN ", key.vlanId, " to be created in hardware" );
}

void EvpnFloodingDot1qSm::addMissing( Missing & out ) const {
  if ( !initialized() ) {
    return;
  }
  for ( const auto & key : parking_.range() ) {
    if ( key != vlanLevelKey( key.vlanId ) ) {
      addRefusal( key, key, out );
      continue;
    }
    addRefusal( key, key.vlanId, out );
    forEachPairOf( { key.vlanId }, [ & ]( const IntfVlanKey & pair ) {
      if ( lackOf( pair ) == Lack::vlan ) {
        addWithoutVlan( pair, out );
      }
    } );
  }
  for ( const auto & key : intfVlanQueue() ) {
    addQueued( key, out );
  }
  addPortless( out,
               [ this ]( const IntfVlanKey & key ) { return lackOf( key ) == Lack::nothing; } );
}

void EvpnFloodingDot1qSm::explainPair( const IntfVlanKey & key, Explanation & out ) const {
  const auto lack = lackOf( key );
  switch ( lack ) {
  case Lack::vlanStatus:
    out.awaits( "waiting for EVPN members of VLAN ", key.vlanId, ", none published" );
    break;
  case Lack::membership:
    out.awaits( "waiting for ", key.intfId, " to be an EVPN member of VLAN ", key.vlanId );
    break;
  case Lack::publication:
    out.awaits( "waiting for the dot1q tag of VLAN ", key.vlanId, ", none published" );
    break;
  case Lack::vlan:
    out.awaits( "waiting for VLAN ", key.vlanId, " to be created in hardware" );
    explainRefusal( vlanLevelKey( key.vlanId ), out );
    break;
  case Lack::nothing:
    out.say( "tag ", dot1qTagForVlan( key.vlanId ) );
    explainMissingPorts( *evpnLagMemberInfo(), key.intfId, out );
    break;
  }
  const bool asWanted =
      lack == Lack::nothing && intfVlanDot1q( key ) == dot1qTagForVlan( key.vlanId );
  if ( dot1qStatus_.programmeds( key ) > 0 && !asWanted ) {
    out.say( "mapped to tag ", intfVlanDot1q( key ),
             lack == Lack::vlan ? " till then" : " till the next look" );
  }
  ports_.explain( key, out );
  if ( lack == Lack::nothing ) {
    explainRefusal( key, out );
  }
  if ( intfVlanQueueHas( key ) ) {
    out.awaits( "changes are being collected, next look ",
                Due{ reviewIntfVlan()->nextRun(), "when an input changes" } );
  }
}

void EvpnFloodingDot1qSm::explainVlan( Bridging::VlanId vlanId, Explanation & out ) const {
  if ( programmedDot1qHas( vlanId ) ) {
    out.say( "programmed with tag ", programmedDot1q( vlanId ) );
  } else if ( evpnStatus()->vlanToDot1qHas( vlanId ) ) {
    out.awaits( "to be programmed with tag ", dot1qTagForVlan( vlanId ) );
    explainRefusal( vlanLevelKey( vlanId ), out );
  } else {
    out.awaits( "waiting for the dot1q tag of VLAN ", vlanId, ", none published" );
  }
}

// --- What holds between events

void EvpnFloodingDot1qSm::check( Findings & out ) const {
  PortProgrammingSm::check( out );
  parking_.check( out );
  ports_.check( out, []( const IntfVlanKey & key ) { return key != vlanLevelKey( key.vlanId ); } );
  out.expect( intfVlanQueues() == 0 || !initialized() || reviewIntfVlan()->isScheduled(),
              "pairs are queued and no review is due" );
  for ( const auto & [ key, list ] : dot1qStatus_.members().range() ) {
    out.expect( intfVlanDot1qHas( key ), key, " has ports and no tag" );
  }
  if ( !initialized() ) {
    return;
  }
  for ( const auto [ vlanId, dot1q ] : programmedDot1q() ) {
    out.expect( evpnStatus()->vlanToDot1qHas( vlanId ) && dot1q == dot1qTagForVlan( vlanId ),
                "VLAN ", vlanId, " is programmed with tag ", dot1q, ", which is not published" );
  }
  for ( const auto [ vlanId, dot1q ] : evpnStatus()->vlanToDot1q() ) {
    out.expect( programmedDot1qHas( vlanId ) != parking_.has( vlanLevelKey( vlanId ) ), "VLAN ",
                vlanId, " is to be either programmed or parked" );
  }
  const auto isMember = [ this ]( const IntfVlanKey & key ) {
    const auto memberInfo = evpnVlanStatus()->vlanStatus( key.vlanId );
    return memberInfo && memberInfo->memberHas( key.intfId );
  };
  for ( const auto & [ intfId, vlans ] : intfVlanSet() ) {
    for ( const auto vlanId : vlans->vlanId() ) {
      const IntfVlanKey key{ intfId, vlanId };
      out.expect( isMember( key ) || intfVlanQueueHas( key ), key,
                  " is no member any more, and no look at it is due" );
    }
  }
  for ( const auto & [ vlanId, memberInfo ] : evpnVlanStatus()->vlanStatus() ) {
    const auto intfs = vlanIntfSet( vlanId );
    for ( const auto intfId : memberInfo->member() ) {
      const bool known = intfs && intfs->intfIdHas( intfId );
      out.expect( known || intfVlanQueueHas( { intfId, vlanId } ), intfId, " in VLAN ", vlanId,
                  " is a member, and no look at it is due" );
    }
  }
}

// --- What an audit is told

void EvpnFloodingDot1qSm::addAuditParts( KezHelper::AuditParts & out ) {
  using Bridging::VlanId;
  using Bridging::VlanIdOrNone;
  using KezHelper::PortVlanKey;
  const auto vlanIsDue = [ this ]( VlanId vlanId ) {
    return parking_.has( vlanLevelKey( vlanId ) );
  };
  const auto tables = floodingHelper()->inventory();
  {
    KezHelper::AuditedSides< VlanId, VlanIdOrNone > sides;
    sides.machine = name();
    sides.table = "vlan";
    sides.rank = KezHelper::SweepRank::vlan;
    sides.hardware = tables.vlan;
    sides.record = KezHelper::tableView< VlanId, VlanIdOrNone >(
        [ this ] { return programmedDot1q(); },
        [ this ]( VlanId vlanId ) {
          return programmedDot1qHas( vlanId ) ? std::optional( programmedDot1q( vlanId ) )
                                              : std::nullopt;
        } );
    sides.askedFor = KezHelper::tableView< VlanId, VlanIdOrNone >(
        [ this ] { return evpnStatus()->vlanToDot1q(); },
        [ this ]( VlanId vlanId ) {
          return initialized() && evpnStatus()->vlanToDot1qHas( vlanId )
                     ? std::optional( dot1qTagForVlan( vlanId ) )
                     : std::nullopt;
        } );
    sides.due = vlanIsDue;
    sides.remove = [ this ]( VlanId vlanId, VlanIdOrNone dot1q ) {
      floodingHelper()->deleteVlan( vlanId, dot1q );
    };
    sides.forget = [ this ]( VlanId vlanId, VlanIdOrNone ) {
      programmedDot1qDel( vlanId );
      parking_.lose( vlanLevelKey( vlanId ) );
    };
    out.add( std::move( sides ) );
  }
  {
    KezHelper::AuditedSides< PortVlanKey, VlanIdOrNone > sides;
    sides.machine = name();
    sides.table = "dot1qMapping";
    sides.hardware = tables.dot1qMapping;
    sides.record =
        portsOnRecord< VlanIdOrNone >( dot1qStatus_, [ this ]( const PortVlanKey & key ) {
          return dot1qStatus_.programmedHas( pairOf( key ), key.memberIntfId )
                     ? std::optional( intfVlanDot1q( pairOf( key ) ) )
                     : std::nullopt;
        } );
    sides.askedFor = portsAskedFor< VlanIdOrNone >( *this, [ this ]( const IntfVlanKey & pair ) {
      return initialized() && lackOf( pair ) == Lack::nothing
                 ? std::optional( dot1qTagForVlan( pair.vlanId ) )
                 : std::nullopt;
    } );
    sides.due = [ this, vlanIsDue ]( const PortVlanKey & key ) {
      return parking_.has( pairOf( key ) ) || intfVlanQueueHas( pairOf( key ) ) ||
             vlanIsDue( key.vlanId );
    };
    sides.remove = [ this ]( const PortVlanKey & key, VlanIdOrNone dot1q ) {
      floodingHelper()->deleteVlanToDot1qMapping( key.parentIntfId, key.memberIntfId, key.vlanId,
                                                  dot1q );
    };
    sides.forget = [ this ]( const PortVlanKey & key, VlanIdOrNone ) {
      ports_.lost( pairOf( key ), key.memberIntfId );
    };
    out.add( std::move( sides ) );
  }
}

} // namespace Kez
