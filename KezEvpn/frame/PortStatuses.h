// What a machine has on record for each pair of an interface and a VLAN, by port of the interface,
// shown as entities of class `Status`. The programmed ports of a pair are one of the PortLists.
// Ports that are to be tried again, or that bear a force mark, are few: a pair that has any keeps
// its entity, where they stand.
#pragma once

#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/frame/PortLists.h"
#include "Vex/ShownEntities.h"

namespace Kez {

template< class Status > class PortStatuses final : public Vex::ShownEntities< Status, uint32_t > {
  using Base = Vex::ShownEntities< Status, uint32_t >;

public:
  using typename Base::Key;
  using Port = typename Status::Port;
  using Base::Base;

  // Makes the status if there is none. Whether it has the port.
  bool makeOrHas( const Key & key, Wire::IntfId port ) {
    const uint32_t * const list = Base::make( key );
    return list && lists_.find( *list, port );
  }

  // Also of a pair that has no status.
  size_t programmeds( const Key & key ) const { return lists_.size( listOf( key ) ); }
  bool programmedHas( const Key & key, Wire::IntfId port ) const {
    return lists_.find( listOf( key ), port );
  }
  std::optional< Port > programmed( const Key & key, Wire::IntfId port ) const {
    const Port * const found = lists_.find( listOf( key ), port );
    return found ? std::optional( *found ) : std::nullopt;
  }
  // A copy, so that a walk over it minds no change.
  std::vector< Port > programmed( const Key & key ) const { return lists_.ports( listOf( key ) ); }
  // Makes the status if there is none.
  void programmedIs( const Key & key, const Port & port ) {
    if ( uint32_t * const list = Base::make( key ) ) {
      lists_.portIs( *list, port );
      if ( Status * const status = this->shown( key ) ) {
        status->portIs( port );
      }
    }
  }
  void programmedDel( const Key & key, Wire::IntfId port ) {
    if ( uint32_t * const list = this->find( key ) ) {
      lists_.portDel( *list, port );
      if ( Status * const status = this->shown( key ) ) {
        status->portDel( port );
      }
    }
  }

  size_t unprogrammeds( const Key & key ) const {
    const Status * const status = uncommon( key );
    return status ? status->unprogrammeds() : 0;
  }
  bool unprogrammedHas( const Key & key, Wire::IntfId port ) const {
    const Status * const status = uncommon( key );
    return status && status->unprogrammedHas( port );
  }
  bool forceReprogramHas( const Key & key, Wire::IntfId port ) const {
    const Status * const status = uncommon( key );
    return status && status->forceReprogramHas( port );
  }
  // Of a pair that has a status.
  void unprogrammedIs( const Key & key, Wire::IntfId port ) {
    changeKept( key, [ & ]( Status & status ) { status.unprogrammedIs( port ); } );
  }
  void forceReprogramIs( const Key & key, Wire::IntfId port ) {
    changeKept( key, [ & ]( Status & status ) { status.forceReprogramIs( port ); } );
  }
  void unprogrammedDel( const Key & key, Wire::IntfId port ) {
    if ( unprogrammedHas( key, port ) ) {
      changeKept( key, [ & ]( Status & status ) { status.unprogrammedDel( port ); } );
    }
  }
  void unprogrammedDelAll( const Key & key ) {
    if ( unprogrammeds( key ) > 0 ) {
      changeKept( key, []( Status & status ) { status.unprogrammedDelAll(); } );
    }
  }
  void forceReprogramDel( const Key & key, Wire::IntfId port ) {
    if ( forceReprogramHas( key, port ) ) {
      changeKept( key, [ & ]( Status & status ) { status.forceReprogramDel( port ); } );
    }
  }
  // The statuses that have ports of either kind.
  auto uncommon() const { return kept_.template range< Vex::Ptr< const Status > >(); }

private:
  uint32_t listOf( const Key & key ) const {
    const uint32_t * const list = this->find( key );
    return list ? *list : PortLists< Port >::empty;
  }
  // The status of a pair that has ports of either kind.
  const Status * uncommon( const Key & key ) const {
    const auto * const status = kept_.empty() ? nullptr : kept_.find( key );
    return status ? status->get() : nullptr;
  }
  template< class Change > void changeKept( const Key & key, Change && change ) {
    auto status = this->get( key );
    if ( !status ) {
      return;
    }
    kept_.findOrAdd( key, [ & ] { return status; } );
    change( *status );
    if ( status->unprogrammeds() + status->forceReprograms() == 0 ) {
      kept_.erase( key );
    }
  }

  void show( Status & status, const uint32_t & list ) const override {
    for ( const Port & port : lists_.ports( list ) ) {
      status.portIs( port );
    }
  }
  void drop( const Key & key, uint32_t & list ) override {
    lists_.release( list );
    kept_.erase( key );
  }

  PortLists< Port > lists_;
  Vex::Collection< Key, Vex::Ptr< Status > > kept_;
};

} // namespace Kez
