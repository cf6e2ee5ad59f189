#include "shell/Shell.h"

#include "Ringlog/Setting.h"
#include "Ringlog/TextTrace.h"
#include "Vex/Clock.h"
#include "shell/Show.h"
#include "shell/ShowJson.h"

#include <cctype>

namespace KezShell {

using Vex::String;

bool Host::isVirtual() const {
  return Vex::Clock::isVirtual();
}

void Host::execute( const Command & command, Vex::TextCursor & in, Session & session,
                    std::string_view ) {
  command.run( in, session );
}

Shell::Shell( Host & host ) : host_( host ) {
  addEntityCommands( *this );
  addWatch( *this );
  addHistory( *this );
  addMachineCommands( *this );
  addMetrics( *this );
  addTrace( *this );
  addJson( *this );
  addHelp( *this );
  addQuit( *this );
  addCompletion( *this );
}

void Shell::commandIs( Command command, std::string_view before ) {
  const auto at = std::find_if( commands_.begin(), commands_.end(),
                                [ & ]( const Command & each ) { return each.name == before; } );
  commands_.insert( at, std::move( command ) );
}

const Command * Shell::command( std::string_view name ) const {
  const auto at = std::find_if( commands_.begin(), commands_.end(),
                                [ & ]( const Command & each ) { return each.name == name; } );
  return at == commands_.end() ? nullptr : &*at;
}

String Shell::commandNames() const {
  String names;
  for ( const auto & each : commands_ ) {
    if ( !each.summary.empty() ) {
      names += ( names.empty() ? "" : ", " ) + each.name;
    }
  }
  return names;
}

void Shell::answersDel( const String & why ) {
  for ( auto * const session : sessions_ ) {
    session->answerDel( why );
  }
}

namespace {

// What a handle and its machine's name have in common.
String plainName( std::string_view name ) {
  String plain;
  for ( const char c : name ) {
    plain += static_cast< char >( std::tolower( static_cast< unsigned char >( c ) ) );
  }
  return plain.starts_with( "kez" ) ? plain.substr( 3 ) : plain;
}

// A setting in which a machine's name, and a handle's in other letters, stand for the handle.
String settingOf( std::string_view text ) {
  const auto handles = Ringlog::handleNames();
  String setting;
  for ( Vex::TextCursor in( text ); !in.done(); ) {
    const auto pattern = takeUntil( in, "/," );
    const auto handle = std::find_if( handles.begin(), handles.end(), [ & ]( const auto & each ) {
      return plainName( each ) == plainName( pattern );
    } );
    setting += handle == handles.end() ? String( pattern ) : String( *handle );
    setting += takeUntil( in, "," );
    if ( in.skip( "," ) ) {
      setting += ',';
    }
  }
  return setting;
}

void putTrace( Vex::JsonWriter & out ) {
  const Ringlog::Setting setting( Ringlog::trace() );
  out.member( "setting", Ringlog::trace() );
  out.arrayMember( "handles", [ & ] {
    for ( const auto & handle : Ringlog::handleNames() ) {
      out.object( [ & ] {
        out.member( "handle", handle );
        out.member( "enabled", setting.levels( handle ) != 0 );
      } );
    }
  } );
}

void trace( Vex::TextCursor & in, Session & session ) {
  auto & out = session.out();
  auto * const json = session.json();
  const auto handles = Ringlog::handleNames();
  const auto showHandles = [ & ] {
    out << "handles:";
    for ( const auto & handle : handles ) {
      out << ' ' << handle;
    }
    out << '\n';
  };
  if ( in.done() && json ) {
    json->line( [ & ] { putTrace( *json ); } );
    return;
  }
  if ( in.done() ) {
    const auto setting = Ringlog::trace();
    out << "trace " << ( setting.empty() ? "off" : setting ) << '\n';
    showHandles();
    return;
  }
  const size_t column = in.offset() + 1;
  const auto text = takeRest( in );
  inTextAt( column, [ & ] { const Ringlog::Setting checked( text ); } );
  Ringlog::traceIs( text == "off" ? "" : settingOf( text ) );
  if ( json ) {
    json->line( [ & ] { putTrace( *json ); } );
    return;
  }
  const Ringlog::Setting setting( Ringlog::trace() );
  const bool matched = std::any_of( handles.begin(), handles.end(), [ & ]( const auto & handle ) {
    return setting.levels( handle ) != 0;
  } );
  if ( !matched && text != "off" ) {
    out << text << " matches no handle\n";
    showHandles();
  }
}

void putCommand( Vex::JsonWriter & out, const Command & command ) {
  out.member( "command", command.name );
  out.member( "arguments", command.arguments );
  out.member( "summary", command.summary );
  out.member( "detail", command.detail );
  out.member( "effect", stringValue( command.effect ) );
}

void helpInJson( const Shell & shell, Vex::JsonWriter & out ) {
  for ( const auto & each : shell.commands() ) {
    if ( !each.summary.empty() ) {
      out.line( [ & ] { putCommand( out, each ); } );
    }
  }
}

void help( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  auto & out = session.out();
  auto * const json = session.json();
  if ( in.done() && json ) {
    helpInJson( shell, *json );
    return;
  }
  if ( in.done() ) {
    std::vector< std::vector< String > > rows;
    for ( const auto & each : shell.commands() ) {
      if ( !each.summary.empty() ) {
        rows.push_back( { "  " + each.name + " " + each.arguments, each.summary } );
      }
    }
    showTable( out, rows );
    out << "PATH is root.attribute[key].attribute[key]... The roots are listed by show, the\n"
           "attributes and what they take by help PATH.\n";
    return;
  }
  auto ahead = in;
  const auto name = takeWord( ahead );
  const auto * const found = ahead.done() ? shell.command( name ) : nullptr;
  if ( found && json ) {
    json->line( [ & ] { putCommand( *json, *found ); } );
    return;
  }
  if ( found ) {
    out << found->name << ' ' << found->arguments << "    " << found->summary << '\n'
        << found->detail;
    return;
  }
  if ( !shell.roots().root( name.substr( 0, name.find( '.' ) ) ) ) {
    failAt( in.offset(), "a command (" + shell.commandNames() + ") or a path; show lists the roots",
            name );
  }
  const Path path( shell.roots(), in );
  Vex::expectEnd( in );
  if ( json ) {
    showClassInJson( *json, path );
  } else {
    showClass( out, path );
  }
}

} // namespace

void addTrace( Shell & shell ) {
  shell.commandIs( { "trace", "[SETTING | off]", "show or set what is traced",
                     "SETTING is PATTERN[/LEVELS] entries separated by commas; * and ? stand for "
                     "any characters\n"
                     "and for one, LEVELS is like 5, 0-5 or 1+5+8-9.\n"
                     "  trace KezEvpn*/5\n",
                     Effect::changes, trace } );
}

void addJson( Shell & shell ) {
  shell.commandIs( { "json", "on | off", "answer lines in JSON, or in words",
                     "A value a line; the last for each line of the session tells how that went.\n"
                     "A line alone is answered so that begins with --json, or --text.\n"
                     "  json on\n"
                     "  --json show\n",
                     Effect::none,
                     []( Vex::TextCursor & in, Session & session ) {
                       const size_t offset = in.offset();
                       const auto how = takeRest( in );
                       if ( how != "on" && how != "off" ) {
                         failAt( offset, "on or off", how );
                       }
                       session.jsonIs( how == "on" );
                     },
                     true } );
}

void addHelp( Shell & shell ) {
  shell.commandIs(
      { "help", "[COMMAND | PATH]", "tell about a command, or what can stand at a path",
        "With a path: the attributes of the class that stands there, or can stand there.\n"
        "  help set\n"
        "  help lagConfigDir.lagConfig\n",
        Effect::none,
        [ &shell ]( Vex::TextCursor & in, Session & session ) { help( shell, in, session ); } } );
}

void addQuit( Shell & shell ) {
  for ( const auto * const name : { "quit", "exit" } ) {
    const String text( name );
    shell.commandIs( { text, "", "end the session",
                       "No further line of it is executed.\n  " + text + "\n", Effect::none,
                       []( Vex::TextCursor & in, Session & session ) {
                         Vex::expectEnd( in );
                         session.endIs();
                       },
                       true } );
  }
}

} // namespace KezShell
