// What is due when, each thing once: what is put off or brought forward is due at its new time
// alone. Of the things that are due at one time the one of the lowest order comes first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

namespace Switch {

template< class Thing > class Agenda {
public:
  size_t size() const { return things_.size(); }
  bool has( const Thing & thing ) const { return things_.contains( thing ); }
  // Of what is on the agenda.
  double dueOf( const Thing & thing ) const { return things_.at( thing )->first.due; }
  // Of the first thing; there is one.
  double nextDue() const { return line_.begin()->first.due; }

  void dueIs( const Thing & thing, double due, uint64_t order ) {
    del( thing );
    things_[ thing ] = line_.insert( { { due, order }, thing } );
  }
  void del( const Thing & thing ) {
    if ( const auto at = things_.find( thing ); at != things_.end() ) {
      line_.erase( at->second );
      things_.erase( at );
    }
  }
  // The first thing, which leaves the agenda.
  Thing take() {
    const auto thing = line_.begin()->second;
    del( thing );
    return thing;
  }

private:
  struct Place {
    double due;
    uint64_t order;
    auto operator<=>( const Place & ) const = default;
  };
  using Line = std::multimap< Place, Thing >;

  Line line_;
  std::map< Thing, typename Line::iterator > things_;
};

} // namespace Switch
