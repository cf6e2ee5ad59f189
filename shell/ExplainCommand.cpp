#include "shell/ExplainCommand.h"

#include "KezEvpn/frame/Missing.h"
#include "Vex/Pattern.h"
#include "shell/History.h"
#include "shell/KnownNames.h"
#include "shell/Machines.h"
#include "shell/Nearest.h"
#include "shell/Show.h"

namespace KezShell {

using Vex::String;

namespace {

// A part of a subject that an input may know: what it is, the type of the key, the key.
struct Part {
  String what;
  std::string_view type;
  String key;
};

template< class Key > Part partOf( std::string_view what, const Key & key ) {
  return { String( what ), Vex::typeName< Key >(), Vex::briefText( key ) };
}

// Of a tunnel, a path and a destination beside its VLAN nothing is a key of an input.
std::vector< Part > partsOf( const Kez::Subject & subject ) {
  if ( const auto * const pair = subject.get< Kez::IntfVlanKey >() ) {
    return { partOf( "interface", pair->intfId ), partOf( "VLAN", pair->vlanId ) };
  }
  if ( subject.intfId() != Wire::IntfId() ) {
    return { partOf( "interface", subject.intfId() ) };
  }
  if ( const auto * const vlanId = subject.get< Bridging::VlanId >() ) {
    return { partOf( "VLAN", *vlanId ) };
  }
  if ( const auto * const vmd = subject.get< Kez::VlanMacDest >() ) {
    return { partOf( "VLAN", vmd->vlanId ) };
  }
  if ( const auto * const host = subject.get< Kez::VlanMac >() ) {
    return { { "mac " + Vex::briefText( *host ), Vex::typeName< Bridging::MacVlanPair >(),
               Vex::briefText( host->macVlanPair() ) } };
  }
  if ( const auto * const routeKey = subject.get< Mpls::RouteKey >() ) {
    return { partOf( "route", *routeKey ) };
  }
  return {};
}

// The keys of which there may be a nearest one.
bool hasNearest( const Part & part ) {
  return part.what == "interface" || part.what == "VLAN";
}

void sayUnknown( const Shell & shell, const String & what, const Part & part, Session & session ) {
  const auto names = hasNearest( part )
                         ? nearest( knownNames( shell.roots(), Role::input, part.type ), part.key )
                         : std::vector< String >();
  if ( auto * const json = session.json() ) {
    json->line( [ & ] {
      json->member( "unknown", what );
      json->member( "nearest", names );
    } );
    return;
  }
  session.out() << "no input knows " << what;
  for ( size_t i = 0; i < names.size(); ++i ) {
    session.out() << ( i == 0 ? "; nearest is " : ", " ) << names[ i ];
  }
  session.out() << '\n';
}

// Whether machines or hardware have something of what no input knows any more.
bool isLeft( const Roots & roots, const Part & part, const Kez::Subject & subject ) {
  constexpr std::array holders{ Role::machine, Role::output, Role::hardware };
  return std::ranges::any_of( holders, [ & ]( Role role ) {
    return isKnown( roots, role, part.type, part.key ) ||
           ( subject.get< Kez::IntfVlanKey >() &&
             isKnown( roots, role, Vex::typeName< Kez::IntfVlanKey >(), subject.keyText() ) );
  } );
}

// Says which parts no input knows. Whether machines are to be asked all the same: all is known, or
// something of it is left that was once asked for.
bool isWorthAsking( const Shell & shell, const Kez::Subject & subject, Session & session ) {
  const auto & roots = shell.roots();
  bool worth = true;
  for ( const auto & part : partsOf( subject ) ) {
    if ( isKnown( roots, Role::input, part.type, part.key ) ) {
      continue;
    }
    const auto what = hasNearest( part ) ? part.what + " " + part.key : Kez::text( subject );
    sayUnknown( shell, what, part, session );
    worth = worth && isLeft( roots, part, subject );
  }
  return worth;
}

void explainInJson( Vex::JsonWriter & out, const Kez::StateMachine & machine,
                    const Kez::Subject & subject, const Kez::Explanation & explanation ) {
  out.line( [ & ] {
    out.member( "machine", machine.name() );
    out.member( "subject", Kez::text( subject ) );
    out.member( "state", stringValue( explanation.standing() ) );
    out.arrayMember( "says", [ & ] {
      for ( const auto & clause : explanation.clauses() ) {
        out.put( clause.text );
      }
    } );
    out.arrayMember( "reasons", [ & ] {
      for ( const auto & clause : explanation.clauses() ) {
        if ( clause.standing != Kez::Standing::settled ) {
          out.put( clause.text );
        }
      }
    } );
    out.member( "nextTry", explanation.nextTry() );
  } );
}

struct Told {
  const Kez::StateMachine * machine;
  Kez::Explanation explanation;
};

void sayTold( const std::vector< Told > & all, const Kez::Subject & subject, Session & session ) {
  std::vector< std::vector< String > > rows;
  rows.reserve( all.size() );
  for ( const auto & [ machine, explanation ] : all ) {
    if ( auto * const json = session.json() ) {
      explainInJson( *json, *machine, subject, explanation );
    } else {
      rows.push_back( { "  " + machine->name(), explanation.text() } );
    }
  }
  if ( !session.json() ) {
    if ( rows.empty() ) {
      session.out() << "no machine has to do with " << Kez::text( subject ) << '\n';
    }
    showTable( session.out(), rows );
  }
}

std::vector< Told > askAll( const Shell & shell, const Kez::Subject & subject ) {
  std::vector< Told > all;
  forEachMachine( shell.roots(), [ & ]( const Kez::StateMachine & machine ) {
    Kez::Explanation explanation;
    machine.explain( subject, explanation );
    if ( !explanation.clauses().empty() ) {
      all.push_back( { &machine, std::move( explanation ) } );
    }
  } );
  return all;
}

void explainSubject( const Shell & shell, const Kez::Subject & asked, Session & session ) {
  if ( !isWorthAsking( shell, asked, session ) ) {
    return;
  }
  auto subject = asked;
  auto all = askAll( shell, subject );
  const auto part = std::ranges::find_if(
      all, []( const Told & told ) { return told.explanation.whole().has_value(); } );
  if ( part != all.end() ) {
    subject = *part->explanation.whole();
    if ( auto * const json = session.json() ) {
      explainInJson( *json, *part->machine, asked, part->explanation );
    } else {
      session.out() << part->explanation.text() << ": " << Kez::text( subject ) << '\n';
    }
    all = askAll( shell, subject );
  }
  sayTold( all, subject, session );
  if ( auto last = lastTraced( wordsOfKey( subject.keyText() ) ) ) {
    session.answerIs( std::move( last ) );
  }
}

// --- What is missing

struct Found {
  String machine;
  Kez::Missing::Group group;
};

void putFound( Vex::JsonWriter & out, const Found & found ) {
  const auto & group = found.group;
  out.line( [ & ] {
    out.member( "machine", found.machine );
    out.member( "state", stringValue( group.wait.standing ) );
    out.member( "what", group.what );
    out.member( "count", group.count );
    out.member( "reason", group.reason );
    out.arrayMember( "subjects", [ & ] {
      for ( const auto & each : group.first ) {
        out.put( Kez::text( each.subject ) );
      }
    } );
    out.member( "since", group.wait.since );
    out.member( "nextTry", group.wait.next );
  } );
}

void explainMissing( const Shell & shell, const std::optional< Kez::SubjectPattern > & only,
                     Session & session ) {
  std::vector< Found > all;
  forEachMachine( shell.roots(), [ & ]( const Kez::StateMachine & machine ) {
    auto missing = only ? Kez::Missing( *only ) : Kez::Missing();
    machine.addMissing( missing );
    for ( auto & group : missing.groups() ) {
      all.push_back( { machine.name(), std::move( group ) } );
    }
  } );
  std::ranges::stable_sort( all, []( const Found & a, const Found & b ) {
    return Kez::isLonger( a.group.wait, b.group.wait );
  } );
  std::vector< std::vector< String > > rows;
  rows.reserve( all.size() );
  for ( const auto & found : all ) {
    if ( auto * const json = session.json() ) {
      putFound( *json, found );
    } else {
      const auto & since = found.group.wait.since;
      rows.push_back( { since ? "  " + Vex::text( Kez::Ago{ *since } ) : String( "  " ),
                        found.machine, Kez::text( found.group ) } );
    }
  }
  if ( !session.json() ) {
    if ( rows.empty() ) {
      session.out() << "no machine lacks anything in hardware"
                    << ( only ? " of " + Kez::text( *only ) : String() ) << '\n';
    }
    showTable( session.out(), rows );
  }
}

// Whether there is anything that fits it; says so if not. Of what is not sought among all inputs
// there may be.
bool fitsAnything( const Shell & shell, const Kez::SubjectPattern & pattern, Session & session ) {
  Part part;
  if ( pattern.word == "interface" || pattern.word == "segment" ) {
    part = { "interface", Vex::typeName< Wire::IntfId >(), pattern.pattern };
  } else if ( pattern.word == "vlan" ) {
    part = { "VLAN", Vex::typeName< Bridging::VlanId >(), pattern.pattern };
  } else {
    return true;
  }
  const auto names = knownNames( shell.roots(), Role::input, part.type );
  const bool any = std::ranges::any_of(
      names, [ & ]( const String & name ) { return Vex::matches( part.key, name ); } );
  if ( !any ) {
    sayUnknown( shell, Kez::text( pattern ), part, session );
  }
  return any;
}

void explain( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  if ( in.done() ) {
    explainMissing( shell, std::nullopt, session );
  } else if ( const auto pattern = Kez::parseSubjectPattern( in ) ) {
    if ( fitsAnything( shell, *pattern, session ) ) {
      explainMissing( shell, pattern, session );
    }
  } else {
    const auto subject = Kez::parseSubject( in );
    Vex::expectEnd( in );
    explainSubject( shell, subject, session );
  }
}

} // namespace

void addExplain( Shell & shell ) {
  shell.commandIs(
      { "explain", "[SUBJECT]", "tell why something is in hardware or what it waits for",
        "Without a subject, what of all machines is not in hardware as the inputs ask for it, and "
        "why:\n"
        "grouped by reason and counted, what has waited longest first. Of a subject, how each "
        "machine\n"
        "that has to do with it stands to it. SUBJECT is one of\n"
        "  pair INTERFACE,VLAN\n"
        "  vlan VLAN\n"
        "  interface INTERFACE       lag INTERFACE is the same\n"
        "  segment INTERFACE\n"
        "  tunnel TUNNEL\n"
        "  path TUNNEL,LABEL,VLAN    VLAN is 0 unless the tunnel's type has a path a VLAN\n"
        "  destination VLAN,MAC,DESTINATION\n"
        "  route LABEL\n"
        "  mac VLAN,MAC\n"
        "or such a one with * and ?, for what is not in hardware of all that it fits.\n"
        "  explain pair Ethernet1,10\n"
        "  explain interface Ethernet*\n",
        Effect::none,
        [ &shell ]( Vex::TextCursor & in, Session & session ) { explain( shell, in, session ); } },
      "call" );
}

} // namespace KezShell
