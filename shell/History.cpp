#include "shell/History.h"

#include "Ringlog/Ring.h"
#include "Ringlog/RingReader.h"
#include "Ringlog/TextTrace.h"
#include "Vex/Domain.h"
#include "shell/Path.h"
#include "shell/Shell.h"

#include <algorithm>
#include <deque>

namespace KezShell {

using Vex::String;

namespace {

constexpr std::string_view wordEnds = " \t,;:()[]{}/'\"";

// The words of all keys on the way to what a path names.
std::vector< String > wordsOfKeys( const String & path ) {
  std::vector< String > words;
  for ( size_t at = path.find( '[' ); at != path.npos; at = path.find( '[', at ) ) {
    const auto end = std::min( path.find( ']', at ), path.size() );
    const auto ofKey = wordsOfKey( std::string_view( path ).substr( at + 1, end - at - 1 ) );
    words.insert( words.end(), ofKey.begin(), ofKey.end() );
    at = end;
  }
  return words;
}

bool hasWord( std::string_view text, std::string_view word ) {
  const auto endsAt = [ & ]( size_t at ) {
    return at == text.size() || wordEnds.find( text[ at ] ) != wordEnds.npos;
  };
  for ( size_t at = text.find( word ); at != text.npos; at = text.find( word, at + 1 ) ) {
    if ( ( at == 0 || endsAt( at - 1 ) ) && endsAt( at + word.size() ) ) {
      return true;
    }
  }
  return false;
}

// The latest of what was traced of something, read from the ring part by part.
class History : public Answer {
public:
  // `absent` is said, in words, when there is nothing.
  History( const String & ring, std::vector< String > words, size_t limit, String absent )
      : reader_( ring ), words_( std::move( words ) ), limit_( limit ),
        absent_( std::move( absent ) ) {}

  bool say( Session & session ) override {
    if ( isRead_ ) {
      return sayNext( session );
    }
    // A ring that is being written has always something more to read.
    constexpr size_t blocksAtATime = 2;
    const bool more = reader_.readPart( blocksAtATime, [ this ]( const auto & record ) {
      if ( std::all_of( words_.begin(), words_.end(),
                        [ & ]( const auto & word ) { return hasWord( record.text, word ); } ) ) {
        keep( record );
      }
    } );
    isRead_ = !more || ++parts_ > reader_.header().blockCount / blocksAtATime;
    if ( isRead_ && kept_.empty() && !session.json() ) {
      session.out() << absent_;
    }
    return !kept_.empty() || !isRead_;
  }

private:
  struct Record {
    double time;
    String handle;
    int level;
    String text;
  };

  void keep( const Ringlog::RingRecord & record ) {
    if ( kept_.size() == limit_ ) {
      kept_.pop_front();
    }
    kept_.push_back(
        { record.time, String( record.handle ), record.level, String( record.text ) } );
  }

  bool sayNext( Session & session ) {
    const auto & record = kept_.front();
    if ( auto * const json = session.json() ) {
      json->line( [ & ] {
        json->member( "trace", record.text );
        json->member( "time", record.time );
        json->member( "handle", record.handle );
        json->member( "level", record.level );
      } );
    } else {
      Vex::TextBuffer line;
      Ringlog::appendLine( line, { record.time, record.handle, record.level, record.text } );
      session.out() << line.view() << '\n';
    }
    kept_.pop_front();
    return !kept_.empty();
  }

  Ringlog::RingReader reader_;
  const std::vector< String > words_;
  const size_t limit_;
  const String absent_;
  size_t parts_ = 0;
  bool isRead_ = false;
  std::deque< Record > kept_;
};

void history( const Shell & shell, Vex::TextCursor & in, Session & session ) {
  const size_t column = in.offset() + 1;
  const Path path( shell.roots(), in );
  auto words = wordsOfKeys( path.text() );
  if ( words.empty() ) {
    throw BadLine( path.endColumn(), "expected '[' and a key, by which it is looked for" );
  }
  size_t limit = 20;
  if ( !in.done() ) {
    const size_t offset = in.offset();
    const auto word = takeWord( in );
    if ( word != "limit" ) {
      failAt( offset, "limit N or the end of the line", word );
    }
    const size_t numberColumn = in.offset() + 1;
    const auto number = takeRest( in );
    limit =
        inTextAt( numberColumn, [ & ] { return Vex::parseHeld< Vex::PositiveCount >( number ); } );
  }
  const auto ring = Ringlog::ringPath();
  if ( ring.empty() ) {
    throw BadLine( column, "expected a host that writes a ring, which this one does not" );
  }
  session.answerIs( std::make_unique< History >( ring, std::move( words ), limit,
                                                 "the ring has nothing of it\n" ) );
}

} // namespace

std::vector< String > wordsOfKey( std::string_view key ) {
  std::vector< String > words;
  for ( size_t at = 0; at < key.size(); ++at ) {
    const auto next = std::min( key.find_first_of( wordEnds, at ), key.size() );
    if ( next > at ) {
      words.emplace_back( key.substr( at, next - at ) );
    }
    at = next;
  }
  return words;
}

std::unique_ptr< Answer > lastTraced( std::vector< String > words ) {
  const auto ring = Ringlog::ringPath();
  return ring.empty() ? nullptr
                      : std::make_unique< History >( ring, std::move( words ), 1, String() );
}

void addHistory( Shell & shell ) {
  shell.commandIs(
      { "history", "PATH[KEY] [limit N]", "tell what was traced of something",
        "Of what the ring has, at any level, that which names all of the path's keys: calls of\n"
        "hardware and their answers, tries, and the events that led to them. The latest 20, or N.\n"
        "The host writes a ring: kez-agent does with --ring FILE.\n"
        "  history switch.dot1qMapping[Port-Channel1,Ethernet1,10] limit 5\n",
        Effect::none,
        [ &shell ]( Vex::TextCursor & in, Session & session ) { history( shell, in, session ); } },
      "expect" );
}

} // namespace KezShell
