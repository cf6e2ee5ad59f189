#include "agent/Wiring.h"

#include "KezEvpn/Machines.h"
#include "KezHelper/Audit.h"
#include "KezHelper/EsiFilteringDecapHelperLater.h"
#include "KezHelper/EsiFilteringDecapHelperTakeover.h"
#include "KezHelper/EvpnFloodingSmHelperLater.h"
#include "KezHelper/EvpnFloodingSmHelperTakeover.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperLater.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperTakeover.h"
#include "shell/Machines.h"
#include "switch/ForwardingInput.h"
#include "switch/SwitchAnswers.h"
#include "switch/SwitchEsiFilteringDecapHelper.h"
#include "switch/SwitchFloodSets.h"
#include "switch/SwitchFloodingHelper.h"
#include "switch/SwitchHwTunnelIdHelper.h"
#include "switch/SwitchJournal.h"
#include "switch/SwitchMacs.h"

#include <algorithm>
#include <concepts>

namespace Agent {

namespace {

using Switch::SimulatedSwitch;
using Vex::Ptr;

// An entity that stands among the roots, or null.
template< class T > Ptr< T > standing( const Roots & roots, const Vex::String & name ) {
  const auto * root = roots.root( name );
  return root ? Vex::dynamicCast< T >( root->entity ) : nullptr;
}

// Those whom the takeover asks, which it does not hold: they hold it. The next agent's ground is
// laid before they end, which is when it ceases to ask.
std::vector< const Kez::StateMachine * > machinesOf( const Wiring & wiring ) {
  std::vector< const Kez::StateMachine * > machines;
  KezShell::forEachMachine( wiring.roots,
                            [ & ]( const Kez::StateMachine & sm ) { machines.push_back( &sm ); } );
  return machines;
}

void addTablesOf( auto & entity, KezHelper::Audit & audit ) {
  KezHelper::AuditParts parts;
  entity.addAuditParts( parts );
  audit.partsAre( &entity, std::move( parts ) );
}

// An agent being made: the members, then the machines, in the order in which they stand here. Each
// stands before what is handed it, and `show` lists the roots in that order.
class Wirer {
public:
  explicit Wirer( const Wiring & ground ) : ground_( ground ) {}

  Wiring wire() {
    callHelpers();
    Kez::forEachAnswer( on_, [ this ]( const Vex::String & name, const auto & entity ) {
      hardware( name, entity );
    } );
    const auto floodSets =
        hardware( "switchFloodSets", Vex::makePtr< Switch::SwitchFloodSets >(
                                         hardware_, scheduler_->timerWheel(),
                                         on_.mplsFloodSetFecRequest, on_.mplsFloodSetFecResponse,
                                         on_.vlanFloodSetHwConfig, on_.vlanFloodSetHwStatus ) );
    const auto macs =
        hardware( "switchMacs",
                  Vex::makePtr< Switch::SwitchMacs >( hardware_, scheduler_->timerWheel(),
                                                      on_.macAddrFecRequest, on_.macAddrFecResponse,
                                                      on_.macAddrFecStatus, on_.macAddrHwStatus ) );
    if ( takeover_ ) {
      takeOver( *floodSets, *macs );
    }
    Kez::startMachines( on_, [ this ]( const auto & name, const auto & machine ) {
      roots_.rootIs( Role::machine, name, machine );
    } );
    Wiring wiring{ std::move( roots_ ), scheduler_, hardware_, takeover_ };
    const auto audit = wiring.roots.rootIs(
        Role::runtime, "audit", Vex::makePtr< KezHelper::Audit >( scheduler_, takeover_ ) );
    KezShell::forEachMachine( wiring.roots,
                              [ & ]( Kez::StateMachine & sm ) { addTablesOf( sm, *audit ); } );
    addTablesOf( *floodSets, *audit );
    addTablesOf( *macs, *audit );
    if ( takeover_ ) {
      takeover_->settledIs( [ machines = machinesOf( wiring ), floodSets = floodSets.get(),
                              macs = macs.get() ] {
        return std::ranges::all_of( machines, []( const auto * sm ) { return sm->settled(); } ) &&
               floodSets->hasTriedAll() && macs->hasTriedAll();
      } );
    }
    return wiring;
  }

private:
  template< class T > Ptr< T > input( const Vex::String & name ) {
    auto entity = standing< T >( ground_.roots, name );
    if ( !entity ) {
      if constexpr ( std::default_initializable< T > ) {
        entity = Vex::makePtr< T >();
      } else {
        entity = Vex::makePtr< T >( name );
      }
    }
    return roots_.rootIs( Role::input, name, entity );
  }
  template< class T > Ptr< T > hardware( const Vex::String & name, const Ptr< T > & entity ) {
    return roots_.rootIs( Role::hardware, name, entity );
  }
  // Of the switch, with what was set of it.
  template< class T > Ptr< T > helper( const Vex::String & name ) {
    const auto there = standing< T >( ground_.roots, name );
    return hardware( name, there ? there : Vex::makePtr< T >( name, hardware_ ) );
  }
  // With what was set of an earlier one.
  Ptr< Switch::SwitchAnswers > switchAnswers() {
    auto answers = Vex::makePtr< Switch::SwitchAnswers >(
        scheduler_->timerWheel(), hardware_, floodingHelper_, esiFilteringDecapHelper_ );
    if ( const auto earlier =
             standing< Switch::SwitchAnswers >( ground_.roots, "switchAnswers" ) ) {
      answers->answerDelayIs( earlier->answerDelay() );
      answers->shuffleSeedIs( earlier->shuffleSeed() );
    }
    return answers;
  }
  // What the machines call: what waits for the switch's answers, until something takes over above.
  void callHelpers() {
    on_.scheduler = scheduler_;
    on_.flooding = Vex::makePtr< KezHelper::EvpnFloodingSmHelperLater >(
        "floodingHelper", lateCalls_, floodingHelper_, switchAnswers_, switchAnswers_->flooding() );
    on_.tunnelIds = Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelperLater >(
        "hwTunnelIdHelper", lateCalls_, hwTunnelIdHelper_ );
    on_.decap = Vex::makePtr< KezHelper::EsiFilteringDecapHelperLater >(
        "esiFilteringDecapHelper", lateCalls_, esiFilteringDecapHelper_, switchAnswers_,
        switchAnswers_->esiPortMap() );
  }
  // What uses an entry is swept before it: destinations and hosts before FECs, mappings before
  // VLANs, and all that names a hardware tunnel id before the ids.
  void takeOver( Switch::SwitchFloodSets & floodSets, Switch::SwitchMacs & macs ) {
    roots_.rootIs( Role::runtime, "takeover", takeover_ );
    floodSets.takeoverIs( takeover_ );
    macs.takeoverIs( takeover_ );
    on_.decap = Vex::makePtr< KezHelper::EsiFilteringDecapHelperTakeover >(
        "esiFilteringDecapHelper", takeover_, on_.decap );
    on_.flooding = Vex::makePtr< KezHelper::EvpnFloodingSmHelperTakeover >(
        "floodingHelper", takeover_, on_.flooding );
    on_.tunnelIds = Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelperTakeover >(
        "hwTunnelIdHelper", takeover_, on_.tunnelIds, on_.tunnelIdHwTunnelId );
  }

