// When the simulated switch carries out what the flooding machines' helpers ask of it, and when it
// answers: within the call, or later and in another order. FECs and their users have delays of
// their own (switch/SwitchFecs.h).
//
// With an `answerDelay` a call is answered by then. With a `shuffleSeed` besides each is answered
// at a time of its own up to that, so that later calls overtake earlier ones, and is carried out
// then or as it was made, as chance has it; one that is wanted no more by its turn may be left out.
#pragma once

#include "KezHelper/EsiFilteringDecapHelperLater.h"
#include "KezHelper/EvpnFloodingSmHelperLater.h"
#include "Loom/TimerWheel.h"
#include "Vex/Assert.h"
#include "switch/Agenda.h"
#include "switch/SimulatedSwitch.h"

namespace Switch {

class SwitchAnswers : public Vex::Entity {
  VEX_ENTITY( SwitchAnswers, "Switch::SwitchAnswers" )
  VEX_ATTRIBUTE( 1, answerDelay, Vex::Seconds ) // 0: within the call
  VEX_ATTRIBUTE( 2, shuffleSeed, uint64_t )     // 0: in order
  VEX_COMPUTED( 3, pendingAnswers, size_t )
  VEX_OUTPUT( 4, floodingHelper, KezHelper::EvpnFloodingSmHelper ) // carries calls out at once
  VEX_OUTPUT( 5, esiFilteringDecapHelper, KezHelper::EsiFilteringDecapHelper ) // likewise
  VEX_ATTRIBUTES( answerDelay, shuffleSeed, pendingAnswers, floodingHelper,
                  esiFilteringDecapHelper )

public:
  // `hardware` is told of what is carried out how long the answer takes.
  SwitchAnswers( const Vex::Ptr< Loom::TimerWheel > & timerWheel,
                 const Vex::Ptr< SimulatedSwitch > & hardware,
                 const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & floodingHelper,
                 const Vex::Ptr< KezHelper::EsiFilteringDecapHelper > & esiFilteringDecapHelper );

  KezHelper::EvpnFloodingLateChips flooding() {
    return { vlan_, dot1qMapping_, nonDfPort_, esiData_ };
  }
  KezHelper::LateEsiPortMapChip & esiPortMap() { return esiPortMap_; }

  // Whoever has called ends: what it called is carried out, and answered no more.
  void carryOutAll();

private:
  // A call that has yet to be answered.
  struct Call {
    std::function< void() > carryOut; // null once it has been
    std::function< void() > answer;
    double asked; // at which time
  };
  template< class Key, class Data, class Answer >
  class Chip final : public KezHelper::LateChip< Key, Data, Answer > {
  public:
    using Create = std::function< Answer( const Key & key, const Data & data ) >;
    using Remove = std::function< void( const Key & key, const Data & data ) >;

    Chip( SwitchAnswers & owner, Answer done, Answer refused, Create create, Remove remove )
        : owner_( owner ), done_( done ), refused_( refused ), create_( std::move( create ) ),
          remove_( std::move( remove ) ) {}

    void create( const Key & key, const Data & data ) override {
      call( key, [ this, key, data ] { return create_( key, data ); } );
    }
    void remove( const Key & key, const Data & data ) override {
      call( key, [ this, key, data ] {
        remove_( key, data );
        return done_;
      } );
    }
    void cancel( const Key & key ) override {
      if ( owner_.leavesOut( numbers_.at( key ) ) ) {
        numbers_.erase( key );
        this->answer( key, refused_ );
      }
    }

  private:
    void call( const Key & key, std::function< Answer() > carryOut ) {
      VEX_ASSERT( !numbers_.contains( key ) ); // one call a key is outstanding
      if ( owner_.answerDelay() == 0 ) {
        this->answer( key, carryOut() );
        return;
      }
      const auto answer = std::make_shared< Answer >( done_ );
      numbers_[ key ] = owner_.callIs( { [ answer, carryOut ] { *answer = carryOut(); },
                                         [ this, key, answer ] {
                                           numbers_.erase( key );
                                           this->answer( key, *answer );
                                         },
                                         Vex::Clock::now() } );
    }

    SwitchAnswers & owner_;
    const Answer done_;
    const Answer refused_;
    const Create create_;
    const Remove remove_;
    std::map< Key, uint64_t > numbers_; // of calls
  };
  template< class Key, class Data >
  using FloodingChip = Chip< Key, Data, Kez::HwProgrammingStatus >;
  template< class Key, class Data > FloodingChip< Key, Data > floodingChip();

  class Delay final : public Loom::Timer {
  public:
    Delay( const Vex::Ptr< Loom::TimerWheel > & wheel, SwitchAnswers & owner )
        : Timer( wheel ), owner_( owner ) {}

  private:
    void fire() override { owner_.doDueWork(); }
    SwitchAnswers & owner_;
  };

  uint64_t callIs( Call call );
  // Unless it has been; the answer takes so many seconds.
  void carryOut( Call & call, double latency );
  // Whether a call is carried out no more.
  bool leavesOut( uint64_t number );
  void doDueWork();
  uint64_t chance();

  const Vex::Ptr< SimulatedSwitch > hardware_;
  FloodingChip< Bridging::VlanId, Bridging::VlanIdOrNone > vlan_;
  FloodingChip< KezHelper::PortVlanKey, Bridging::VlanIdOrNone > dot1qMapping_;
  FloodingChip< KezHelper::PortVlanKey, Vex::NoValue > nonDfPort_;
  FloodingChip< KezHelper::PortVlanKey, KezHelper::EsiData > esiData_;
  Chip< Wire::IntfId, Wire::MplsLabel, Mpls::LfibHwProgrammingReturnCode > esiPortMap_;
  std::map< uint64_t, Call > calls_;
  Agenda< uint64_t > agenda_;
  uint64_t numbers_ = 0;
  Delay delay_;
};

} // namespace Switch
