#include "KezHelper/KezBaseHelper.h"

#include "Vex/Assert.h"

#include <cstdio>

namespace Kez {

KezBaseHelper::KezBaseHelper( const Vex::String & name ) {
  nameIs( name );
}

void KezBaseHelper::kezAssert( const Vex::String & msg ) {
  std::fprintf( stderr, "%s\n", msg.c_str() );
  std::fflush( stderr );
  Vex::assertionFailed( "0", "/usr/include/Kez/KezBaseHelper", __LINE__ );
}

} // namespace Kez
