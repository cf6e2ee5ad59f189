#include "sim/Simulation.h"

#include "sim/Differences.h"
#include "sim/PrivateState.h"
#include "sim/TunnelExpectations.h"

#include "KezEvpn/frame/Findings.h"
#include "Vex/Clock.h"
#include "shell/Machines.h"

#include <algorithm>
#include <filesystem>
#include <unistd.h>

namespace Sim {

using Vex::String;

namespace {

Agent::Wiring wireAtTimeZero() {
  Vex::Clock::virtualIs( 0 );
  return Agent::wire();
}

void addLines( const Vex::Entity & entity, const String & path, Lines & lines ) {
  for ( const auto * attribute : entity.fwkType().attributes() ) {
    const auto at = ( path + "." ).append( attribute->name );
    if ( attribute->keyed() ) {
      attribute->forEach( entity, [ & ]( const Vex::ReflectedMember & member ) {
        const auto one = ( at + "[" ).append( member.key ).append( "]" );
        lines.push_back( ( "set " + one ).append( " " ).append( member.value ) );
        if ( member.entity ) {
          addLines( *member.entity, one, lines );
        }
      } );
    } else if ( const auto value = attribute->value( entity ); !value.empty() ) {
      lines.push_back( ( "set " + at ).append( " " ).append( value ) );
    }
  }
}

constexpr std::string_view tellOfRoute = "set lfibTrackingStatus.routeKeyBacklog[";

// All that hardware has, as paths and values.
using Entries = std::map< String, String >;

void addEntries( const Vex::Entity & entity, const String & path, Entries & entries ) {
  static const std::set< std::string_view > tables{ "vlan",    "dot1qMapping", "nonDfPort",
                                                    "esiData", "esiPortMap",   "hwTunnelIdPool",
                                                    "inUse",   "fec",          "floodSetDest",
                                                    "macEntry" };
  for ( const auto * attribute : entity.fwkType().attributes() ) {
    if ( tables.contains( attribute->name ) ) {
      attribute->forEach( entity, [ & ]( const Vex::ReflectedMember & member ) {
        const auto at = path + String( attribute->name ) + " " + String( member.key );
        member.entity ? addEntries( *member.entity, at + " ", entries )
                      : void( entries[ at ] = member.value );
      } );
    }
  }
}

Entries hardwareEntries( const Switch::SimulatedSwitch & hardware ) {
  Entries entries;
  addEntries( hardware, "", entries );
  return entries;
}

// The calls that make them, at least and at most: a FEC that is another one by its contents may
// come to have the id of one that goes.
struct Changes {
  uint64_t least = 0;
  uint64_t most = 0;
  String text;
  String others; // than of FECs, which are known by their contents alone, and what uses them

