#include "KezEvpn/KezMacAddrFecRequestSm.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/Missing.h"

#include <map>

namespace Kez {

using L2Rib::ObjectId;
using Rook::Fib::FecId;

// --- What an operator is told

void KezMacAddrFecRequestSm::explain( const Subject & subject, Explanation & out ) const {
  if ( !initialized() ) {
    return;
  }
  if ( const auto * const host = subject.get< VlanMac >() ) {
    explainHost( host->macVlanPair(), out );
  } else if ( const auto * const tunnelId = subject.get< TunnelId >() ) {
    if ( const auto chains = tunnelChain( *tunnelId ) ) {
      out.say( "carries chains ", Members{ chains->chain() } );
    }
  }
}

void KezMacAddrFecRequestSm::explainHost( const MacVlanPair & host, Explanation & out ) const {
  const Due due{ reviewTask()->nextRun(), "never" };
  if ( hostQueueHas( host ) ) {
    out.awaits( "changes are being collected, next look ", due );
  }
  if ( hostChainHas( host ) ) {
    const auto first = hostChain( host );
    out.say( "refers to chain ", first );
    if ( chainQueueHas( first ) ) {
      out.awaits( "which is to be read ", due );
    }
    explainChain( first, out );
  }
  const auto fec = macAddrFecStatus()->host( host );
  if ( fec.fecId != FecId() ) {
    out.say( "published with FEC ", fec.fecId, " of chain ", fecChain( fec.fecId ),
             ", hardware id ", fec.hwFecId, " on ", fec.l2IntfId );
  }
  if ( !macAddrHwStatus()->hostHas( host ) ) {
    if ( fec.fecId != FecId() ) {
      out.refused( "not in hardware, which tries again by itself" );
    }
  } else if ( macAddrHwStatus()->host( host ) == fec.fecId ) {
    out.say( "in hardware" );
  } else {
    out.awaits( "in hardware still with FEC ", macAddrHwStatus()->host( host ) );
  }
  if ( macAddrHwStatus()->refusalHas( host ) ) {
    out.refused( Refused{ macAddrHwStatus()->refusal( host ) } );
  }
}

void KezMacAddrFecRequestSm::explainChain( ObjectId first, Explanation & out ) const {
  const auto decision = decide( first, &out );
  const auto fecId = chain( first )->fecId();
  if ( !decision.lack.empty() ) {
    out.awaits( "which has no FEC: ", decision.lack );
  } else if ( fecId != FecId() && !hasFecResponse( fecId ) ) {
    if ( macAddrFecResponse()->refusalHas( fecId ) ) {
      out.refused( Refused{ macAddrFecResponse()->refusal( fecId ) }, ", FEC ", fecId,
                   ", which it tries by itself" );
    } else {
      out.awaits( "waiting for hardware's answer for FEC ", fecId );
    }
  }
}

// Chains are walked, which are fewer than the hosts on them; hosts that nobody refused are counted.
void KezMacAddrFecRequestSm::addMissing( Missing & out ) const {
  if ( !initialized() ) {
    return;
  }
  const Missing::Wait queued{ Standing::waiting, {}, reviewTask()->nextRun() };
  out.addUnnamed( queued, hostQueues(), "host", "of which changes are being collected" );
  out.addUnnamed( queued, chainQueues(), "chain", "of which changes are being collected" );
  for ( const auto & [ first, chain ] : chain() ) {
    const auto fecId = chain->fecId();
    if ( !chain->complete() ) {
      Explanation damage; // which is a lack too
      out.addUnnamed( {}, chain->hosts(), "host",
                      "on a chain that has no FEC: ", decide( first, &damage ).lack );
    } else if ( const auto refusal = macAddrFecResponse()->refusal( fecId ); refusal.tries > 0 ) {
      out.addUnnamed( { Standing::refused, refusal.first, {} }, chain->hosts(), "host",
                      "whose FEC hardware refused", Because{ refusal.why } );
    } else if ( !hasFecResponse( fecId ) ) {
      out.addUnnamed( {}, chain->hosts(), "host", "waiting for hardware's answer for their FEC" );
    }
  }
  size_t accountedFor = macAddrHwStatus()->hosts();
  for ( const auto & [ host, refusal ] : macAddrHwStatus()->refusal() ) {
    const bool stands = macAddrHwStatus()->hostHas( host );
    accountedFor += stands ? 0 : 1;
    out.add( { Standing::refused, refusal.first, {} }, VlanMac( host.vlanId, host.macAddr ),
             stands ? "in hardware with the FEC of before, the new one refused"
                    : "refused by hardware",
             Because{ refusal.why } );
  }
  const auto published = macAddrFecStatus()->hosts();
  out.addUnnamed( {}, published - std::min( published, accountedFor ), "host",
                  "published, waiting for hardware" );
}

// --- What holds between events

void KezMacAddrFecRequestSm::check( Findings & out ) const {
  if ( !initialized() ) {
    return;
  }
  out.expect( chainQueues() + hostQueues() == 0 || reviewTask()->isScheduled(),
              "keys are queued and no review is due" );
  checkChains( out );
  checkHosts( out );
  checkFecs( out );
}

// Chains are as the inputs say, or queued.
void KezMacAddrFecRequestSm::checkChains( Findings & out ) const {
  size_t objects = 0, tunnels = 0, byObject = 0, byTunnel = 0;
  for ( const auto & [ first, chain ] : chain() ) {
    for ( const auto object : chain->object() ) {
      const auto chains = objectChain( object );
      out.expect( chains && chains->chainHas( first ), "objectChain lacks ", first, " at ",
                  object );
    }
    for ( const auto tunnelId : chain->tunnel() ) {
      const auto chains = tunnelChain( tunnelId );
      out.expect( chains && chains->chainHas( first ), "tunnelChain lacks ", first, " at ",
                  tunnelId );
    }
    objects += chain->objects();
    tunnels += chain->tunnels();
    out.expect( chain->hosts() > 0 || chain->fecId() != FecId() || chain->formerFecId() != FecId(),
                "chain ", first, " has neither host nor FEC" );
    Explanation damage;
    const auto decision = decide( first, &damage );
    if ( chain->hosts() == 0 || chainQueueHas( first ) || !damage.text().empty() ) {
      continue;
    }
    out.expect( chain->complete() == decision.lack.empty(), "chain ", first, " is taken to be ",
                chain->complete() ? "complete" : "incomplete" );
    if ( chain->complete() ) {
      const auto fecId = chain->fecId();
      out.expect( fecId.kind() == decision.kind() &&
                      macAddrFecRequest()->fec( fecId ) == Rook::Fib::Fec{ fecId, decision.vias } &&
                      macAddrFecRequest()->hwFecIdRequest( fecId ).hwTunnelId ==
                          HwTunnelIds::of( decision.hwTunnelIds ),
                  "chain ", first, " is requested otherwise" );
    }
  }
  for ( const auto & [ object, chains ] : objectChain() ) {
    byObject += chains->chains();
  }
  for ( const auto & [ tunnelId, chains ] : tunnelChain() ) {
    byTunnel += chains->chains();
  }
  out.expect( objects == byObject && tunnels == byTunnel, "chains depend on ", objects,
              " objects and ", tunnels, " tunnels, and those have ", byObject, " and ", byTunnel );
}

// Hosts are on the chains that they refer to and are published with, and published as they should
// be, or queued.
void KezMacAddrFecRequestSm::checkHosts( Findings & out ) const {
  size_t inChains = 0, expected = 0;
  for ( const auto & [ first, chain ] : chain() ) {
    inChains += chain->hosts();
  }
  const auto expectIn = [ & ]( ObjectId first, const MacVlanPair & host ) {
    const auto chain = this->chain( first );
    out.expect( chain && chain->hostHas( host ), "chain ", first, " lacks host ", host );
    ++expected;
  };
  for ( const auto & [ host, first ] : hostChain() ) {
    expectIn( first, host );
    const auto publishedChain = fecChain( macAddrFecStatus()->host( host ).fecId );
    out.expect( hostQueueHas( host ) || chainQueueHas( publishedChain ) ||
                    ( hostOutput()->host( host ) == first &&
                      fecToPublish( host, first ) == macAddrFecStatus()->host( host ) ),
                "host ", host, " is not published as it should be, and not queued" );
  }
  for ( const auto & [ host, first ] : hostOutput()->host() ) {
    out.expect( hostChainHas( host ) || hostQueueHas( host ), "host ", host, " was not looked at" );
  }
  for ( const auto & [ host, fec ] : macAddrFecStatus()->host() ) {
    const auto first = fecChain( fec.fecId );
    if ( first != hostChain( host ) ) {
      expectIn( first, host );
    }
  }
  out.expect( inChains == expected, "chains have ", inChains, " hosts of ", expected );
}

// FECs have the chains and hosts that they are said to have, and the numbers in use.
void KezMacAddrFecRequestSm::checkFecs( Findings & out ) const {
  std::map< FecId, uint64_t > hosts;
  for ( const auto & [ host, fec ] : macAddrFecStatus()->host() ) {
    ++hosts[ fec.fecId ];
  }
  for ( const auto & [ fecId, number ] : fecHost() ) {
    out.expect( number == hosts[ fecId ] && fecChainHas( fecId ), "FEC ", fecId, " has ", number,
                " hosts of ", hosts[ fecId ] );
  }
  out.expect( fecHosts() == hosts.size(), "fecHost has ", fecHosts(), " FECs of ", hosts.size() );
  for ( const auto & [ fecId, first ] : fecChain() ) {
    out.expect( isFecHeld( fecId ), "FEC ", fecId, " is neither requested nor answered" );
    const auto chain = this->chain( first );
    out.expect( chain && ( chain->fecId() == fecId || chain->formerFecId() == fecId ), "FEC ",
                fecId, " is on record with a chain that has it not" );
  }
  for ( const auto & [ first, chain ] : chain() ) {
    for ( const auto fecId : { chain->fecId(), chain->formerFecId() } ) {
      out.expect( fecId == FecId() || fecChain( fecId ) == first, "chain ", first,
                  " has the FEC of another" );
    }
  }
  for ( const auto & [ fecId, fec ] : macAddrFecRequest()->fec() ) {
    out.expect( useOf( fecId ) != Use::none, "FEC ", fecId, " is requested for nobody" );
  }
  const auto used = numAllocatorStatus()->counts().used;
  out.expect( used == fecChains(), fecChains(), " FECs and ", used, " numbers in use" );
}

} // namespace Kez
