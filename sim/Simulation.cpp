#include "sim/Simulation.h"

#include "sim/PrivateState.h"

#include "Vex/Clock.h"

namespace Sim {

using Vex::String;

namespace {

Agent::Wiring wireAtTimeZero() {
  Vex::Clock::virtualIs( 0 );
  return Agent::wire();
}

} // namespace

Simulation::Simulation()
    : wiring_( wireAtTimeZero() ), shell_( wiring_, nowhere_, errors_ ),
      system_( std::in_place, wiring_ ) {}

String Simulation::execute( const String & line ) {
  try {
    if ( line == compareLine ) {
      return compare();
    }
    if ( line == heardLine ) {
      hear();
    } else if ( line.starts_with( unheardLine ) ) {
      markUnheard( line );
    } else {
      executeInAgent( line );
    }
  } catch ( const Agent::BadLine & error ) {
    return "bad line: " + String( error.what() );
  }
  return brokenPromises();
}

void Simulation::executeInAgent( const String & line ) {
  const bool restarts = line == "restart";
  if ( restarts ) {
    system_.reset(); // nothing of the earlier life may be held
    unheard_.clear();
    history_ = {};
  }
  const bool sizes = line.find( "switch.capacity" ) != String::npos;
  const bool inUse = !restarts && system_->tunnelIdHwTunnelId->tunnelIdToHwTunnelIds() +
                                          system_->hwTunnelIdSm->unprogrammedTunnels() >
                                      0;
  shell_.execute( line, line );
  if ( restarts ) {
    system_.emplace( wiring_ );
  }
  history_.poolsDisturbed |= sizes && inUse;
  remember( line );
}

void Simulation::remember( const String & line ) {
  const auto & hardware = *system_->hardware;
  const bool failed = hardware.faultCount( Switch::Operation::getHwTunnelId ) > 0;
  history_.poolsDisturbed |= failed;
  history_.poolsLimited |= failed || hardware.capacityHas( Switch::Table::hwTunnelIdTypeDefault ) ||
                           hardware.capacityHas( Switch::Table::hwTunnelIdTypeSharedEsi );
  const auto mentions = [ & ]( const char * text ) { return line.find( text ) != String::npos; };
  if ( mentions( "lanConfig" ) || mentions( "vlanStatus" ) || mentions( "encapBumFilter" ) ||
       mentions( "restart" ) ) {
    judgeMembers( *system_, history_ );
  }
  if ( !mentions( "lfib" ) ) {
    return;
  }
  std::erase_if( history_.told, [ & ]( const auto & each ) {
    return wish( *system_->lfibStatus, each.first ) != each.second;
  } );
  const std::string_view tell = "set lfibTrackingStatus.routeKeyBacklog[";
  if ( line.starts_with( tell ) ) {
    const auto key = Vex::parseBriefly< Mpls::RouteKey >(
        std::string_view( line ).substr( tell.size(), line.size() - tell.size() - 1 ) );
    history_.told[ key ] = wish( *system_->lfibStatus, key );
  }
}

// What holds after every line.
String Simulation::brokenPromises() const {
  const auto & hardware = *system_->hardware;
  if ( hardware.refusalCounts() > 0 ) {
    return "wrong call " + hardware.lastRefusal();
  }
  const auto waits = []( size_t parked, const auto & sm ) {
    return parked > 0 && !sm->reviewUnprogrammed()->isScheduled();
  };
  if ( waits( system_->dot1qSm->unprogrammedDot1qs(), system_->dot1qSm ) ||
       waits( system_->floodFilterSm->unprogrammedFilters(), system_->floodFilterSm ) ||
       waits( system_->esiSm->unprogrammedEsis(), system_->esiSm ) ||
       waits( system_->lfibHwStatus->unprogrammedRoutes(), system_->decapSm ) ) {
    return "something is parked and no retry is due";
  }
  return shell_.failures() ? errors_.str() : "";
}

template< class Do > void Simulation::forEachMachine( const Do & what ) const {
  for ( const auto & root : wiring_.roots ) {
    if ( auto * machine = dynamic_cast< Kez::StateMachine * >( root.entity.get() ) ) {
      what( *machine );
    }
  }
}

void Simulation::markUnheard( const String & line ) {
  forEachMachine( [ & ]( Kez::StateMachine & machine ) {
    if ( line.find( machine.name() ) != String::npos && unheard_.insert( &machine ).second ) {
      machine.vexDoZombieReactors( true );
    }
  } );
}

void Simulation::hear() {
  for ( auto * machine : std::exchange( unheard_, {} ) ) {
    machine->vexDoZombieReactors( false );
  }
}

String Simulation::compare() {
  hear();
  auto wrong = brokenState( *system_ ); // while things are still due
  for ( const auto & line : settleLines ) {
    executeInAgent( line );
  }
  wrong += brokenPromises() + differences( *system_, history_ ) + brokenState( *system_ );
  if ( !wrong.empty() || !complete( *system_, history_ ) ) {
    return wrong;
  }
  if ( system_->wiring.scheduler->nextDeadline() ) {
    return "something is due though nothing is parked";
  }
  return reviewEverything();
}

// Every machine is made to look at all of its inputs again, and finds nothing to do.
String Simulation::reviewEverything() {
  const auto before = hardwareCalls();
  forEachMachine( []( Kez::StateMachine & machine ) {
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

namespace {

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

} // namespace

Lines inputLines( const System & system ) {
  Lines lines;
  for ( const auto & root : system.wiring.roots ) {
    if ( root.role == Agent::Role::input ) {
      addLines( *root.entity, root.entity->name(), lines );
    }
  }
  for ( const auto & [ routeKey, route ] : system.lfibStatus->route() ) {
    lines.push_back( "set lfibTrackingStatus.routeKeyBacklog[" + Vex::text( routeKey ) + "]" );
  }
  return lines;
}

} // namespace Sim
