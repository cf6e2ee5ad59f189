#include "Wiring.h"

#include "KezEvpn/Machines.h"
#include "KezHelper/Audit.h"
#include "KezHelper/EsiFilteringDecapHelperTakeover.h"
#include "KezHelper/EvpnFloodingSmHelperTakeover.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperLater.h"
#include "KezHelper/EvpnHwTunnelIdSmHelperTakeover.h"
#include "shell/Machines.h"
#include "switch/SwitchEsiFilteringDecapHelper.h"
#include "switch/SwitchFloodSets.h"
#include "switch/SwitchFloodingHelper.h"
#include "switch/SwitchHwTunnelIdHelper.h"
#include "switch/SwitchMacs.h"

#include <algorithm>
#include <concepts>

namespace LinuxPe {

namespace {

using KezShell::Role;
using Vex::Ptr;

void addTablesOf( auto & entity, KezHelper::Audit & audit ) {
  KezHelper::AuditParts parts;
  entity.addAuditParts( parts );
  audit.partsAre( &entity, std::move( parts ) );
}

// An entity that stands among the roots, or null.
template< class T > Ptr< T > standing( const KezShell::Roots & roots, const Vex::String & name ) {
  const auto * root = roots.root( name );
  return root ? Vex::dynamicCast< T >( root->entity ) : nullptr;
}

// A provider edge being made: its members in the order in which they stand here, then the machines.
class Wirer {
public:
  Wirer( const SwitchOptions & options, const Wiring & ground )
      : ground_( ground ), softSwitch_( softSwitch( options ) ) {
    chipHelper_->updateSupportedOnCreateEsiDataIs( true );
  }

