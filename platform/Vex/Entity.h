// Entities: objects with identity, reflected attributes and watchers.
//
// An entity is named by its host, or, as a member of another entity's collection, by its key
// there. Everything that it holds is declared with the macros of Vex/Attributes.h. Changes are
// told to its reactors synchronously, on the caller's thread, after they are in place; whoever
// changes an entity holds a Ptr to it meanwhile.
#pragma once

#include "Vex/Ptr.h"
#include "Vex/Reactor.h"
#include "Vex/Reflection.h"
#include "Vex/Text.h"
#include "Vex/detail/List.h"

#include <memory>
#include <vector>

namespace Vex {

class Entity;

// Told when the last reference to an entity goes, before the entity is destroyed. It may remove
// itself or others; an entity that it keeps a new reference to lives on.
class ZeroReferencesNotifiee {
public:
  virtual void onZeroReferences( const Entity & entity ) = 0;

protected:
  ~ZeroReferencesNotifiee() = default;
};

class Entity : public PtrInterface {
public:
  ~Entity() override;

  virtual const EntityType & fwkType() const = 0;
  // The class whose list of attributes is the nearest.
  using VexClosed = Entity;
  static const EntityType & vexType();
  static const Operations & vexOperations();
  // Whether reflection may write attributes that do not say so themselves.
  static constexpr Access vexAccess = Access::writable;
  // How many classes above this one declare attributes.
  static constexpr int vexDepth = 0;

  // The name given, else the text of the member's key.
  String name() const;
  void nameIs( const String & name );
  Ptr< Entity > entity() { return this; }
  Ptr< const Entity > entity() const { return this; }
  // "parent.attribute[key]" down from the outermost entity.
  String fullName() const;
  Entity * parent() const { return parent_; }
  String parentAttrName() const;

  void zeroReferencesNotifieeIs( ZeroReferencesNotifiee * notifiee );
  void zeroReferencesNotifieeDel( ZeroReferencesNotifiee * notifiee );

  bool vexWatched() const { return !reactors_.empty(); }
  void vexNotify( AttrId id, const void * key ) const {
    reactors_.forEach( [ & ]( Reactor & reactor ) {
      if ( reactor.active_ ) {
        reactor.onAttribute( id, key );
      }
    } );
  }
  // "<class>::<attribute>".
  String vexAttributeName( AttrId id ) const;
  void vexParentIs( Entity * parent, AttrId attribute );
  // Empties every collection, from the leaves up.
  void vexClear();
  void vexZombieReactors( bool zombie ) const;

protected:
  Entity() = default;
  virtual void vexAppendKey( TextBuffer & ) const {}
  void zeroReferences() const override;

private:
  friend class Reactor;
  struct Extra {
    String name;
    std::vector< ZeroReferencesNotifiee * > zeroReferencesNotifiees;
  };
  Extra & extra();

  AttrId parentAttribute_ = 0;
  mutable Detail::List< Reactor, &Reactor::entityLink_ > reactors_;
  Entity * parent_ = nullptr;
  std::unique_ptr< Extra > extra_; // what few entities have
};

inline void Reactor::notifierIs( const Entity * notifier ) {
  const Entity * const left = notifier_;
  if ( notifier == left ) {
    return;
  }
  notifier_ = notifier;
  if ( left ) {
    left->reactors_.remove( this );
  }
  if ( notifier ) {
    notifier->refInc();
    notifier->reactors_.append( this );
  }
  // What ends with the entity left, this reactor perhaps, ends last.
  if ( notifier && !markedForDeletion_ ) {
    const auto held = Ptr< const Entity >::adopt( left );
    handleNotifier();
  } else if ( left ) {
    left->refDec();
  }
}

} // namespace Vex
