// Entities of which there are many, each kept as a short record. An entity is made when it is asked
// for; it shows its record, and follows it for as long as someone refers to it.
//
// A class derives from this, says how an entity shows a record, and brings the one that `shown`
// gives up to date when it changes a record. The entities are for their owner's thread alone.
#pragma once

#include "Vex/Collection.h"
#include "Vex/Entity.h"

namespace Vex {

template< class T, class Record > class ShownEntities : ZeroReferencesNotifiee {
  using Records = Collection< typename T::FwkKey, Record >;

public:
  using Key = typename T::FwkKey;
  using Type = T;

  // Keys and entities, as a walk over the records comes to them.
  class Range {
  public:
    // One pass, which makes an entity where it is asked for one.
    class Walk {
    public:
      explicit Walk( const ShownEntities & all )
          : all_( all ), at_( all.records_.range().begin() ) {}
      bool valid() const { return at_.valid(); }
      bool operator!=( std::nullptr_t ) const { return valid(); }
      Walk & operator++() {
        ++at_;
        return *this;
      }
      Key key() const { return at_.key(); }
      auto operator*() const {
        return typename Records::template MemberOf< Ptr< const T > >{ key(), all_.get( key() ) };
      }

    private:
      const ShownEntities & all_;
      typename Records::template WalkOf< Record > at_;
    };

    explicit Range( const ShownEntities & all ) : all_( all ) {}
    Walk begin() const { return Walk( all_ ); }
    std::nullptr_t end() const { return nullptr; }
    size_t size() const { return all_.size(); }

  private:
    const ShownEntities & all_;
  };

  ShownEntities( Entity & owner, AttrId id ) : owner_( owner ), id_( id ) {}
  ShownEntities( const ShownEntities & ) = delete;
  ShownEntities & operator=( const ShownEntities & ) = delete;

  bool has( Arg< Key > key ) const { return records_.has( key ); }
  size_t size() const { return records_.size(); }
  Range range() const { return Range( *this ); }
  const Records & members() const { return records_; }
  void reserve( size_t members ) { records_.reserve( static_cast< uint32_t >( members ) ); }

  // Null when there is no record.
  Ptr< T > get( Arg< Key > key ) const {
    const Record * const record = records_.find( key );
    if ( !record ) {
      return nullptr;
    }
    if ( T * const entity = shown( key ) ) {
      return entity;
    }
    auto entity = makePtr< T >( key );
    show( *entity, *record );
    entity->vexParentIs( &owner_, id_ );
    entity->zeroReferencesNotifieeIs( const_cast< ShownEntities * >( this ) );
    shown_.findOrAdd( key, [ & ] { return entity.get(); } );
    return entity;
  }

  // The entity's collections are emptied and its reactors marked before the key is told of.
  void del( Arg< Key > key ) {
    Record * const record = records_.find( key );
    if ( !record ) {
      return;
    }
    drop( key, *record );
    records_.erase( key );
    if ( const Ptr< T > entity = shown( key ) ) {
      shown_.erase( key );
      leave( *entity );
      entity->vexClear();
      entity->vexZombieReactors( true );
    }
    owner_.vexNotify( id_, &key );
  }
  void delAll() {
    for ( auto walk = records_.range().begin(); walk.valid(); ++walk ) {
      del( walk.key() );
    }
  }

protected:
  ~ShownEntities() {
    for ( auto walk = shown_.range().begin(); walk.valid(); ++walk ) {
      leave( *( *walk ).value );
    }
  }

  virtual void show( T & entity, const Record & record ) const = 0;
  // The record is about to go.
  virtual void drop( const Key &, Record & ) {}

  // The entity that someone refers to; null when nobody does.
  T * shown( Arg< Key > key ) const {
    T * const * const entity = shown_.empty() ? nullptr : shown_.find( key );
    return entity ? *entity : nullptr;
  }

  Record * find( Arg< Key > key ) { return records_.find( key ); }
  const Record * find( Arg< Key > key ) const { return records_.find( key ); }
  // The record, made if there is none; null when a handler that was told of it deleted it.
  Record * make( Arg< Key > key ) {
    const auto [ record, added ] = records_.findOrAdd( key, [] { return Record(); } );
    if ( !added || !owner_.vexWatched() ) {
      return record;
    }
    owner_.vexNotify( id_, &key );
    return find( key );
  }

private:
  void onZeroReferences( const Entity & entity ) override {
    const Key key = static_cast< const T & >( entity ).fwkKey();
    leave( *shown( key ) );
    shown_.erase( key );
  }
  void leave( T & entity ) {
    entity.vexParentIs( nullptr, 0 );
    entity.zeroReferencesNotifieeDel( this );
  }

  Entity & owner_;
  const AttrId id_;
  Records records_;
  mutable Collection< Key, T * > shown_;
};

} // namespace Vex
