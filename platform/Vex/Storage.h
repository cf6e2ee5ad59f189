// How each kind of attribute keeps its members, changes them and tells of it. The macros of
// Vex/Attributes.h name these; every operation takes the entity that the attribute belongs to
// and the attribute's id.
#pragma once

#include "Vex/Assert.h"
#include "Vex/Collection.h"
#include "Vex/Declared.h"
#include "Vex/Domain.h"
#include "Vex/Entity.h"

#include <algorithm>
#include <vector>

namespace Vex {

// One value; of a domain, if T is one.
template< class T > class ValueStorage {
public:
  using Declared = T;
  using Value = HeldBy< T >;

  ValueStorage() : ValueStorage( Value() ) {}
  explicit ValueStorage( const Value & value ) : value_( value ) {
    if constexpr ( Domain< T > ) {
      VEX_ASSERT( contains< T >( value ) );
    }
  }

  Arg< Value > get() const { return value_; }
  // Whether it is another value.
  bool set( const Entity & owner, AttrId id, const Value & value ) {
    if constexpr ( Domain< T > ) {
      if ( !contains< T >( value ) ) [[unlikely]] {
        refuse< T >( owner.vexAttributeName( id ), value );
      }
    }
    if ( value_ == value ) {
      return false;
    }
    value_ = value;
    owner.vexNotify( id, nullptr );
    return true;
  }

private:
  Value value_;
};

// What all keyed kinds without entities have alike.
template< class K, class V > class KeyedStorage {
public:
  using Key = K;

  bool has( Arg< K > key ) const { return members_.has( key ); }
  size_t size() const { return members_.size(); }
  auto range() const { return members_.range(); }
  const Collection< K, V > & members() const { return members_; }
  // Makes room for so many members in all.
  void reserve( size_t members ) { members_.reserve( static_cast< uint32_t >( members ) ); }

  bool del( const Entity & owner, AttrId id, Arg< K > key ) {
    if ( !members_.erase( key ) ) {
      return false;
    }
    owner.vexNotify( id, &key );
    return true;
  }
  // Key by key; what handlers add meanwhile stays.
  void delAll( const Entity & owner, AttrId id ) {
    if ( !owner.vexWatched() ) {
      members_.clear();
      return;
    }
    for ( auto walk = members_.range().begin(); walk.valid(); ++walk ) {
      const K key = walk.key();
      del( owner, id, key );
    }
  }

protected:
  // A value equal to the one that stands changes nothing.
  void put( const Entity & owner, AttrId id, Arg< K > key, const V & value ) {
    const auto [ at, added ] = members_.findOrAdd( key, [ & ] { return value; } );
    if ( !added ) {
      if ( *at == value ) {
        return;
      }
      *at = value;
    }
    owner.vexNotify( id, &key );
  }

  Collection< K, V > members_;
};

// The members of a set.
template< class K > class SetStorage : public KeyedStorage< K, NoValue > {
public:
  void is( const Entity & owner, AttrId id, Arg< K > key, bool present ) {
    if ( present ) {
      this->put( owner, id, key, NoValue() );
    } else {
      this->del( owner, id, key );
    }
  }
};

// The members of a set, with a note on each that is its class's own: nobody is told of it.
template< class K, class N > class NotedSetStorage : public KeyedStorage< K, N > {
public:
  auto range() const { return this->members_.template range< NoValue >(); }
  void is( const Entity & owner, AttrId id, Arg< K > key, bool present ) {
    if ( !present ) {
      this->del( owner, id, key );
    } else if ( this->members_.findOrAdd( key, [] { return N(); } ).second ) {
      owner.vexNotify( id, &key );
    }
  }
  // Null for who is no member; good until the set changes.
  N * note( Arg< K > key ) { return this->members_.find( key ); }
  const N * note( Arg< K > key ) const { return this->members_.find( key ); }
};

// The members of a map.
template< class K, class V > class MapStorage : public KeyedStorage< K, V > {
public:
  using Value = V;

  // An absent member reads as the default value.
  Arg< V > get( Arg< K > key ) const {
    static const V none{};
    const V * value = this->members_.find( key );
    return value ? *value : none;
  }
  void is( const Entity & owner, AttrId id, Arg< K > key, const V & value ) {
    this->put( owner, id, key, value );
  }
};

// Unsigned counts, which wrap; an absent member counts 0.
template< class K > class CounterStorage : public MapStorage< K, uint32_t > {
public:
  uint32_t change( const Entity & owner, AttrId id, Arg< K > key, uint32_t by ) {
    const auto [ at, added ] = this->members_.findOrAdd( key, [] { return 0u; } );
    const uint32_t count = *at += by;
    if ( added || by ) {
      owner.vexNotify( id, &key );
    }
    return count;
  }
};

// Which index a queue's head has, and the least that the next value to join may get.
struct QueueMetadata {
  uint32_t headIndex = 0;
  uint32_t nextIndex = 0;
  friend bool operator==( const QueueMetadata &, const QueueMetadata & ) = default;
};

// Values in line, each under an index. What joins at the tail gets the larger of the next index
// and the tail's index + 1, and that is the next index from then on; what leaves at the head hands
// it to the next member, or to the next index when the queue is empty then. Members that are
// written or deleted by index leave the metadata as they are.
template< class T > class QueueStorage : public MapStorage< uint32_t, T > {
public:
  const QueueMetadata & metadata() const { return metadata_; }
  void metadataIs( const QueueMetadata & metadata ) { metadata_ = metadata; }

  void enq( const Entity & owner, AttrId id, Arg< T > value ) {
    uint32_t index = metadata_.nextIndex;
    if ( this->size() > 0 ) {
      const uint32_t * const tail_ = this->members_.lastKey();
      VEX_ASSERT( tail_ != nullptr );
      index = std::max( index, *tail_ + 1 );
    }
    VEX_ASSERT( !this->has( index ) );
    metadata_.nextIndex = index;
    this->put( owner, id, index, value );
  }

  // The default value when the queue is empty.
  T deq( const Entity & owner, AttrId id ) {
    const auto head = this->members_.range().begin();
    if ( !head.valid() ) {
      return T();
    }
    const T value = ( *head ).value;
    metadata_.headIndex = head.more() ? head.nextKey() : metadata_.nextIndex;
    this->del( owner, id, head.key() );
    return value;
  }

private:
  QueueMetadata metadata_;
};

namespace Detail {

// A member's deletion under way. A key made again meanwhile is told of when it is over.
struct Deletion {
  Deletion( const void * from, const void * deleted )
      : collection( from ), key( deleted ), outer( current ) {
    current = this;
  }
  ~Deletion() { current = outer; }
  Deletion( const Deletion & ) = delete;
  Deletion & operator=( const Deletion & ) = delete;

