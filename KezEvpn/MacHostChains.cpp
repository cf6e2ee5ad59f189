#include "KezEvpn/MacHostChains.h"

namespace Kez {

L2Rib::ObjectId MacHostChains::of( const Host & host ) const {
  const auto * const other = others_.members().find( host );
  return other ? *other : fecChain_.get( status_->host( host ).fecId );
}

void MacHostChains::is( const Host & host, Chain first ) {
  if ( first == fecChain_.get( status_->host( host ).fecId ) ) {
    others_.del( owner_, othersId_, host );
  } else {
    others_.is( owner_, othersId_, host, first );
  }
}

void MacHostChains::publish( const Host & host, const MacFec & fec ) {
  const auto first = of( host );
  const bool other = first != fecChain_.get( fec.fecId );
  if ( other ) {
    others_.is( owner_, othersId_, host, first );
  }
  if ( fec.fecId == Rook::Fib::FecId() ) {
    status_->hostDel( host );
  } else {
    status_->hostIs( host, fec );
  }
  if ( !other ) {
    others_.del( owner_, othersId_, host );
  }
}

std::vector< std::pair< MacHostChains::Host, MacHostChains::Chain > > MacHostChains::all() const {
  std::vector< std::pair< Host, Chain > > all;
  for ( const auto & [ host, fec ] : status_->host() ) {
    if ( !others_.has( host ) ) {
      all.emplace_back( host, fecChain_.get( fec.fecId ) );
    }
  }
  for ( const auto & [ host, first ] : others_.members().range() ) {
    if ( first != Chain() ) {
      all.emplace_back( host, first );
    }
  }
  return all;
}

} // namespace Kez
