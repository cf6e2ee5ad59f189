#include "Vex/Ptr.h"

namespace Vex {

bool Detail::threadSafePtrs = false;

void threadSafePtrsIs( bool on ) {
  Detail::threadSafePtrs = on;
}

} // namespace Vex