  Wiring wire() {
    callHelpers();
    Kez::forEachAnswer( on_, [ this ]( const Vex::String & name, const auto & entity ) {
      hardware( name, entity );
    } );
    if ( takeover_ ) {
      takeOver();
    }
    Kez::startMachines( on_, [ this ]( const auto & name, const auto & machine ) {
      roots_.rootIs( Role::machine, name, machine );
      machines_.push_back( machine.get() );
    } );
    // What is lost after it has been accepted is tried again since an audit says so.
    const auto audit = roots_.rootIs( Role::runtime, "audit",
                                      Vex::makePtr< KezHelper::Audit >( scheduler_, takeover_ ) );
    KezShell::forEachMachine( roots_,
                              [ & ]( Kez::StateMachine & sm ) { addTablesOf( sm, *audit ); } );
    addTablesOf( *floodSets_, *audit );
    addTablesOf( *macs_, *audit );
    if ( takeover_ ) {
      sweepWhenSettled();
    }
    return { std::move( roots_ ), scheduler_, softSwitch_, lateCalls_, takeover_ };
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
  Ptr< Switch::SimulatedSwitch > books() {
    const auto there = standing< Switch::SimulatedSwitch >( ground_.roots, "switch" );
    return hardware( "switch", there ? there : Vex::makePtr< Switch::SimulatedSwitch >() );
  }
  Ptr< SoftSwitch > softSwitch( const SwitchOptions & options ) {
    return hardware( "softSwitch", ground_.softSwitch
                                       ? ground_.softSwitch
                                       : Vex::makePtr< SoftSwitch >(
                                             options, books_, forwardingInput_, on_.lagConfigDir,
                                             on_.evpnStatus, coreConfig_ ) );
  }

  // What the machines call waits for the switch's answers.
  void callHelpers() {
    on_.scheduler = scheduler_;
    on_.flooding = Vex::makePtr< KezHelper::EvpnFloodingSmHelperLater >(
        "floodingHelper", lateCalls_, chipHelper_, softSwitch_, softSwitch_->flooding() );
    on_.tunnelIds = Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelperLater >(
        "hwTunnelIdHelper", lateCalls_, tunnelIdChip_ );
    on_.decap = Vex::makePtr< KezHelper::EsiFilteringDecapHelperLater >(
        "esiFilteringDecapHelper", lateCalls_, decapChip_, softSwitch_, softSwitch_->esiPortMap() );
  }
  // What stands between machines and chip: calls of what the switch has already are answered
  // without one, and what nobody asks for is removed in the end, what uses an entry before it.
  void takeOver() {
    roots_.rootIs( Role::runtime, "takeover", takeover_ );
    floodSets_->takeoverIs( takeover_ );
    macs_->takeoverIs( takeover_ );
    on_.decap = Vex::makePtr< KezHelper::EsiFilteringDecapHelperTakeover >(
        "esiFilteringDecapHelper", takeover_, on_.decap );
    on_.flooding = Vex::makePtr< KezHelper::EvpnFloodingSmHelperTakeover >(
        "floodingHelper", takeover_, on_.flooding );
    on_.tunnelIds = Vex::makePtr< KezHelper::EvpnHwTunnelIdSmHelperTakeover >(
        "hwTunnelIdHelper", takeover_, on_.tunnelIds, on_.tunnelIdHwTunnelId );
  }
  void sweepWhenSettled() {
    takeover_->settledIs(
        [ machines = machines_, floodSets = floodSets_.get(), macs = macs_.get() ] {
          return std::ranges::all_of( machines, []( const auto * sm ) { return sm->settled(); } ) &&
                 floodSets->hasTriedAll() && macs->hasTriedAll();
        } );
    takeover_->inputsAreComplete(); // they have stood all the while
  }

  // Inputs that stand, or new ones; outputs are new.
  Kez::MachineEntities entities() {
    Kez::MachineEntities on;
    Kez::forEachInput( on, [ this ]( const Vex::String & name, auto & entity ) {
      entity = input< std::remove_reference_t< decltype( *entity ) > >( name );
    } );
    Kez::makeOutputs( on );
    Kez::forEachOutput( on, [ this ]( const Vex::String & name, const auto & entity ) {
      roots_.rootIs( Role::output, name, entity );
    } );
    return on;
  }

  const Wiring & ground_;
  KezShell::Roots roots_;
  std::vector< const Kez::StateMachine * > machines_;

  Kez::MachineEntities on_ = entities();
  // The switch's own, for its frames; no machine reads them.
  const Ptr< Switch::ForwardingInput > forwardingInput_ =
      input< Switch::ForwardingInput >( "forwardingInput" );
  const Ptr< CoreConfig > coreConfig_ = input< CoreConfig >( "coreConfig" );

  // The driver's books of what the switch has, as it has answered.
  const Ptr< Switch::SimulatedSwitch > books_ = books();
  const Ptr< SoftSwitch > softSwitch_;
  // Of these the adapters that wait for the switch read attributes and what is in the books.
  const Ptr< Switch::SwitchFloodingHelper > chipHelper_ =
      Vex::makePtr< Switch::SwitchFloodingHelper >( "floodingHelper", books_ );
  const Ptr< Switch::SwitchEsiFilteringDecapHelper > decapChip_ =
      Vex::makePtr< Switch::SwitchEsiFilteringDecapHelper >( "esiFilteringDecapHelper", books_ );
  // Which id is free the driver knows without asking.
  const Ptr< Switch::SwitchHwTunnelIdHelper > tunnelIdChip_ =
      Vex::makePtr< Switch::SwitchHwTunnelIdHelper >( "hwTunnelIdHelper", books_ );
  const Ptr< Loom::TaskScheduler > scheduler_ =
      roots_.rootIs( Role::runtime, "scheduler", Vex::makePtr< Loom::TaskScheduler >() );
  const Ptr< KezHelper::Takeover > takeover_ =
      ground_.softSwitch ? Vex::makePtr< KezHelper::Takeover >( scheduler_ ) : nullptr;
  const Ptr< KezHelper::LateCalls > lateCalls_ = roots_.rootIs(
      Role::runtime, "lateCalls", Vex::makePtr< KezHelper::LateCalls >( scheduler_ ) );
  const Ptr< Switch::SwitchFloodSets > floodSets_ =
      hardware( "switchFloodSets", Vex::makePtr< Switch::SwitchFloodSets >(
                                       books_, scheduler_->timerWheel(), on_.mplsFloodSetFecRequest,
                                       on_.mplsFloodSetFecResponse, on_.vlanFloodSetHwConfig,
                                       on_.vlanFloodSetHwStatus ) );
  const Ptr< Switch::SwitchMacs > macs_ =
      hardware( "switchMacs",
                Vex::makePtr< Switch::SwitchMacs >( books_, scheduler_->timerWheel(),
                                                    on_.macAddrFecRequest, on_.macAddrFecResponse,
                                                    on_.macAddrFecStatus, on_.macAddrHwStatus ) );
};

} // namespace

Wiring unwired( const Wiring & earlier ) {
  earlier.softSwitch->awaitAnswers( *earlier.lateCalls );
  if ( earlier.takeover ) {
    earlier.takeover->settledIs( nullptr );
  }
  Wiring ground;
  ground.roots = earlier.roots.ofRole( Role::input );
  ground.roots.rootIs( Role::hardware, "switch", earlier.roots.root( "switch" )->entity );
  ground.softSwitch = earlier.softSwitch;
  return ground;
}

Wiring wire( const SwitchOptions & options, const Wiring & ground ) {
  return Wirer( options, ground ).wire();
}

} // namespace LinuxPe
