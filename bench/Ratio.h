// Measures a subject against a floor in the same run: rounds of both alternate, and what is
// reported is the middle of the rounds' ratios.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace Bench {

template< class Work > double seconds( Work && work ) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration< double >( std::chrono::steady_clock::now() - start ).count();
}

inline double median( std::vector< double > values ) {
  std::nth_element( values.begin(), values.begin() + values.size() / 2, values.end() );
  return values[ values.size() / 2 ];
}

// `subject` and `floor` each do one round over `items` items and return what destroys their
// result, which is not timed.
template< class Subject, class Floor >
void compare( benchmark::State & state, double items, Subject && subject, Floor && floor ) {
  std::vector< double > ratios;
  std::vector< double > subjectTimes;
  std::vector< double > floorTimes;
  for ( auto _ : state ) {
    double floorTime = 0;
    double subjectTime = 0;
    {
      decltype( floor() ) result;
      floorTime = seconds( [ & ] { result = floor(); } );
      benchmark::DoNotOptimize( result );
    }
    {
      decltype( subject() ) result;
      subjectTime = seconds( [ & ] { result = subject(); } );
      benchmark::DoNotOptimize( result );
    }
    state.SetIterationTime( subjectTime );
    ratios.push_back( subjectTime / floorTime );
    subjectTimes.push_back( subjectTime );
    floorTimes.push_back( floorTime );
  }
  state.counters[ "ratio" ] = median( ratios );
  state.counters[ "subject_ns" ] = median( subjectTimes ) / items * 1e9;
  state.counters[ "floor_ns" ] = median( floorTimes ) / items * 1e9;
}

} // namespace Bench
