// What it costs to be told, to watch and to point, against lists and counts that promise nothing:
// a notification, attaching and detaching, and a pointer's copy. And what all of it weighs.
#include "Ratio.h"

#include "Vex/Attributes.h"

#include <memory>
#include <numeric>
#include <random>

// Nothing here is known to the compiler to be the only one of its kind, so that calls are as
// virtual as they are written.
namespace Bench {

class Owner : public Vex::ReactorOwner {};

class Counting : public Vex::Reactor {
public:
  explicit Counting( Owner & owner ) : Reactor( owner ) {}
  using Reactor::notifierIs;
  void onAttribute( Vex::AttrId id, const void * ) override;
  uint64_t told = 0;
};
void Counting::onAttribute( Vex::AttrId id, const void * ) {
  told += id;
}
class SilentReactor : public Vex::Reactor {
public:
  explicit SilentReactor( Owner & owner ) : Reactor( owner ) {}
  void onAttribute( Vex::AttrId, const void * ) override;
};
void SilentReactor::onAttribute( Vex::AttrId, const void * ) {}

// A machine whose reactors' handlers hold it and what they watch, as all do.
class Machine : public Vex::Entity, public Vex::ReactorOwner {
  VEX_ENTITY( Machine, "Bench::Machine" )
  VEX_COMPUTED( 1, told, uint64_t )
  VEX_ATTRIBUTES( told )

public:
  uint64_t handled = 0;
};
uint64_t Machine::told() const {
  return handled;
}

class Subject : public Vex::Entity {
  VEX_ENTITY( Subject, "Bench::Subject" )
  VEX_ATTRIBUTE( 1, value, uint64_t )
  VEX_ATTRIBUTES( value )
};
class MachineReactor : public Vex::ReactorOf< Machine, Subject > {
public:
  using ReactorOf::ReactorOf;
  void onAttribute( Vex::AttrId, const void * ) override;
  void handleNotifier() override;
};
void MachineReactor::onAttribute( Vex::AttrId, const void * ) {}
void MachineReactor::handleNotifier() {
  const auto machine = sm();
  machine->handled += notifier()->value() + 1;
}

// The floor: a listener in a doubly linked list, which joins at the end.
class Listener {
public:
  virtual ~Listener() = default;
  virtual void onAttribute( Vex::AttrId id, const void * key ) = 0;

  Listener * prev = nullptr;
  Listener * next = nullptr;
};

class CountingListener : public Listener {
public:
  void onAttribute( Vex::AttrId id, const void * ) override;
  uint64_t told = 0;
};
void CountingListener::onAttribute( Vex::AttrId id, const void * ) {
  told += id;
}
class SilentListener : public Listener {
public:
  void onAttribute( Vex::AttrId, const void * ) override;
};
void SilentListener::onAttribute( Vex::AttrId, const void * ) {}

struct Listeners {
  void notify( Vex::AttrId id, const void * key ) const {
    for ( Listener * each = first; each; each = each->next ) {
      each->onAttribute( id, key );
    }
  }
  void append( Listener * listener ) {
    listener->prev = last;
    listener->next = nullptr;
    ( last ? last->next : first ) = listener;
    last = listener;
  }
  void remove( Listener * listener ) {
    ( listener->prev ? listener->prev->next : first ) = listener->next;
    ( listener->next ? listener->next->prev : last ) = listener->prev;
  }

  Listener * first = nullptr;
  Listener * last = nullptr;
};

// A bare intrusive count, in an object as large as the one that Ptr counts here: what differs is
// the pointer, not how much of the cache there is.
class Counted {
public:
  virtual ~Counted();
  uint64_t value() const { return state_[ 0 ]; }
  uint32_t refs = 1;

private:
  uint64_t state_[ 4 ] = {};
};
Counted::~Counted() = default;

} // namespace Bench