  void add( const char * how, const String & at, const String & value ) {
    const auto line = how + at + " " + value + "\n";
    text += line;
    if ( !at.starts_with( "fec " ) && !at.starts_with( "floodSetDest " ) &&
         !at.starts_with( "macEntry " ) ) {
      others += line;
    }
  }
};

Changes changes( const Entries & before, const Switch::SimulatedSwitch & hardware,
                 bool updatesEsiData ) {
  Changes all;
  auto gone = before;
  for ( const auto & [ at, value ] : hardwareEntries( hardware ) ) {
    const auto stood = gone.extract( at );
    if ( stood && stood.mapped() == value ) {
      continue;
    }
    const bool fec = at.starts_with( "fec " );
    const bool inPlace =
        at.starts_with( "macEntry " ) || ( updatesEsiData && at.starts_with( "esiData " ) );
    all.least += stood && !inPlace && !fec ? 2 : 1;
    all.most += stood && !inPlace ? 2 : 1;
    all.add( stood ? "changed " : "new ", at, value );
  }
  all.least += gone.size();
  all.most += gone.size();
  for ( const auto & [ at, value ] : gone ) {
    all.add( "gone ", at, value );
  }
  return all;
}

// Whether hardware lags behind no input, nor behind what a route asks for that was not told of.
bool follows( const System & system, const History & history ) {
  const Kez::EsiFilteringDecapSm & decapSm = *system.decapSm;
  std::set< Mpls::RouteKey > routes;
  for ( const auto & [ routeKey, route ] : system.lfibStatus->route() ) {
    routes.insert( routeKey );
  }
  for ( const auto & [ intfId, routeKey ] : decapSm.intfRoute() ) {
    routes.insert( routeKey );
  }
  const bool told = std::ranges::all_of(
      routes, [ & ]( const auto & routeKey ) { return history.told.contains( routeKey ); } );
  return told && system.esiSm->reprogramChangedEsi() && system.esiSm->unprogramUnusableLabel() &&
         system.hwTunnelIdSm->retryLackingTunnel() && decapSm.unprogramOtherViaType();
}

// What must come through a restart, though everybody who knew it ends.
class BeforeRestart {
public:
  explicit BeforeRestart( const System & system ) : lasting_( lasting( system ) ) {
    const Kez::EsiFilteringDecapSm & sm = *system.decapSm;
    for ( const auto & [ intfId, routeKey ] : sm.intfRoute() ) {
      if ( !system.lfibTrackingStatus->routeKeyBacklogHas( routeKey ) &&
           wish( *system.lfibStatus, routeKey ).intfId == intfId ) {
        holders_.emplace( intfId, routeKey );
      }
    }
    const auto & table = system.lfibHwStatus->unprogrammedRouteTable();
    for ( const auto & [ routeKey, code ] : table.range() ) {
      if ( table.mountStatus() == Rook::MountStatus::mounted && isConflict( code ) ) {
        refused_.insert( routeKey );
      }
    }
  }

  void compare( const System & after, Differences & out ) const {
    out.same( "after a restart the agent", lasting_, lasting( after ) );
    const Kez::EsiFilteringDecapSm & sm = *after.decapSm;
    for ( const auto & [ intfId, holder ] : holders_ ) {
      const auto parked = after.lfibHwStatus->unprogrammedRoute( holder );
      const auto taker = sm.intfRoute( intfId );
      out.expect( !parked || !isConflict( parked->returnCode ) || !refused_.contains( taker ),
                  "route " + textOf( taker ) + " took " + textOf( intfId ) + " from route " +
                      textOf( holder ) + " by a restart" );
    }
  }

private:
  static bool isConflict( Mpls::LfibHwProgrammingReturnCode code ) {
    return code == Mpls::LfibHwProgrammingReturnCode::conflict;
  }
  // The inputs, but for what machines take from them, and sizes.
  static std::set< String > lasting( const System & system ) {
    auto lines = setOf( inputLines( system ) );
    std::erase_if( lines, []( const auto & line ) { return line.starts_with( tellOfRoute ); } );
    for ( const auto [ table, entries ] : system.hardware->capacity() ) {
      lines.insert( "switch.capacity[" + textOf( table ) + "] " + textOf( entries ) );
    }
    return lines;
  }

