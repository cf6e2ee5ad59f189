#include "agent/HardwareMetrics.h"

namespace Agent {

using KezShell::MetricFamily;
using KezShell::MetricLabels;
using Switch::Outcome;

namespace {

using enum KezShell::MetricType;

constexpr MetricFamily calls{ "kez_hardware_calls", counter, "", "Calls of hardware." };
constexpr MetricFamily answers{ "kez_hardware_answers", counter, "",
                                "Answers of hardware to its calls: done, planned (a fault), full "
                                "or refused (a wrong call)." };
constexpr MetricFamily latency{ "kez_hardware_answer_seconds", histogram, "seconds",
                                "Time from a call of hardware to its answer." };
constexpr MetricFamily entries{ "kez_hardware_entries", gauge, "",
                                "Entries of a table of hardware." };
constexpr MetricFamily capacity{ "kez_hardware_capacity", gauge, "",
                                 "Entries for which a limited table of hardware has room." };

void addOperation( KezShell::Metrics & metrics, const Switch::SimulatedSwitch & hardware,
                   Switch::Operation operation ) {
  const MetricLabels labels{ { "operation", stringValue( operation ) } };
  metrics.put( calls, labels, hardware.callCount( operation ) );
  const auto put = [ & ]( Outcome outcome, uint64_t count ) {
    auto both = labels;
    both.push_back( { "answer", stringValue( outcome ) } );
    metrics.put( answers, std::move( both ), count );
  };
  put( Outcome::done, hardware.successCount( operation ) );
  if ( Switch::typeOf( operation ).canFail() ) {
    put( Outcome::planned, hardware.faultCount( operation ) );
    put( Outcome::full, hardware.fullCount( operation ) );
  }
  put( Outcome::refused, hardware.refusalCount( operation ) );
  metrics.put( latency, labels, hardware.latency( operation ) );
}

} // namespace

void addHardwareMetrics( KezShell::Metrics & metrics, const Switch::SimulatedSwitch & hardware ) {
  for ( const auto & type : Switch::operationTypes ) {
    addOperation( metrics, hardware, type.operation );
  }
  for ( size_t i = 0; i < vexNames( Switch::Table() ).size(); ++i ) {
    const auto table = static_cast< Switch::Table >( i );
    const MetricLabels labels{ { "table", stringValue( table ) } };
    metrics.put( entries, labels, hardware.entries( table ) );
    if ( hardware.capacityHas( table ) ) {
      metrics.put( capacity, labels, hardware.capacity( table ) );
    }
  }
}

} // namespace Agent
