// Which members of a collection are shown, and in which order.
#pragma once

#include "Vex/Entity.h"
#include "shell/Line.h"

#include <memory>

namespace KezShell {

class Selection {
public:
  // More members are not put in order: they would hold up the host.
  static constexpr size_t sortableMembers = 10'000;

  // Takes the pattern of a key, and what stands before it, off a word that is a path with one, as
  // "switch.esiData[*,*,3]"; what is left of the word. Otherwise all of it.
  std::string_view takePattern( std::string_view word );
  // Reads "count", "limit N" and "sorted" up to the end of the line. Raises ParseError and BadLine.
  void takeOptions( Vex::TextCursor & in );

  bool isWhole() const { return pattern_.empty() && !limit_ && !sorted_; }
  bool countsAlone() const { return countsAlone_; }
  const Vex::String & pattern() const { return pattern_; }
  bool isSorted() const { return sorted_; }

  // Over all members, in the order in which they are shown.
  std::unique_ptr< Vex::ReflectedWalk > walk( const Vex::AttributeType & attribute,
                                              const Vex::Entity & entity ) const;
  // Whether a member of the walk is shown.
  bool takes( const Vex::ReflectedMember & member ) const;
  // Whether so many are all that are shown.
  bool isFull( size_t shown ) const { return limit_ && shown >= *limit_; }

private:
  Vex::String pattern_; // empty: all
  std::optional< size_t > limit_;
  bool sorted_ = false;
  bool countsAlone_ = false;
};

} // namespace KezShell