  const std::set< String > lasting_;
  std::map< Wire::IntfId, Mpls::RouteKey > holders_; // and want the interface still
  std::set< Mpls::RouteKey > refused_;               // for a conflict, which stands in a file
};

} // namespace

Vex::String tablesOf( pid_t process ) {
  return std::filesystem::temp_directory_path() / ( "kez-sim-" + std::to_string( process ) );
}

Simulation::Simulation()
    : wiring_( wireAtTimeZero() ), shell_( wiring_, nowhere_, errors_ ),
      system_( std::in_place, wiring_ ) {}

Simulation::~Simulation() {
  if ( !tables_.empty() ) {
    std::filesystem::remove_all( tables_ );
    std::error_code others;
    std::filesystem::remove( std::filesystem::path( tables_ ).parent_path(), others );
  }
}

String Simulation::execute( const String & line ) {
  auto wrong = executeOne( line );
  return wrong.empty() && ++lines_ % linesACheck == 0 ? brokenInvariants() : wrong;
}

String Simulation::executeOne( const String & line ) {
  try {
    if ( line == compareLine ) {
      return compare();
    }
    if ( line == hitlessLine ) {
      return restartHitless();
    }
    if ( line.starts_with( tamperLine ) ) {
      return tamper( line.substr( tamperLine.size() ) );
    }
    if ( line.starts_with( "restart" ) ) {
      return restart( line ) + brokenPromises();
    }
    for ( const auto kind : { unheardLine, silentLine, heardLine } ) {
      if ( line.starts_with( kind ) ) {
        tellMachines( std::string_view( line ).substr( kind.size() ), kind );
        return brokenPromises();
      }
    }
    if ( line == tablesLine ) {
      static size_t number = 0;
      tables_ = tablesOf( getpid() ) + "/" + std::to_string( ++number );
    } else {
      executeInAgent( line );
    }
  } catch ( const Agent::BadLine & error ) {
    return "bad line: " + String( error.what() );
  }
  return brokenPromises();
}

void Simulation::executeInAgent( const String & line ) {
  const bool sizes = line.find( "switch.capacity" ) != String::npos;
  const bool inUse = system_->tunnelIdHwTunnelId->tunnelIdToHwTunnelIds() +
                         system_->hwTunnelIdSm->unprogrammedTunnels() >
                     0;
  shell_.execute( line, line );
  history_.poolsDisturbed |= sizes && inUse;
  remember( line );
}

String Simulation::restart( const String & line ) {
  const BeforeRestart before( *system_ );
  system_.reset(); // nothing of the earlier life may be held
  deaf_.clear();
  Rook::mountDirectoryIs( tables_ );
  shell_.execute( line, line );
  Rook::mountDirectoryIs( "" );
  system_.emplace( wiring_ );
  startAnew( *system_, history_ );
  remember( line );
  Differences out;
  before.compare( *system_, out );
  return out.text();
}

void Simulation::remember( const String & line ) {
  const auto & hardware = *system_->hardware;
  const bool failed = hardware.faultCount( Switch::Operation::getHwTunnelId ) > 0;
  history_.poolsDisturbed |= failed;
  history_.poolsLimited |= failed || hardware.capacityHas( Switch::Table::hwTunnelIdTypeDefault ) ||
                           hardware.capacityHas( Switch::Table::hwTunnelIdTypeSharedEsi );
  history_.updatesInPlace |= system_->floodingHelper->updateSupportedOnCreateEsiData();
  const auto mentions = [ & ]( const char * text ) { return line.find( text ) != String::npos; };
  if ( ( mentions( "lanConfig" ) || mentions( "vlanStatus" ) || mentions( "encapBumFilter" ) ) &&
       !isDeaf( *system_->membershipSm ) ) {
    judgeMembers( *system_, history_ );
  }
  if ( !mentions( "lfib" ) ) {
    return;
  }
  std::erase_if( history_.told, [ & ]( const auto & each ) {
    return wish( *system_->lfibStatus, each.first ) != each.second;
  } );
  if ( line.starts_with( tellOfRoute ) ) {
    const auto key = Vex::parseBriefly< Mpls::RouteKey >( std::string_view( line ).substr(
        tellOfRoute.size(), line.size() - tellOfRoute.size() - 1 ) );
    history_.told[ key ] = wish( *system_->lfibStatus, key );
  }
}

// What holds after every line.
String Simulation::brokenPromises() const {
  const auto & hardware = *system_->hardware;
  if ( hardware.refusalCounts() > 0 ) {
    return "wrong call " + hardware.lastRefusal();
  }
  return shell_.failures() ? errors_.str() : "";
}

// What machines state of themselves, but for those that cannot know.
String Simulation::brokenInvariants() const {
  String broken;
  KezShell::forEachMachine( wiring_.roots, [ & ]( const Kez::StateMachine & machine ) {
    if ( !isDeaf( machine ) ) {
      Kez::Findings findings( machine.name() );
      machine.check( findings );
      broken += findings.text();
    }
  } );
  return broken;
}

void Simulation::tellMachines( std::string_view names, std::string_view kind ) {
  std::vector< Kez::StateMachine * > named;
  std::istringstream in{ String( names ) };
  for ( String name; in >> name; ) {
    KezShell::forEachMachine( wiring_.roots, [ & ]( Kez::StateMachine & machine ) {
      if ( machine.name() == name ) {
        named.push_back( &machine );
      }
    } );
  }
  if ( kind == heardLine && named.empty() ) {
    named = deaf_;
  }
  for ( auto * machine : named ) {
    if ( kind == heardLine ) {
      hear( *machine );
      continue;
    }
    if ( !isDeaf( *machine ) ) {
      deaf_.push_back( machine );
    }
    if ( kind == silentLine ) {
      machine->hasNotificationActiveIs( false );
    } else {
      machine->vexDoZombieReactors( true );
    }
  }
}

bool Simulation::isDeaf( const Kez::StateMachine & machine ) const {
  return std::find( deaf_.begin(), deaf_.end(), &machine ) != deaf_.end();
}

// A machine that is told of changes again has not heard of the earlier ones: the mark is what makes
// it look.
void Simulation::hear( Kez::StateMachine & machine ) {
  if ( std::erase( deaf_, &machine ) == 0 ) {
    return;
  }
  if ( !machine.hasNotificationActive() ) {
    machine.hasNotificationActiveIs( true );
    machine.vexDoZombieReactors( true );
  }
  machine.vexDoZombieReactors( false );
  if ( &machine == system_->membershipSm.get() ) {
    judgeMembersAnew( *system_, history_ );
  }
}

String Simulation::compare() {
  tellMachines( {}, heardLine );
  if ( auto broken = brokenInvariants(); !broken.empty() ) {
    return broken;
  }
  auto wrong = brokenState( *system_ ) + audited( false ); // while things are still due
  wrong += settle();
  if ( system_->lateCalls->pending() > 0 ) {
    return wrong + "entries are pending though hardware has answered";
  }
  wrong += brokenInvariants() + differences( *system_, history_ ) + brokenState( *system_ );
  wrong += audited( follows( *system_, history_ ) );
  if ( !wrong.empty() || !complete( *system_, history_ ) ) {
    return wrong;
  }
  if ( system_->wiring.scheduler->nextDeadline() ) {
    return "something is due though nothing is parked";
  }
  return reviewEverything();
}

// An answer that was given stands, also where its FEC finds no room any more; and a call that is
// under way may be wrong by then, be it one of a task that is due.
String Simulation::tamper( const String & line ) {
  shell_.catchUp();
  const bool takesOver = wiring_.takeover && !wiring_.takeover->hasEnded();
  if ( takesOver || system_->hardware->capacityHas( Switch::Table::fec ) ||
       system_->lateCalls->pending() > 0 ) {
    return "";
  }
  executeInAgent( line );
  executeInAgent( "audit repair" );
  for ( const auto & [ entry, difference ] : system_->audit->difference() ) {
    if ( difference->repair() == KezHelper::Repair::impossible ) {
      return "an audit cannot mend " + entry + "\n";
    }
  }
  return settle();
}

String Simulation::audited( bool nothingLags ) {
  if ( wiring_.takeover && !wiring_.takeover->hasEnded() ) {
    return "";
  }
  executeInAgent( "audit" );
  String wrong;
  for ( const auto & [ entry, difference ] : system_->audit->difference() ) {
    if ( nothingLags || difference->kind() != KezHelper::DifferenceKind::lagging ) {
      wrong += "audit: " + entry + " is " + Vex::text( difference->kind() ) + ": in hardware " +
               difference->inHardware() + ", on record " + difference->onRecord() + ", asked for " +
               difference->askedFor() + "\n";
    }
  }
  return wrong;
}

String Simulation::settle() {
  for ( const auto & line : settleLines ) {
    executeInAgent( line );
  }
  return brokenPromises();
}

String Simulation::restartHitless() {
  tellMachines( {}, heardLine );
  auto wrong = settle();
  // Tunnels that lack an id or have one of another type than they need come by those of others; and
  // a host whose new FEC has no room beside the old one is without any meanwhile.
  const bool exact =
      tunnelsComplete( *system_ ) && system_->hardware->hasRoom( Switch::Table::fec );
  const bool same = exact && complete( *system_, history_ ) && follows( *system_, history_ );
  const auto before = hardwareEntries( *system_->hardware );
  const auto calls = hardwareChanges();
  wrong += restart( "restart hitless" );
  wrong += settle();
  const auto expected = changes( before, *system_->hardware,
                                 system_->floodingHelper->updateSupportedOnCreateEsiData() );
  if ( !wiring_.takeover->hasEnded() ) {
    wrong += "a takeover does not end\n";
  }
  const auto made = hardwareChanges() - calls;
  if ( made < expected.least || ( exact && made > expected.most ) ) {
    wrong += std::to_string( made ) + " calls, and hardware differs by " +
             std::to_string( expected.least ) + ":\n" + expected.text;
  }
  if ( same ) {
    wrong += expected.others;
  }
  return wrong;
}

// Every machine is made to look at all of its inputs again, and finds nothing to do.
String Simulation::reviewEverything() {
  const auto before = hardwareCalls();
  KezShell::forEachMachine( wiring_.roots, []( Kez::StateMachine & machine ) {
    machine.vexDoZombieReactors( true );
    machine.vexDoZombieReactors( false );
  } );
  executeInAgent( "advance 60" );
  if ( hardwareCalls() != before ) {
    return "a review of everything goes to hardware though nothing is parked";
  }
  const auto wrong = brokenPromises() + differences( *system_, history_ );
  return wrong.empty() ? "" : "after a review of everything: " + wrong;
}

uint64_t Simulation::hardwareCalls() const {
  uint64_t calls = 0;
  for ( const auto [ operation, count ] : system_->hardware->callCount() ) {
    calls += count;
  }
  return calls;
}

uint64_t Simulation::hardwareChanges() const {
  uint64_t calls = 0;
  for ( const auto [ operation, count ] : system_->hardware->successCount() ) {
    calls += count;
  }
  return calls;
}

std::optional< Outcome > run( const Lines & lines, volatile size_t * line ) {
  Simulation simulation;
  for ( size_t i = 0; i < lines.size(); ++i ) {
    if ( line ) {
      *line = i;
    }
    if ( auto wrong = simulation.execute( lines[ i ] ); !wrong.empty() ) {
      return Outcome{ i, std::move( wrong ) };
    }
  }
  return std::nullopt;
}

const std::vector< String > & machineNames() {
  static const auto names = [] {
    std::vector< String > all;
    for ( const auto & root : wireAtTimeZero().roots.ofRole( Agent::Role::machine ) ) {
      all.push_back( root.entity->name() );
    }
    return all;
  }();
  return names;
}

Lines inputLines( const System & system ) {
  Lines lines;
  for ( const auto & root : system.wiring.roots ) {
    if ( root.role == Agent::Role::input ) {
      addLines( *root.entity, root.entity->name(), lines );
    }
  }
  for ( const auto & [ routeKey, route ] : system.lfibStatus->route() ) {
    lines.push_back( String( tellOfRoute ) + Vex::text( routeKey ) + "]" );
  }
  return lines;
}

} // namespace Sim
