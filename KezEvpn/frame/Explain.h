// Why something is in hardware or is not: what an operator asks of the machines, and their answers.
//
// A machine answers when it is asked, from the state that it acts on and by the decisions that it
// acts by; an answer changes nothing and traces nothing. It is a line of clauses, empty when the
// machine has nothing to do with the subject.
#pragma once

#include "KezEvpn/FloodSets.h"
#include "Mpls/Lfib.h"

#include <algorithm>
#include <array>
#include <variant>

namespace Kez {

// A host: a MAC address in a VLAN, as an operator writes it.
struct VlanMac {
  Bridging::VlanId vlanId;
  Wire::EthAddr macAddr;
  VEX_VALUE( VlanMac, "Kez::VlanMac", vlanId, macAddr )

  Bridging::MacVlanPair macVlanPair() const { return { macAddr, vlanId }; }
};

// A kind of subject: the word for it, and the type of its keys.
template< size_t size > struct SubjectWord {
  char text[ size ];
  constexpr SubjectWord( const char ( &literal )[ size ] ) { std::copy_n( literal, size, text ); }
};
template< SubjectWord word_, class Key_ > struct SubjectKind {
  static constexpr std::string_view word = word_.text;
  using Key = Key_;
};
template< class... Kind > struct SubjectKinds {
  static constexpr std::array words{ Kind::word... };
  using Key = std::variant< typename Kind::Key... >;
};

// All that may be asked about.
using Subjects =
    SubjectKinds< SubjectKind< "pair", IntfVlanKey >, //
                  SubjectKind< "vlan", Bridging::VlanId >,
                  SubjectKind< "tunnel", Tunnel::TunnelTable::TunnelId >,
                  SubjectKind< "path", MplsFloodSetVia >, // of flood-set destinations
                  SubjectKind< "route", Mpls::RouteKey >, SubjectKind< "mac", VlanMac > >;

// Reads as the word and the key in its brief form: "pair Ethernet1,10", "vlan 10", "tunnel 7",
// "path 7,100,0", "route 100", "mac 10,00:00:00:00:00:01".
struct Subject {
  Subjects::Key key;

  // Null unless the subject is a `Key`.
  template< class Key > const Key * get() const { return std::get_if< Key >( &key ); }
};

// Raises Vex::ParseError.
Subject parseSubject( Vex::TextCursor & in );
Vex::String text( const Subject & subject );

// When a run is due: "at once", "in 4.2 s", or `otherwise` when none is. One that others of the
// line take part in first may leave it to the next.
struct Due {
  std::optional< double > time;
  std::string_view otherwise;
  bool orLater = false;
};
void appendText( Vex::TextBuffer & out, const Due & due );

// How a machine stands to a subject. One that waits lacks an input, an answer or its next look;
// what hardware refused, or had no room for, is tried again.
VEX_ENUM( Standing, "Kez::Standing", settled, waiting, refused )

class Explanation {
public:
  struct Clause {
    Standing standing; // what the clause tells of
    Vex::String text;
  };

  // Adds a clause: of what is; of what is waited for; of what hardware refused.
  template< class... Pieces > void say( const Pieces &... pieces ) {
    add( Standing::settled, pieces... );
  }
  template< class... Pieces > void awaits( const Pieces &... pieces ) {
    add( Standing::waiting, pieces... );
  }
  template< class... Pieces > void refused( const Pieces &... pieces ) {
    add( Standing::refused, pieces... );
  }
  template< class... Pieces > void add( Standing standing, const Pieces &... pieces ) {
    Vex::TextBuffer text;
    ( appendBriefText( text, pieces ), ... );
    ( note( pieces ), ... );
    clauses_.push_back( { standing, text.str() } );
  }

  const std::vector< Clause > & clauses() const { return clauses_; }
  // All of them in a line.
  Vex::String text() const;
  // The gravest of any clause.
  Standing standing() const;
  // The first time that a clause tells of at which something is tried or looked at again.
  std::optional< double > nextTry() const { return nextTry_; }

private:
  void note( const Due & due ) {
    if ( due.time && ( !nextTry_ || *due.time < *nextTry_ ) ) {
      nextTry_ = due.time;
    }
  }
  template< class Piece > void note( const Piece & ) {}

  std::vector< Clause > clauses_;
  std::optional< double > nextTry_;
};

// The record of a shared table that an answer needs, if there is one. Damage is said, and handed to
// nobody.
template< class Table, class Key >
auto examine( const Table & table, const Key & key, Explanation & out ) {
  const auto examined = table.examine( key );
  if ( examined.damage ) {
    out.awaits( examined.damage->what() );
  }
  return examined.record;
}

// --- Pieces of clauses

// So many of something: "1 port", "2 ports".
struct Count {
  size_t number;
  std::string_view what;
};
void appendText( Vex::TextBuffer & out, const Count & count );

// From 1: "once", "twice", "3 times".
struct Times {
  uint32_t number;
};
void appendText( Vex::TextBuffer & out, const Times & times );

// The first few members of a set, and how many more there are.
template< class Set > struct Members { const Set & set; };
template< class Set > Members( const Set & ) -> Members< Set >;

template< class Set > void appendText( Vex::TextBuffer & out, const Members< Set > & members ) {
  constexpr size_t most = 8;
  size_t number = 0;
  for ( const auto & member : members.set ) {
    if ( ++number <= most ) {
      out.append( number > 1 ? ", " : "" );
      appendBriefText( out, member );
    }
  }
  if ( number > most ) {
    out.append( " and " );
    appendText( out, number - most );
    out.append( " more" );
  }
}

} // namespace Kez
