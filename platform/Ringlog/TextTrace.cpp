#include "Ringlog/TextTrace.h"

#include "Ringlog/Setting.h"
#include "Ringlog/Trace.h"
#include "Vex/Clock.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <mutex>

namespace Ringlog {

namespace {

Setting environmentSetting() {
  const char * variable = std::getenv( "KEZ_TRACE" );
  std::string_view rest( variable ? variable : "" );
  Vex::String accepted;
  while ( !rest.empty() ) {
    const auto entry = rest.substr( 0, rest.find( ',' ) );
    rest.remove_prefix( std::min( rest.size(), entry.size() + 1 ) );
    try {
      if ( !Setting( entry ).text().empty() ) {
        accepted += ( accepted.empty() ? "" : "," ) + Vex::String( entry );
      }
    } catch ( const Vex::ParseError & error ) {
      std::fprintf( stderr, "KEZ_TRACE: entry '%.*s' is left out: %s\n",
                    static_cast< int >( entry.size() ), entry.data(), error.what() );
    }
  }
  return Setting( accepted );
}

} // namespace

// All handles, their setting and the sink.
class Registry {
public:
  // Made by the first handle's constructor or before it, so it outlives every static handle.
  static Registry & instance() {
    static Registry registry;
    return registry;
  }

  void handleIs( Handle & handle ) {
    const std::lock_guard lock( mutex_ );
    handles_.push_back( &handle );
    update( handle );
  }

  void handleDel( Handle & handle ) {
    const std::lock_guard lock( mutex_ );
    std::erase( handles_, &handle );
    // A statement that runs later still, at the process's end, is off.
    handle.levels_.store( 0, std::memory_order_relaxed );
  }

  std::vector< Vex::String > handleNames() const {
    const std::lock_guard lock( mutex_ );
    std::vector< Vex::String > names;
    for ( const auto * handle : handles_ ) {
      names.emplace_back( handle->name() );
    }
    std::sort( names.begin(), names.end() );
    names.erase( std::unique( names.begin(), names.end() ), names.end() );
    return names;
  }

  void settingIs( Setting setting ) {
    const std::lock_guard lock( mutex_ );
    setting_ = std::move( setting );
    for ( auto * handle : handles_ ) {
      update( *handle );
    }
  }

  Vex::String setting() const {
    const std::lock_guard lock( mutex_ );
    return setting_.text();
  }

  void ringIs( bool mounted ) {
    const std::lock_guard lock( mutex_ );
    ringMounted_ = mounted;
    for ( auto * handle : handles_ ) {
      update( *handle );
    }
  }

  // The sink is shared with the calls that are under way, since it runs without the lock.
  void sinkIs( std::shared_ptr< const Sink > sink ) {
    const std::lock_guard lock( mutex_ );
    sink_.swap( sink );
  }

  std::shared_ptr< const Sink > sink() const {
    const std::lock_guard lock( mutex_ );
    return sink_;
  }

private:
  void update( Handle & handle ) const {
    const uint32_t text = setting_.levels( handle.name() );
    constexpr uint32_t ring = ( ( 2u << highestLevel ) - 1 ) | ( 1u << Handle::ringBit );
    handle.levels_.store( ( ringMounted_ ? ring : text ) | ( text << Handle::textBit ),
                          std::memory_order_relaxed );
  }

  mutable std::mutex mutex_;
  std::vector< Handle * > handles_;
  Setting setting_ = environmentSetting();
  bool ringMounted_ = false;
  std::shared_ptr< const Sink > sink_;
};

namespace {

uint32_t nextHandleNumber() {
  static std::atomic< uint32_t > numbers{ 0 };
  return ++numbers;
}

void writeLine( const TextRecord & record ) {
  Vex::TextBuffer line;
  appendLine( line, record );
  line.append( '\n' );
  std::fwrite( line.view().data(), 1, line.view().size(), stderr );
}

void appendBlanks( Vex::TextBuffer & out, size_t width, size_t used ) {
  for ( size_t i = used; i < width; ++i ) {
    out.append( ' ' );
  }
}

} // namespace

Handle::Handle( std::string_view name, const char * source )
    : number_( nextHandleNumber() ), name_( name ), source_( source ) {
  Registry::instance().handleIs( *this );
}

Handle::~Handle() {
  Registry::instance().handleDel( *this );
}

void deliver( const Handle & handle, const CallSite & site, std::string_view text ) noexcept {
  thread_local bool inSink = false;
  const TextRecord record{ Vex::Clock::now(), handle.name(), site.level, text };
  const auto sink = inSink ? nullptr : Registry::instance().sink();
  if ( sink ) {
    inSink = true;
    ( *sink )( record );
    inSink = false;
  } else {
    writeLine( record );
  }
}

void ringLevelsAre( bool on ) {
  Registry::instance().ringIs( on );
}

void traceIs( std::string_view setting ) {
  Registry::instance().settingIs( Setting( setting ) );
}

Vex::String trace() {
  return Registry::instance().setting();
}

std::vector< Vex::String > handleNames() {
  return Registry::instance().handleNames();
}

void sinkIs( Sink sink ) {
  Registry::instance().sinkIs( sink ? std::make_shared< const Sink >( std::move( sink ) )
                                    : nullptr );
}

void appendTime( Vex::TextBuffer & out, double time ) {
  constexpr size_t timeWidth = 14;
  char text[ 320 ]; // the longest double
  const auto [ end, error ] =
      std::to_chars( text, std::end( text ), time, std::chars_format::fixed, 6 );
  const std::string_view seconds( text, static_cast< size_t >( end - text ) );
  appendBlanks( out, timeWidth, seconds.size() );
  out.append( seconds );
}

void appendLine( Vex::TextBuffer & out, const TextRecord & record ) {
  constexpr size_t handleWidth = 28;
  appendTime( out, record.time );
  out.append( ' ' );
  out.append( record.handle );
  appendBlanks( out, handleWidth, record.handle.size() );
  out.append( ' ' );
  appendText( out, record.level );
  out.append( ' ' );
  out.append( record.text );
}

} // namespace Ringlog
