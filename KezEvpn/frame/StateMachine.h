// The base of every state machine.
//
// A machine is built on its input entities (constant, watched), its output entities (written)
// and, where it touches hardware, a helper and a task scheduler. It owns its reactors, made last
// by its constructor, and acts only when one of them or one of its review tasks runs it. Its
// attributes are private state that reflection reads and does not write, tunables apart. Its
// destructor drops reactors and tasks and leaves the outputs as they stand.
//
// `hasNotificationActiveIs` switches the notifications of all its reactors, and replays nothing.
// `vexDoZombieReactors` marks and unmarks all of them; when the mark is taken away, the machine
// makes up for what it did not hear under it, as far as the inputs still show it. `explain` tells
// an operator why something is in hardware or not; `check` proves the machine's invariants, which
// its header states; an audit compares its record with what hardware has.
#pragma once

#include "Ringlog/Trace.h"
#include "Vex/Attributes.h"

#include <utility>

namespace KezHelper {
class AuditParts;
}

namespace Kez {

// How a machine is handed its inputs, which it reads, and its outputs and helpers, through which it
// writes.
template< class T > using In = const Vex::Ptr< const T > &;
template< class T > using Out = const Vex::Ptr< T > &;

struct Subject;
class Explanation;
class Findings;
class Missing;

class StateMachine : public Vex::Entity, public Vex::ReactorOwner {
  VEX_ENTITY( StateMachine, "Kez::StateMachine" )
  VEX_ATTRIBUTES()

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  void vexDoZombieReactors( bool zombie ) override {
    const Vex::Ptr< const Vex::Entity > held( this );
    const bool unmarked = std::exchange( marked_, zombie ) && !zombie;
    ReactorOwner::vexDoZombieReactors( zombie );
    if ( unmarked && started() ) {
      makeUpForZombieMark();
    }
  }

  // Says nothing of a subject that the machine has nothing to do with, nor before its start.
  virtual void explain( const Subject &, Explanation & ) const {}

  // Adds what it does not have in hardware as its inputs ask for it, with the reasons, from what
  // waits alone: what is programmed is not walked.
  virtual void addMissing( Missing & ) const {}

  // Says what of its invariants does not hold. To be asked between events.
  virtual void check( Findings & ) const {}

  // Adds the tables of hardware that it fills, for an audit, which holds the machine.
  virtual void addAuditParts( KezHelper::AuditParts & ) {}

  // Whether it has looked at all that its inputs ask for. What is due all the same is tried again
  // because hardware refused it, or looked at again for another's sake.
  virtual bool settled() const { return true; }

  // By which what machines share traces and asserts in the machine's name.
  Ringlog::Handle & handle() const { return handle_; }

protected:
  explicit StateMachine( Ringlog::Handle & traceHandle ) : handle_( traceHandle ) {}

  virtual bool started() const { return true; }

  // Once all reactors are unmarked, each of which has looked at its entity as it stands now:
  // processes what none of them can see, what left its input or changed beside them.
  virtual void makeUpForZombieMark() {}

private:
  Ringlog::Handle & handle_;
  bool marked_ = false;
};

// A machine that starts when its host calls `handleInitialized()`: until that has set the flag,
// handlers do nothing and internal operations assert "initialized()"; then it walks every input
// member that stands.
class InitializedSm : public StateMachine {
  VEX_ENTITY( InitializedSm, "Kez::InitializedSm", StateMachine )
  VEX_ATTRIBUTE( 60, initialized, bool )
  VEX_ATTRIBUTES( initialized )

public:
  virtual void handleInitialized() = 0;

protected:
  using StateMachine::StateMachine;

  bool started() const override { return initialized(); }
};

} // namespace Kez
