// How hosts travel to hardware and back: the FEC over which frames to a MAC address in a VLAN go.
#pragma once

#include "Bridging/MacVlanPair.h"
#include "KezEvpn/FecRequests.h"
#include "KezEvpn/HostSet.h"
#include "L2Rib/HostOutput.h"

namespace Kez {

// What hardware answered for the FEC of a host's chain.
struct MacFec {
  Rook::Fib::FecId fecId;
  uint64_t hwFecId = 0;
  Wire::IntfId l2IntfId;
  VEX_VALUE( MacFec, "Kez::MacFec", fecId, hwFecId, l2IntfId )
};

// The tunnel of a destination of any type; not valid for one that has none.
Tunnel::TunnelTable::TunnelId destTunnelId( const L2Rib::Dest & dest );

// The tunnels of a FEC's vias.
std::vector< Tunnel::TunnelTable::TunnelId > fecTunnelIds( const Rook::Fib::Fec & fec );

// How many tables a chain of hosts may lead over: 2 or 3; another number raises Vex::RangeError.
class MaxChainLength : public Vex::WordValue< MaxChainLength, uint32_t > {
public:
  MaxChainLength( uint32_t value = 2 );

  static constexpr std::string_view vexTypeName() { return "Kez::MaxChainLength"; }
};
void parseText( Vex::TextCursor & in, MaxChainLength & length );

// What the hardware side programs MAC entries from.
class MacAddrFecStatus : public MachineState {
  VEX_ENTITY( MacAddrFecStatus, "Kez::MacAddrFecStatus" )
  VEX_MAP( 1, host, Bridging::MacVlanPair, MacFec )
  VEX_ATTRIBUTES( host )
};
Vex::Ptr< MacAddrFecStatus > macAddrFecStatusFactory();

// Written by the hardware side, `host` and `fecHost` by the two functions alone: the FEC with which
// hardware has each host, and how many it has with each FEC, which has an entry while there is one.
class MacAddrHwStatus : public MachineState {
  VEX_ENTITY( MacAddrHwStatus, "Kez::MacAddrHwStatus" )
  VEX_MAP( 1, host, Bridging::MacVlanPair, Rook::Fib::FecId )
  VEX_COUNTER( 2, fecHost, Rook::Fib::FecId )
  // Of hosts that hardware tries again by itself to have as they are published; empty where it does
  // not say.
  VEX_MAP( 3, refusal, Bridging::MacVlanPair, Refusal )
  VEX_ATTRIBUTES( host, fecHost, refusal )

public:
  void programmedIs( const Bridging::MacVlanPair & pair, Rook::Fib::FecId fecId );
  void programmedDel( const Bridging::MacVlanPair & pair );

private:
  void leave( Rook::Fib::FecId fecId );
};
Vex::Ptr< MacAddrHwStatus > macAddrHwStatusFactory();

// --- Private state

// A chain that hosts refer to, by its first object.
class MacChain : public MachineState {
  VEX_ENTITY( MacChain, "Kez::MacChain" )
  VEX_KEY( MacChain, first, L2Rib::ObjectId )
  VEX_COMPUTED( 1, hosts, size_t )            // that refer to it, or are published with a FEC of it
  VEX_ATTRIBUTE( 2, fecId, Rook::Fib::FecId ) // 0 for none
  // Of the other kind, from before the chain came or ceased to lead over a load-balance object.
  VEX_ATTRIBUTE( 6, formerFecId, Rook::Fib::FecId )
  VEX_ATTRIBUTE( 3, complete, bool )                  // whether what begins at the object has a FEC
  VEX_SET( 4, object, L2Rib::ObjectId )               // on which that depends
  VEX_SET( 5, tunnel, Tunnel::TunnelTable::TunnelId ) // likewise
  VEX_ATTRIBUTES( hosts, fecId, formerFecId, complete, object, tunnel )

public:
  std::vector< Bridging::MacVlanPair > host() const { return hosts_.all(); }
  bool hostHas( const Bridging::MacVlanPair & pair ) const { return hosts_.has( pair ); }
  void hostIs( const Bridging::MacVlanPair & pair ) { hosts_.add( pair ); }
  void hostDel( const Bridging::MacVlanPair & pair ) { hosts_.remove( pair ); }

private:
  HostSet hosts_;
};

// The chains that lead over an object.
class ObjectChains : public MachineState {
  VEX_ENTITY( ObjectChains, "Kez::ObjectChains" )
  VEX_KEY( ObjectChains, object, L2Rib::ObjectId )
  VEX_SET( 1, chain, L2Rib::ObjectId )
  VEX_ATTRIBUTES( chain )
};

// The chains that lead over a tunnel.
class TunnelChains : public MachineState {
  VEX_ENTITY( TunnelChains, "Kez::TunnelChains" )
  VEX_KEY( TunnelChains, tunnelId, Tunnel::TunnelTable::TunnelId )
  VEX_SET( 1, chain, L2Rib::ObjectId )
  VEX_ATTRIBUTES( chain )
};

} // namespace Kez
