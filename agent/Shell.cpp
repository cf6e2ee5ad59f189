#include "agent/Shell.h"

#include "KezEvpn/frame/Explain.h"
#include "KezEvpn/frame/Findings.h"
#include "KezHelper/Audit.h"
#include "Ringlog/Setting.h"
#include "Ringlog/TextTrace.h"
#include "Vex/Clock.h"
#include "Vex/Domain.h"
#include "agent/Send.h"
#include "record/RecordEntry.h"
#include "shell/Show.h"

namespace Agent {

using Vex::String;

struct Shell::Command {
  String name;
  String arguments;
  String summary;
  String detail;
  void ( Shell::*run )( Vex::TextCursor & );
};

static String differenceText( const KezHelper::AuditDifference & difference ) {
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

const std::vector< Shell::Command > & Shell::commands() {
  static const std::vector< Command > all{
    { "set", "PATH [VALUE]", "set a value or add a member",
      "Sets a value, adds or replaces a member of a map, adds a member to a set or makes an\n"
      "entity. Entities that are missing on the way are made.\n"
      "  set lagConfigDir.lagConfig[Port-Channel1].member[Ethernet1] portProgRxTx\n"
      "  set evpnStatus.encapBumFilter[Ethernet1]\n",
      &Shell::set },
    { "del", "PATH", "delete a member, empty a collection, unset a value",
      "Deletes a member, all members when no key is given, or sets a value back to what it is at\n"
      "first. It is no error when there is nothing to delete.\n"
      "  del lagConfigDir.lagConfig[Port-Channel1].member[Ethernet1]\n"
      "  del lagConfigDir.lagConfig\n",
      &Shell::del },
    { "show", "[PATH]", "show everything at a glance, or what stands at a path",
      "Without a path: all roots, their classes and the sizes of their collections. With one:\n"
      "the entity or collection as a tree, or the value.\n"
      "  show\n"
      "  show evpnLagMemberInfo\n",
      &Shell::show },
    { "expect", "[no] PATH [VALUE | count N]", "check what stands at a path",
      "Checks that a path is there, is not there, has a value, or is a collection of so many\n"
      "members. A collection is there while it has members. What fails is reported with both\n"
      "values, and the session goes on. With send and a frame: which copies are made of it, in any\n"
      "order.\n"
      "  expect evpnLagMemberInfo.lagToPort[Port-Channel1] Ethernet1,Ethernet2\n"
      "  expect evpnVlanStatus.vlanStatus[10].member[Ethernet1]\n"
      "  expect no evpnVlanStatus.vlanStatus[10]\n"
      "  expect evpnVlanStatus.vlanStatus count 2\n"
      "  expect send Ethernet1 tag 110 to ff:ff:ff:ff:ff:ff copies Ethernet2 tag 110, tunnel 5 "
      "labels 100\n",
      &Shell::expect },
    { "send", "FRAME", "tell what the switch does to a frame",
      "Shows the copies that the switch makes of it by its tables, and for each that it does not\n"
      "make the entry that stopped it. FRAME is one of\n"
      "  PORT [tag N] [from MAC] to MAC\n"
      "  tunnel T labels LABEL[,ESI-LABEL] [from MAC] to MAC\n"
      "for instance\n"
      "  send Ethernet1 tag 110 from 00:00:00:00:00:01 to ff:ff:ff:ff:ff:ff\n"
      "  send tunnel 5 labels 100,500 to ff:ff:ff:ff:ff:ff\n",
      &Shell::send },
    { "explain", "SUBJECT", "tell why something is in hardware or what it waits for",
      "Every machine that has to do with the subject tells how it stands there. SUBJECT is one of\n"
      "  pair INTERFACE,VLAN\n"
      "  vlan VLAN\n"
      "  tunnel TUNNEL\n"
      "  path TUNNEL,LABEL,VLAN    VLAN is 0 unless the tunnel's type has a path a VLAN\n"
      "  route LABEL\n"
      "  explain pair Ethernet1,10\n",
      &Shell::explain },
    { "check", "", "prove the invariants of all machines",
      "Says what of a machine's own state is not as the machine states, or that everything is.\n"
      "What is broken counts as an expectation that failed.\n"
      "  check\n",
      &Shell::check },
    { "audit", "[repair]", "compare hardware with what machines have on record and inputs ask for",
      "Goes round all tables once and says what is missing in hardware, unexpected or different, and\n"
      "what a machine lags behind by rule. With repair what is wrong is removed, and what is on\n"
      "record tried again by the machine's next review. audit.difference keeps what the last round\n"
      "found; with audit.interval there is a round every so many seconds, which repairs with\n"
      "audit.repairs.\n"
      "  audit\n"
      "  set audit.interval 60\n",
      &Shell::audit },
    { "advance", "SECONDS", "let time pass, running the tasks that fall due",
      "Tasks run at their time. On the steady clock the time is waited for.\n"
      "  advance 5\n",
      &Shell::advance },
    { "call", "PATH [ARGUMENT...]", "call an operation of an entity",
      "PATH ends with the name of an operation that the entity before it offers; help PATH of the\n"
      "entity lists them. Arguments are in their brief form, without blanks in them.\n"
      "  call evpnLagSm.publishEvpnLagMemberInfo Port-Channel1 Ethernet1,Ethernet2\n"
      "  call evpnFloodingEsiSm.reviewUnprogrammed.scheduleNow\n",
      &Shell::call },
    { "restart", "[hitless]", "end the agent and start it anew",
      "Machines, outputs and hardware are made anew over the inputs as they stand. Hardware is\n"
      "empty then, and so is its journal, as large as before, and behaves as it does at first. With\n"
      "hitless it stays as it is: what is asked for and stands is not programmed again, and once all\n"
      "machines have looked at their inputs the rest is removed; show takeover says how far that is.\n"
      "When they cannot be made, as without the file of a table, inputs are all there is until\n"
      "another restart.\n"
      "  restart\n"
      "  restart hitless\n",
      &Shell::restart },
    { "inputs", "complete", "let a takeover remove what nobody asks for",
      "Until then, or for 300 s (takeover.timeLimit), an agent that started over a switch with\n"
      "contents, by --journal, leaves what it finds. Without a takeover this does nothing.\n"
      "  inputs complete\n",
      &Shell::inputs },
    { "trace", "[SETTING | off]", "show or set what is traced",
      "SETTING is PATTERN[/LEVELS] entries separated by commas; * and ? stand for any characters\n"
      "and for one, LEVELS is like 5, 0-5 or 1+5+8-9.\n"
      "  trace KezEvpn*/5\n",
      &Shell::trace },
    { "record", "FILE | off", "write the lines of this session to a file",
      "FILE, which must not be there yet, gets every line that was accepted since the session\n"
      "began, and each that comes with what hardware answered. kez-agent replay FILE leads to\n"
      "the same state.\n"
      "  record session.kez\n",
      &Shell::record },
    { "help", "[COMMAND | PATH]", "tell about a command, or what can stand at a path",
      "With a path: the attributes of the class that stands there, or can stand there.\n"
      "  help set\n"
      "  help lagConfigDir.lagConfig\n",
      &Shell::help },
  };
  return all;
}

const Shell::Command * Shell::command( std::string_view name ) {
  const auto at = std::find_if( commands().begin(), commands().end(),
                                [ & ]( const Command & each ) { return each.name == name; } );
  return at == commands().end() ? nullptr : &*at;
}

String Shell::commandNames() {
  String names;
  for ( const auto & each : commands() ) {
    names += ( names.empty() ? "" : ", " ) + each.name;
  }
  return names;
}

Shell::Shell( Wiring & wiring, std::ostream & out, std::ostream & err )
    : wiring_( wiring ), out_( out ), err_( err ) {
  Ringlog::sinkIs( [ this ]( const Ringlog::TextRecord & record ) {
    Vex::TextBuffer line;
    Ringlog::appendLine( line, record );
    out_ << line.view() << '\n';
  } );
}

Shell::~Shell() {
  if ( wiring_.hardware ) {
    wiring_.hardware->listenerDel( recorder_ );
  }
  Ringlog::sinkIs( {} );
}

void Shell::paceIs( Pace & pace ) {
  pace_ = &pace;
  pace.schedulerIs( *wiring_.scheduler );
}

void Shell::execute( std::string_view line, const String & place ) {
  place_ = place;
  const auto text = trimmed( line );
  if ( text.empty() || text.starts_with( '#' ) ) {
    // The entries of a record that is run are none of this session's.
    if ( !text.starts_with( entryMark ) ) {
      lineIs( text );
    }
    return;
  }
  inTextAt( 1, [ & ] {
    Vex::TextCursor in( line.data(), text.data() + text.size() );
    in.atIs( text.data() );
    const size_t offset = in.offset();
    const auto name = takeWord( in );
    const auto * found = command( name );
    if ( !found ) {
      failAt( offset, "a command (" + commandNames() + ")", name );
    }
    if ( found->run == &Shell::record ) {
      record( in );
      return;
    }
    runTasks( 0 );
    lineIs( text );
    try {
      ( this->*found->run )( in );
    } catch ( ... ) {
      recorder_.lineDel();
      throw;
    }
  } );
}

void Shell::lineIs( std::string_view text ) {
  try {
    recorder_.lineIs( text );
  } catch ( const std::runtime_error & error ) {
    throw BadLine( 1, String( error.what() ) + "; the record ends before this line" );
  }
  pace_->lineIs( text );
}

void Shell::set( Vex::TextCursor & in ) {
  const Path path( wiring_.roots, in );
  path.checkWritable();
  const auto & attribute = *path.attribute();
  if ( path.namesCollection() ) {
    throw BadLine( path.endColumn(), "expected '[' and a key of " + String( attribute.name ) );
  }
  const size_t column = in.offset() + 1;
  const auto value = path.hasValue() ? takeRest( in ) : std::string_view();
  Vex::expectEnd( in );
  inTextAt( column, [ & ] {
    if ( path.hasValue() ) {
      attribute.canonicalValue( value );
    }
    if ( path.hasKey() ) {
      attribute.memberIs( *path.holderIs(), path.key(), value );
    } else {
      attribute.valueIs( *path.holderIs(), value );
    }
  } );
  runTasks( 0 );
}

void Shell::del( Vex::TextCursor & in ) {
  const Path path( wiring_.roots, in );
  path.checkWritable();
  Vex::expectEnd( in );
  const auto holder = path.writableHolder();
  const auto & attribute = *path.attribute();
  if ( !holder || ( path.hasKey() && !attribute.memberDel( *holder, path.key() ) ) ) {
    out_ << path.text() << ": none\n";
  } else if ( !path.hasKey() ) {
    attribute.reset( *holder );
  }
  runTasks( 0 );
}

void Shell::show( Vex::TextCursor & in ) {
  if ( in.done() ) {
    showOverview( out_, wiring_.roots, pace_->isVirtual() );
    return;
  }
  const Path path( wiring_.roots, in );
  Vex::expectEnd( in );
  showPath( out_, path );
}

void Shell::expect( Vex::TextCursor & in ) {
  if ( Switch::skipWord( in, "send" ) ) {
    const auto copies = expectCopies( wiring_.roots, in );
    judge( copies.found == copies.expected, "send " + copies.frame, copies.expected, copies.found );
    return;
  }
  auto ahead = in;
  const bool absent = takeWord( ahead ) == "no";
  if ( absent ) {
    in = ahead;
  }
  const Path path( wiring_.roots, in );
  const auto reading = path.read();
  const size_t column = in.offset() + 1;
  if ( absent || in.done() ) {
    Vex::expectEnd( in );
    judge( reading.there != absent, path, absent ? "none" : "there", reading );
  } else if ( path.hasValue() ) {
    const auto value = takeRest( in );
    const auto expected =
        inTextAt( column, [ & ] { return path.attribute()->canonicalValue( value ); } );
    judge( reading.value == expected, path, expected, reading );
  } else if ( path.namesCollection() && takeWord( in ) == "count" ) {
    const auto count = inTextAt( in.offset() + 1,
                                 [ & ] { return Vex::parseBriefly< size_t >( takeRest( in ) ); } );
    judge( reading.count == count, path, "count " + std::to_string( count ), reading );
  } else {
    throw BadLine( column, path.namesCollection()
                               ? "expected 'count' and a number"
                               : "expected nothing more, since " + path.text() + " has no value" );
  }
}

void Shell::send( Vex::TextCursor & in ) {
  const auto forwarded = Agent::send( wiring_.roots, in );
  Vex::expectEnd( in );
  showForwarded( out_, forwarded );
}

void Shell::explain( Vex::TextCursor & in ) {
  const auto subject = Kez::parseSubject( in );
  Vex::expectEnd( in );
  std::vector< std::vector< String > > rows;
  forEachMachine( wiring_, [ & ]( const Kez::StateMachine & machine ) {
    Kez::Explanation explanation;
    machine.explain( subject, explanation );
    if ( !explanation.text().empty() ) {
      rows.push_back( { "  " + machine.name(), String( explanation.text() ) } );
    }
  } );
  if ( rows.empty() ) {
    out_ << "no machine has to do with " << Kez::text( subject ) << '\n';
  }
  showTable( out_, rows );
}

void Shell::check( Vex::TextCursor & in ) {
  Vex::expectEnd( in );
  ++expectations_;
  size_t machines = 0;
  String broken;
  forEachMachine( wiring_, [ & ]( const Kez::StateMachine & machine ) {
    Kez::Findings findings( machine.name() );
    machine.check( findings );
    broken += findings.text();
    ++machines;
  } );
  if ( broken.empty() ) {
    out_ << "the invariants of " << machines << " machines hold\n";
  } else {
    reportFailure( "invariants are broken\n" + broken );
  }
}

void Shell::audit( Vex::TextCursor & in ) {
  bool repairs = false;
  if ( !in.done() ) {
    const size_t offset = in.offset();
    const auto how = takeRest( in );
    if ( how != "repair" ) {
      failAt( offset, "repair or the end of the line", how );
    }
    repairs = true;
  }
  const auto * const root = wiring_.roots.root( "audit" );
  const auto audit = root ? Vex::dynamicCast< KezHelper::Audit >( root->entity ) : nullptr;
  if ( !audit ) {
    throw BadLine( 1, "there is no agent, which restart makes" );
  }
  audit->begin( repairs );
  runTasks( 0 );
  if ( audit->isUnderWay() ) {
    out_ << "it goes on when hardware has been taken over, which show takeover tells of\n";
    return;
  }
  uint32_t found = 0;
  for ( const auto [ kind, times ] : audit->found() ) {
    found += times;
  }
  if ( found == 0 ) {
    out_ << "hardware has what is on record and asked for; entries compared: " << audit->compared()
         << '\n';
  }
  std::vector< std::vector< String > > rows;
  for ( const auto & [ entry, difference ] : audit->difference() ) {
    rows.push_back( { "  " + difference->machine(), entry, differenceText( *difference ) } );
  }
  showTable( out_, rows );
  if ( found > audit->differences() ) {
    out_ << "and " << found - audit->differences() << " more\n";
  }
}

void Shell::judge( bool holds, const Path & path, const String & expected,
                   const Reading & reading ) {
  const auto found = reading.value   ? *reading.value
                     : reading.count ? "count " + std::to_string( *reading.count )
                     : reading.there ? "there"
                                     : "none";
  judge( holds, path.text(), expected, found );
}

void Shell::judge( bool holds, const String & subject, const String & expected,
                   const String & found ) {
  ++expectations_;
  if ( !holds ) {
    reportFailure( "expectation failed: " + subject + "\n  expected  " + expected +
                   "\n  found     " + found );
  }
}

void Shell::reportFailure( const String & text ) {
  ++failures_;
  lastFailure_ = text;
  out_.flush();
  err_ << place_ << ": " << text << std::endl;
}

void Shell::advance( Vex::TextCursor & in ) {
  const size_t offset = in.offset();
  const auto text = takeRest( in );
  const auto seconds =
      inTextAt( offset + 1, [ & ] { return Vex::parseHeld< Vex::Seconds >( text ); } );
  runTasks( seconds );
}

void Shell::call( Vex::TextCursor & in ) {
  const Path path( wiring_.roots, in, Path::End::operation );
  const auto result = path.call( in );
  out_ << result << ( result.empty() ? "" : "\n" );
  runTasks( 0 );
}

void Shell::runTasks( double seconds ) {
  if ( !pace_->run( *wiring_.scheduler, seconds ) ) {
    reportFailure( "tasks are still ready after " + std::to_string( turnLimit ) +
                   " turns of the scheduler" );
  }
}

void Shell::restart( Vex::TextCursor & in ) {
  auto hardware = Hardware::empties;
  if ( !in.done() ) {
    const size_t offset = in.offset();
    const auto how = takeRest( in );
    if ( how != "hitless" ) {
      failAt( offset, "hitless or the end of the line", how );
    }
    hardware = Hardware::stays;
  }
  wiring_ = unwired( wiring_, hardware );
  pace_->schedulerIs( *wiring_.scheduler );
  wiring_ = wire( wiring_ );
  inputsAreComplete();
}

void Shell::inputs( Vex::TextCursor & in ) {
  const size_t offset = in.offset();
  const auto how = takeRest( in );
  if ( how != "complete" ) {
    failAt( offset, "complete", how );
  }
  inputsAreComplete();
}

void Shell::inputsAreComplete() {
  if ( wiring_.takeover ) {
    wiring_.takeover->inputsAreComplete();
  }
  runTasks( 0 );
}

void Shell::trace( Vex::TextCursor & in ) {
  const auto handles = Ringlog::handleNames();
  const auto showHandles = [ & ] {
    out_ << "handles:";
    for ( const auto & handle : handles ) {
      out_ << ' ' << handle;
    }
    out_ << '\n';
  };
  if ( in.done() ) {
    const auto setting = Ringlog::trace();
    out_ << "trace " << ( setting.empty() ? "off" : setting ) << '\n';
    showHandles();
    return;
  }
  const size_t column = in.offset() + 1;
  const auto text = takeRest( in );
  inTextAt( column, [ & ] { Ringlog::traceIs( text == "off" ? "" : text ); } );
  const Ringlog::Setting setting( Ringlog::trace() );
  const bool matched = std::any_of( handles.begin(), handles.end(), [ & ]( const auto & handle ) {
    return setting.levels( handle ) != 0;
  } );
  if ( !matched && text != "off" ) {
    out_ << text << " matches no handle\n";
    showHandles();
  }
}

void Shell::record( Vex::TextCursor & in ) {
  const size_t offset = in.offset();
  const String name( takeRest( in ) );
  if ( name.empty() ) {
    failAt( offset, "a file or off", name );
  }
  if ( name != "off" && !Vex::Clock::isVirtual() ) {
    throw BadLine( offset + 1, "expected the option --record: a session on the steady clock is "
                               "recorded from its beginning" );
  }
  try {
    if ( name == "off" ) {
      recorder_.fileDel();
    } else {
      recorder_.fileIs( name );
    }
    if ( wiring_.hardware ) {
      wiring_.hardware->listenerDel( recorder_ );
      if ( name != "off" ) {
        wiring_.hardware->listenerIs( recorder_ );
      }
    }
  } catch ( const std::runtime_error & error ) {
    throw BadLine( offset + 1, error.what() );
  }
}

void Shell::help( Vex::TextCursor & in ) {
  if ( in.done() ) {
    std::vector< std::vector< String > > rows;
    for ( const auto & each : commands() ) {
      rows.push_back( { "  " + each.name + " " + each.arguments, each.summary } );
    }
    showTable( out_, rows );
    out_ << "PATH is root.attribute[key].attribute[key]... The roots are listed by show, the\n"
            "attributes and what they take by help PATH.\n";
    return;
  }
  auto ahead = in;
  const auto name = takeWord( ahead );
  if ( const auto * found = ahead.done() ? command( name ) : nullptr ) {
    out_ << found->name << ' ' << found->arguments << "    " << found->summary << '\n'
         << found->detail;
    return;
  }
  if ( !wiring_.roots.root( name.substr( 0, name.find( '.' ) ) ) ) {
    failAt( in.offset(), "a command (" + commandNames() + ") or a path; show lists the roots",
            name );
  }
  const Path path( wiring_.roots, in );
  Vex::expectEnd( in );
  showClass( out_, path );
}

} // namespace Agent
