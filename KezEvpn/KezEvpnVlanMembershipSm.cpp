#include "KezEvpn/KezEvpnVlanMembershipSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/Room.h"
#include "Ringlog/Trace.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnVlanMembershipSm" );

KezEvpnVlanMembershipSm::KezEvpnVlanMembershipSm( In< Bridging::Config > bridgingConfig,
                                                  In< Bridging::VlanStatusDir > vlanStatusDir,
                                                  In< Evpn::EvpnStatus > evpnStatus,
                                                  Out< EvpnVlanStatus > evpnVlanStatus )
    : StateMachine( traceHandle ), bridgingConfig_( bridgingConfig ),
      vlanStatusDir_( vlanStatusDir ), evpnStatus_( evpnStatus ), evpnVlanStatus_( evpnVlanStatus ),
      bridgingConfigReactor_( *this ), vlanStatusDirReactor_( *this ), evpnStatusReactor_( *this ) {
  // What an earlier machine published stays where it still holds.
  processPublished();
  bridgingConfigReactor_.notifierIs( bridgingConfig );
  vlanStatusDirReactor_.notifierIs( vlanStatusDir );
  started_ = true;
  evpnStatusReactor_.notifierIs( evpnStatus );
}

Vex::Ptr< KezEvpnVlanMembershipSm > kezEvpnVlanMembershipSmFactory(
    In< Bridging::Config > bridgingConfig, In< Bridging::VlanStatusDir > vlanStatusDir,
    In< Evpn::EvpnStatus > evpnStatus, Out< EvpnVlanStatus > evpnVlanStatus ) {
  return Vex::makePtr< KezEvpnVlanMembershipSm >( bridgingConfig, vlanStatusDir, evpnStatus,
                                                  evpnVlanStatus );
}

void KezEvpnVlanMembershipSm::VexEvpnStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == Evpn::EvpnStatus::encapBumFilterAttr ) {
    sm()->handleEncapBumFilter( Evpn::EvpnStatus::encapBumFilterAttr.key( key ) );
  }
}

void KezEvpnVlanMembershipSm::VexVlanConfig::handleNotifier() {
  sm()->vex_handleVlanConfig( *this );
}

void KezEvpnVlanMembershipSm::VexVlanConfig::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == Bridging::VlanConfig::intfAttr ) {
    handleIntf( Bridging::VlanConfig::intfAttr.key( key ) );
  }
}

void KezEvpnVlanMembershipSm::VexVlanStatus::handleNotifier() {
  sm()->vex_handleVlanStatus( *this );
}

void KezEvpnVlanMembershipSm::VexVlanStatus::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == Bridging::VlanStatus::vlanPortStatusAttr ) {
    handleIntf( Bridging::VlanStatus::vlanPortStatusAttr.key( key ) );
  }
}

void KezEvpnVlanMembershipSm::processPublished() {
  for ( const auto & [ vlanId, memberInfo ] : evpnVlanStatus()->vlanStatus() ) {
    for ( const auto intfId : memberInfo->member() ) {
      processIntfVlan( intfId, vlanId );
    }
  }
}

// What the configuration and the status list has been processed; what they list no more has not.
void KezEvpnVlanMembershipSm::makeUpForZombieMark() {
  processPublished();
  for ( const auto & [ intfId, vlans ] : intfVlanConfigSet() ) {
    for ( const auto vlanId : vlans->vlanId() ) {
      processIntfVlan( intfId, vlanId );
    }
  }
}

bool KezEvpnVlanMembershipSm::isConfigured( Wire::IntfId intfId, Bridging::VlanId vlanId ) const {
  const auto config = bridgingConfig()->vlanConfig( vlanId );
  return config && config->intfHas( intfId );
}

bool KezEvpnVlanMembershipSm::isOperational( Wire::IntfId intfId, Bridging::VlanId vlanId ) const {
  const auto status = vlanStatusDir()->vlanStatus( vlanId );
  return status && status->vlanPortStatusHas( intfId );
}

template< class IsConfigured, class IsOperational >
KezEvpnVlanMembershipSm::Decision
KezEvpnVlanMembershipSm::decideBy( Wire::IntfId intfId, IsConfigured && isConfigured,
                                   IsOperational && isOperational ) const {
  const bool byConfiguration = evpnStatus()->encapBumFilterHas( intfId );
  return { byConfiguration, byConfiguration ? isConfigured() : isOperational() };
}

KezEvpnVlanMembershipSm::Decision KezEvpnVlanMembershipSm::decide( Wire::IntfId intfId,
                                                                   Bridging::VlanId vlanId ) const {
  return decideBy(
      intfId, [ & ] { return isConfigured( intfId, vlanId ); },
      [ & ] { return isOperational( intfId, vlanId ); } );
}

void KezEvpnVlanMembershipSm::lookUp( Vlan & vlan ) const {
  const auto lookUpOne = [ & ]( auto & entity, const auto & now ) {
    if ( !entity || !entity->parent() ) {
      entity = now();
    }
  };
  lookUpOne( vlan.config, [ & ] { return bridgingConfig()->vlanConfig( vlan.vlanId ); } );
  lookUpOne( vlan.status, [ & ] { return vlanStatusDir()->vlanStatus( vlan.vlanId ); } );
  lookUpOne( vlan.published, [ & ] { return evpnVlanStatus()->vlanStatus( vlan.vlanId ); } );
}

void KezEvpnVlanMembershipSm::processIntfVlan( Wire::IntfId intfId, Bridging::VlanId vlanId ) {
  Vlan vlan{ .vlanId = vlanId };
  processIntf( intfId, vlan, Known::nothing );
}

