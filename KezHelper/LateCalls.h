// What the helpers of a chip that answers later share (KezHelper/Later.h): the order of what has
// been accepted, and what becomes of it.
#pragma once

#include "Loom/Task.h"

#include <deque>
#include <functional>
#include <map>

namespace KezHelper {

class LateCalls : public Vex::Entity {
  VEX_ENTITY( LateCalls, "KezHelper::LateCalls" )
  VEX_ATTRIBUTE( 1, pending, uint32_t )     // entries that hardware has not as they are wanted yet
  VEX_ATTRIBUTE( 2, outstanding, uint32_t ) // calls that the chip has yet to answer
  VEX_ATTRIBUTE( 3, made, uint64_t )        // calls of the chip
  VEX_ATTRIBUTE( 4, superseded, uint64_t )  // what was accepted, and no more wanted by its turn
  VEX_ATTRIBUTE( 5, lost, uint64_t )        // that machines were told of
  VEX_ATTRIBUTES( pending, outstanding, made, superseded, lost )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  explicit LateCalls( const Vex::Ptr< Loom::TaskScheduler > & scheduler );
  ~LateCalls() override;

  // For tables: an entry is pending, and no more; a call is made, and is answered.
  void pendingInc() { pendingIs( pending() + 1 ); }
  void pendingDec() { pendingIs( pending() - 1 ); }
  void callIs() {
    madeIs( made() + 1 );
    outstandingIs( outstanding() + 1 );
  }
  void answerIs() { outstandingIs( outstanding() - 1 ); }
  void supersededInc() { supersededIs( superseded() + 1 ); }
  void lostInc( const Vex::String & key, bool heard );

  // A number for what is under way from here on until it has ended.
  uint64_t begin();
  void end( uint64_t number );
  // Runs `next` once all that began before `number` has ended: at once, or later().
  void whenEndedBefore( uint64_t number, std::function< void() > next );
  bool isUnderWay() const { return !ended_.empty(); }
  // From a task of its own, not within what a machine has called.
  void later( std::function< void() > next );

private:
  class Run final : public Loom::Task {
  public:
    Run( const Vex::Ptr< Loom::TaskScheduler > & scheduler, LateCalls & owner );

  private:
    void run() override { owner_.go(); }
    LateCalls & owner_;
  };

  void go();

  uint64_t first_ = 1;       // that has not ended
  std::deque< bool > ended_; // from that on
  std::multimap< uint64_t, std::function< void() > > waiting_;
  std::deque< std::function< void() > > due_;
  const Vex::Ptr< Run > run_;
};

} // namespace KezHelper
