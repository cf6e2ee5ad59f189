// Reactors: what is told of an entity's changes.
//
// A Reactor watches one entity (its notifier, which it keeps alive) for one owner. The entity
// calls `onAttribute` after each change, reactors in the order in which they attached; a reactor
// may detach itself or any other, attach new ones, or be destroyed while it runs. One that
// attaches during a notification is not told of that change.
//
// A zombie mark says that the entity is going away: the reactor's notifications go off and its
// whole-entity handler runs once; clearing the mark turns them on and runs it again.
//
// The owner lists its reactors, so that notifications and zombie marks of all of them are
// switched in one walk, and outlives them. New reactors take over whether the owner's
// notifications are on.
#pragma once

#include "Vex/Ptr.h"
#include "Vex/detail/List.h"

#include <cstdint>

namespace Vex {

class Entity;
class ReactorOwner;

// The number of an attribute, unique along its class and bases.
using AttrId = uint16_t;

class Reactor {
public:
  Reactor( const Reactor & ) = delete;
  Reactor & operator=( const Reactor & ) = delete;
  virtual ~Reactor();

  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs( bool active ) { active_ = active; }

  bool markedForDeletion() const { return markedForDeletion_; }
  void vexDoZombieReactors( bool zombie );

  const Entity * notifierEntity() const { return notifier_; }
  ReactorOwner & owner() const { return owner_; }

protected:
  explicit Reactor( ReactorOwner & owner );

  // Detaches from the entity watched so far and attaches to this one, or to none. With a new
  // entity, and no zombie mark, the whole-entity handler runs.
  inline void notifierIs( const Entity * notifier );

  // `key` points to the changed member's key; null for an attribute without keys.
  virtual void onAttribute( AttrId id, const void * key ) = 0;

  // The whole-entity handler.
  virtual void handleNotifier() {}

private:
  friend class Entity;
  friend class ReactorOwner;

  Detail::ListLink< Reactor > entityLink_;
  Detail::ListLink< Reactor > ownerLink_;
  const Entity * notifier_ = nullptr;
  ReactorOwner & owner_;
  bool active_ = true;
  bool markedForDeletion_ = false;
};

// A machine, as the owner of the reactors that tell it of its inputs.
class ReactorOwner {
public:
  ReactorOwner() = default;
  ReactorOwner( const ReactorOwner & ) = delete;
  ReactorOwner & operator=( const ReactorOwner & ) = delete;

  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs( bool active );
  // An owner that can make up for what its reactors did not hear of under the mark does so when
  // all of them are unmarked.
  virtual void vexDoZombieReactors( bool zombie );

protected:
  virtual ~ReactorOwner();

private:
  friend class Reactor;
  Detail::List< Reactor, &Reactor::ownerLink_ > reactors_;
  bool active_ = true;
};

// A reactor of machine `Sm` on an entity of class `Notifier`.
template< class Sm, class Notifier > class ReactorOf : public Reactor {
public:
  using NotifierType = Notifier;

  explicit ReactorOf( Sm & sm ) : Reactor( sm ) {}

  Ptr< const Notifier > notifier() const {
    return static_cast< const Notifier * >( notifierEntity() );
  }
  void notifierIs( const Ptr< const Notifier > & notifier ) {
    Reactor::notifierIs( notifier.get() );
  }

protected:
  // Held, so that a handler may be what drops the machine.
  Ptr< Sm > sm() const { return &static_cast< Sm & >( owner() ); }
};

// A reactor on a member entity; keeps the member's key, also when it watches it no more.
template< class Sm, class Notifier > class MemberReactor : public ReactorOf< Sm, Notifier > {
public:
  using Key = typename Notifier::FwkKey;

  MemberReactor( Sm & sm, const Key & key ) : ReactorOf< Sm, Notifier >( sm ), key_( key ) {}
  const Key & fwkKey() const { return key_; }

private:
  Key key_;
};

} // namespace Vex
