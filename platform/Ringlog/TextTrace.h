// The process's trace: which statements are on, and where their texts go.
//
// At first the setting is that of the environment variable KEZ_TRACE; an entry of it that does
// not parse is named on standard error and left out.
#pragma once

#include "Vex/Text.h"

#include <functional>
#include <string_view>
#include <vector>

namespace Ringlog {

// Replaces the setting (see Ringlog/Setting.h) for all handles, those made later too. Raises
// Vex::ParseError, and then changes nothing.
void traceIs( std::string_view setting );
// The present setting, as traceIs takes it.
Vex::String trace();

// Of the handles that exist, in order, each once.
std::vector< Vex::String > handleNames();

// The texts live as long as the call of the sink.
struct TextRecord {
  double time; // Vex::Clock, in seconds
  std::string_view handle;
  int level;
  std::string_view text;
};

// Called on the thread that traces, by several at once if several do; must not throw. What it
// traces itself goes to the default sink, so that it is never called from within itself.
using Sink = std::function< void( const TextRecord & ) >;

// Replaces the sink. An empty one stands for the default, which writes a line to standard error.
void sinkIs( Sink sink );

// A time in seconds, as wide as it stands in such a line.
void appendTime( Vex::TextBuffer & out, double time );

// The line of the default sink without its end: time, handle, level and text in columns.
void appendLine( Vex::TextBuffer & out, const TextRecord & record );

} // namespace Ringlog
