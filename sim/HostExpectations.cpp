#include "sim/HostExpectations.h"

#include <optional>

namespace Sim {

using Bridging::MacVlanPair;
using L2Rib::ObjectId;
using Rook::Fib::FecId;
using Rook::Fib::FecKind;
using Switch::Table;

namespace {

struct Content {
  FecKind kind = FecKind::macPath;
  std::map< Rook::Fib::FecVia, Kez::HwTunnelId > vias; // of a VXLAN endpoint not valid

  friend bool operator==( const Content &, const Content & ) = default;
};

// Adds what is reached from the object by a way of so many tables. Whether all of it is reached.
bool reach( const System & system, ObjectId id, uint32_t tables, Wire::MplsLabel label,
            Content & content ) {
  const auto & output = *system.hostOutput;
  const int stands = output.labelHas( id ) + output.loadBalanceHas( id ) + output.destHas( id );
  if ( tables == 0 || stands != 1 ) {
    return false;
  }
  const bool labelled = label != Wire::MplsLabel();
  if ( output.labelHas( id ) ) {
    const auto object = output.label( id );
    return !labelled && reach( system, object.next, tables - 1, object.label, content );
  }
  if ( output.loadBalanceHas( id ) ) {
    content.kind = FecKind::macLoadBalance;
    const auto members = output.loadBalance( id );
    bool all = !members.empty();
    for ( const auto member : members ) {
      all = all && reach( system, member, tables - 1, label, content );
    }
    return all;
  }
  const auto dest = output.dest( id );
  auto tunnelId = Tunnel::TunnelTable::TunnelId();
  switch ( dest.destType() ) {
  case L2Rib::destTypeIntf_:
    return false;
  case L2Rib::destTypeVxlan_:
    content.vias[ { "Vtep" + textOf( dest.vtep() ), label } ] = {};
    return true;
  case L2Rib::destTypeTunnel_:
    tunnelId = dest.tunnelId();
    break;
  case L2Rib::destTypeMpls_:
    tunnelId = Kez::destMplsTunnelId( dest );
    if ( dest.mpls().label() != Wire::MplsLabel() ) {
      if ( labelled ) {
        return false;
      }
      label = dest.mpls().label();
    }
  }
  const auto record = system.tunnelIdHwTunnelId->tunnelIdToHwTunnelId( tunnelId );
  content.vias[ { tunnelId.intfId(), label } ] = record ? record->hwTunnelId : Kez::HwTunnelId();
  return tunnelId.value() != 0;
}

// None for what is no chain.
std::optional< Content > contentOf( const System & system, ObjectId first ) {
  Content content;
  if ( !reach( system, first, system.macSm->maxChainLength().value(), {}, content ) ) {
    return std::nullopt;
  }
  const bool fourWay = system.toggles->toggle( "KezEvpnVxlan4WayL2Ecmp" );
  const size_t most = content.kind == FecKind::macPath ? 1 : fourWay ? 4 : 2;
  while ( content.vias.size() > most ) {
    content.vias.erase( std::prev( content.vias.end() ) );
  }
  for ( const auto & [ via, hwTunnelId ] : content.vias ) {
    if ( !hwTunnelId.valid() && via.intfId.kind() == Wire::IntfId::Kind::dynamicTunnel ) {
      return std::nullopt;
    }
  }
  return content;
}

Content requested( const System & system, FecId fecId ) {
  Content content{ fecId.kind(), {} };
  const auto ids = system.macFecRequest->hwFecIdRequest( fecId ).hwTunnelId;
  const auto fec = system.macFecRequest->fec( fecId );
  auto id = ids.begin();
  for ( const auto & via : fec.via ) {
    content.vias[ via ] = id == ids.end() ? Kez::HwTunnelId() : *id++;
  }
  return content;
}

// Each chain that is complete and used has one FEC, and no other has any.
void macFecs( const System & system, Differences & out ) {
  const auto & hardware = *system.hardware;
  const bool room = hardware.hasRoom( Table::fec );
  std::set< ObjectId > used, present;
  std::set< std::pair< uint64_t, KezHelper::HwFec > > programmed, entries;
  for ( const auto & [ host, first ] : system.hostOutput->host() ) {
    if ( contentOf( system, first ) ) {
      used.insert( first );
    }
  }
  for ( const auto & [ host, fec ] : system.macStatus->host() ) {
    used.insert( system.macSm->fecChain( fec.fecId ) );
  }
  for ( const auto & [ fecId, fec ] : system.macFecRequest->fec() ) {
    const auto first = system.macSm->fecChain( fecId );
    out.expect( used.contains( first ), "FEC " + textOf( fecId ) + " is used by no host" );
    out.expect( present.insert( first ).second || !room,
                "chain " + textOf( first ) + " has two FECs" );
    out.expect( !room || contentOf( system, first ) == requested( system, fecId ),
                "FEC " + textOf( fecId ) + " is requested otherwise than its chain is" );
    const auto answer = system.macFecResponse->hwFecIdResponse( fecId );
    out.expect( !room || answer.l2IntfId != Wire::IntfId(),
                "FEC " + textOf( fecId ) + " has no answer" );
    if ( answer.l2IntfId != Wire::IntfId() ) {
      programmed.emplace(
          answer.hwFecId,
          KezHelper::HwFec( fecId.kind() == FecKind::macLoadBalance, fec.via,
                            system.macFecRequest->hwFecIdRequest( fecId ).hwTunnelId ) );
    }
  }
  out.same( "chains with a FEC", used, present, room );
  for ( const auto & [ hwFecId, fec ] : hardware.fec() ) {
    if ( Switch::hwFecKindOf( hwFecId ) != 0 ) {
      entries.emplace( hwFecId, fec );
    }
  }
  out.same( "switch.fec", programmed, entries );
  const auto number = system.macFecRequest->fecs();
  out.expect( system.macFecRequest->hwFecIdRequests() == number &&
                  system.macSm->fecChains() == number &&
                  system.macSm->numAllocatorStatus()->counts().used == number,
              "FECs, requests and numbers in use of hosts differ in number" );
}

void hosts( const System & system, Differences & out ) {
  const auto & hardware = *system.hardware;
  const bool room = hardware.hasRoom( Table::fec );
  std::set< std::pair< MacVlanPair, uint64_t > > entries;
  std::set< std::pair< MacVlanPair, FecId > > programmed;
  std::map< FecId, uint64_t > count;
  for ( const auto & [ host, first ] : system.hostOutput->host() ) {
    out.expect( !contentOf( system, first ) || !room ||
                    ( system.macStatus->hostHas( host ) &&
                      system.macSm->fecChain( system.macStatus->host( host ).fecId ) == first ),
                "host " + textOf( host ) + " is not published with its chain" );
  }
  for ( const auto & [ host, fec ] : system.macStatus->host() ) {
    const auto answer = system.macFecResponse->hwFecIdResponse( fec.fecId );
    out.expect( system.hostOutput->hostHas( host ) && answer.hwFecId == fec.hwFecId &&
                    answer.l2IntfId == fec.l2IntfId && answer.l2IntfId != Wire::IntfId(),
                "host " + textOf( host ) + " is published wrongly" );
    entries.emplace( host, fec.hwFecId );
    if ( hardware.macEntryHas( host ) ) {
      programmed.emplace( host, fec.fecId );
      ++count[ fec.fecId ];
    }
  }
  out.same( "switch.macEntry", entries, pairsOf< MacVlanPair, uint64_t >( hardware.macEntry() ),
            hardware.hasRoom( Table::macEntry ) );
  out.same( "macAddrHwStatus", programmed,
            pairsOf< MacVlanPair, FecId >( system.macHwStatus->host() ) );
  for ( const auto & [ fecId, number ] : system.macHwStatus->fecHost() ) {
    out.expect( number == count[ fecId ], "FEC " + textOf( fecId ) + " has other hosts" );
  }
}

} // namespace

void hostDifferences( const System & system, Differences & out ) {
  macFecs( system, out );
  hosts( system, out );
}

std::multiset< Vex::String > macEntries( const System & system ) {
  std::multiset< Vex::String > entries;
  for ( const auto & [ host, first ] : system.hostOutput->host() ) {
    if ( contentOf( system, first ) && system.hardware->macEntryHas( host ) ) {
      const auto fecId = system.macStatus->host( host ).fecId;
      entries.insert( "macEntry " + textOf( host ) + " " +
                      textOf( system.macFecRequest->fec( fecId ).via ) );
    }
  }
  return entries;
}

} // namespace Sim
