#include "KezEvpn/frame/Findings.h"
#include "KezHelper/Audit.h"
#include "shell/ExplainCommand.h"
#include "shell/Machines.h"
#include "shell/Shell.h"
#include "shell/Show.h"

namespace KezShell {

using Vex::String;

namespace {

void check( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  Vex::expectEnd( in );
  auto * const json = session.json();
  size_t machines = 0;
  String broken;
  forEachMachine( shell.roots(), [ & ]( const Kez::StateMachine & machine ) {
    Kez::Findings findings( machine.name() );
    machine.check( findings );
    broken += findings.text();
    if ( json ) {
      json->line( [ & ] {
        json->member( "machine", machine.name() );
        json->member( "findings", findings.lines() );
      } );
    }
    ++machines;
  } );
  if ( broken.empty() && !json ) {
    session.out() << "the invariants of " << machines << " machines hold\n";
  }
  session.expectationIs( broken.empty() ? "" : "invariants are broken\n" + broken );
}

String differenceText( const KezHelper::AuditDifference & difference ) {
  const auto textOf = []( const String & data ) { return data.empty() ? "nothing" : data; };
  String text = Vex::text( difference.kind() ) + ": " + textOf( difference.inHardware() ) +
                " in hardware, " + textOf( difference.onRecord() ) + " on record";
  if ( difference.askedFor() != difference.onRecord() ) {
    text += ", " + textOf( difference.askedFor() ) + " asked for";
  }
  text += ", since " + Vex::text( difference.since() ) + " s";
  if ( difference.repair() == KezHelper::Repair::impossible ) {
    return text + "; cannot be mended";
  }
  if ( difference.repair() == KezHelper::Repair::done ) {
    text += difference.onRecord().empty() ? "; removed" : "; to be tried again";
  }
  return text;
}

void putDifference( Vex::JsonWriter & out, const KezHelper::AuditDifference & difference ) {
  out.member( "entry", difference.entry() );
  out.member( "machine", difference.machine() );
  out.member( "kind", Vex::text( difference.kind() ) );
  out.member( "inHardware", difference.inHardware() );
  out.member( "onRecord", difference.onRecord() );
  out.member( "askedFor", difference.askedFor() );
  out.member( "since", difference.since() );
  out.member( "repair", Vex::text( difference.repair() ) );
}

void auditInJson( Vex::JsonWriter & out, const KezHelper::Audit & audit, uint32_t found ) {
  out.line( [ & ] {
    out.member( "underWay", audit.isUnderWay() );
    out.member( "compared", audit.compared() );
    out.member( "found", found );
  } );
  for ( const auto & [ entry, difference ] : audit.difference() ) {
    out.line( [ &, &each = *difference ] { putDifference( out, each ); } );
  }
}

void audit( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  bool repairs = false;
  if ( !in.done() ) {
    const size_t offset = in.offset();
    const auto how = takeRest( in );
    if ( how != "repair" ) {
      failAt( offset, "repair or the end of the line", how );
    }
    repairs = true;
  }
  const auto * const root = shell.roots().root( "audit" );
  const auto audit = root ? Vex::dynamicCast< KezHelper::Audit >( root->entity ) : nullptr;
  if ( !audit ) {
    throw BadLine( 1, "there is no agent, which restart makes" );
  }
  audit->begin( repairs );
  shell.host().runTasks( session );
  uint32_t found = 0;
  for ( const auto [ kind, times ] : audit->found() ) {
    found += times;
  }
  if ( auto * const json = session.json() ) {
    auditInJson( *json, *audit, found );
    return;
  }
  auto & out = session.out();
  if ( audit->isUnderWay() ) {
    out << "it goes on when hardware has been taken over, which show takeover tells of\n";
    return;
  }
  if ( found == 0 ) {
    out << "hardware has what is on record and asked for; entries compared: " << audit->compared()
        << '\n';
  }
  std::vector< std::vector< String > > rows;
  for ( const auto & [ entry, difference ] : audit->difference() ) {
    rows.push_back( { "  " + difference->machine(), entry, differenceText( *difference ) } );
  }
  showTable( out, rows );
  if ( found > audit->differences() ) {
    out << "and " << found - audit->differences() << " more\n";
  }
}

} // namespace

void addMachineCommands( Shell & shell ) {
  addExplain( shell );
  shell.commandIs(
      { "check", "", "prove the invariants of all machines",
        "Says what of a machine's own state is not as the machine states, or that everything is.\n"
        "What is broken counts as an expectation that failed.\n"
        "  check\n",
        Effect::none,
        [ &shell ]( Vex::TextCursor & in, Session & session ) { check( shell, in, session ); } },
      "call" );
}

void addAudit( Shell & shell ) {
  shell.commandIs(
      { "audit", "[repair]",
        "compare hardware with what machines have on record and inputs ask for",
        "Goes round all tables once and says what is missing in hardware, unexpected or different, "
        "and\n"
        "what a machine lags behind by rule. With repair what is wrong is removed, and what is on\n"
        "record tried again by the machine's next review. audit.difference keeps what the last "
        "round\n"
        "found; with audit.interval there is a round every so many seconds, which repairs with\n"
        "audit.repairs.\n"
        "  audit\n"
        "  set audit.interval 60\n",
        Effect::changes,
        [ &shell ]( Vex::TextCursor & in, Session & session ) { audit( shell, in, session ); } },
      "call" );
}

} // namespace KezShell
