#include "KezEvpn/KezEvpnFloodingEsiSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/detail/PortAudit.h"

namespace Kez {

using Bridging::VlanId;
using Wire::IntfId;

// --- What an operator is told

void EvpnFloodingEsiSm::explain( const Subject & subject, Explanation & out ) const {
  if ( !initialized() ) {
    return;
  }
  if ( const auto * const pair = subject.get< IntfVlanKey >() ) {
    explainPair( *pair, out );
    ports_.explain( *pair, out );
    explainLag( *pair, out );
    explainRefusal( *pair, out );
  } else if ( const auto * const tunnelId = subject.get< TunnelId >() ) {
    if ( const auto intfVlans = tunnelIntfVlanSet( *tunnelId ) ) {
      out.say( "leads to the designated forwarder of ", Members{ intfVlans->intfVlan() } );
    }
  } else if ( subject.get< Bridging::VlanId >() || subject.intfId() != IntfId() ) {
    explainPairsOf( subject, out );
  }
}

void EvpnFloodingEsiSm::explainPairsOf( const Subject & subject, Explanation & out ) const {
  const bool ofVlan = subject.get< VlanId >();
  const auto vlans = ofVlan ? nullptr : intfVlanSet( subject.intfId() );
  const auto status = evpnStatus()->ethernetSegmentStatus( subject.intfId() );
  if ( status ) {
    out.say( "an Ethernet segment, with another designated forwarder in ",
             Count{ vlans ? vlans->vlanIds() : 0, "VLAN" } );
  } else if ( subject.get< Segment >() ) {
    out.say( "no Ethernet segment, no status of it published" );
  }
  PortTally tally;
  Missing waits;
  forEachPairOf( subject, [ & ]( const IntfVlanKey & key ) {
    if ( !addWait( key, waits ) ) {
      ports_.count( key, !ofVlan, tally );
    }
  } );
  explainPorts( "ESI data", tally, out );
  explainGroups( waits, out );
}

// Adds what a pair waits for, if that is an input.
bool EvpnFloodingEsiSm::addWait( const IntfVlanKey & key, Missing & out ) const {
  const auto [ lack, dfTepIntfId, remoteLabel ] = decide( key );
  switch ( lack ) {
  case Lack::segment:
  case Lack::designatedForwarder:
    return false; // nothing is asked for
  case Lack::remoteLabel:
    out.add( {}, key, "waiting for the remote ESI label of TEP ", dfTepIntfId );
    return true;
  case Lack::usableLabel:
    out.add( {}, key, "waiting for a remote ESI label of TEP ", dfTepIntfId,
             " of the right encapsulation type, ", remoteLabel, " published" );
    return true;
  case Lack::nothing:
    break;
  }
  if ( lagLack( *evpnLagMemberInfo(), key.intfId ) != LagLack::nothing ) {
    out.add( {}, key, "waiting for member ports of ", key.intfId );
    return true;
  }
  const auto tunnelId = srTeOrDynamicTunnelIntfIdToTunnelId( dfTepIntfId );
  const auto record = tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable().examine( tunnelId ).record;
  switch ( portLackOf( key.intfId, record.has_value() ) ) {
  case PortLack::nothing:
    return false;
  case PortLack::hwTunnelId:
    out.add( {}, key, "waiting for a hardware tunnel id of tunnel ", tunnelId );
    return true;
  case PortLack::localLabel:
    out.add( {}, key, "waiting for the local ESI label of ", key.intfId );
    return true;
  }
  return false;
}

// What a pair waits for depends on its interface, and on its tunnel besides: pairs of one interface
// and tunnel all wait, or none does.
void EvpnFloodingEsiSm::addMissing( Missing & out ) const {
  if ( !initialized() ) {
    return;
  }
  const auto waitsByItself = [ this ]( IntfId intfId ) {
    return !localEsiLabelPublished( intfId ) ||
           lagLack( *evpnLagMemberInfo(), intfId ) != LagLack::nothing;
  };
  for ( const auto & [ intfId, vlans ] : intfVlanSet() ) {
    if ( waitsByItself( intfId ) ) {
      for ( const auto vlanId : vlans->vlanId() ) {
        addWait( { intfId, vlanId }, out );
      }
    }
  }
  for ( const auto & [ intfTunnel, vlans ] : intfTunnelVlanSet() ) {
    if ( !waitsByItself( intfTunnel.intfId ) ) {
      for ( const auto vlanId : vlans->vlanId() ) {
        if ( !addWait( { intfTunnel.intfId, vlanId }, out ) ) {
          break;
        }
      }
    }
  }
  for ( const auto & key : parking_.range() ) {
    addRefusal( key, key, out );
  }
}

void EvpnFloodingEsiSm::explainPair( const IntfVlanKey & key, Explanation & out ) const {
  const auto [ lack, dfTepIntfId, remoteLabel ] = decide( key );
  switch ( lack ) {
  case Lack::segment:
    out.say( key.intfId, " is no Ethernet segment, no status of it published" );
    return;
  case Lack::designatedForwarder:
    out.awaits( "waiting for the designated forwarder of VLAN ", key.vlanId, ", none published" );
    return;
  case Lack::remoteLabel:
    out.awaits( "waiting for the remote ESI label of TEP ", dfTepIntfId, ", none published" );
    return;
  case Lack::usableLabel:
    out.awaits( "waiting for a remote ESI label of TEP ", dfTepIntfId,
                " of the right encapsulation type, ", remoteLabel, " published" );
    if ( esiStatus_.programmeds( key ) > 0 ) {
      out.say( "what is programmed stays till then, tunnel ", intfVlanTunnel( key ), ", label ",
               intfVlanTunnelLabel( { key.intfId, key.vlanId, intfVlanTunnel( key ) } ) );
      if ( !unprogramUnusableLabel() ) {
        out.say( "unprogramUnusableLabel would delete it" );
      }
    }
    return;
  case Lack::nothing:
    break;
  }
  const auto tunnelId = srTeOrDynamicTunnelIntfIdToTunnelId( dfTepIntfId );
  out.say( "tunnel ", tunnelId, ", label ", remoteLabel.mplsLabel() );
  explainMissingPorts( *evpnLagMemberInfo(), key.intfId, out );
  const auto [ record, damage ] =
      tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable().examine( tunnelId );
  if ( damage ) {
    out.awaits( damage->what() );
    return;
  }
  const auto portLack = portLackOf( key.intfId, record.has_value() );
  if ( portLack == PortLack::hwTunnelId ) {
    out.awaits( "waiting for a hardware tunnel id of tunnel ", tunnelId, ", none published" );
  } else if ( portLack == PortLack::localLabel ) {
    out.awaits( "waiting for the local ESI label of ", key.intfId, ", none published" );
  }
}

// --- What lags

EsiIds EvpnFloodingEsiSm::idsAskedFor( const IntfVlanKey & key ) const {
  // What cannot be read is none.
  const auto & table = tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable();
  const auto mapping = table.examine( intfVlanTunnel( key ) ).record;
  return { mapping ? mapping->hwTunnelId : HwTunnelId(),
           evpnStatus()->localEsiLabel( key.intfId ).mplsLabel() };
}

std::vector< Wire::IntfId > EvpnFloodingEsiSm::changedPorts( const IntfVlanKey & key,
                                                             Changed changed ) const {
  if ( esiStatus_.programmeds( key ) == 0 ) {
    return {};
  }
  const auto asked = idsAskedFor( key );
  std::vector< Wire::IntfId > ports;
  for ( const auto & [ port, ids ] : esiStatus_.programmed( key ) ) {
    if ( changed == Changed::any ? ids != asked : ids.hwTunnelId != asked.hwTunnelId ) {
      ports.push_back( port );
    }
  }
  return ports;
}

std::vector< Wire::IntfId > EvpnFloodingEsiSm::laggingPorts( const IntfVlanKey & key ) const {
  const bool usable = decide( key ).lack == Lack::nothing;
  auto ports = changedPorts( key, usable ? Changed::any : Changed::hwTunnelId );
  std::erase_if( ports,
                 [ & ]( Wire::IntfId port ) { return esiStatus_.unprogrammedHas( key, port ); } );
  return ports;
}

void EvpnFloodingEsiSm::explainLag( const IntfVlanKey & key, Explanation & out ) const {
  const auto ports = laggingPorts( key );
  if ( !ports.empty() ) {
    const auto has = esiStatus_.programmed( key, ports.front() )->ids;
    const auto asked = idsAskedFor( key );
    out.say( "with an earlier hardware tunnel id or local label on ", Members{ ports }, ", ",
             has.hwTunnelId, " and ", has.localEsiLabel, " where ", asked.hwTunnelId, " and ",
             asked.localEsiLabel, " are asked for; reprogramChangedEsi would follow" );
  }
}

// --- What holds between events

void EvpnFloodingEsiSm::check( Findings & out ) const {
  PortProgrammingSm::check( out );
  parking_.check( out );
  ports_.check( out );
  size_t byTunnel = 0, byIntfTunnel = 0;
  for ( const auto & [ tunnelId, intfVlans ] : tunnelIntfVlanSet() ) {
    out.expect( intfVlans->intfVlans() > 0, "tunnelIntfVlanSet has an empty tunnel ", tunnelId );
    byTunnel += intfVlans->intfVlans();
  }
  for ( const auto & [ intfTunnel, vlans ] : intfTunnelVlanSet() ) {
    out.expect( vlans->vlanIds() > 0, "intfTunnelVlanSet has an empty ", intfTunnel );
    byIntfTunnel += vlans->vlanIds();
  }
  out.expect( byTunnel == intfVlanTunnels(), "tunnelIntfVlanSet has ", byTunnel, " triples of ",
              intfVlanTunnels() );
  out.expect( byIntfTunnel == intfVlanTunnels(), "intfTunnelVlanSet has ", byIntfTunnel,
              " triples of ", intfVlanTunnels() );
  for ( const auto [ key, tunnelId ] : intfVlanTunnel() ) {
    const auto intfVlans = tunnelIntfVlanSet( tunnelId );
    const auto vlans = intfTunnelVlanSet( { key.intfId, tunnelId } );
    out.expect( intfVlans && intfVlans->intfVlanHas( key ), "tunnelIntfVlanSet lacks ", key );
    out.expect( vlans && vlans->vlanIdHas( key.vlanId ), "intfTunnelVlanSet lacks ", key );
  }
  for ( const auto & [ intfId, vlans ] : intfVlanSet() ) {
    for ( const auto vlanId : vlans->vlanId() ) {
      const auto lack = decide( { intfId, vlanId } ).lack;
      out.expect( lack != Lack::segment && lack != Lack::designatedForwarder,
                  "intfVlanSet has VLAN ", vlanId, " of ", intfId,
                  ", which has no designated forwarder" );
    }
  }
  for ( const auto & [ intfId, reactor ] : segmentStatus() ) {
    const auto vlans = intfVlanSet( intfId );
    for ( const auto & [ vlanId, dfTepIntfId ] : reactor->notifier()->designatedForwarderTep() ) {
      out.expect( !initialized() || ( vlans && vlans->vlanIdHas( vlanId ) ),
                  "intfVlanSet lacks VLAN ", vlanId, " of ", intfId );
    }
  }
  for ( const auto key : unprogrammedEsi() ) {
    out.expect( decide( key ).lack == Lack::nothing && localEsiLabelPublished( key.intfId ), key,
                " is parked, and waits for an input" );
  }
  for ( const auto & [ key, list ] : esiStatus_.members().range() ) {
    out.expect( intfVlanTunnelHas( key ), key, " has ports and no tunnel" );
    out.expect( !reprogramChangedEsi() || laggingPorts( key ).empty(), key,
                " is programmed with an earlier hardware tunnel id or local label" );
    out.expect( !reprogramChangedEsi() || changedPorts( key, Changed::hwTunnelId ).empty(), key,
                " is programmed with a hardware tunnel id that its tunnel has not" );
  }
  for ( const auto [ key, label ] : intfVlanTunnelLabel() ) {
    out.expect( intfVlanTunnel( { key.intfId, key.vlanId } ) == key.tunnelId,
                "a label is on record for ", key, ", whose tunnel is another" );
  }
}

// --- What an audit is told

// A port that bears a force mark may have its data of before, of whose tunnel and remote label
// there is no record.
std::optional< KezHelper::EsiData >
EvpnFloodingEsiSm::dataOnRecord( const KezHelper::PortVlanKey & key ) const {
  const auto pair = pairOf( key );
  const auto port = esiStatus_.programmed( pair, key.memberIntfId );
  if ( !port ) {
    return std::nullopt;
  }
  const auto * const table = floodingHelper()->inventory().esiData;
  const auto standing = table ? table->find( key ) : std::nullopt;
  const auto & ids = port->ids;
  if ( standing && esiStatus_.forceReprogramHas( pair, key.memberIntfId ) ) {
    return KezHelper::EsiData( standing->tunnelId, ids.hwTunnelId, standing->dfEsiLabel,
                               ids.localEsiLabel );
  }
  const auto tunnelId = intfVlanTunnel( pair );
  return KezHelper::EsiData( tunnelId, ids.hwTunnelId,
                             intfVlanTunnelLabel( { pair.intfId, pair.vlanId, tunnelId } ),
                             ids.localEsiLabel );
}

std::optional< KezHelper::EsiData >
EvpnFloodingEsiSm::dataAskedFor( const IntfVlanKey & pair ) const {
  const auto [ lack, dfTepIntfId, remoteLabel ] = decide( pair );
  if ( lack != Lack::nothing ) {
    return std::nullopt;
  }
  const auto tunnelId = srTeOrDynamicTunnelIntfIdToTunnelId( dfTepIntfId );
  const auto mapping = tunnelIdHwTunnelId()->tunnelIdToHwTunnelIdTable().examine( tunnelId ).record;
  if ( portLackOf( pair.intfId, mapping.has_value() ) != PortLack::nothing ) {
    return std::nullopt;
  }
  return KezHelper::EsiData( tunnelId, mapping->hwTunnelId, remoteLabel.mplsLabel(),
                             evpnStatus()->localEsiLabel( pair.intfId ).mplsLabel() );
}

void EvpnFloodingEsiSm::addAuditParts( KezHelper::AuditParts & out ) {
  using KezHelper::EsiData;
  using KezHelper::PortVlanKey;
  KezHelper::AuditedSides< PortVlanKey, EsiData > sides;
  sides.machine = name();
  sides.table = "esiData";
  sides.hardware = floodingHelper()->inventory().esiData;
  sides.record = portsOnRecord< EsiData >(
      esiStatus_, [ this ]( const PortVlanKey & key ) { return dataOnRecord( key ); } );
  sides.askedFor = portsAskedFor< EsiData >(
      *this, [ this ]( const IntfVlanKey & pair ) { return dataAskedFor( pair ); } );
  sides.due = [ this ]( const PortVlanKey & key ) { return parking_.has( pairOf( key ) ); };
  sides.remove = [ this ]( const PortVlanKey & key, const EsiData & ) {
    floodingHelper()->deleteEsiData( key.parentIntfId, key.memberIntfId, key.vlanId,
                                     TunnelId::invalid(), HwTunnelId() );
  };
  sides.forget = [ this ]( const PortVlanKey & key, const EsiData & ) {
    ports_.lost( pairOf( key ), key.memberIntfId );
    if ( !dataAskedFor( pairOf( key ) ) ) {
      ports_.waitForInput( pairOf( key ) );
    }
  };
  out.add( std::move( sides ) );
}

} // namespace Kez
