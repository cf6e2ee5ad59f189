#include "Loom/TimerWheel.h"

namespace Loom {

std::optional< double > TimerWheel::nextDeadline() const {
  if ( const TimerLink * late = late_.first() ) {
    return late->time;
  }
  if ( !first_ ) {
    Place place;
    if ( !findFirst( place ) ) {
      return std::nullopt;
    }
    TimerSlot & slot = slots_[ place.slot ];
    slot.order();
    first_ = static_cast< const Timer * >( slot.first() );
    firstTime_ = slot.first()->time;
  }
  return firstTime_;
}

size_t TimerWheel::timers() const {
  size_t count = late_.size();
  for ( const auto & slot : slots_ ) {
    count += slot.size();
  }
  return count;
}

void TimerWheel::fireDue() {
  struct Turn {
    ~Turn() { wheel->endTurn(); }
    const Vex::Ptr< TimerWheel > wheel;
  };

  VEX_ASSERT( turn_ == noTurn );
  if ( !occupiedWords_ ) {
    return;
  }
  const double start = now();
  if ( firstTime_ > start ) {
    return;
  }
  const Turn turn{ this };
  turn_ = start;
  passed_ = std::max( start, 0.0 );
  const uint64_t target = std::max( tickOf( passed_ ), reached_ );
  for ( Place place; findFirst( place ) && place.tick <= target; ) {
    if ( crowded( place ) ) {
      handDown( place );
      continue;
    }
    TimerSlot & slot = slots_[ place.slot ];
    slot.order();
    while ( !slot.empty() ) {
      auto & timer = static_cast< Timer & >( *slot.first() );
      if ( timer.time() > turn_ ) {
        return;
      }
      timer.cancel();
      timer.fire();
    }
  }
  reached_ = target;
}

void TimerWheel::endTurn() {
  turn_ = noTurn;
  passed_ = 0;
  while ( TimerLink * const late = late_.takeFirst() ) {
    set( static_cast< Timer & >( *late ) );
  }
}

void TimerWheel::setPassed( Timer & timer ) {
  if ( turn_ != noTurn && timer.time() <= turn_ ) {
    late_.append( timer );
  } else {
    place( timer, reached_ );
  }
}

// The lowest level has the first: its ticks share all higher digits with the tick reached, and
// those of higher levels are beyond.
bool TimerWheel::findFirst( Place & place ) const {
  for ( ; occupiedWords_; occupiedWords_ &= occupiedWords_ - 1 ) {
    const auto word = static_cast< unsigned >( std::countr_zero( occupiedWords_ ) );
    for ( uint64_t & occupied = occupied_[ word ]; occupied; occupied &= occupied - 1 ) {
      place.slot = word * slotsPerWord + static_cast< unsigned >( std::countr_zero( occupied ) );
      if ( !slots_[ place.slot ].empty() ) {
        const unsigned shift = place.slot / slotsPerLevel * digitBits;
        const uint64_t above = reached_ >> shift & ~uint64_t( slotsPerLevel - 1 );
        place.tick = ( above | place.slot % slotsPerLevel ) << shift;
        return true;
      }
    }
  }
  return false;
}

bool TimerWheel::crowded( const Place & place ) const {
  return place.slot >= slotsPerLevel && slots_[ place.slot ].unordered() &&
         slots_[ place.slot ].size( many ) == many;
}

// All lower levels are empty: what comes to stand in one of their slots comes from here, the last
// of it first.
void TimerWheel::handDown( const Place & place ) {
  reached_ = place.tick;
  slots_[ place.slot ].takeFromBack( [ & ]( TimerLink & link ) {
    const unsigned number = slotOf( std::max( tickOf( link.time ), reached_ ) );
    slots_[ number ].prepend( link );
    occupy( number );
  } );
}

} // namespace Loom
