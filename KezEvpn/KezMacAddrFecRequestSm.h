// Gives the chains over which the hosts of the L2 routing information base are reached a FEC each,
// and publishes for each host what hardware answered.
//
// Reads HostOutput, TunnelIdToHwTunnelIdMapping, the FEC responses, the hardware status of hosts
// and the toggle "KezEvpnVxlan4WayL2Ecmp"; writes FecIdToHwFecIdRequest and MacAddrFecStatus. What
// changes about a host goes to `hostQueue`, what changes about an object or a tunnel takes the
// chains that depend on it to `chainQueue`; the task "reviewTask" drains both, chains first.
//
// A chain is known by its first object, and two are two FECs also when they are equal. It is
// complete if it can be walked within `maxChainLength` tables, every destination leads over a
// tunnel or to a VXLAN endpoint, and the tunnels of its vias have hardware tunnel ids. A complete
// chain has one FEC, which keeps its id when the contents change and is requested anew; over a
// load-balance object one of another kind, with a via for each path, different ones and the
// smallest, at most two, or four with the toggle. A chain that comes or ceases to lead over one
// gets another FEC, or again the one of that kind that still stands.
//
// A host has the FEC of its chain from the answer on. Until then it has the one of the earlier
// chain that it has a FEC of, or keeps that one, of another kind, as long as that is answered, its
// chain complete and its tunnels' hardware ids those that it was requested with. A FEC's request
// stands until no host is published with it, hardware has none on it, and no host refers to its
// chain or that is not complete; its id is kept until request and response are both gone. After
// every event:
//   - what does not agree with the inputs is in a queue, and a review is due while one is not
//     empty;
//   - `hostChain()` says to which chain each host refers, MacChain::host also who is published with
//     a FEC of it, `fecHost` how many are with each FEC;
//   - `objectChain` and `tunnelChain` are what chains depend on, the other way round;
//   - `fecChain` has every FEC id, whose numbers are the allocator's in use; each is held by the
//     request or the response.
// Starting, the machine takes the published hosts back, and withdraws the requests of an earlier
// one as hardware leaves them.
#pragma once

#include "Kez/Toggles.h"
#include "KezEvpn/MacChainDecision.h"
#include "KezEvpn/MacChainDependencies.h"
#include "KezEvpn/MacHostChains.h"
#include "KezEvpn/frame/FecRequestSm.h"
#include "KezEvpn/frame/Review.h"

namespace Kez {

class KezMacAddrFecRequestSm : public FecRequestSm< InitializedSm > {
public:
  using TunnelId = Tunnel::TunnelTable::TunnelId;
  using MacVlanPair = Bridging::MacVlanPair;
  using VexReviewTask = ReviewTask< L2Rib::ObjectId >;

  // Runs `handle( key )` of the machine for each change of one attribute, once it has started.
  template< class Input, auto attribute, auto handle >
  class VexInput : public Vex::ReactorOf< KezMacAddrFecRequestSm, Input > {
  public:
    using Vex::ReactorOf< KezMacAddrFecRequestSm, Input >::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override {
      const auto sm = this->sm();
      if ( id == attribute && sm->initialized() ) {
        ( ( *sm ).*handle )( attribute.key( key ) );
      }
    }
  };
  class VexHostOutput : public Vex::ReactorOf< KezMacAddrFecRequestSm, L2Rib::HostOutput > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( KezMacAddrFecRequestSm, "Kez::KezMacAddrFecRequestSm", FecRequestSm< InitializedSm > )
  VEX_INPUT( 1, hostOutput, L2Rib::HostOutput )
  VEX_INPUT( 2, hwTunnelIdMapping, TunnelIdToHwTunnelIdMapping )
  VEX_INPUT( 3, toggles, FeatureToggles )
  VEX_OUTPUT( 4, macAddrFecRequest, FecIdToHwFecIdRequest )
  VEX_INPUT( 5, macAddrFecResponse, FecIdToHwFecIdResponse )
  VEX_OUTPUT( 6, macAddrFecStatus, MacAddrFecStatus )
  VEX_INPUT( 7, macAddrHwStatus, MacAddrHwStatus )
  VEX_OUTPUT( 8, scheduler, Loom::TaskScheduler )
  VEX_COMPUTED( 9, maxChainLength, MaxChainLength )
  VEX_TUNABLE( 10, reviewInterval, Vex::Interval, 0.5 )
  VEX_OUTPUT( 11, reviewTask, VexReviewTask )
  VEX_SET( 12, chainQueue, L2Rib::ObjectId )
  VEX_SET( 13, hostQueue, Bridging::MacVlanPair )
  // Of the hosts that refer to another chain than the one that they are published with a FEC of; 0
  // for none.
  VEX_MAP( 14, otherChain, Bridging::MacVlanPair, L2Rib::ObjectId )
  VEX_ENTITIES( 15, chain, MacChain )
  VEX_ENTITIES( 16, objectChain, ObjectChains )
  VEX_ENTITIES( 17, tunnelChain, TunnelChains )
  VEX_MAP( 18, fecChain, Rook::Fib::FecId, L2Rib::ObjectId )
  VEX_COUNTER( 19, fecHost, Rook::Fib::FecId )
  VEX_ATTRIBUTES( hostOutput, hwTunnelIdMapping, toggles, macAddrFecRequest, macAddrFecResponse,
                  macAddrFecStatus, macAddrHwStatus, scheduler, maxChainLength, reviewInterval,
                  reviewTask, chainQueue, hostQueue, otherChain, chain, objectChain, tunnelChain,
                  fecChain, fecHost )
  VEX_OPERATIONS( VEX_OPERATION( maxChainLengthIs, length ) )

