// To which chain each host refers, and with which FEC it is published.
//
// A machine owns one, over its output, the chains of its FECs and a collection of its own. Nearly
// every host is published with a FEC of the chain that it refers to. So the chain is kept of the
// others alone: in that collection stands each host that refers to another chain than the one that
// it is published with a FEC of, 0 where it refers to none any more.
#pragma once

#include "KezEvpn/MacFecs.h"

#include <utility>
#include <vector>

namespace Kez {

class MacHostChains {
public:
  using Host = Bridging::MacVlanPair;
  using Chain = L2Rib::ObjectId; // by its first object, 0 for none

  MacHostChains( const Vex::Entity & owner, Vex::MapStorage< Host, Chain > & others,
                 Vex::AttrId othersId, const Vex::MapStorage< Rook::Fib::FecId, Chain > & fecChain,
                 const Vex::Ptr< MacAddrFecStatus > & status )
      : owner_( owner ), others_( others ), othersId_( othersId ), fecChain_( fecChain ),
        status_( status ) {}

  Chain of( const Host & host ) const;
  void is( const Host & host, Chain first );

  // With FEC id 0 not at all. The host refers to what it did, within what the write leads to too.
  void publish( const Host & host, const MacFec & fec );

  // The hosts that refer to a chain; first those that are published with a FEC of it.
  std::vector< std::pair< Host, Chain > > all() const;

private:
  const Vex::Entity & owner_;
  Vex::MapStorage< Host, Chain > & others_;
  const Vex::AttrId othersId_;
  const Vex::MapStorage< Rook::Fib::FecId, Chain > & fecChain_;
  const Vex::Ptr< MacAddrFecStatus > & status_;
};

} // namespace Kez
