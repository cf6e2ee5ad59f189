// What machines do not have in hardware as their inputs ask for it, and why: the first question of
// every outage.
//
// A machine adds a subject for each thing that waits, with the reason; subjects that wait for the
// same reason make a group, of which the number and the few that have waited longest are kept. So
// an answer stays short whatever waits. A machine walks what waits alone, never what is programmed.
#pragma once

#include "KezEvpn/frame/Explain.h"

#include <map>

namespace Kez {

class Missing {
public:
  // How a subject waits.
  struct Wait {
    Standing standing = Standing::waiting;
    std::optional< double > since = {}; // the time of Vex::Clock from which on it is known to wait
    std::optional< double > next = {};  // and at which it is tried or looked at again
  };
  // A subject that waits, and since when if that is known.
  struct Waiter {
    std::optional< double > since;
    Subject subject;
  };
  // Subjects of one kind that wait for the same reason.
  struct Group {
    Wait wait;        // the gravest, the longest, the soonest
    Vex::String what; // the word for a subject
    Vex::String reason;
    size_t count = 0;
    std::vector< Waiter > first; // those that have waited longest
  };

  // Of all subjects, or of those alone that the pattern takes.
  Missing() = default;
  explicit Missing( const SubjectPattern & only ) : only_( only ) {}

  template< class Key, class... Pieces >
  void add( const Wait & wait, const Key & key, const Pieces &... reason ) {
    const Subject subject{ key };
    if ( only_ && !only_->takes( subject ) ) {
      return;
    }
    Vex::TextBuffer text;
    ( appendBriefText( text, reason ), ... );
    addTo( groupOf( wait, subject.word(), text.view() ), wait, 1, &subject );
  }
  // So many that nobody can name without a walk over those that do not wait; none of which a
  // pattern takes.
  template< class... Pieces >
  void addUnnamed( const Wait & wait, size_t count, std::string_view what,
                   const Pieces &... reason ) {
    if ( only_ || count == 0 ) {
      return;
    }
    Vex::TextBuffer text;
    ( appendBriefText( text, reason ), ... );
    addTo( groupOf( wait, what, text.view() ), wait, count, nullptr );
  }

  // The longest wait first; those last of whose waits the beginning is not known, and of these what
  // hardware refused first.
  std::vector< Group > groups() const;

private:
  Group & groupOf( const Wait & wait, std::string_view what, std::string_view reason );
  static void addTo( Group & group, const Wait & wait, size_t count, const Subject * subject );

  const std::optional< SubjectPattern > only_;
  std::map< Vex::String, Group, std::less<> > groups_; // by standing, word and reason
};

// Whether a wait comes before another.
bool isLonger( const Missing::Wait & a, const Missing::Wait & b );

// "2 pairs refused by hardware (no room), next try in 3.0 s: Ethernet1,10, Ethernet2,10".
Vex::String text( const Missing::Group & group );

// A clause for each group.
void explainGroups( const Missing & missing, Explanation & out );

} // namespace Kez
