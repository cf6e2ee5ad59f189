#include "KezEvpn/FecRequests.h"

namespace Kez {

Vex::Ptr< FecIdToHwFecIdRequest > fecIdToHwFecIdRequestFactory() {
  return Vex::makePtr< FecIdToHwFecIdRequest >();
}

Vex::Ptr< FecIdToHwFecIdResponse > fecIdToHwFecIdResponseFactory() {
  return Vex::makePtr< FecIdToHwFecIdResponse >();
}

} // namespace Kez
