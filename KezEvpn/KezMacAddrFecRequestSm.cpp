#include "KezEvpn/KezMacAddrFecRequestSm.h"

#include "Ringlog/Trace.h"

#include <algorithm>
#include <map>

namespace Kez {

static Ringlog::Handle traceHandle( "KezMacAddrFecRequestSm" );

static constexpr std::string_view fourWayToggle = "KezEvpnVxlan4WayL2Ecmp";

using L2Rib::ObjectId;
using Rook::Fib::FecId;

KezMacAddrFecRequestSm::KezMacAddrFecRequestSm(
    In< L2Rib::HostOutput > hostOutput, In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
    In< FeatureToggles > toggles, Out< FecIdToHwFecIdRequest > macAddrFecRequest,
    In< FecIdToHwFecIdResponse > macAddrFecResponse, Out< MacAddrFecStatus > macAddrFecStatus,
    In< MacAddrHwStatus > macAddrHwStatus, Out< Loom::TaskScheduler > scheduler )
    : FecRequestSm( scheduler->timerWheel(), traceHandle ), hostOutput_( hostOutput ),
      hwTunnelIdMapping_( hwTunnelIdMapping ), toggles_( toggles ),
      macAddrFecRequest_( macAddrFecRequest ), macAddrFecResponse_( macAddrFecResponse ),
      macAddrFecStatus_( macAddrFecStatus ), macAddrHwStatus_( macAddrHwStatus ),
      scheduler_( scheduler ), hostOutputReactor_( *this ), hwTunnelIdMappingReactor_( *this ),
      togglesReactor_( *this ), macAddrHwStatusReactor_( *this ) {
  hostOutputReactor_.notifierIs( hostOutput );
  hwTunnelIdMappingReactor_.notifierIs( hwTunnelIdMapping );
  togglesReactor_.notifierIs( toggles );
  macAddrHwStatusReactor_.notifierIs( macAddrHwStatus );
  watchFecResponse( macAddrFecResponse );
}

KezMacAddrFecRequestSm::~KezMacAddrFecRequestSm() {
  VexReviewTask::drop( reviewTask_ );
}

Vex::Ptr< KezMacAddrFecRequestSm > kezMacAddrFecRequestSmFactory(
    In< L2Rib::HostOutput > hostOutput, In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
    In< FeatureToggles > toggles, Out< FecIdToHwFecIdRequest > macAddrFecRequest,
    In< FecIdToHwFecIdResponse > macAddrFecResponse, Out< MacAddrFecStatus > macAddrFecStatus,
    In< MacAddrHwStatus > macAddrHwStatus, Out< Loom::TaskScheduler > scheduler ) {
  return Vex::makePtr< KezMacAddrFecRequestSm >( hostOutput, hwTunnelIdMapping, toggles,
                                                 macAddrFecRequest, macAddrFecResponse,
                                                 macAddrFecStatus, macAddrHwStatus, scheduler );
}

// --- Start

void KezMacAddrFecRequestSm::handleInitialized() {
  TRACE( 8, "handleInitialized" );
  VexReviewTask::replace( reviewTask_, scheduler(), 2, "reviewTask", *this,
                          [ this ] { vex_handleReviewTask_taskRun(); }, traceHandle, {} );
  clearCaches();
  rememberEarlierFecIds();
  makeNumAllocator();
  initializedIs( true );
  // Hosts before the FECs that hardware has them on.
  macAddrFecStatus()->hostDelAll();
  for ( const auto fecId : earlierFecId() ) {
    maybeWithdraw( fecId );
  }
  queueEverything();
}

// Their numbers are not those of the allocator to come.
void KezMacAddrFecRequestSm::clearCaches() {
  chainQueueDelAll();
  hostQueueDelAll();
  hostChainDelAll();
  chainDelAll();
  objectChainDelAll();
  tunnelChainDelAll();
  fecChainDelAll();
  fecHostDelAll();
}

void KezMacAddrFecRequestSm::queueEveryChain() {
  for ( const auto & [ first, chain ] : chain() ) {
    chainQueueIs( first );
  }
  maybeScheduleReview();
}

void KezMacAddrFecRequestSm::queueEverything() {
  queueEveryChain();
  for ( const auto & [ host, first ] : hostChain() ) {
    hostQueueIs( host );
  }
  hostQueue_.reserve( hostOutput()->hosts() );
  for ( const auto & [ host, first ] : hostOutput()->host() ) {
    hostQueueIs( host );
  }
  maybeScheduleReview();
}

void KezMacAddrFecRequestSm::makeUpForZombieMark() {
  queueEverything();
  for ( const auto & [ fecId, first ] : fecChain() ) {
    handleFecResponse( fecId );
    maybeWithdraw( fecId );
  }
  // What hardware has let go of an earlier machine's.
  for ( const auto & [ fecId, fec ] : macAddrFecRequest()->fec() ) {
    maybeWithdraw( fecId );
  }
  for ( const auto & [ fecId, request ] : macAddrFecRequest()->hwFecIdRequest() ) {
    maybeWithdraw( fecId );
  }
}

void KezMacAddrFecRequestSm::maxChainLengthIs( MaxChainLength length ) {
  if ( std::exchange( maxChainLength_, length ) != length && initialized() ) {
    queueEveryChain();
  }
}

MaxChainLength KezMacAddrFecRequestSm::maxChainLength() const {
  return maxChainLength_;
}

// --- Events

void KezMacAddrFecRequestSm::VexHostOutput::onAttribute( Vex::AttrId id, const void * key ) {
  const auto sm = this->sm();
  if ( !sm->initialized() ) {
    return;
  }
  if ( id == L2Rib::HostOutput::hostAttr ) {
    sm->handleHost( L2Rib::HostOutput::hostAttr.key( key ) );
  } else {
    sm->handleObject( L2Rib::HostOutput::destAttr.key( key ) ); // of any of the three tables
  }
}

void KezMacAddrFecRequestSm::handleHost( const MacVlanPair & host ) {
  TRACE( 8, "handleHost mac: ", host.macAddr, " vlan: ", host.vlanId );
  hostQueueIs( host );
  maybeScheduleReview();
}

void KezMacAddrFecRequestSm::handleObject( ObjectId object ) {
  TRACE( 8, "handleObject ", object );
  if ( const auto chains = objectChain( object ) ) {
    queueChains( chains->chain() );
  }
}

void KezMacAddrFecRequestSm::handleHwTunnelIdMapping( TunnelId tunnelId ) {
  TRACE( 8, "handleHwTunnelIdMapping ", tunnelId );
  if ( const auto chains = tunnelChain( tunnelId ) ) {
    queueChains( chains->chain() );
  }
}

void KezMacAddrFecRequestSm::handleToggle( const Vex::String & name ) {
  TRACE( 8, "handleToggle ", name );
  if ( name == fourWayToggle ) {
    queueEveryChain();
  }
}

void KezMacAddrFecRequestSm::handleFecResponse( FecId fecId ) {
  TRACE( 8, "handleFecResponse ", fecId );
  if ( !fecChainHas( fecId ) ) {
    if ( hasFecResponse( fecId ) ) {
      TRACE( 2, " got stale response for FecId:", fecId );
    }
    return;
  }
  if ( const auto chain = this->chain( fecChain( fecId ) ) ) {
    queueHosts( *chain );
  }
  maybeDeleteFecId( fecId );
}

void KezMacAddrFecRequestSm::handleHwHosts( FecId fecId ) {
  if ( !macAddrHwStatus()->fecHostHas( fecId ) ) {
    TRACE( 8, "handleHwHosts ", fecId, ": none left" );
    maybeWithdraw( fecId );
  }
}

// Those whose published FEC is not what it would be now.
void KezMacAddrFecRequestSm::queueHosts( const MacChain & chain ) {
  for ( const auto & host : chain.host() ) {
    if ( fecToPublish( host, hostChain( host ) ) != macAddrFecStatus()->host( host ) ) {
      hostQueueIs( host );
    }
  }
  maybeScheduleReview();
}

// --- The review

void KezMacAddrFecRequestSm::maybeScheduleReview() {
  if ( chainQueues() + hostQueues() > 0 && !reviewTask()->isScheduled() ) {
    reviewTask()->scheduleAfter( reviewInterval() );
  }
}

void KezMacAddrFecRequestSm::vex_handleReviewTask_taskRun() {
  if ( initialized() ) {
    doReview();
  }
}

void KezMacAddrFecRequestSm::doReview() {
  TRACE( 8, "doReview" );
  VEX_ASSERT( initialized() );
  const auto task = reviewTask();
  VEX_ASSERT( task );
  const bool ended = task->drain( chainQueue(), [ this ]( ObjectId first ) {
    chainQueueDel( first );
    processChain( first );
  } ) && task->drain( hostQueue(), [ this ]( const MacVlanPair & host ) { processHost( host ); } );
  // What an answer has brought about meanwhile has its turn in a run of its own.
  if ( ended ) {
    chainQueues() + hostQueues() > 0 ? maybeScheduleReview() : task->cancel();
  }
}

// --- A chain

size_t KezMacAddrFecRequestSm::maxVias( const L2Rib::Chain & walked ) const {
  return !walked.loadBalanced ? 1 : toggles()->toggle( Vex::String( fourWayToggle ) ) ? 4 : 2;
}

KezMacAddrFecRequestSm::Decision KezMacAddrFecRequestSm::decide( ObjectId first,
                                                                 Explanation * asked ) const {
  Decision decision;
  decision.walked = L2Rib::walkChain( *hostOutput(), first, maxChainLength_.value() );
  if ( decision.walked.lack != L2Rib::ChainLack::nothing ) {
    decision.lack = L2Rib::lackText( decision.walked );
    return decision;
  }
  std::map< Rook::Fib::FecVia, TunnelId > ways; // the tunnel is invalid for a VXLAN endpoint
  for ( const auto & [ label, dest ] : decision.walked.paths ) {
    const auto tunnelId = destTunnelId( dest );
    if ( dest.destType() == L2Rib::destTypeVxlan_ ) {
      ways[ { Wire::VtepIntfId::intfId( dest.vtep() ), label } ] = tunnelId;
    } else if ( tunnelId != TunnelId::invalid() ) {
      ways[ { tunnelId.intfId(), label } ] = tunnelId;
    } else {
      decision.lack = Vex::text( dest ) + " is reached by no FEC";
      return decision;
    }
  }
  const auto most = maxVias( decision.walked );
  for ( const auto & [ via, tunnelId ] : ways ) {
    if ( decision.vias.size() == most ) {
      break;
    }
    decision.vias.push_back( via );
    decision.hwTunnelIds.emplace_back();
    if ( tunnelId != TunnelId::invalid() ) {
      const auto & table = hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable();
      const auto record = asked ? examine( table, tunnelId, *asked ) : table.safeRecord( tunnelId );
      decision.tunnels.push_back( tunnelId );
      decision.hwTunnelIds.back() = record ? record->hwTunnelId : HwTunnelId();
      if ( !decision.hwTunnelIds.back().valid() ) {
        decision.lack = "tunnel " + Vex::text( tunnelId ) + " has no hardware tunnel id";
      }
    }
  }
  return decision;
}

void KezMacAddrFecRequestSm::processChain( ObjectId first ) {
  const auto chain = this->chain( first );
  if ( !chain || chain->hosts() == 0 ) {
    return;
  }
  const auto decision = decide( first );
  TRACE( 8, "processChain ", first, ": ", decision.lack.empty() ? "complete" : decision.lack );
  const bool wasComplete = chain->complete();
  chain->completeIs( decision.lack.empty() );
  if ( chain->complete() ) {
    request( *chain, decision );
  }
  updateDependencies( *chain, decision );
  const auto former = chain->formerFecId();
  if ( chain->complete() != wasComplete || ( former != FecId() && !isSound( former ) ) ) {
    queueHosts( *chain );
  }
  maybeWithdraw( chain->fecId() );
  maybeWithdraw( former );
}

void KezMacAddrFecRequestSm::updateDependencies( MacChain & chain, const Decision & decision ) {
  for ( const auto object : chain.object() ) {
    objectChainMemberDel( object, chain.first() );
  }
  for ( const auto tunnelId : chain.tunnel() ) {
    tunnelChainMemberDel( tunnelId, chain.first() );
  }
  chain.objectDelAll();
  chain.tunnelDelAll();
  for ( const auto object : decision.walked.objects ) {
    chain.objectIs( object );
    objectChainIs( object )->chainIs( chain.first() );
  }
  // Hosts may still be on the former FEC.
  auto tunnels = tunnelsOf( macAddrFecRequest()->fec( chain.formerFecId() ) );
  tunnels.insert( tunnels.end(), decision.tunnels.begin(), decision.tunnels.end() );
  for ( const auto tunnelId : tunnels ) {
    chain.tunnelIs( tunnelId );
    tunnelChainIs( tunnelId )->chainIs( chain.first() );
  }
}

// An id of another kind is not the chain's any more, but stands until nobody is on it.
void KezMacAddrFecRequestSm::request( MacChain & chain, const Decision & decision ) {
  const auto kind = decision.kind();
  if ( chain.fecId() != FecId() && chain.fecId().kind() != kind ) {
    const auto former = chain.fecId();
    chain.fecIdIs( chain.formerFecId() );
    chain.formerFecIdIs( former );
  }
  if ( chain.fecId() == FecId() ) {
    const auto fecId = allocateFecId(
        [ kind ]( int64_t index ) { return FecId( kind, static_cast< uint64_t >( index ) ); } );
    fecChainIs( fecId, chain.first() );
    chain.fecIdIs( fecId );
  }
  TRACE( 2, "     macAddrFecRequest created or updated: chain: ", chain.first(),
         " fecId: ", chain.fecId(), " vias: ", decision.vias );
  requestFec( { chain.fecId(), decision.vias }, HwTunnelIds::of( decision.hwTunnelIds ) );
}

// --- A host

// What is published of the host once it has been looked at; FEC id 0 for nothing.
MacFec KezMacAddrFecRequestSm::fecToPublish( const MacVlanPair & host, ObjectId wanted ) const {
  if ( wanted == ObjectId() ) {
    return {};
  }
  const auto published = macAddrFecStatus()->host( host ).fecId;
  auto fecId = answeredFecOf( wanted );
  if ( fecId == FecId() && published != FecId() ) {
    fecId = answeredFecOf( fecChain( published ) );
  }
  if ( fecId == FecId() && isSound( published ) ) {
    fecId = published;
  }
  if ( fecId == FecId() ) {
    return {};
  }
  const auto response = macAddrFecResponse()->hwFecIdResponse( fecId );
  return { fecId, response.hwFecId, response.l2IntfId };
}

void KezMacAddrFecRequestSm::processHost( const MacVlanPair & host ) {
  const auto wanted = hostOutput()->host( host );
  const auto before = hostChain( host );
  TRACE( 8, "processHost mac: ", host.macAddr, " vlan: ", host.vlanId, " chain: ", wanted );
  if ( wanted != before ) {
    if ( wanted == ObjectId() ) {
      hostChainDel( host );
    } else {
      hostChainIs( host, wanted );
      const auto chain = chainIs( wanted );
      const bool first = chain->hosts() == 0;
      chain->hostIs( host );
      if ( first ) {
        processChain( wanted );
      }
    }
  }
  hostQueueDel( host );
  publish( host, fecToPublish( host, wanted ) );
  if ( before != ObjectId() && before != wanted ) {
    leaveChain( before, host );
  }
}

// Own state first: what hardware does about it may lead back here.
void KezMacAddrFecRequestSm::publish( const MacVlanPair & host, const MacFec & fec ) {
  const auto before = macAddrFecStatus()->host( host ).fecId;
  const auto chainBefore = fecChain( before );
  if ( before != fec.fecId ) {
    if ( fec.fecId != FecId() ) {
      fecHostInc( fec.fecId );
    }
    if ( before != FecId() && fecHostDec( before ) == 0 ) {
      fecHostDel( before );
    }
  }
  if ( fec.fecId == FecId() ) {
    macAddrFecStatus()->hostDel( host );
  } else {
    macAddrFecStatus()->hostIs( host, fec );
  }
  if ( before != FecId() && before != fec.fecId ) {
    maybeWithdraw( before );
    leaveChain( chainBefore, host );
  }
}

// Unless the host refers to it or is published with a FEC of it.
void KezMacAddrFecRequestSm::leaveChain( ObjectId first, const MacVlanPair & host ) {
  const auto chain = this->chain( first );
  const auto published = macAddrFecStatus()->host( host ).fecId;
  if ( !chain || hostChain( host ) == first ||
       ( published != FecId() && fecChain( published ) == first ) ) {
    return;
  }
  chain->hostDel( host );
  if ( chain->hosts() == 0 ) {
    maybeWithdraw( chain->fecId() );
    maybeWithdraw( chain->formerFecId() );
    maybeDeleteChain( first );
  }
}

// --- A FEC

// Of a complete chain that has its answer.
FecId KezMacAddrFecRequestSm::answeredFecOf( ObjectId first ) const {
  const auto chain = this->chain( first );
  return chain && chain->complete() && hasFecResponse( chain->fecId() ) ? chain->fecId() : FecId();
}

// Whether it may go on being used. A chain's own FEC is requested as its tunnels are, a former one
// is not any more.
bool KezMacAddrFecRequestSm::isSound( FecId fecId ) const {
  const auto chain = this->chain( fecChain( fecId ) );
  if ( !chain || !chain->complete() || !hasFecResponse( fecId ) ) {
    return false;
  }
  if ( chain->fecId() == fecId ) {
    return true;
  }
  const auto requested = macAddrFecRequest()->hwFecIdRequest( fecId ).hwTunnelId;
  return std::ranges::all_of( tunnelsOf( macAddrFecRequest()->fec( fecId ) ), [ & ](
                                                                                  auto tunnelId ) {
    const auto record = hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable().examine( tunnelId ).record;
    return record && std::ranges::count( requested, record->hwTunnelId ) > 0;
  } );
}

std::vector< Tunnel::TunnelTable::TunnelId >
KezMacAddrFecRequestSm::tunnelsOf( const Rook::Fib::Fec & fec ) {
  std::vector< TunnelId > tunnels;
  for ( const auto & via : fec.via ) {
    if ( Wire::DynamicTunnelIntfId::isDynamicTunnelIntfId( via.intfId ) ) {
      tunnels.push_back( Wire::DynamicTunnelIntfId::tunnelId( via.intfId ) );
    }
  }
  return tunnels;
}

KezMacAddrFecRequestSm::Use KezMacAddrFecRequestSm::useOf( FecId fecId ) const {
  const auto chain = this->chain( fecChain( fecId ) );
  const bool wanted = chain && chain->fecId() == fecId && chain->complete() && chain->hosts() > 0;
  return wanted || fecHostHas( fecId )            ? Use::hosts
         : macAddrHwStatus()->fecHostHas( fecId ) ? Use::hardware
                                                  : Use::none;
}

// A request that is no chain's is an earlier machine's.
void KezMacAddrFecRequestSm::maybeWithdraw( FecId fecId ) {
  switch ( useOf( fecId ) ) {
  case Use::hosts:
    return;
  case Use::hardware:
    TRACE( 1, "    wait for hardware to unprogram the hosts of fecId: ", fecId );
    return;
  case Use::none:
    break;
  }
  if ( isFecRequested( fecId ) ) {
    TRACE( 2, "     macAddrFecRequest removed: fecId: ", fecId );
    withdrawFec( fecId );
  }
  maybeDeleteFecId( fecId );
}

void KezMacAddrFecRequestSm::maybeDeleteFecId( FecId fecId ) {
  if ( !fecChainHas( fecId ) || isFecHeld( fecId ) ) {
    return;
  }
  TRACE( 2, "   Deleting fecId: ", fecId );
  const auto first = fecChain( fecId );
  fecChainDel( fecId );
  releaseFecId( fecId );
  const auto chain = this->chain( first );
  if ( chain && chain->fecId() == fecId ) {
    chain->fecIdDel();
    maybeDeleteChain( first );
  } else if ( chain && chain->formerFecId() == fecId ) {
    chain->formerFecIdDel();
    maybeDeleteChain( first );
  }
}

// One that no host is on, and that has no FEC to come back to.
void KezMacAddrFecRequestSm::maybeDeleteChain( ObjectId first ) {
  const auto chain = this->chain( first );
  if ( chain && chain->hosts() == 0 && chain->fecId() == FecId() &&
       chain->formerFecId() == FecId() ) {
    updateDependencies( *chain, {} );
    chainQueueDel( first );
    chainDel( first );
  }
}

} // namespace Kez
