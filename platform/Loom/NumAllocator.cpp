#include "Loom/NumAllocator.h"

namespace Loom {

NumAllocatorConfig::NumAllocatorConfig( const Range & range, double expiryTime )
    : range_( range ), expiryTime_( expiryTime ) {
  if ( range.min > range.max || range.max == NumAllocator::invalidNumber() ) {
    throw Vex::RangeError( "Loom::NumAllocatorConfig::range: expected one number or more, the "
                           "invalid one not among them, found " +
                           Vex::text( range ) );
  }
  if ( !Vex::contains< Vex::Seconds >( expiryTime ) ) {
    Vex::refuse< Vex::Seconds >( "Loom::NumAllocatorConfig::expiryTime", expiryTime );
  }
}

Range NumAllocatorConfig::range() const {
  return range_;
}

double NumAllocatorConfig::expiryTime() const {
  return expiryTime_;
}

NumAllocator::NumAllocator( const Vex::Ptr< const NumAllocatorConfig > & config,
                            const Vex::Ptr< NumAllocatorStatus > & status,
                            const Vex::Ptr< const TimerWheel > & clock )
    : numAllocatorConfig_( config ), numAllocatorStatus_( status ), clock_( clock ),
      fresh_( config->range().min ) {
  publishCounts();
}

uint64_t NumAllocator::getNumber() {
  uint64_t number = restedNumber();
  if ( number != invalidNumber() ) {
    restingNumberDel( number );
  } else if ( fresh_ <= numAllocatorConfig_->range().max ) {
    number = fresh_++;
  } else {
    return invalidNumber();
  }
  publishCounts();
  return number;
}

void NumAllocator::releaseNumber( uint64_t number ) {
  VEX_ASSERT( isUsed( number ) );
  restingNumberIs( number, clock_->now() );
  publishCounts();
}

bool NumAllocator::isUsed( uint64_t number ) const {
  return number >= numAllocatorConfig_->range().min && number < fresh_ &&
         !restingNumberHas( number );
}

uint64_t NumAllocator::restedNumber() const {
  const auto oldest = restingNumber().begin();
  const bool rested =
      oldest.valid() &&
      restingNumber( oldest.key() ) + numAllocatorConfig_->expiryTime() <= clock_->now();
  return rested ? oldest.key() : invalidNumber();
}

void NumAllocator::publishCounts() const {
  const Range range = numAllocatorConfig_->range();
  const uint64_t resting = restingNumbers();
  numAllocatorStatus_->countsIs(
      { fresh_ - range.min - resting, resting, range.max - fresh_ + 1 } );
}

} // namespace Loom
