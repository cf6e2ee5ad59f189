// A table of what hardware has that outlives the process: any keys and data, in a Rook::Table whose
// file is below the mount directory, or in private memory without one. The next process takes it
// over as the last write left it.
//
// The records of that table are blocks of entries, so that what a record costs beside its own bytes
// is shared by many: an entry is its packed bytes and a few more. Every change is one record's, and
// so it is made or not made at any instant. An entry keeps its place while it stands.
//
// A driver whose chip is another thing than its journal writes it by JournalTable.
#pragma once

#include "KezHelper/HwTable.h"
#include "KezHelper/JournalBytes.h"
#include "KezHelper/JournalIndex.h"

#include <new>

namespace KezHelper {

namespace Detail {

template< class Key, class Data > struct JournalBlock {
  static constexpr size_t keyBytes = journalBytes< Key >();
  static constexpr size_t entryBytes = keyBytes + journalBytes< Data >();
  // A change writes a block anew: about 256 bytes share a record's own without being many to write.
  static constexpr uint32_t entries =
      static_cast< uint32_t >( std::clamp< size_t >( 256 / entryBytes, 1, 32 ) );
  static constexpr uint32_t allUsed = UINT32_MAX >> ( 32 - entries );

  uint32_t number = 0; // from 0 on, without gaps
  uint32_t used = 0;   // a bit for each entry
  JournalWords< ( entries * entryBytes + 3 ) / 4 > bytes;

  // The key is first, the data follow.
  const std::byte * entry( uint32_t at ) const {
    return reinterpret_cast< const std::byte * >( &bytes ) + at * entryBytes;
  }
  std::byte * entry( uint32_t at ) {
    return reinterpret_cast< std::byte * >( &bytes ) + at * entryBytes;
  }
  // The first from `at` on that is used, `entries` without one.
  uint32_t usedFrom( uint32_t at ) const {
    const uint64_t rest = uint64_t( used ) >> at;
    return rest ? at + static_cast< uint32_t >( std::countr_zero( rest ) ) : entries;
  }

  static std::string_view vexTypeName() {
    static const auto name = [] {
      Vex::TextBuffer out;
      appendPacked< Key >( out );
      if constexpr ( !std::is_empty_v< Data > ) {
        out.append( " to " );
        appendPacked< Data >( out );
      }
      return out.str();
    }();
    return name;
  }
  static constexpr auto vexFields() {
    return std::tuple( Vex::field( "number", &JournalBlock::number ),
                       Vex::field( "used", &JournalBlock::used ),
                       Vex::field( "bytes", &JournalBlock::bytes ) );
  }
};

} // namespace Detail

template< class Key, class Data > class JournalFile final : public HwTable< Key, Data > {
  using Base = HwTable< Key, Data >;

public:
  using Entry = typename Base::Entry;

  // Mounts the table `name` of the journal that the names are of, which outlive this. Raises
  // std::runtime_error, which says the file and what is wrong with it: what Rook::Table's mount
  // does, and for an entry of an interface that has no name.
  JournalFile( JournalNames & names, const Vex::String & name ) : names_( names ) {
    table_.mount( names.journal() + "/" + name );
    blocks_ = static_cast< uint32_t >( table_.size() );
    roomy_.reserve( blocks_ );
    for ( const Block & block : table_.range() ) {
      if ( block.number >= blocks_ ) {
        throw std::runtime_error( table_.file().path() + ": block " +
                                  std::to_string( block.number ) + " is not one of " +
                                  std::to_string( blocks_ ) );
      }
      if ( block.used != Block::allUsed ) {
        roomy_.push_back( block.number );
      }
    }
    forEachEntry( [ this ]( const Block & block, uint32_t at ) {
      entry( block, at );
      ++size_;
    } );
    makeIndexRoom();
  }

  std::optional< Data > find( const Key & key ) const override {
    const auto found = look( bytesToFind( key ) );
    return found ? std::optional( fromJournalBytes< Data >(
                       found->block.entry( found->at ) + Block::keyBytes, names_ ) )
                 : std::nullopt;
  }
  std::unique_ptr< typename Base::Walk > walk() const override {
    return std::make_unique< Walk >( *this );
  }
  size_t size() const { return size_; }

  // Inserts or replaces. When there is no room it returns false, `lack` says why, and nothing has
  // changed. What stands can be replaced without room, unless its data name an interface or have a
  // longer list than there is room for.
  [[nodiscard]] bool put( const Key & key, const Data & data ) {
    const auto numberOf = [ this ]( Wire::IntfId intfId ) { return names_.numberIs( intfId ); };
    lack_.clear();
    try {
      const auto keyBytes = journalBytesOf( key, numberOf );
      const auto dataBytes = journalBytesOf( data, numberOf );
      if ( auto found = look( keyBytes ) ) {
        std::ranges::copy( dataBytes, found->block.entry( found->at ) + Block::keyBytes );
        table_.put( found->block );
      } else {
        add( keyBytes, dataBytes );
      }
      return true;
    } catch ( const std::runtime_error & error ) {
      lack_ = error.what();
    } catch ( const std::bad_alloc & ) {
      lack_ = "no memory";
    }
    return false;
  }
  // Makes room for one more entry of interfaces that are named. False when there is none, and
  // `lack` says why.
  [[nodiscard]] bool makeRoom() {
    lack_.clear();
    try {
      makeOwnRoom();
    } catch ( const std::runtime_error & error ) {
      lack_ = error.what();
    } catch ( const std::bad_alloc & ) {
      lack_ = "no memory";
    }
    if ( lack_.empty() && roomy_.empty() && !table_.makeRoom() ) {
      lack_ = table_.lack();
    }
    return lack_.empty();
  }
  const Vex::String & lack() const { return lack_; }

  void del( const Key & key ) {
    const auto bytes = bytesToFind( key );
    if ( auto found = look( bytes ) ) {
      auto & block = found->block;
      if ( block.used == Block::allUsed ) {
        roomy_.push_back( block.number ); // which has the capacity
      }
      block.used &= ~( 1u << found->at );
      table_.put( block );
      index_.leave( hashOf( bytes ), placeOf( block, found->at ) );
      --size_;
    }
  }
  void delAll() {
    while ( blocks_ ) {
      table_.del( --blocks_ ); // from the last on, so that none is missing among those that stand
    }
    roomy_.clear();
    index_.clear();
    size_ = 0;
  }

private:
  using Block = Detail::JournalBlock< Key, Data >;
  using KeyBytes = JournalBytes< Key >;

  class Walk final : public Base::Walk {
  public:
    explicit Walk( const JournalFile & file ) : file_( file ) {}

    std::optional< Entry > next() override {
      for ( ; number_ < file_.blocks_; ++number_, at_ = 0 ) {
        const auto block = file_.block( number_ );
        const uint32_t used = block.usedFrom( at_ );
        if ( used < Block::entries ) {
          at_ = used + 1;
          return file_.entry( block, used );
        }
      }
      return std::nullopt;
    }

  private:
    const JournalFile & file_;
    uint32_t number_ = 0;
    uint32_t at_ = 0;
  };

  struct Found {
    Block block;
    uint32_t at;
  };
  std::optional< Found > look( const KeyBytes & key ) const {
    Found found;
    const auto isIt = [ & ]( uint32_t place ) {
      found.block = block( place / Block::entries );
      found.at = place % Block::entries;
      return std::equal( key.begin(), key.end(), found.block.entry( found.at ) );
    };
    return index_.find( hashOf( key ), isIt ) ? std::optional( found ) : std::nullopt;
  }
  Block block( uint32_t number ) const { return table_.record( number ).value(); }
  // `visit( block, at )`.
  void forEachEntry( const auto & visit ) const {
    for ( const Block & block : table_.range() ) {
      for ( uint32_t at = block.usedFrom( 0 ); at < Block::entries;
            at = block.usedFrom( at + 1 ) ) {
        visit( block, at );
      }
    }
  }
  static uint32_t placeOf( const Block & block, uint32_t at ) {
    return block.number * Block::entries + at;
  }

  // Of a key that does not stand.
  void add( const KeyBytes & key, const JournalBytes< Data > & data ) {
    makeOwnRoom();
    const bool isNew = roomy_.empty();
    Block block;
    if ( isNew ) {
      block.number = blocks_;
    } else {
      block = this->block( roomy_.back() );
    }
    const auto at = static_cast< uint32_t >( std::countr_one( block.used ) );
    block.used |= 1u << at;
    std::ranges::copy( data, std::ranges::copy( key, block.entry( at ) ).out );
    table_.put( block );
    if ( isNew ) {
      ++blocks_;
      roomy_.push_back( block.number );
    }
    if ( block.used == Block::allUsed ) {
      roomy_.pop_back();
    }
    index_.enter( hashOf( key ), placeOf( block, at ) );
    ++size_;
  }

  // What the process itself needs for one more entry. Raises std::bad_alloc and std::runtime_error.
  void makeOwnRoom() {
    if ( roomy_.capacity() <= blocks_ ) {
      roomy_.reserve( 2 * size_t( blocks_ ) + 1 );
    }
    makeIndexRoom();
  }
  void makeIndexRoom() {
    const size_t places = ( size_t( blocks_ ) + roomy_.empty() ) * Block::entries;
    if ( places > JournalIndex::mostPlaces ) {
      throw std::runtime_error( table_.file().path() + " is full" );
    }
    index_.makeRoom( static_cast< uint32_t >( places ), [ this ]( const auto & enter ) {
      this->forEachEntry( [ & ]( const Block & block, uint32_t at ) {
        KeyBytes key;
        std::copy_n( block.entry( at ), key.size(), key.begin() );
        enter( hashOf( key ), placeOf( block, at ) );
      } );
    } );
  }
  static uint64_t hashOf( const KeyBytes & key ) {
    uint64_t hash = 0;
    for ( size_t at = 0; at < key.size(); at += sizeof( uint64_t ) ) {
      uint64_t word = 0;
      std::memcpy( &word, key.data() + at, std::min( sizeof( word ), key.size() - at ) );
      hash = Rook::foldWord( hash, word );
    }
    return hash;
  }

  Entry entry( const Block & block, uint32_t at ) const {
    try {
      return { fromJournalBytes< Key >( block.entry( at ), names_ ),
               fromJournalBytes< Data >( block.entry( at ) + Block::keyBytes, names_ ) };
    } catch ( const std::runtime_error & error ) {
      throw std::runtime_error( table_.file().path() + ": " + error.what() );
    }
  }
  // An interface that has no number is in no entry.
  KeyBytes bytesToFind( const Key & key ) const {
    return journalBytesOf( key,
                           [ this ]( Wire::IntfId intfId ) { return names_.number( intfId ); } );
  }

  JournalNames & names_;
  Rook::Table< &Block::number > table_;
  uint32_t blocks_ = 0;
  std::vector< uint32_t > roomy_; // the blocks with a free entry; has capacity for all
  JournalIndex index_;
  size_t size_ = 0;
  Vex::String lack_;
};

} // namespace KezHelper