namespace {

using Bench::Counted;
using Bench::Counting;
using Bench::CountingListener;
using Bench::Listeners;
using Bench::MachineReactor;
using Bench::Owner;
using Bench::Subject;

static_assert( sizeof( Subject ) == sizeof( Counted ) );

constexpr int times = 100000;

void notification( benchmark::State & state ) {
  const auto entity = Vex::makePtr< Subject >();
  Owner owner;
  std::vector< std::unique_ptr< Counting > > reactors;
  Listeners listeners;
  std::vector< std::unique_ptr< CountingListener > > plain;
  for ( int i = 0; i < state.range( 0 ); ++i ) {
    reactors.push_back( std::make_unique< Counting >( owner ) );
    reactors.back()->notifierIs( entity.get() );
    plain.push_back( std::make_unique< CountingListener >() );
    listeners.append( plain.back().get() );
  }
  Bench::compare(
      state, times,
      [ & ] {
        for ( int i = 0; i < times; ++i ) {
          entity->vexNotify( Subject::valueAttr, nullptr );
          benchmark::ClobberMemory();
        }
      },
      [ & ] {
        for ( int i = 0; i < times; ++i ) {
          listeners.notify( Subject::valueAttr, nullptr );
          benchmark::ClobberMemory();
        }
      } );
}
BENCHMARK( notification )->Arg( 0 )->Arg( 1 )->Arg( 4 )->UseManualTime();

// Many, each to one of its own that has a watcher already.
template< class Reactor, class Owner, class Attach, class Detach >
void attachAndDetach( benchmark::State & state, Owner & owner, Attach attach, Detach detach ) {
  constexpr size_t many = 64;
  struct Watched {
    explicit Watched( Owner & owner ) : first( owner ), reactor( owner ) {
      first.notifierIs( entity.get() );
      listeners.append( &firstListener );
    }
    Vex::Ptr< const Subject > entity = Vex::makePtr< Subject >();
    Reactor first;
    Reactor reactor;
    Listeners listeners;
    CountingListener firstListener;
    CountingListener listener;
  };
  std::vector< std::unique_ptr< Watched > > all;
  for ( size_t i = 0; i < many; ++i ) {
    all.push_back( std::make_unique< Watched >( owner ) );
  }
  const auto rounds = [ & ]( auto each, auto undo ) {
    for ( int round = 0; round < 1000; ++round ) {
      for ( const auto & watched : all ) {
        each( *watched );
      }
      benchmark::ClobberMemory();
      for ( const auto & watched : all ) {
        undo( *watched );
      }
      benchmark::ClobberMemory();
    }
  };
  Bench::compare(
      state, 1000.0 * many, [ & ] { rounds( attach, detach ); },
      [ & ] {
        rounds( []( Watched & each ) { each.listeners.append( &each.listener ); },
                []( Watched & each ) { each.listeners.remove( &each.listener ); } );
      } );
}
void attachAndDetach( benchmark::State & state ) {
  Owner owner;
  attachAndDetach< Counting >(
      state, owner, []( auto & each ) { each.reactor.notifierIs( each.entity.get() ); },
      []( auto & each ) { each.reactor.notifierIs( nullptr ); } );
}
BENCHMARK( attachAndDetach )->UseManualTime();

// As a machine's reactors do: a reference is handed over, and a handler runs that holds the machine
// and what it watches.
void attachAndHandle( benchmark::State & state ) {
  const auto machine = Vex::makePtr< Bench::Machine >();
  attachAndDetach< MachineReactor >(
      state, *machine, []( auto & each ) { each.reactor.notifierIs( each.entity ); },
      []( auto & each ) { each.reactor.notifierIs( nullptr ); } );
  if ( !machine->handled ) {
    state.SkipWithError( "no handler ran" );
  }
}
BENCHMARK( attachAndHandle )->UseManualTime();

class PlainPtr {
public:
  explicit PlainPtr( Counted * object ) : object_( object ) {}
  PlainPtr( const PlainPtr & other ) : object_( other.object_ ) {
    if ( object_ ) {
      ++object_->refs;
    }
  }
  PlainPtr & operator=( const PlainPtr & ) = delete;
  ~PlainPtr() {
    if ( object_ && --object_->refs == 0 ) {
      delete object_;
    }
  }
  Counted * operator->() const { return object_; }

private:
  Counted * object_;
};

uint64_t readThrough( const Vex::Ptr< Subject > & pointer ) {
  return pointer->value();
}
uint64_t readThrough( const PlainPtr & pointer ) {
  return pointer->value();
}
template< class Pointer > [[gnu::noinline]] void hold( Pointer pointer ) {
  benchmark::DoNotOptimize( pointer );
}

// Of a few cycles each, the loops stand by themselves so that neither lies better than the other
// by chance.
template< class Pointer >
[[gnu::noinline, gnu::aligned( 64 )]] void copyAndRead( const std::vector< Pointer > & pointers ) {
  for ( const auto & pointer : pointers ) {
    const Pointer copy( pointer );
    benchmark::ClobberMemory();
    benchmark::DoNotOptimize( readThrough( copy ) );
  }
}
template< class Pointer >
[[gnu::noinline, gnu::aligned( 64 )]] void pass( const std::vector< Pointer > & pointers ) {
  for ( const auto & pointer : pointers ) {
    hold( pointer );
  }
}
template< class Use > void pointerCopy( benchmark::State & state, Use use ) {
  constexpr int many = 256;
  constexpr int rounds = 100;
  std::vector< Vex::Ptr< Subject > > entities;
  std::vector< PlainPtr > plain;
  for ( int i = 0; i < many; ++i ) {
    entities.push_back( Vex::makePtr< Subject >() );
    plain.emplace_back( new Counted() );
  }
  const auto all = [ & ]( const auto & pointers ) {
    for ( int round = 0; round < rounds; ++round ) {
      use( pointers );
    }
  };
  Bench::compare(
      state, many * rounds, [ & ] { all( entities ); }, [ & ] { all( plain ); } );
}
BENCHMARK_CAPTURE( pointerCopy, read, []( const auto & all ) { copyAndRead( all ); } )
    -> UseManualTime();
BENCHMARK_CAPTURE( pointerCopy, passed, []( const auto & all ) { pass( all ); } )
    -> UseManualTime();

// Over objects that lie everywhere: one of each kind beside the other, handled in a random order.
template< class Use > void pointerCopyScattered( benchmark::State & state, Use use ) {
  const auto many = static_cast< size_t >( state.range( 0 ) );
  std::vector< Vex::Ptr< Subject > > entities;
  std::vector< PlainPtr > plain;
  entities.reserve( many );
  plain.reserve( many );
  for ( size_t i = 0; i < many; ++i ) {
    entities.push_back( Vex::makePtr< Subject >() );
    plain.emplace_back( new Counted() );
  }
  std::vector< size_t > order( many );
  std::iota( order.begin(), order.end(), 0 );
  std::shuffle( order.begin(), order.end(), std::mt19937( 3 ) );
  const auto scattered = [ & ]( const auto & pointers ) {
    std::decay_t< decltype( pointers ) > all;
    all.reserve( many );
    for ( const size_t i : order ) {
      all.push_back( pointers[ i ] );
    }
    return all;
  };
  const auto scatteredEntities = scattered( entities );
  const auto scatteredPlain = scattered( plain );
  Bench::compare(
      state, static_cast< double >( many ), [ & ] { use( scatteredEntities ); },
      [ & ] { use( scatteredPlain ); } );
}
BENCHMARK_CAPTURE( pointerCopyScattered, read, []( const auto & all ) { copyAndRead( all ); } )
    -> Arg( 1'000'000 ) -> UseManualTime();
BENCHMARK_CAPTURE( pointerCopyScattered, passed, []( const auto & all ) { pass( all ); } )
    -> Arg( 1'000'000 ) -> UseManualTime();

class Bare : public Vex::Entity {
  VEX_ENTITY( Bare, "Bench::Bare" )
  VEX_COMPUTED( 1, nothing, bool )
  VEX_ATTRIBUTES( nothing )
};
bool Bare::nothing() const {
  return true;
}

void bytes( benchmark::State & state ) {
  Vex::Collection< uint64_t, uint64_t > members;
  for ( auto _ : state ) {
    for ( uint64_t i = 0; i < 8; ++i ) {
      members.findOrAdd( i, [] { return 0; } );
      state.counters[ "members_" + std::to_string( i + 1 ) ] = double( members.memory() );
    }
  }
  state.counters[ "entity" ] = sizeof( Bare );
  state.counters[ "reactor" ] = sizeof( Bench::SilentReactor );
  state.counters[ "collection" ] = sizeof( members );
}
BENCHMARK( bytes )->Iterations( 1 );

} // namespace
