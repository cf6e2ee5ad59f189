#include "KezHelper/KezBaseHelper.h"

#include "Vex/Assert.h"

#include <cstdlib>

namespace Kez {

KezBaseHelper::KezBaseHelper( const Vex::String & name ) {
  nameIs( name );
}

void KezBaseHelper::kezAssert( const Vex::String & msg ) {
  Vex::assertionFailed( "0", "/usr/include/Kez/KezBaseHelper", __LINE__, msg );
}

void KezBaseHelper::unimplemented( const char * operation ) {
  if ( !std::getenv( "KEZ_NOOP_AGENT" ) ) {
    kezAssert( Vex::String( "Unimplemented " ) + operation );
  }
}

} // namespace Kez