void KezEvpnVlanMembershipSm::processIntf( Wire::IntfId intfId, Vlan & vlan, Known known ) {
  TRACE( 5, "KezEvpnVlanMembershipSm::processIntfVlan vlanId ", vlan.vlanId, " intfId ", intfId );
  VEX_ASSERT( bridgingConfig() );
  VEX_ASSERT( vlanStatusDir() );
  VEX_ASSERT( evpnStatus() );
  lookUp( vlan );
  const auto configured = [ & ] {
    return known == Known::configured || ( vlan.config && vlan.config->intfHas( intfId ) );
  };
  if ( started_ || known != Known::operational ) {
    if ( configured() ) {
      intfVlanConfigSetIs( intfId )->vlanIdIs( vlan.vlanId );
    } else {
      intfVlanConfigSetMemberDel( intfId, vlan.vlanId );
    }
  }
  const auto decision = decideBy( intfId, configured, [ & ] {
    return known == Known::operational ||
           ( vlan.status && vlan.status->vlanPortStatusHas( intfId ) );
  } );
  if ( decision.member ) {
    addIntf( intfId, vlan );
  } else {
    removeIntfVlanFromEvpnVlanStatus( intfId, vlan.vlanId );
  }
}

void KezEvpnVlanMembershipSm::addIntfToEvpnVlanStatus( Wire::IntfId intfId,
                                                       Bridging::VlanId vlanId ) {
  Vlan vlan{ .vlanId = vlanId };
  lookUp( vlan );
  addIntf( intfId, vlan );
}

void KezEvpnVlanMembershipSm::addIntf( Wire::IntfId intfId, Vlan & vlan ) {
  TRACE( 9, "KezEvpnVlanMembershipSm::addIntfToEvpnVlanStatus intfId ", intfId, " vlanId ",
         vlan.vlanId );
  if ( !vlan.published ) {
    vlan.published = evpnVlanStatus()->vlanStatusIs( vlan.vlanId );
    makeRoom( *vlan.published, vlan.intfs );
  }
  vlan.published->memberIs( intfId );
}

void KezEvpnVlanMembershipSm::removeIntfVlanFromEvpnVlanStatus( Wire::IntfId intfId,
                                                                Bridging::VlanId vlanId ) {
  TRACE( 9, "KezEvpnVlanMembershipSm::removeIntfVlanFromEvpnVlanStatus intfId ", intfId, " vlanId ",
         vlanId );
  evpnVlanStatus()->vlanStatusMemberDel( vlanId, intfId );
}

void KezEvpnVlanMembershipSm::VexVlanConfig::handleVlanConfig() {
  const auto sm = this->sm();
  const auto vlan = vlanId();
  const auto vlanConfig = notifier();
  TRACE( 8, "KezEvpnVlanMembershipSm::VexVlanConfig::handleVlanConfig vlanId ", vlan, " add ",
         sm->bridgingConfig()->vlanConfigHas( vlan ) );
  const bool standsHere = sm->bridgingConfig()->vlanConfig( vlan ) == vlanConfig;
  const auto known = standsHere ? Known::configured : Known::nothing;
  Vlan pairs{ .vlanId = vlan, .intfs = vlanConfig->intfs() };
  for ( const auto [ intfId, vlanPortConfig ] : vlanConfig->intf() ) {
    sm->processIntf( intfId, pairs, known );
  }
}

void KezEvpnVlanMembershipSm::VexVlanStatus::handleVlanStatus() {
  const auto sm = this->sm();
  const auto vlan = vlanId();
  const auto vlanStatus = notifier();
  TRACE( 8, "KezEvpnVlanMembershipSm::VexVlanStatus::handleVlanStatus vlanId ", vlan, " add ",
         sm->vlanStatusDir()->vlanStatusHas( vlan ) );
  const bool standsHere = sm->vlanStatusDir()->vlanStatus( vlan ) == vlanStatus;
  const auto known = standsHere ? Known::operational : Known::nothing;
  Vlan pairs{ .vlanId = vlan, .intfs = vlanStatus->vlanPortStatuss() };
  for ( const auto [ intfId, vlanPortStatus ] : vlanStatus->vlanPortStatus() ) {
    sm->processIntf( intfId, pairs, known );
  }
}

void KezEvpnVlanMembershipSm::VexVlanConfig::handleIntf( Wire::IntfId intfId ) {
  TRACE( 8, "KezEvpnVlanMembershipSm::VexVlanConfig::handleIntf vlanId ", vlanId(), " intfId ",
         intfId );
  sm()->processIntfVlan( intfId, vlanId() );
}

void KezEvpnVlanMembershipSm::VexVlanStatus::handleIntf( Wire::IntfId intfId ) {
  TRACE( 8, "KezEvpnVlanMembershipSm::VexVlanStatus::handleIntf vlanId ", vlanId(), " intfId ",
         intfId );
  sm()->processIntfVlan( intfId, vlanId() );
}

void KezEvpnVlanMembershipSm::handleEncapBumFilter( Wire::IntfId intfId ) {
  TRACE( 8, "KezEvpnVlanMembershipSm::handleEncapBumFilter intfId ", intfId, " add ",
         evpnStatus()->encapBumFilterHas( intfId ) );
  const auto vlans = intfVlanConfigSet( intfId );
  if ( !vlans ) {
    return;
  }
  for ( const auto vlanId : vlans->vlanId() ) {
    processIntfVlan( intfId, vlanId );
  }
}

} // namespace Kez
