#include "record/RecordEntry.h"

#include "shell/Line.h"

#include <algorithm>

namespace Agent {

using KezShell::BadLine;
using KezShell::failAt;
using KezShell::inTextAt;
using KezShell::takeRest;
using KezShell::takeWord;

namespace {

constexpr std::string_view answerMark = " -> ";

double parseTime( Vex::TextCursor & in ) {
  const size_t offset = in.offset();
  const auto text = takeRest( in );
  const auto time = inTextAt( offset + 1, [ & ] { return Vex::parseBriefly< double >( text ); } );
  if ( !( time >= 0 ) ) {
    failAt( offset, "a time in seconds", text );
  }
  return time;
}

void parseCount( Vex::TextCursor & in, RecordEntry & entry ) {
  const size_t offset = in.offset();
  if ( Vex::readNumber( in, entry.times ) ) {
    if ( entry.times == 0 ) {
      failAt( offset, "a count of 1 or more", "0" );
    }
    in.expect( timesMark );
  }
}

void parseCall( Vex::TextCursor & in, RecordEntry & entry ) {
  entry.kind = EntryKind::call;
  entry.text = in.rest();
  const auto answerAt = entry.text.rfind( answerMark );
  if ( answerAt != entry.text.npos ) {
    entry.text = entry.text.substr( 0, answerAt );
  }
  const size_t offset = in.offset();
  const auto word = takeWord( in );
  const auto operations = vexNames( Switch::Operation() );
  if ( std::find( operations.begin(), operations.end(), word ) == operations.end() ) {
    failAt( offset, "time, turn, yield or an operation of the switch", word );
  }
  in.atIs( entry.text.data() + entry.text.size() );
  if ( in.skip( answerMark ) ) {
    parseText( in, entry.answer );
  }
}

void parseYield( Vex::TextCursor & in, RecordEntry & entry ) {
  entry.kind = EntryKind::yield;
  uint64_t number = 0;
  for ( int i = 0; i < 2; ++i ) {
    Vex::parseText( in, number );
    in.expect( " " );
  }
}

RecordEntry parseLine( size_t number, std::string_view line ) {
  RecordEntry entry{ EntryKind::line, number, line };
  Vex::TextCursor in( line );
  if ( !in.skip( entryMark ) ) {
    return entry;
  }
  entry.text = in.rest();
  if ( in.skip( virtualStart ) || in.skip( steadyStart ) ) {
    entry.kind = EntryKind::start;
    entry.steady = entry.text.starts_with( steadyStart );
    entry.time = parseTime( in );
    return entry;
  }
  parseCount( in, entry );
  entry.text = in.rest();
  if ( in.skip( timeWord ) ) {
    entry.kind = EntryKind::time;
    entry.time = parseTime( in );
  } else if ( in.skip( turnWord ) ) {
    entry.kind = EntryKind::turn;
    Vex::expectEnd( in );
  } else if ( in.skip( yieldWord ) ) {
    parseYield( in, entry );
  } else {
    parseCall( in, entry );
  }
  return entry;
}

[[noreturn]] void fail( const Vex::String & name, size_t number, size_t column,
                        const Vex::String & what ) {
  throw std::runtime_error( name + ":" + std::to_string( number ) + ":" + std::to_string( column ) +
                            ": " + what );
}

} // namespace

Vex::String yieldText( const Vex::String & task, uint64_t run, uint64_t question ) {
  return Vex::String( yieldWord ) + std::to_string( run ) + " " + std::to_string( question ) + " " +
         task;
}

std::vector< RecordEntry > recordEntries( const Vex::String & name, std::string_view text ) {
  std::vector< RecordEntry > entries;
  size_t starts = 0;
  size_t number = 0;
  while ( !text.empty() ) {
    ++number;
    const auto end = text.find( '\n' );
    const auto line = text.substr( 0, end );
    if ( end == text.npos ) {
      fail( name, number, line.size() + 1, "expected the end of the line, found nothing" );
    }
    text.remove_prefix( end + 1 );
    try {
      entries.push_back( inTextAt( 1, [ & ] { return parseLine( number, line ); } ) );
    } catch ( const BadLine & error ) {
      fail( name, number, error.column, error.what() );
    }
    const auto kind = entries.back().kind;
    const bool isStart = kind == EntryKind::start;
    starts += isStart;
    if ( isStart ? starts > 1 : kind != EntryKind::line && starts == 0 ) {
      fail( name, number, 1,
            isStart ? "expected one start of a record, found another"
                    : "expected the start of a record before its entries" );
    }
  }
  if ( starts == 0 ) {
    fail( name, 1, 1,
          "expected a record, which has a line '" + Vex::String( entryMark ) +
              Vex::String( virtualStart ) + "...'; run plays lines alone" );
  }
  return entries;
}

} // namespace Agent
