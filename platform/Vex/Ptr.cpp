#include "Vex/Ptr.h"

namespace Vex {

uint32_t Detail::threadSafePtrs = 0;

void threadSafePtrsIs( bool on ) {
  Detail::threadSafePtrs = on ? 1 : 0;
}

void PtrInterface::refDecAtomically() const {
  if ( __atomic_sub_fetch( &refs_, 1, __ATOMIC_ACQ_REL ) == 0 ) {
    lastReferenceGone();
  }
}

void PtrInterface::lastReferenceGone() const {
  refs_ = 1;
  zeroReferences();
}

} // namespace Vex
