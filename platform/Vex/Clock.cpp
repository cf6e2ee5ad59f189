#include "Vex/Clock.h"

#include "Vex/Assert.h"

#include <algorithm>
#include <atomic>
#include <chrono>

namespace Vex {

namespace {

std::atomic< bool > virtualTime{ false };
std::atomic< double > virtualNow{ 0.0 };

} // namespace

double Clock::now() {
  if ( virtualTime.load( std::memory_order_relaxed ) ) {
    return virtualNow.load( std::memory_order_relaxed );
  }
  return steadyNow();
}

double Clock::steadyNow() {
  using Seconds = std::chrono::duration< double >;
  return Seconds( std::chrono::steady_clock::now().time_since_epoch() ).count();
}

void Clock::virtualIs( double seconds ) {
  virtualNow.store( seconds );
  virtualTime.store( true );
}

bool Clock::isVirtual() {
  return virtualTime.load( std::memory_order_relaxed );
}

void Clock::steadyIs() {
  virtualTime.store( false );
}

void Clock::advanceTo( double seconds ) {
  VEX_ASSERT( isVirtual() );
  virtualNow.store( std::max( virtualNow.load(), seconds ) );
}

} // namespace Vex
