// Collects the lines that handles trace while it lives.
#pragma once

#include "Ringlog/TextTrace.h"

#include <string>
#include <utility>
#include <vector>

class TraceCapture {
public:
  explicit TraceCapture( std::string_view setting ) {
    Ringlog::sinkIs( [ this ]( const Ringlog::TextRecord & record ) {
      lines_.emplace_back( std::to_string( record.level ) + " " + std::string( record.text ) );
    } );
    Ringlog::traceIs( setting );
  }
  ~TraceCapture() {
    Ringlog::traceIs( "" );
    Ringlog::sinkIs( {} );
  }
  TraceCapture( const TraceCapture & ) = delete;
  TraceCapture & operator=( const TraceCapture & ) = delete;

  // "<level> <text>" of each line since the last call.
  std::vector< std::string > take() { return std::exchange( lines_, {} ); }

private:
  std::vector< std::string > lines_;
};
