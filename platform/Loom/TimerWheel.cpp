#include "Loom/TimerWheel.h"

namespace Loom {

std::optional< double > TimerWheel::nextDeadline() const {
  if ( const Timer * late = late_.first() ) {
    return late->time_;
  }
  if ( !first_ ) {
    const auto place = firstPlace();
    if ( !place ) {
      return std::nullopt;
    }
    order( *place );
    first_ = levels_[ place->level ].slots[ place->index ].first();
  }
  return first_->time_;
}

size_t TimerWheel::timers() const {
  size_t count = late_.size();
  for ( const auto & level : levels_ ) {
    for ( const auto & slot : level.slots ) {
      count += slot.size();
    }
  }
  return count;
}

void TimerWheel::fireDue() {
  struct Turn {
    ~Turn() { wheel->endTurn(); }
    const Vex::Ptr< TimerWheel > wheel;
  };

  VEX_ASSERT( turn_ == noTurn );
  if ( !occupiedLevels_ ) {
    return;
  }
  const double start = now();
  if ( first_ && first_->time_ > start ) {
    return;
  }
  const Turn turn{ this };
  turn_ = start;
  const uint64_t target = std::max( tickOf( turn_ ), reached_ );
  for ( auto place = firstPlace(); place && place->tick <= target; place = firstPlace() ) {
    if ( crowded( *place ) ) {
      handDown( *place );
      continue;
    }
    order( *place );
    const Slot & slot = levels_[ place->level ].slots[ place->index ];
    while ( Timer * timer = slot.first() ) {
      if ( timer->time_ > turn_ ) {
        return;
      }
      timer->cancel();
      timer->fire();
    }
  }
  reached_ = target;
}

void TimerWheel::endTurn() {
  turn_ = noTurn;
  while ( Timer * timer = late_.first() ) {
    Slot::remove( *timer );
    set( *timer );
  }
}

// The lowest level has the first: its ticks share all higher digits with the tick reached, and
// those of higher levels are beyond.
std::optional< TimerWheel::Place > TimerWheel::firstPlace() const {
  for ( ; occupiedLevels_; occupiedLevels_ &= occupiedLevels_ - 1 ) {
    const auto number = static_cast< unsigned >( std::countr_zero( occupiedLevels_ ) );
    Level & level = levels_[ number ];
    while ( const auto index = level.occupied.first() ) {
      if ( !level.slots[ *index ].empty() ) {
        const unsigned shift = number * digitBits;
        const uint64_t above = reached_ >> shift >> digitBits;
        return Place{ number, *index, ( above << digitBits | *index ) << shift };
      }
      level.occupied.remove( *index );
    }
  }
  return std::nullopt;
}

std::optional< unsigned > TimerWheel::SlotSet::first() const {
  for ( unsigned word = 0; word < words_.size(); ++word ) {
    if ( words_[ word ] ) {
      return word * 64 + static_cast< unsigned >( std::countr_zero( words_[ word ] ) );
    }
  }
  return std::nullopt;
}

bool TimerWheel::crowded( const Place & place ) const {
  const Level & level = levels_[ place.level ];
  return place.level > 0 && level.unordered.has( place.index ) &&
         level.slots[ place.index ].size( many ) == many;
}

// Of equal times the one set first already stands first.
void TimerWheel::order( const Place & place ) const {
  Level & level = levels_[ place.level ];
  if ( level.unordered.has( place.index ) ) {
    level.unordered.remove( place.index );
    level.slots[ place.index ].sort(
        []( const Timer & a, const Timer & b ) { return a.time_ < b.time_; } );
  }
}

// Steps through the back half as well, so that it is fetched from memory while the front half is
// handed down.
void TimerWheel::handDown( const Place & place ) {
  reached_ = place.tick;
  const Slot & slot = levels_[ place.level ].slots[ place.index ];
  const auto * back = static_cast< const Slot::Link * >( slot.last() );
  while ( Timer * timer = slot.first() ) {
    if ( back && ( back == timer || ( back = back->previous ) == timer ) ) {
      back = nullptr;
    }
    Slot::remove( *timer );
    this->place( *timer );
  }
}

} // namespace Loom