  // Inputs that stand, or new ones; outputs are new.
  Kez::MachineEntities entities() {
    Kez::MachineEntities on;
    Kez::forEachInput( on, [ this ]( const Vex::String & name, auto & entity ) {
      entity = input< std::remove_reference_t< decltype( *entity ) > >( name );
    } );
    // The switch's own, for its frames; no machine reads it.
    input< Switch::ForwardingInput >( "forwardingInput" );
    Kez::makeOutputs( on );
    Kez::forEachOutput( on, [ this ]( const Vex::String & name, const auto & entity ) {
      roots_.rootIs( Role::output, name, entity );
    } );
    return on;
  }

  const Wiring & ground_;
  Roots roots_;

  Kez::MachineEntities on_ = entities();
  // The switch stands before any machine does, so that what one asks for as it starts is answered.
  const Ptr< SimulatedSwitch > hardware_ = hardware( "switch", ground_.hardware );
  const Ptr< Switch::SwitchFloodingHelper > floodingHelper_ =
      helper< Switch::SwitchFloodingHelper >( "floodingHelper" );
  const Ptr< Switch::SwitchHwTunnelIdHelper > hwTunnelIdHelper_ =
      helper< Switch::SwitchHwTunnelIdHelper >( "hwTunnelIdHelper" );
  const Ptr< Switch::SwitchEsiFilteringDecapHelper > esiFilteringDecapHelper_ =
      helper< Switch::SwitchEsiFilteringDecapHelper >( "esiFilteringDecapHelper" );
  const Ptr< KezHelper::Takeover > takeover_ = ground_.takeover;
  const Ptr< Loom::TaskScheduler > scheduler_ =
      roots_.rootIs( Role::runtime, "scheduler", ground_.scheduler );
  const Ptr< Switch::SwitchAnswers > switchAnswers_ = hardware( "switchAnswers", switchAnswers() );
  const Ptr< KezHelper::LateCalls > lateCalls_ = roots_.rootIs(
      Role::runtime, "lateCalls", Vex::makePtr< KezHelper::LateCalls >( scheduler_ ) );
};

} // namespace

Wiring unwired( const Wiring & earlier, Hardware hardware ) {
  Wiring ground;
  ground.roots = earlier.roots.ofRole( Role::input );
  ground.scheduler = Vex::makePtr< Loom::TaskScheduler >();
  if ( earlier.takeover ) {
    earlier.takeover->settledIs( nullptr );
  }
  if ( earlier.hardware && hardware == Hardware::stays ) {
    for ( const auto * name :
          { "floodingHelper", "hwTunnelIdHelper", "esiFilteringDecapHelper", "switchAnswers" } ) {
      if ( const auto * const helper = earlier.roots.root( name ) ) {
        ground.roots.rootIs( Role::hardware, name, helper->entity );
      }
    }
    if ( const auto answers =
             standing< Switch::SwitchAnswers >( earlier.roots, "switchAnswers" ) ) {
      answers->carryOutAll();
    }
    ground.hardware = earlier.hardware;
    takeoverIs( ground );
    return ground;
  }
  ground.hardware = Vex::makePtr< SimulatedSwitch >();
  if ( earlier.hardware ) {
    for ( const auto [ table, entries ] : earlier.hardware->capacity() ) {
      ground.hardware->capacityIs( table, entries );
    }
    ground.hardware->listenersOf( *earlier.hardware );
    if ( auto * const journal = earlier.hardware->journal() ) {
      journal->startOver( *ground.hardware );
    }
  }
  return ground;
}

void takeoverIs( Wiring & ground ) {
  ground.takeover = Vex::makePtr< KezHelper::Takeover >( ground.scheduler );
}

Wiring wire( const Wiring & ground ) {
  return Wirer( ground ).wire();
}

} // namespace Agent