  const void * collection;
  const void * key;
  Deletion * outer;
  [[gnu::tls_model( "initial-exec" )]] static constinit thread_local Deletion * current;
};

} // namespace Detail

// Owned member entities, each constructed with its key.
template< class T > class EntityStorage {
public:
  using Key = typename T::FwkKey;
  using Type = T;

  EntityStorage() = default;
  EntityStorage( const EntityStorage & ) = delete;
  EntityStorage & operator=( const EntityStorage & ) = delete;
  ~EntityStorage() {
    for ( auto walk = members_.range().begin(); walk.valid(); ++walk ) {
      ( *walk ).value->vexParentIs( nullptr, 0 );
    }
  }

  Ptr< T > get( Arg< Key > key ) const {
    const auto * member = members_.find( key );
    return member ? *member : nullptr;
  }
  bool has( Arg< Key > key ) const { return members_.has( key ); }
  size_t size() const { return members_.size(); }
  auto range() { return members_.range(); }
  auto range() const { return members_.template range< Ptr< const T > >(); }
  const Collection< Key, Ptr< T > > & members() const { return members_; }

  Ptr< T > make( Entity & owner, AttrId id, Arg< Key > key ) {
    if ( const auto * member = members_.find( key ) ) {
      return *member;
    }
    auto member = makePtr< T >( key );
    enter( owner, id, key, member );
    return member;
  }

  // Puts back an entity that no collection holds; another one under its key is deleted first, and
  // no handler may make the key again then.
  void put( Entity & owner, AttrId id, const Ptr< T > & member ) {
    const Key key = member->fwkKey();
    if ( get( key ) == member ) {
      return;
    }
    del( owner, id, key );
    VEX_ASSERT( !member->parent() && !has( key ) );
    enter( owner, id, key, member );
  }

  // The member leaves, its own collections are emptied, its reactors marked, and then the key is
  // told of.
  bool del( Entity & owner, AttrId id, Arg< Key > key ) {
    const auto * at = members_.find( key );
    if ( !at ) {
      return false;
    }
    const Ptr< T > member = *at;
    members_.erase( key );
    member->vexParentIs( nullptr, 0 );
    const bool nested = beingDeleted( key );
    {
      const Detail::Deletion deletion( this, &key );
      member->vexClear();
      member->vexZombieReactors( true );
    }
    if ( member->parent() ) {
      member->vexZombieReactors( false );
    }
    if ( !nested ) {
      owner.vexNotify( id, &key );
    }
    return true;
  }

  void delAll( Entity & owner, AttrId id ) {
    for ( auto walk = members_.range().begin(); walk.valid(); ++walk ) {
      const Key key = walk.key();
      del( owner, id, key );
    }
  }

  // Whether it was deleted.
  bool delIfEmpty( Entity & owner, AttrId id, Arg< Key > key ) {
    const auto * at = members_.find( key );
    return at && isEmpty( **at ) && del( owner, id, key );
  }

  // Takes `member` from the only collection of the entity under `key`, and deletes the entity if
  // nothing is left in it. Handlers may delete the entity, or put another in its place, or add to
  // it: what they left is what counts. Whether this call deleted it.
  template< class Member >
  bool memberDel( Entity & owner, AttrId id, Arg< Key > key, const Member & member ) {
    const auto entity = get( key );
    if ( !entity ) {
      return false;
    }
    constexpr auto only = onlyCollectionOf< T >;
    ( ( *entity ).*only.storage ).del( *entity, only.id, member );
    return get( key ) == entity && delIfEmpty( owner, id, key );
  }

private:
  void enter( Entity & owner, AttrId id, Arg< Key > key, const Ptr< T > & member ) {
    member->vexParentIs( &owner, id );
    members_.findOrAdd( key, [ & ] { return member; } );
    member->vexZombieReactors( false );
    if ( !beingDeleted( key ) ) {
      owner.vexNotify( id, &key );
    }
  }
  bool beingDeleted( Arg< Key > key ) const {
    for ( const auto * each = Detail::Deletion::current; each; each = each->outer ) {
      if ( each->collection == this && *static_cast< const Key * >( each->key ) == key ) {
        return true;
      }
    }
    return false;
  }

  Collection< Key, Ptr< T > > members_;
};

// One reactor a member of a watched entity's collection.
template< class R > class ReactorStorage {
public:
  using Key = typename R::Key;
  using Notifier = typename R::NotifierType;

  ReactorStorage() = default;
  ReactorStorage( const ReactorStorage & ) = delete;
  ReactorStorage & operator=( const ReactorStorage & ) = delete;
  ~ReactorStorage() {
    for ( auto walk = members_.range().begin(); walk.valid(); ++walk ) {
      delete ( *walk ).value;
    }
  }

  R * get( Arg< Key > key ) const {
    R * const * at = members_.find( key );
    return at ? *at : nullptr;
  }
  bool has( Arg< Key > key ) const { return members_.has( key ); }
  size_t size() const { return members_.size(); }
  auto range() const { return members_.range(); }

  // The reactor stands here before its handler first runs, which it does now if it is new or
  // its key had another entity. `context` is what it is made with beside the key.
  template< class Sm, class... Context >
  void make( Sm & sm, const Ptr< const Notifier > & entity, const Context &... context ) {
    const Key key = entity->fwkKey();
    const auto [ at, added ] = members_.findOrAdd( key, [] { return nullptr; } );
    if ( added ) {
      R * made = *at = new R( sm, key, context... );
      made->notifierIs( entity );
    } else if ( ( *at )->notifierEntity() != entity.get() ) {
      del( sm, key );
      make( sm, entity, context... );
    }
  }

  // Makes room for so many reactors in all.
  void reserve( size_t reactors ) { members_.reserve( static_cast< uint32_t >( reactors ) ); }

  // A reactor that goes cleans up first, as for a zombie mark, unless it bears one.
  void del( const Entity & owner, Key key ) {
    const Ptr< const Entity > held( &owner ); // a handler may drop it
    R * const present = get( key );
    if ( present ) {
      present->vexDoZombieReactors( true );
    }
    // Its handler may have dropped it already, and made another.
    if ( present && get( key ) == present ) {
      members_.erase( key );
      delete present;
    }
  }

  void delAll( const Entity & owner ) {
    const Ptr< const Entity > held( &owner );
    for ( auto walk = members_.range().begin(); walk.valid(); ++walk ) {
      del( owner, walk.key() );
    }
  }

  // For a mark that is taken away: drops those whose keys left the collection unheard. They clean
  // up first.
  template< class Entities > void delStrays( const Entity & owner, const Entities & entities ) {
    const Ptr< const Entity > held( &owner );
    for ( auto walk = members_.range().begin(); walk.valid(); ++walk ) {
      const Key key = walk.key();
      if ( !entities.has( key ) ) {
        get( key )->vexDoZombieReactors( false );
        del( owner, key );
      }
    }
  }

private:
  Collection< Key, R * > members_;
};

// The reactor on an entity whose members have a reactor each: keeps the collection `Reactors` of
// a machine in step with the collection `Entities` of the notifier. One that watches more of its
// notifier derives from it.
template< class Entities, class Reactors >
class MirrorReactor : public ReactorOf< typename Reactors::Sm, typename Entities::Owner > {
public:
  using ReactorOf< typename Reactors::Sm, typename Entities::Owner >::ReactorOf;

protected:
  void onAttribute( AttrId id, const void * key ) override {
    if ( id == Entities::id ) {
      const auto member = Entities::id.key( key );
      const auto sm = this->sm();
      if ( const auto entity = Entities::of( *this->notifier() ).get( member ) ) {
        Reactors::is( *sm, entity );
      } else {
        Reactors::del( *sm, member );
      }
    }
  }
  void handleNotifier() override {
    const auto sm = this->sm();
    const auto notifier = this->notifier();
    const auto entities = Entities::of( *notifier ).range();
    Reactors::of( *sm ).reserve( entities.size() );
    for ( const auto & [ key, entity ] : entities ) {
      Reactors::is( *sm, entity );
    }
    if ( this->markedForDeletion() ) {
      Reactors::of( *sm ).delStrays( *sm, Entities::of( *notifier ) );
    }
  }
};

} // namespace Vex
