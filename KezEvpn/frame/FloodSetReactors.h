// The reactors that follow a flood-set output down to its destinations, for every machine that
// does: one on the output (a Vex::MirrorReactor that keeps the machine's collection
// `vlanFloodSet`), below it one a VLAN, and below that one a flood set. A machine says
//
//   class VexFloodSet : public FloodSetReactor< Sm > { ... };   what becomes of the destinations
//   void vex_handleFloodSet( FloodSetReactor< Sm > & );         entered with a whole flood set
//   using VexVlanFloodSet = VlanFloodSetReactor< Sm, VexFloodSet >;
//   VEX_REACTORS( id, vlanFloodSet, VexVlanFloodSet )
//   using VexFloodSetOutput = Vex::MirrorReactor< L2Rib::FloodSetOutput::vlanFloodSetEntities,
//                                                 vlanFloodSetReactors >;
//
// Reactors follow the input: they are there while what they watch is. What leaves the input
// empties itself first, so that each of its destinations is told of as it goes.
#pragma once

#include "KezEvpn/frame/StateMachine.h"
#include "L2Rib/FloodSet.h"

namespace Kez {

// A machine's reactor on one flood set, which hears of its destinations.
template< class Sm > class FloodSetReactor : public Vex::MemberReactor< Sm, L2Rib::FloodSet > {
public:
  FloodSetReactor( Sm & sm, Wire::EthAddr mac, Bridging::VlanId vlanId )
      : Vex::MemberReactor< Sm, L2Rib::FloodSet >( sm, mac ), vlanId_( vlanId ) {}

  Bridging::VlanId vlanId() const { return vlanId_; }
  Wire::EthAddr mac() const { return this->fwkKey(); }

  // The flood set as a whole: new, or marked or unmarked as a zombie.
  virtual void handleFloodSet() = 0;
  // A destination that was added or removed.
  virtual void handleDestSet( const L2Rib::Dest & dest ) = 0;

private:
  void onAttribute( Vex::AttrId id, const void * key ) override {
    if ( id == L2Rib::FloodSet::destSetAttr ) {
      handleDestSet( L2Rib::FloodSet::destSetAttr.key( key ) );
    }
  }
  void handleNotifier() override { this->sm()->vex_handleFloodSet( *this ); }

  const Bridging::VlanId vlanId_;
};

// A machine's reactor on the flood sets of a VLAN; it has a `VlanMember` on each of them.
template< class Sm, class VlanMember >
class VlanFloodSetReactor : public Vex::MemberReactor< Sm, L2Rib::VlanFloodSet > {
public:
  using VexFloodSet = VlanMember;
  using Vex::MemberReactor< Sm, L2Rib::VlanFloodSet >::MemberReactor;

  Bridging::VlanId vlanId() const { return this->fwkKey(); }

  // The reactor on the flood set of a MAC address; null without one.
  VlanMember * floodSet( Wire::EthAddr mac ) const { return floodSet_.get( mac ); }
  size_t floodSets() const { return floodSet_.size(); }
  // Makes it, with which its handler runs; one that watches the flood set already stays. Null when
  // what that brought about has dropped it.
  VlanMember * newFloodSet( const Vex::Ptr< const L2Rib::FloodSet > & floodSet ) {
    const auto sm = this->sm();
    const auto vlan = vlanId();
    const auto mac = floodSet->mac();
    floodSet_.make( *sm, floodSet, vlan );
    return sm->vlanFloodSet( vlan ) == this ? floodSet_.get( mac ) : nullptr;
  }
  void floodSetIs( const Vex::Ptr< const L2Rib::FloodSet > & floodSet ) {
    const auto sm = this->sm();
    const auto vlan = vlanId();
    floodSet_.make( *sm, floodSet, vlan );
  }
  void floodSetDel( Wire::EthAddr mac ) { floodSet_.del( *this->sm(), mac ); }

protected:
  void onAttribute( Vex::AttrId id, const void * key ) override {
    if ( id == L2Rib::VlanFloodSet::floodSetAttr ) {
      const auto mac = L2Rib::VlanFloodSet::floodSetAttr.key( key );
      if ( const auto floodSet = this->notifier()->floodSet( mac ) ) {
        floodSetIs( floodSet );
      } else {
        floodSetDel( mac );
      }
    }
  }
  void handleNotifier() override {
    const auto sm = this->sm();
    const auto vlan = vlanId();
    const auto notifier = this->notifier();
    for ( const auto & [ mac, floodSet ] : notifier->floodSet() ) {
      floodSetIs( floodSet );
      if ( sm->vlanFloodSet( vlan ) != this ) {
        return; // dropped by what a destination brought about
      }
    }
    if ( this->markedForDeletion() ) {
      floodSet_.delStrays( *sm, L2Rib::VlanFloodSet::floodSetEntities::of( *notifier ) );
    }
  }

private:
  Vex::ReactorStorage< VlanMember > floodSet_;
};

} // namespace Kez
