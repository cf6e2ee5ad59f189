#include "Vex/Entity.h"

#include "Vex/Assert.h"
#include "Vex/Storage.h"

#include <algorithm>

namespace Vex {

constinit thread_local Detail::ListCursor * Detail::listCursors = nullptr;
constinit thread_local Detail::Deletion * Detail::Deletion::current = nullptr;

namespace {

// A reactor being marked or unmarked; notices when it ends while its handler runs.
struct ReactorGuard {
  ReactorGuard( const Reactor * reactor, bool zombie )
      : reactor( reactor ), zombie( zombie ), outer( guards ) {
    guards = this;
  }
  ~ReactorGuard() { guards = outer; }
  ReactorGuard( const ReactorGuard & ) = delete;
  ReactorGuard & operator=( const ReactorGuard & ) = delete;

  static bool runs( const Reactor * reactor, bool zombie ) {
    const auto * guard = guards;
    while ( guard && ( guard->reactor != reactor || guard->zombie != zombie ) ) {
      guard = guard->outer;
    }
    return guard;
  }

  const Reactor * reactor;
  const bool zombie;
  ReactorGuard * outer;
  [[gnu::tls_model( "initial-exec" )]] static constinit thread_local ReactorGuard * guards;
};

constinit thread_local ReactorGuard * ReactorGuard::guards = nullptr;

} // namespace

Entity::~Entity() {
  VEX_ASSERT( reactors_.empty() );
}

const EntityType & Entity::vexType() {
  static const EntityType type( "Vex::Entity", nullptr, vexOperations(), {} );
  return type;
}

const Operations & Entity::vexOperations() {
  static const Operations none;
  return none;
}

Entity::Extra & Entity::extra() {
  if ( !extra_ ) {
    extra_ = std::make_unique< Extra >();
  }
  return *extra_;
}

String Entity::name() const {
  if ( extra_ && !extra_->name.empty() ) {
    return extra_->name;
  }
  TextBuffer key;
  vexAppendKey( key );
  return key.str();
}

void Entity::nameIs( const String & name ) {
  extra().name = name;
}

String Entity::fullName() const {
  return parent_ ? parent_->fullName() + "." + parentAttrName() + "[" + name() + "]" : name();
}

String Entity::parentAttrName() const {
  const auto * attribute = parent_ ? parent_->fwkType().attribute( parentAttribute_ ) : nullptr;
  return attribute ? String( attribute->name ) : String();
}

void Entity::zeroReferencesNotifieeIs( ZeroReferencesNotifiee * notifiee ) {
  auto & all = extra().zeroReferencesNotifiees;
  if ( std::find( all.begin(), all.end(), notifiee ) == all.end() ) {
    all.push_back( notifiee );
  }
}

void Entity::zeroReferencesNotifieeDel( ZeroReferencesNotifiee * notifiee ) {
  std::erase( extra().zeroReferencesNotifiees, notifiee );
}

String Entity::vexAttributeName( AttrId id ) const {
  return String( fwkType().name ) + "::" + String( fwkType().attribute( id )->name );
}

void Entity::vexParentIs( Entity * parent, AttrId attribute ) {
  VEX_ASSERT( !parent || !parent_ );
  parent_ = parent;
  parentAttribute_ = attribute;
}

void Entity::vexClear() {
  for ( const auto * attribute : fwkType().attributes() ) {
    if ( attribute->isCollection() && !attribute->computed() ) {
      attribute->reset( *this );
    }
  }
}

void Entity::vexZombieReactors( bool zombie ) const {
  reactors_.forEach( [ & ]( Reactor & reactor ) { reactor.vexDoZombieReactors( zombie ); } );
}

void Entity::zeroReferences() const {
  if ( extra_ && !extra_->zeroReferencesNotifiees.empty() ) {
    const auto notifiees = extra_->zeroReferencesNotifiees;
    for ( auto * notifiee : notifiees ) {
      const auto & present = extra_->zeroReferencesNotifiees;
      if ( std::find( present.begin(), present.end(), notifiee ) != present.end() ) {
        notifiee->onZeroReferences( *this );
      }
    }
    if ( refs() > 1 ) {
      refDec();
      return;
    }
  }
  delete this;
}

Reactor::Reactor( ReactorOwner & owner ) : owner_( owner ), active_( owner.active_ ) {
  owner.reactors_.append( this );
}

Reactor::~Reactor() {
  for ( auto * guard = ReactorGuard::guards; guard; guard = guard->outer ) {
    if ( guard->reactor == this ) {
      guard->reactor = nullptr;
    }
  }
  owner_.reactors_.remove( this );
  if ( const Entity * watched = std::exchange( notifier_, nullptr ) ) {
    watched->reactors_.remove( this );
    watched->refDec();
  }
}

void Reactor::vexDoZombieReactors( bool zombie ) {
  if ( zombie == markedForDeletion_ || ReactorGuard::runs( this, zombie ) ) {
    return;
  }
  active_ = !zombie && owner_.active_;
  const ReactorGuard guard( this, zombie );
  handleNotifier();
  if ( guard.reactor ) {
    markedForDeletion_ = zombie;
  }
}

ReactorOwner::~ReactorOwner() {
  VEX_ASSERT( reactors_.empty() );
}

void ReactorOwner::hasNotificationActiveIs( bool active ) {
  if ( active == active_ ) {
    return;
  }
  active_ = active;
  reactors_.forEach( [ & ]( Reactor & reactor ) {
    reactor.hasNotificationActiveIs( active && !reactor.markedForDeletion() );
  } );
}

void ReactorOwner::vexDoZombieReactors( bool zombie ) {
  reactors_.forEach( [ & ]( Reactor & reactor ) { reactor.vexDoZombieReactors( zombie ); } );
}

} // namespace Vex
