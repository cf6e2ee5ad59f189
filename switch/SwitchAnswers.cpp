#include "switch/SwitchAnswers.h"

#include "switch/Random.h"

namespace Switch {

using Kez::HwProgrammingStatus;
using Mpls::LfibHwProgrammingReturnCode;

template< class Key, class Data >
SwitchAnswers::FloodingChip< Key, Data > SwitchAnswers::floodingChip() {
  return { *this, HwProgrammingStatus::programmed, HwProgrammingStatus::notProgrammed,
           [ this ]( const Key & key, const Data & data ) {
             return createEntry( *floodingHelper(), key, data );
           },
           [ this ]( const Key & key, const Data & data ) {
             removeEntry( *floodingHelper(), key, data );
           } };
}

SwitchAnswers::SwitchAnswers(
    const Vex::Ptr< Loom::TimerWheel > & timerWheel, const Vex::Ptr< SimulatedSwitch > & hardware,
    const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & floodingHelper,
    const Vex::Ptr< KezHelper::EsiFilteringDecapHelper > & esiFilteringDecapHelper )
    : floodingHelper_( floodingHelper ), esiFilteringDecapHelper_( esiFilteringDecapHelper ),
      hardware_( hardware ), vlan_( floodingChip< Bridging::VlanId, Bridging::VlanIdOrNone >() ),
      dot1qMapping_( floodingChip< KezHelper::PortVlanKey, Bridging::VlanIdOrNone >() ),
      nonDfPort_( floodingChip< KezHelper::PortVlanKey, Vex::NoValue >() ),
      esiData_( floodingChip< KezHelper::PortVlanKey, KezHelper::EsiData >() ),
      esiPortMap_(
          *this, LfibHwProgrammingReturnCode::success, LfibHwProgrammingReturnCode::notProgrammed,
          [ this ]( Wire::IntfId intfId, Wire::MplsLabel label ) {
            return this->esiFilteringDecapHelper()->createEsiPortMap( label, intfId );
          },
          [ this ]( Wire::IntfId intfId, Wire::MplsLabel label ) {
            this->esiFilteringDecapHelper()->deleteEsiPortMap( label, intfId );
          } ),
      delay_( timerWheel, *this ) {}

size_t SwitchAnswers::pendingAnswers() const {
  return calls_.size();
}

uint64_t SwitchAnswers::chance() {
  const auto number = randomNumber( shuffleSeed(), 1 );
  shuffleSeedIs( number | 1 );
  return number;
}

uint64_t SwitchAnswers::callIs( Call call ) {
  const auto number = ++numbers_;
  double delay = answerDelay();
  if ( shuffleSeed() != 0 ) {
    delay *= double( chance() % 8 + 1 ) / 8;
    if ( chance() % 2 == 0 ) {
      carryOut( call, delay );
    }
  }
  calls_.emplace( number, std::move( call ) );
  agenda_.dueIs( number, Vex::Clock::now() + delay, number );
  delay_.setAt( agenda_.nextDue() );
  return number;
}

void SwitchAnswers::carryOut( Call & call, double latency ) {
  if ( const auto carryOut = std::exchange( call.carryOut, nullptr ) ) {
    hardware_->latencyIs( latency );
    carryOut();
    hardware_->latencyIs( 0 );
  }
}

bool SwitchAnswers::leavesOut( uint64_t number ) {
  const bool leftOut = calls_.at( number ).carryOut && shuffleSeed() != 0 && chance() % 2 == 0;
  if ( leftOut ) {
    calls_.erase( number );
    agenda_.del( number );
  }
  return leftOut;
}

void SwitchAnswers::doDueWork() {
  const double now = Vex::Clock::now();
  while ( agenda_.size() > 0 && agenda_.nextDue() <= now ) {
    auto call = std::move( calls_.extract( agenda_.take() ).mapped() );
    carryOut( call, now - call.asked );
    call.answer();
  }
  if ( agenda_.size() > 0 ) {
    delay_.setAt( agenda_.nextDue() );
  }
}

void SwitchAnswers::carryOutAll() {
  while ( agenda_.size() > 0 ) {
    auto call = calls_.extract( agenda_.take() );
    carryOut( call.mapped(), Vex::Clock::now() - call.mapped().asked );
  }
}

} // namespace Switch
