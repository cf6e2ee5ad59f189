// Why something is in hardware or is not: what an operator asks of the machines, and their answers.
//
// A machine answers when it is asked, from the state that it acts on and by the decisions that it
// acts by; an answer changes nothing and traces nothing. It is a line of clauses, empty when the
// machine has nothing to do with the subject.
#pragma once

#include "KezEvpn/Refusal.h"
#include "KezEvpn/frame/Subject.h"

namespace Kez {

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

// What a machine says of a subject.
class Explanation {
public:
  // Of one thing, as a part of the line.
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
  void nextTryIs( const std::optional< double > & time ) { note( Due{ time, {} } ); }

  // What is asked about is part of another subject, of which machines are to be asked in its place:
  // the port of a LAG.
  void leadsTo( const Subject & whole ) { whole_ = whole; }
  const std::optional< Subject > & whole() const { return whole_; }

private:
  void note( const Due & due ) {
    if ( due.time && ( !nextTry_ || *due.time < *nextTry_ ) ) {
      nextTry_ = due.time;
    }
  }
  template< class Piece > void note( const Piece & ) {}

  std::vector< Clause > clauses_;
  std::optional< double > nextTry_;
  std::optional< Subject > whole_;
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

// How long ago a time of Vex::Clock was: "3.0 s ago", "just now".
struct Ago {
  double time;
};
void appendText( Vex::TextBuffer & out, const Ago & ago );

// A reason, where there is one: " (no room)".
struct Because {
  std::string_view why;
};
void appendText( Vex::TextBuffer & out, const Because & because );

// "hardware refused once (no room) 3.0 s ago", "hardware refused twice (no room), first 8.0 s ago,
// last 3.0 s ago".
struct Refused {
  const Refusal & refusal;
};
void appendText( Vex::TextBuffer & out, const Refused & refused );

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
