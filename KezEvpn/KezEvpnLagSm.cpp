#include "KezEvpn/KezEvpnLagSm.h"

#include "KezEvpn/frame/Room.h"
#include "Ringlog/Trace.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnLagSm" );

EvpnLagSm::EvpnLagSm( In< KezCommonSmData > acsd, In< LagCreatorConfigDir > lagConfigDir,
                      Out< EvpnLagMemberInfo > evpnLagMemberInfo )
    : StateMachine( traceHandle ), acsd_( acsd ), lagConfigDir_( lagConfigDir ),
      evpnLagMemberInfo_( evpnLagMemberInfo ), lagConfigDirReactor_( *this ) {
  if ( lagConfigDir ) {
    makeRoom( *evpnLagMemberInfo, lagConfigDir->lagConfigs() );
  }
  lagConfigDirReactor_.notifierIs( lagConfigDir );
  // What an earlier machine published and no LAG stands for.
  for ( const auto & [ lagIntfId, portList ] : evpnLagMemberInfo->lagToPort() ) {
    if ( !lagConfigHas( lagIntfId ) ) {
      evpnLagMemberInfo->lagToPortDel( lagIntfId );
    }
  }
}

Vex::Ptr< EvpnLagSm > evpnLagSmFactory( In< KezCommonSmData > acsd,
                                        In< LagCreatorConfigDir > lagConfigDir,
                                        Out< EvpnLagMemberInfo > evpnLagMemberInfo ) {
  return Vex::makePtr< EvpnLagSm >( acsd, lagConfigDir, evpnLagMemberInfo );
}

void EvpnLagSm::lagConfigDirDel() {
  lagConfigDirReactor_.notifierIs( nullptr );
}

void EvpnLagSm::VexLagConfig::handleNotifier() {
  sm()->vex_handleLagConfig( *this );
}

void EvpnLagSm::VexLagConfig::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == LagInfo::memberAttr ) {
    handleLagMemberConfigured( LagInfo::memberAttr.key( key ) );
  }
}

void EvpnLagSm::vex_handleLagConfig( VexLagConfig & reactor ) {
  reactor.handleLagConfig();
}

static void addMemberIntf( Wire::IntfId lagIntfId, Wire::IntfId memberIntfId,
                           KezPortList & portList ) {
  TRACE( 5, "EvpnLagSm::processMemberIntf lagIntfId ", lagIntfId, " adding member ", memberIntfId );
  portList.portIs( memberIntfId, true );
}

void EvpnLagSm::VexLagConfig::handleLagConfig() {
  const auto sm = this->sm();
  const auto lagIntfId = intfId();
  VEX_ASSERT( sm->lagConfigDir() );
  auto lagInfo = notifier();
  if ( !lagInfo || lagInfo->parent() != sm->lagConfigDir().get() ) {
    lagInfo = sm->lagConfigDir()->lagConfig( lagIntfId );
  }
  TRACE( 5, "EvpnLagSm::handleLagConfig lagIntfId ", lagIntfId, " add ", bool( lagInfo ) );
  if ( lagInfo ) {
    KezPortList portList;
    for ( const auto [ memberIntfId, portProgType ] : lagInfo->member() ) {
      addMemberIntf( lagIntfId, memberIntfId, portList );
    }
    sm->publishEvpnLagMemberInfo( lagIntfId, portList );
  } else {
    sm->evpnLagMemberInfo()->lagToPortDel( lagIntfId );
  }
}

void EvpnLagSm::VexLagConfig::handleLagMemberConfigured( Wire::IntfId memberIntfId ) {
  const auto sm = this->sm();
  const auto lagIntfId = intfId();
  TRACE( 5, "EvpnLagSm::handleLagMemberConfigured lagIntfId ", lagIntfId );
  KezPortList portList = sm->evpnLagMemberInfo()->lagToPort( lagIntfId );
  processMemberIntf( lagIntfId, memberIntfId, portList, sm );
  sm->publishEvpnLagMemberInfo( lagIntfId, portList );
}

void processMemberIntf( Wire::IntfId lagIntfId, Wire::IntfId memberIntfId, KezPortList & portList,
                        const Vex::Ptr< EvpnLagSm > & sm ) {
  VEX_ASSERT( sm->lagConfigDir() );
  const auto lagInfo = sm->lagConfigDir()->lagConfig( lagIntfId );
  if ( lagInfo && lagInfo->memberHas( memberIntfId ) ) {
    addMemberIntf( lagIntfId, memberIntfId, portList );
  } else {
    TRACE( 5, "EvpnLagSm::processMemberIntf lagIntfId ", lagIntfId, " deleting member ",
           memberIntfId );
    portList.portDel( memberIntfId );
  }
}

void EvpnLagSm::publishEvpnLagMemberInfo( Wire::IntfId lagIntfId, const KezPortList & portList ) {
  if ( portList.ports() > 0 ) {
    TRACE( 5, "EvpnLagSm::publishEvpnLagMemberInfo lagIntfId ", lagIntfId, " #ports ",
           portList.ports() );
    evpnLagMemberInfo()->lagToPortIs( lagIntfId, portList );
  } else {
    TRACE( 5, "EvpnLagSm::publishEvpnLagMemberInfo deleting lagIntfId ", lagIntfId );
    evpnLagMemberInfo()->lagToPortDel( lagIntfId );
  }
}

} // namespace Kez
