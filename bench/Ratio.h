// Measures a subject against floors in the same run: their rounds alternate, and what is reported
// is the middle of the rounds' ratios. A round before them is not counted, for it may meet memory
// that the system, or the host of a virtual machine, has yet to give.
//
// A contender is called once a round, which is not timed, and returns the round's work: what is
// timed is one call of it, and not its end either.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
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

// A contender whose rounds need nothing prepared: `work` returns what it made, if anything.
template< class Work > auto unprepared( Work & work ) {
  return [ &work ] {
    if constexpr ( std::is_void_v< decltype( work() ) > ) {
      return [ &work ] { work(); };
    } else {
      return [ &work, result = decltype( work() )() ]() mutable {
        result = work();
        benchmark::DoNotOptimize( result );
      };
    }
  };
}

template< class Contender > double roundOf( Contender & contender ) {
  auto work = contender();
  return seconds( work );
}

// Each round is over `items` items. Reports "<name>" as the subject's ratio to each floor.
template< class Subject, class... Floors >
void compareWith( benchmark::State & state, double items,
                  const std::array< std::string, sizeof...( Floors ) > & names, Subject && subject,
                  Floors &&... floors ) {
  constexpr size_t count = sizeof...( Floors );
  std::array< std::vector< double >, count > ratios;
  std::array< std::vector< double >, count > floorTimes;
  std::vector< double > subjectTimes;
  ( roundOf( floors ), ... );
  roundOf( subject );
  for ( auto _ : state ) {
    const std::array< double, count > floorTime{ roundOf( floors )... };
    const double subjectTime = roundOf( subject );
    state.SetIterationTime( subjectTime );
    subjectTimes.push_back( subjectTime );
    for ( size_t i = 0; i < count; ++i ) {
      ratios[ i ].push_back( subjectTime / floorTime[ i ] );
      floorTimes[ i ].push_back( floorTime[ i ] );
    }
  }
  state.counters[ "subject_ns" ] = median( subjectTimes ) / items * 1e9;
  for ( size_t i = 0; i < count; ++i ) {
    state.counters[ names[ i ] ] = median( ratios[ i ] );
    state.counters[ names[ i ] + "_ns" ] = median( floorTimes[ i ] ) / items * 1e9;
  }
}

template< class Subject, class Floor >
void compare( benchmark::State & state, double items, Subject && subject, Floor && floor ) {
  compareWith( state, items, { "ratio" }, unprepared( subject ), unprepared( floor ) );
}

} // namespace Bench
