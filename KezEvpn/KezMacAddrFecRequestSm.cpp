#include "KezEvpn/KezMacAddrFecRequestSm.h"

#include "Ringlog/Trace.h"

#include <algorithm>

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
      scheduler_( scheduler ),
      hostChains_( *this, otherChain_, otherChainAttr, fecChain_, macAddrFecStatus_ ),
      dependencies_( *this, objectChain_, objectChainAttr, tunnelChain_, tunnelChainAttr ),
      hostOutputReactor_( *this ), hwTunnelIdMappingReactor_( *this ), togglesReactor_( *this ),
      macAddrHwStatusReactor_( *this ) {
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
  otherChainDelAll();
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

MacChainDecision KezMacAddrFecRequestSm::decide( ObjectId first, Explanation * asked ) const {
  const size_t maxPaths = toggles()->toggle( Vex::String( fourWayToggle ) ) ? 4 : 2;
  return decideMacChain( *hostOutput(), *hwTunnelIdMapping(), first, maxChainLength_, maxPaths,
                         asked );
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

void KezMacAddrFecRequestSm::updateDependencies( MacChain & chain,
                                                 const MacChainDecision & decision ) {
  // Hosts may still be on the former FEC.
  auto tunnels = fecTunnelIds( macAddrFecRequest()->fec( chain.formerFecId() ) );
  tunnels.insert( tunnels.end(), decision.tunnels.begin(), decision.tunnels.end() );
  dependencies_.are( chain, decision.walked.objects, tunnels );
}

// An id of another kind is not the chain's any more, but stands until nobody is on it.
void KezMacAddrFecRequestSm::request( MacChain & chain, const MacChainDecision & decision ) {
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
    hostChains_.is( host, wanted );
    if ( wanted != ObjectId() ) {
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
  hostChains_.publish( host, fec );
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
  return std::ranges::all_of(
      fecTunnelIds( macAddrFecRequest()->fec( fecId ) ), [ & ]( auto tunnelId ) {
        const auto record =
            hwTunnelIdMapping()->tunnelIdToHwTunnelIdTable().examine( tunnelId ).record;
        return record && std::ranges::count( requested, record->hwTunnelId ) > 0;
      } );
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
