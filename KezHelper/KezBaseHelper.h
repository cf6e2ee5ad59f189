// The base of every hardware helper: a named entity, and how its callers fail.
#pragma once

#include "Vex/Attributes.h"

namespace Kez {

class KezBaseHelper : public Vex::Entity {
  VEX_ENTITY( KezBaseHelper, "Kez::KezBaseHelper" )
  VEX_ATTRIBUTES()

  explicit KezBaseHelper( const Vex::String & name );

  // Why hardware refused the latest call that it refused, in a few words, as "no room"; empty where
  // the helper does not say.
  virtual Vex::String refusalReason() const { return {}; }

  // Writes `msg` and a newline to standard error and fails an assertion.
  [[noreturn]] static void kezAssert( const Vex::String & msg );

protected:
  // For an operation that the platform leaves out: kezAssert( "Unimplemented <operation>" ), but
  // nothing while the environment has KEZ_NOOP_AGENT, for an agent that runs without hardware.
  static void unimplemented( const char * operation );
};

} // namespace Kez