  KezMacAddrFecRequestSm(
      In< L2Rib::HostOutput > hostOutput, In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
      In< FeatureToggles > toggles, Out< FecIdToHwFecIdRequest > macAddrFecRequest,
      In< FecIdToHwFecIdResponse > macAddrFecResponse, Out< MacAddrFecStatus > macAddrFecStatus,
      In< MacAddrHwStatus > macAddrHwStatus, Out< Loom::TaskScheduler > scheduler );
  ~KezMacAddrFecRequestSm() override;
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< KezMacAddrFecRequestSm >
  KezMacAddrFecRequestSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< KezMacAddrFecRequestSm >( arguments... );
  }

  // Has every chain read anew.
  void maxChainLengthIs( MaxChainLength length );

  void handleInitialized() override;
  void handleHost( const MacVlanPair & host );
  void handleObject( L2Rib::ObjectId object );
  void handleHwTunnelIdMapping( TunnelId tunnelId );
  void handleToggle( const Vex::String & name );
  void handleFecResponse( Rook::Fib::FecId fecId ) override;
  // How many hosts hardware has on the FEC.
  void handleHwHosts( Rook::Fib::FecId fecId );
  void maybeScheduleReview();
  void vex_handleReviewTask_taskRun();
  void doReview();
  void explain( const Subject & subject, Explanation & out ) const override;
  void addMissing( Missing & out ) const override;
  void check( Findings & out ) const override;
  bool settled() const override { return chainQueues() + hostQueues() == 0; }

private:
  // Why a FEC's request stands.
  enum class Use { none, hosts, hardware };

  FecIdToHwFecIdRequest & fecRequest() const override { return *macAddrFecRequest(); }
  const FecIdToHwFecIdResponse & fecResponse() const override { return *macAddrFecResponse(); }
  void makeUpForZombieMark() override;
  void clearCaches();
  void queueEverything();
  void queueEveryChain();
  template< class Chains > void queueChains( const Chains & chains ) {
    for ( const auto first : chains ) {
      chainQueueIs( first );
    }
    maybeScheduleReview();
  }
  void queueHosts( const MacChain & chain );

  MacChainDecision decide( L2Rib::ObjectId first, Explanation * asked = nullptr ) const;
  void processChain( L2Rib::ObjectId first );
  void updateDependencies( MacChain & chain, const MacChainDecision & decision );
  void request( MacChain & chain, const MacChainDecision & decision );

  L2Rib::ObjectId hostChain( const MacVlanPair & host ) const { return hostChains_.of( host ); }
  bool hostChainHas( const MacVlanPair & host ) const {
    return hostChain( host ) != L2Rib::ObjectId();
  }
  auto hostChain() const { return hostChains_.all(); }
  void processHost( const MacVlanPair & host );
  MacFec fecToPublish( const MacVlanPair & host, L2Rib::ObjectId wanted ) const;
  void leaveChain( L2Rib::ObjectId first, const MacVlanPair & host );
  void publish( const MacVlanPair & host, const MacFec & fec );

  Rook::Fib::FecId answeredFecOf( L2Rib::ObjectId first ) const;
  bool isSound( Rook::Fib::FecId fecId ) const;
  Use useOf( Rook::Fib::FecId fecId ) const;
  void maybeWithdraw( Rook::Fib::FecId fecId );
  void maybeDeleteFecId( Rook::Fib::FecId fecId );
  void maybeDeleteChain( L2Rib::ObjectId first );

  void explainHost( const MacVlanPair & host, Explanation & out ) const;
  void explainChain( L2Rib::ObjectId first, Explanation & out ) const;
  void checkChains( Findings & out ) const;
  void checkHosts( Findings & out ) const;
  void checkFecs( Findings & out ) const;

  MaxChainLength maxChainLength_;
  MacHostChains hostChains_;
  MacChainDependencies dependencies_;
  VexHostOutput hostOutputReactor_;
  VexInput< TunnelIdToHwTunnelIdMapping, TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdAttr,
            &KezMacAddrFecRequestSm::handleHwTunnelIdMapping >
      hwTunnelIdMappingReactor_;
  VexInput< FeatureToggles, FeatureToggles::toggleAttr, &KezMacAddrFecRequestSm::handleToggle >
      togglesReactor_;
  VexInput< MacAddrHwStatus, MacAddrHwStatus::fecHostAttr, &KezMacAddrFecRequestSm::handleHwHosts >
      macAddrHwStatusReactor_;
};

Vex::Ptr< KezMacAddrFecRequestSm > kezMacAddrFecRequestSmFactory(
    In< L2Rib::HostOutput > hostOutput, In< TunnelIdToHwTunnelIdMapping > hwTunnelIdMapping,
    In< FeatureToggles > toggles, Out< FecIdToHwFecIdRequest > macAddrFecRequest,
    In< FecIdToHwFecIdResponse > macAddrFecResponse, Out< MacAddrFecStatus > macAddrFecStatus,
    In< MacAddrHwStatus > macAddrHwStatus, Out< Loom::TaskScheduler > scheduler );

} // namespace Kez
