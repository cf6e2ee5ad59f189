// Reads a ring file, while it is being written or after its writer's end, and follows it. A
// record is given whole or not at all. Damage is told, and what it leaves is read.
#pragma once

#include "Ringlog/RingFile.h"
#include "Ringlog/RingFormat.h"
#include "Ringlog/RingValues.h"

#include <functional>
#include <map>
#include <set>
#include <vector>

namespace Ringlog {

// The texts live as long as the call that gives the record.
struct RingRecord {
  double time; // as Vex::Clock had it, in seconds
  bool isVirtual;
  std::string_view handle;
  int level;
  std::string_view text;
  std::string_view file; // of the statement
  int line;
};

class RingReader {
public:
  // Raises std::runtime_error when the file cannot be opened, is no ring, is of another layout,
  // or is too damaged to tell what is where.
  explicit RingReader( const Vex::String & path );

  // Calls with the records that were committed since the last call and are not overwritten, in
  // order of time.
  void read( const std::function< void( const RingRecord & ) > & give );
  // The same of so many blocks at most, those that were begun first; whether there are others. What
  // several threads wrote at a time is in order within a call alone.
  bool readPart( size_t blocks, const std::function< void( const RingRecord & ) > & give );

  // Whether another ring has taken the file's place.
  bool isReplaced() const;

  const RingFormat::Header & header() const { return header_; }
  // What was found wrong so far, each once.
  const std::vector< Vex::String > & problems() const { return problems_; }
  // Of records that the writer had no room for.
  uint64_t lostRecords() const;

private:
  struct Site {
    int level;
    int line;
    Vex::String handle;
    Vex::String file;
    std::vector< PieceForm > forms;
    std::vector< uint64_t > words; // that the forms' literals are in
  };
  // How far a block is read.
  struct Progress {
    uint64_t sequence = 0;
    size_t words = 0;
  };
  // The items of a part of the file, which go on where `words` points.
  struct Part {
    Vex::String name;
    uint64_t seed;
    std::span< const uint64_t > words;
  };
  struct Found {
    uint64_t ticks;
    uint64_t sequence;
    const uint64_t * item;
  };

  void readHeader();
  std::vector< uint64_t > readWords( uint64_t offset, size_t count ) const;
  void readTable();
  // The blocks that have anything new, in the order in which they were begun.
  std::vector< size_t > unreadBlocks() const;
  void readBlocks( std::span< const size_t > blocks,
                   const std::function< void( const RingRecord & ) > & give );
  void readBlock( size_t index, std::vector< std::vector< uint64_t > > & buffers,
                  std::vector< Found > & found );
  template< class Give > void walk( const Part & part, Give && give );
  bool siteIs( std::span< const uint64_t > item );
  double secondsAt( uint64_t ticks ) const;
  void give( const uint64_t * item, const std::function< void( const RingRecord & ) > & give );
  void giveText( RingRecord & record, std::span< const uint64_t > values,
                 const std::function< void( const RingRecord & ) > & give );
  void problem( const Vex::String & text );

  Vex::String path_;
  Descriptor file_;
  RingFormat::Header header_{};
  size_t tableWords_ = 0; // that are read
  std::map< uint32_t, Site > sites_;
  std::vector< Progress > blocks_;
  std::map< uint64_t, double > clock_; // seconds at ticks
  std::set< Vex::String > known_;
  std::vector< Vex::String > problems_;
};

} // namespace Ringlog
