// How urgent a task is: 0 to 7, the lower number runs first.
#pragma once

#include "Vex/Text.h"

namespace Loom {

class TaskPriority {
public:
  static constexpr size_t count = 8;

  constexpr TaskPriority() = default;
  // Raises Vex::RangeError outside 0 to 7.
  constexpr TaskPriority( int value ) : value_( checked( value ) ) {}

  constexpr uint8_t value() const { return value_; }
  static constexpr std::string_view vexTypeName() { return "Loom::TaskPriority"; }
  friend constexpr bool operator==( TaskPriority, TaskPriority ) = default;

private:
  static constexpr uint8_t checked( int value ) {
    if ( value < 0 || value >= static_cast< int >( count ) ) {
      throw Vex::RangeError( "TaskPriority::value > 7 not allowed" );
    }
    return static_cast< uint8_t >( value );
  }

  uint8_t value_ = 0;
};

inline void appendText( Vex::TextBuffer & out, TaskPriority priority ) {
  Vex::appendText( out, priority.value() );
}
inline void parseText( Vex::TextCursor & in, TaskPriority & priority ) {
  int value = 0;
  Vex::parseText( in, value );
  priority = value;
}

} // namespace Loom
