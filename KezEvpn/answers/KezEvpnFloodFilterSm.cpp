#include "KezEvpn/KezEvpnFloodFilterSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/detail/PortAudit.h"

namespace Kez {

void KezEvpnFloodFilterSm::explain( const Subject & subject, Explanation & out ) const {
  if ( !initialized() ) {
    return;
  }
  const auto * const pair = subject.get< IntfVlanKey >();
  if ( !pair ) {
    explainPairsOf( subject, out );
    return;
  }
  if ( isFloodFilterApplied( pair->intfId, pair->vlanId ) ) {
    out.say( "in the flood filter of VLAN ", pair->vlanId );
    explainMissingPorts( *evpnLagMemberInfo(), pair->intfId, out );
  } else {
    out.say( "not in the flood filter of VLAN ", pair->vlanId );
  }
  ports_.explain( *pair, out );
  explainRefusal( *pair, out );
}

void KezEvpnFloodFilterSm::explainPairsOf( const Subject & subject, Explanation & out ) const {
  const bool ofVlan = subject.get< Bridging::VlanId >();
  if ( !ofVlan && !subject.get< Wire::IntfId >() ) {
    return;
  }
  PortTally tally;
  Missing waits;
  forEachPairOf( subject, [ & ]( const IntfVlanKey & key ) {
    ports_.count( key, !ofVlan, tally );
    if ( lagLack( *evpnLagMemberInfo(), key.intfId ) != LagLack::nothing ) {
      waits.add( {}, key, "in the flood filter, waiting for member ports" );
    }
  } );
  explainPorts( "flood filter", tally, out );
  explainGroups( waits, out );
}

void KezEvpnFloodFilterSm::addMissing( Missing & out ) const {
  if ( !initialized() ) {
    return;
  }
  for ( const auto & key : parking_.range() ) {
    addRefusal( key, key, out );
  }
  addPortless( out, []( const IntfVlanKey & ) { return true; } );
}

void KezEvpnFloodFilterSm::check( Findings & out ) const {
  PortProgrammingSm::check( out );
  parking_.check( out );
  ports_.check( out );
  if ( !initialized() ) {
    return;
  }
  for ( const auto & [ intfId, vlans ] : intfVlanSet() ) {
    for ( const auto vlanId : vlans->vlanId() ) {
      out.expect( isFloodFilterApplied( intfId, vlanId ), "intfVlanSet has VLAN ", vlanId, " of ",
                  intfId, ", which is not filtered" );
    }
  }
  for ( const auto & [ vlanId, floodStatus ] : evpnStatus()->evpnVlanFloodStatus() ) {
    const auto intfs = vlanIntfSet( vlanId );
    for ( const auto intfId : floodStatus->floodFilter() ) {
      out.expect( intfs && intfs->intfIdHas( intfId ), "vlanIntfSet lacks ", intfId, " in VLAN ",
                  vlanId );
    }
  }
}

void KezEvpnFloodFilterSm::addAuditParts( KezHelper::AuditParts & out ) {
  using KezHelper::PortVlanKey;
  using Sides = KezHelper::AuditedSides< PortVlanKey, Vex::NoValue >;
  const auto thereIf = []( bool there ) {
    return there ? std::optional( Vex::NoValue() ) : std::nullopt;
  };
  Sides sides;
  sides.machine = name();
  sides.table = "nonDfPort";
  sides.hardware = floodingHelper()->inventory().nonDfPort;
  sides.record = portsOnRecord< Vex::NoValue >(
      programmedStatus_, [ this, thereIf ]( const PortVlanKey & key ) {
        return thereIf( programmedStatus_.programmedHas( pairOf( key ), key.memberIntfId ) );
      } );
  sides.askedFor =
      portsAskedFor< Vex::NoValue >( *this, [ this, thereIf ]( const IntfVlanKey & pair ) {
        return thereIf( isFloodFilterApplied( pair.intfId, pair.vlanId ) );
      } );
  sides.due = [ this ]( const PortVlanKey & key ) { return parking_.has( pairOf( key ) ); };
  sides.remove = [ this ]( const PortVlanKey & key, Vex::NoValue ) {
    floodingHelper()->deleteNonDfPort( key.parentIntfId, key.memberIntfId, key.vlanId );
  };
  sides.forget = [ this ]( const PortVlanKey & key, Vex::NoValue ) {
    ports_.lost( pairOf( key ), key.memberIntfId );
  };
  out.add( std::move( sides ) );
}

} // namespace Kez
