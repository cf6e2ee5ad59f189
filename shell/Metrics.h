// Figures of a running host, for a collector: families of samples, as OpenMetrics has them
// (docs/metrics.md).
//
// A host's own are put in beside those that every host has, by Host::addMetrics:
//
//   constexpr MetricFamily packets{ "kez_port_packets", MetricType::counter, "", "Packets sent." };
//   metrics.put( packets, { { "port", name } }, count );
#pragma once

#include "Vex/DurationHistogram.h"
#include "Vex/Json.h"
#include "Vex/Value.h"

namespace KezShell {

VEX_ENUM( MetricType, "KezShell::MetricType", gauge, counter, histogram )

// A name without a counter's "_total", which ends with the unit if there is one; the help is a
// plain sentence.
struct MetricFamily {
  std::string_view name;
  MetricType type;
  std::string_view unit;
  std::string_view help;
};

// What tells samples of a family apart.
struct MetricLabel {
  std::string_view name;
  Vex::String value;
};
using MetricLabels = std::vector< MetricLabel >;

// OpenMetrics 1.0, and the plain text of the collectors that read files, where a counter's family
// bears the name of its samples.
enum class MetricForm { openMetrics, plainText };

class Metrics {
public:
  // A gauge or counter. No two of a family have the same labels.
  template< class Number >
  void put( const MetricFamily & family, MetricLabels labels, Number value ) {
    samplesOf( family ).push_back( { "", std::move( labels ), Vex::text( value ) } );
  }
  void put( const MetricFamily & family, const MetricLabels & labels,
            const Vex::DurationHistogram & histogram );

  // Families in the order in which they were first put.
  void write( std::ostream & out, MetricForm form ) const;
  // A line each sample.
  void writeInJson( Vex::JsonWriter & out ) const;

private:
  struct Sample {
    std::string_view suffix; // of the family's name
    MetricLabels labels;
    Vex::String value;
  };
  struct Family {
    MetricFamily about;
    std::vector< Sample > samples;
  };

  std::vector< Sample > & samplesOf( const MetricFamily & family );

  std::vector< Family > families_;
};

class Host;

// All of a host's.
Metrics metricsOf( const Host & host );

} // namespace KezShell
