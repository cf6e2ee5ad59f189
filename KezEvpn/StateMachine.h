// The base of every state machine.
//
// A machine is built on its input entities (constant, watched), its output entities (written)
// and, where it touches hardware, a helper and a task scheduler. It owns its reactors, made last
// by its constructor, and acts only when one of them or one of its review tasks runs it. Its
// attributes are private state that reflection reads and does not write, tunables apart. Its
// destructor drops reactors and tasks and leaves the outputs as they stand.
//
// `hasNotificationActiveIs` switches the notifications of all its reactors, `vexDoZombieReactors`
// marks and unmarks all of them. `explain` tells an operator why something is in hardware or not.
#pragma once

#include "Vex/Attributes.h"

namespace Kez {

struct Subject;
class Explanation;

class StateMachine : public Vex::Entity, public Vex::ReactorOwner {
  VEX_ENTITY( StateMachine, "Kez::StateMachine" )
  VEX_ATTRIBUTES()

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  // Says nothing of a subject that the machine has nothing to do with, nor before its start.
  virtual void explain( const Subject &, Explanation & ) const {}
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
};

} // namespace Kez
