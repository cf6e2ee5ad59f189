#include "Vex/Domain.h"
#include "shell/Shell.h"
#include "shell/Show.h"
#include "shell/ShowJson.h"

namespace KezShell {

using Vex::String;

namespace {

void set( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  const Path path( shell.roots(), in );
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
  shell.host().runTasks( session );
}

void sayNone( Session & session, const Path & path ) {
  if ( auto * const json = session.json() ) {
    json->line( [ & ] {
      json->member( "path", path.text() );
      json->member( "there", false );
    } );
  } else {
    session.out() << path.text() << ": none\n";
  }
}

void del( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  const Path path( shell.roots(), in );
  path.checkWritable();
  Vex::expectEnd( in );
  const auto holder = path.writableHolder();
  const auto & attribute = *path.attribute();
  if ( !holder || ( path.hasKey() && !attribute.memberDel( *holder, path.key() ) ) ) {
    sayNone( session, path );
  } else if ( !path.hasKey() ) {
    attribute.reset( *holder );
  }
  shell.host().runTasks( session );
}

void show( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  auto * const json = session.json();
  if ( in.done() && json ) {
    showOverviewInJson( *json, shell.roots() );
    return;
  }
  if ( in.done() ) {
    showOverview( session.out(), shell.roots(), shell.host().isVirtual() );
    return;
  }
  Selection selection;
  // The path ends where the pattern of its key begins.
  auto ahead = in;
  const auto word = takeWord( ahead );
  const auto names = selection.takePattern( word );
  Vex::TextCursor whole( in.at() - in.offset(), names.data() + names.size() );
  whole.atIs( in.at() );
  const Path path( shell.roots(), whole );
  const size_t column = ahead.offset() + 1;
  selection.takeOptions( ahead );
  if ( !path.namesCollection() && ( !selection.isWhole() || selection.countsAlone() ) ) {
    throw BadLine( column, "expected nothing more, since " + path.text() + " is no collection" );
  }
  const auto holder = path.namesCollection() ? path.holder() : nullptr;
  if ( selection.isSorted() && holder &&
       path.attribute()->size( *holder ) > Selection::sortableMembers ) {
    throw BadLine( column, "expected a collection of no more than " +
                               std::to_string( Selection::sortableMembers ) +
                               " members, which are all that are put in order" );
  }
  session.answerIs( selection.countsAlone() ? countMembers( path, selection )
                    : json                  ? showPathInJson( *json, path, selection )
                                            : showPath( session.out(), path, selection ) );
}

void judge( Session & session, bool holds, const Path & path, const String & expected,
            const Reading & reading ) {
  const auto found = reading.value   ? *reading.value
                     : reading.count ? "count " + std::to_string( *reading.count )
                     : reading.there ? "there"
                                     : "none";
  session.judge( holds, path.text(), expected, found );
}

void expect( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  auto ahead = in;
  const auto word = takeWord( ahead );
  if ( const auto * const command = shell.command( word ); command && command->expect ) {
    in = ahead;
    command->expect( in, session );
    return;
  }
  const bool absent = word == "no";
  if ( absent ) {
    in = ahead;
  }
  const Path path( shell.roots(), in );
  const auto reading = path.read();
  const size_t column = in.offset() + 1;
  if ( absent || in.done() ) {
    Vex::expectEnd( in );
    judge( session, reading.there != absent, path, absent ? "none" : "there", reading );
  } else if ( path.hasValue() ) {
    const auto value = takeRest( in );
    const auto expected =
        inTextAt( column, [ & ] { return path.attribute()->canonicalValue( value ); } );
    judge( session, reading.value == expected, path, expected, reading );
  } else if ( path.namesCollection() && takeWord( in ) == "count" ) {
    const auto count = inTextAt( in.offset() + 1,
                                 [ & ] { return Vex::parseBriefly< size_t >( takeRest( in ) ); } );
    judge( session, reading.count == count, path, "count " + std::to_string( count ), reading );
  } else {
    throw BadLine( column, path.namesCollection()
                               ? "expected 'count' and a number"
                               : "expected nothing more, since " + path.text() + " has no value" );
  }
}

void call( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  const Path path( shell.roots(), in, Path::End::operation );
  const auto result = path.call( in );
  if ( auto * const json = session.json() ) {
    json->line( [ & ] { json->member( "result", result ); } );
  } else {
    session.out() << result << ( result.empty() ? "" : "\n" );
  }
  shell.host().runTasks( session );
}

// As a command of this shell.
auto in( const Shell & shell, void ( &command )( const Shell &, Vex::TextCursor &, Session & ) ) {
  return [ & ]( Vex::TextCursor & in, Session & session ) { command( shell, in, session ); };
}

} // namespace

void addEntityCommands( Shell & shell ) {
  shell.commandIs(
      { "set", "PATH [VALUE]", "set a value or add a member",
        "Sets a value, adds or replaces a member of a map, adds a member to a set or makes an\n"
        "entity. Entities that are missing on the way are made.\n"
        "  set lagConfigDir.lagConfig[Port-Channel1].member[Ethernet1] portProgRxTx\n"
        "  set evpnStatus.encapBumFilter[Ethernet1]\n",
        Effect::changes, in( shell, set ) } );
  shell.commandIs(
      { "del", "PATH", "delete a member, empty a collection, unset a value",
        "Deletes a member, all members when no key is given, or sets a value back to what it is at\n"
        "first. It is no error when there is nothing to delete.\n"
        "  del lagConfigDir.lagConfig[Port-Channel1].member[Ethernet1]\n"
        "  del lagConfigDir.lagConfig\n",
        Effect::changes, in( shell, del ) } );
  shell.commandIs(
      { "show", "[PATH [count] [limit N] [sorted]]",
        "show everything at a glance, or what stands at a path",
        "Without a path: all roots, their classes and the sizes of their collections. With one:\n"
        "the entity or collection as a tree, or the value. Of a collection the last key may be a\n"
        "pattern, in which * stands for any characters and ? for one; count tells how many members\n"
        "that are, limit shows no more than so many, sorted shows up to 10,000 by their keys.\n"
        "  show\n"
        "  show evpnLagMemberInfo\n"
        "  show switch.dot1qMapping[Port-Channel1,*,10] limit 5 sorted\n",
        Effect::none, in( shell, show ) } );
  shell.commandIs(
      { "expect", "[no] PATH [VALUE | count N]", "check what stands at a path",
        "Checks that a path is there, is not there, has a value, or is a collection of so many\n"
        "members. A collection is there while it has members. What fails is reported with both\n"
        "values, and the session goes on.\n"
        "  expect evpnLagMemberInfo.lagToPort[Port-Channel1] Ethernet1,Ethernet2\n"
        "  expect evpnVlanStatus.vlanStatus[10].member[Ethernet1]\n"
        "  expect no evpnVlanStatus.vlanStatus[10]\n"
        "  expect evpnVlanStatus.vlanStatus count 2\n",
        Effect::none, in( shell, expect ) } );
  shell.commandIs(
      { "call", "PATH [ARGUMENT...]", "call an operation of an entity",
        "PATH ends with the name of an operation that the entity before it offers; help PATH of the\n"
        "entity lists them. Arguments are in their brief form, without blanks in them.\n"
        "  call evpnLagSm.publishEvpnLagMemberInfo Port-Channel1 Ethernet1,Ethernet2\n"
        "  call evpnFloodingEsiSm.reviewUnprogrammed.scheduleNow\n",
        Effect::changes, in( shell, call ) } );
}

} // namespace KezShell
