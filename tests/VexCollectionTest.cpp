#include "VexTestTypes.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <unordered_map>

namespace {

// A key that a hash of two values tells badly apart.
struct Crowded {
  uint64_t number = 0;
  uint64_t vexWord() const { return number % 2; }
  friend bool operator==( const Crowded &, const Crowded & ) = default;
};

// What may be moved by its bytes follows from the fields, if those are all that there is.
struct Labelled {
  Vex::Ptr< VexTest::Leaf > leaf;
  uint16_t number = 0;
  static constexpr auto vexFields() {
    return std::make_tuple( Vex::field( "leaf", &Labelled::leaf ),
                            Vex::field( "number", &Labelled::number ) );
  }
};
struct Hiding : Labelled {
  std::string hidden;
};
static_assert( Vex::relocatable< Labelled >() && Vex::relocatable< VexTest::Stroke >() );
static_assert( !Vex::relocatable< std::string >() && !Vex::relocatable< Hiding >() );

// Runs a collection and a plain model of it through the same random changes, with walks under
// way that begin, go on and end between them.
template< class Key, class Value > class Comparison {
public:
  using MakeKey = std::function< Key( unsigned ) >;
  using MakeValue = std::function< Value( unsigned ) >;

  Comparison( unsigned keys, MakeKey makeKey, MakeValue makeValue )
      : random_( keys ), keys_( keys ), makeKey_( makeKey ), makeValue_( makeValue ) {}

  void run( int steps ) {
    for ( int i = 0; i < steps && !testing::Test::HasFailure(); ++i ) {
      // It fills for a while, then empties for a while, at times with no walk under way.
      const unsigned phase = i / ( 5 * keys_ );
      const unsigned adds = phase % 2 ? 25 : 60;
      const bool walked = phase % 4 < 2;
      if ( !walked ) {
        walks_.clear();
      }
      const unsigned dice = random_() % 100;
      if ( dice < adds ) {
        add( random_() % keys_ );
      } else if ( dice < 85 ) {
        erase( random_() % keys_ );
      } else if ( dice < 87 && !members_.empty() ) {
        const unsigned key = members_[ random_() % members_.size() ].key;
        erase( key );
        add( key );
      } else if ( dice < 90 && walked && walks_.size() < 8 ) {
        begin();
      } else if ( dice < 91 && !walks_.empty() ) {
        walks_.erase( walks_.begin() + random_() % walks_.size() );
      } else if ( !walks_.empty() ) {
        advance( random_() % walks_.size() );
      }
      if ( random_() % ( 20 * keys_ ) == 0 ) {
        clear();
      } else if ( random_() % keys_ == 0 ) {
        collection_.reserve( collection_.size() + random_() % 3 );
      }
      checkWalks();
      if ( i % 50 == 0 ) {
        checkAll();
      }
    }
    clear();
    EXPECT_EQ( collection_.memory(), 0u );
  }

private:
  using Walk = typename Vex::Collection< Key, Value >::template WalkOf< Value >;
  struct Member {
    unsigned key;
    unsigned born; // tells a member from one that stood under its key before
  };
  struct Followed {
    std::unique_ptr< Walk > walk;
    std::vector< Member > ahead;
    size_t next = 0;
  };

  void add( unsigned key ) {
    const auto [ value, added ] =
        collection_.findOrAdd( makeKey_( key ), [ & ] { return makeValue_( key ); } );
    EXPECT_TRUE( *value == makeValue_( key ) );
    EXPECT_EQ( added, born_.try_emplace( key, births_ ).second );
    if ( added ) {
      members_.push_back( { key, births_++ } );
    }
  }
  void erase( unsigned key ) {
    EXPECT_EQ( collection_.erase( makeKey_( key ) ), born_.erase( key ) == 1 );
    std::erase_if( members_, [ & ]( const auto & member ) { return member.key == key; } );
  }
  void clear() {
    collection_.clear();
    members_.clear();
    born_.clear();
  }
  void begin() {
    std::optional< Key > from;
    size_t first = 0;
    if ( random_() % 2 ) {
      const unsigned key = random_() % keys_;
      from = makeKey_( key );
      while ( first < members_.size() && members_[ first ].key != key ) {
        ++first;
      }
      first = first == members_.size() ? 0 : first;
    }
    const auto range = collection_.range().from( from );
    walks_.push_back( { std::unique_ptr< Walk >( new Walk( range.begin() ) ),
                        { members_.begin() + first, members_.end() } } );
    EXPECT_EQ( walks_.back().walk->valid(), !members_.empty() );
    if ( !members_.empty() ) {
      ++walks_.back().next;
      EXPECT_EQ( walks_.back().walk->key(), makeKey_( members_[ first ].key ) );
    }
  }
  void advance( size_t at ) {
    Followed & each = walks_[ at ];
    if ( !each.walk->valid() ) {
      return;
    }
    skipGone( each );
    ++*each.walk;
    ASSERT_EQ( each.walk->valid(), each.next < each.ahead.size() );
    if ( each.walk->valid() ) {
      EXPECT_EQ( each.walk->key(), makeKey_( each.ahead[ each.next++ ].key ) );
    }
  }
  void skipGone( Followed & each ) {
    while ( each.next < each.ahead.size() ) {
      const auto at = born_.find( each.ahead[ each.next ].key );
      if ( at != born_.end() && at->second == each.ahead[ each.next ].born ) {
        break;
      }
      ++each.next;
    }
  }
  void checkWalks() {
    for ( auto & each : walks_ ) {
      if ( each.walk->valid() ) {
        skipGone( each );
        ASSERT_EQ( each.walk->more(), each.next < each.ahead.size() );
        if ( each.walk->more() ) {
          ASSERT_EQ( each.walk->nextKey(), makeKey_( each.ahead[ each.next ].key ) );
        }
      }
    }
  }
  void checkAll() {
    ASSERT_EQ( collection_.size(), members_.size() );
    auto walk = collection_.range().begin();
    for ( const auto & member : members_ ) {
      ASSERT_TRUE( walk.valid() );
      ASSERT_EQ( walk.key(), makeKey_( member.key ) );
      ++walk;
    }
    ASSERT_FALSE( walk.valid() );
    for ( unsigned key = 0; key < keys_; ++key ) {
      const Value * value = collection_.find( makeKey_( key ) );
      ASSERT_EQ( value != nullptr, born_.contains( key ) );
      ASSERT_TRUE( !value || *value == makeValue_( key ) );
    }
  }

  std::minstd_rand random_;
  const unsigned keys_;
  const MakeKey makeKey_;
  const MakeValue makeValue_;
  Vex::Collection< Key, Value > collection_;
  std::vector< Followed > walks_;
  std::vector< Member > members_;
  std::unordered_map< unsigned, unsigned > born_;
  unsigned births_ = 0;
};

// A value that can only be moved and owns memory.
struct Owned {
  std::unique_ptr< std::string > text;
  friend bool operator==( const Owned & a, const Owned & b ) { return *a.text == *b.text; }
};

TEST( VexCollection, BehavesAsItsModelUnderEveryMixtureOfChangesAndWalks ) {
  const auto same = []( unsigned key ) { return key; };
  const auto none = []( unsigned ) { return Vex::NoValue(); };
  const auto crowded = []( unsigned key ) { return Crowded{ key }; };
  // Long enough to have memory of its own.
  const auto text = []( unsigned key ) { return std::string( 20, 'k' ) + std::to_string( key ); };
  const auto owned = [ & ]( unsigned key ) {
    return Owned{ std::make_unique< std::string >( text( key ) ) };
  };
  for ( const unsigned keys : { 3, 12, 400 } ) {
    SCOPED_TRACE( keys );
    Comparison< uint32_t, Vex::NoValue >( keys, same, none ).run( 20000 );
    Comparison< Crowded, uint32_t >( keys, crowded, same ).run( 20000 );
    Comparison< std::string, Owned >( keys, text, owned ).run( 20000 );
  }
}

// A small index whose chunks have all been passed by a member that still stands: it happens to
// collections of a dozen or two whose members come and go, and must not make a look-up endless.
TEST( VexCollection, LookUpOfWhatIsNotThereEndsWhateverCameAndWent ) {
  std::mt19937_64 random( 3 );
  Vex::Collection< uint64_t, Vex::NoValue > collection;
  std::vector< uint64_t > members;
  for ( int step = 0; step < 100000; ++step ) {
    if ( members.size() < 11 || ( members.size() < 20 && random() % 2 ) ) {
      members.push_back( random() );
      collection.add( members.back() );
    } else {
      std::swap( members[ random() % members.size() ], members.back() );
      collection.erase( members.back() );
      members.pop_back();
    }
    ASSERT_FALSE( collection.has( random() ) );
  }
}

TEST( VexCollection, WalkOutlivesItsCollection ) {
  auto collection = std::make_unique< Vex::Collection< std::string > >();
  for ( const char * each : { "a", "b", "c" } ) {
    collection->add( each );
  }
  std::string visited;
  for ( const auto & each : collection->range() ) {
    visited += each;
    if ( each == "b" ) {
      collection.reset();
    }
  }
  EXPECT_EQ( visited, "ab" );
}

// What a value's destructor finds when its member is erased.
struct Prober {
  std::function< void() > probe;
  Prober( std::function< void() > probe ) : probe( std::move( probe ) ) {}
  Prober( Prober && other ) noexcept : probe( std::exchange( other.probe, nullptr ) ) {}
  ~Prober() {
    if ( probe ) {
      probe();
    }
  }
};

TEST( VexCollection, ErasedValueMayUseItsCollectionWhileItEnds ) {
  Vex::Collection< uint32_t, Prober > collection;
  bool found = true;
  collection.findOrAdd( 1, [ & ] {
    return Prober( [ & ] {
      found = collection.has( 1 );
      collection.findOrAdd( 1, [] { return Prober( nullptr ); } );
    } );
  } );
  collection.erase( 1 );
  EXPECT_FALSE( found );
  EXPECT_TRUE( collection.has( 1 ) );
}

// As they grow through mappings of their own: moved whole, and member by member.
TEST( VexCollection, MembersStayThroughGrowth ) {
  const auto check = []( auto & collection, const auto & valueOf ) {
    constexpr uint64_t count = 300000;
    for ( uint64_t i = 0; i < count; ++i ) {
      collection.findOrAdd( i, [ & ] { return valueOf( i ); } );
    }
    for ( uint64_t i = 0; i < count; i += 2 ) {
      ASSERT_TRUE( collection.erase( i ) ) << i;
    }
    uint64_t next = 1;
    for ( const auto & member : collection.range() ) {
      ASSERT_EQ( member.key, next );
      ASSERT_EQ( member.value, valueOf( next ) );
      ASSERT_EQ( *collection.find( next ), valueOf( next ) );
      next += 2;
    }
    EXPECT_EQ( next, count + 1 );
  };
  Vex::Collection< uint64_t, uint64_t > flat;
  check( flat, []( uint64_t i ) { return i * i; } );
  Vex::Collection< uint64_t, std::string > texts;
  check( texts, []( uint64_t i ) { return std::to_string( i ); } );
}

TEST( VexCollection, MemoryStaysWithinItsBounds ) {
  struct Wide {
    uint64_t low, high;
  };
  static_assert( sizeof( Vex::Collection< uint64_t, Wide > ) <= 32 );
  constexpr size_t slot = 24 + 8;
  constexpr size_t start = 32;
  Vex::Collection< uint64_t, Wide > collection;
  EXPECT_EQ( collection.memory(), 0u );
  for ( uint64_t i = 1; i <= 500000; ++i ) {
    collection.findOrAdd( i, [ & ] { return Wide{ i, i }; } );
    const size_t bound = i <= 8 ? start + std::bit_ceil( i + ( i == 1 ) ) * slot : 72 * i;
    ASSERT_LE( collection.memory(), bound ) << i;
  }
}

TEST( VexCollection, RoomForOneMoreEachTimeIsMadeForMany ) {
  Vex::Collection< uint64_t, uint64_t > collection;
  size_t growths = 0;
  for ( uint64_t i = 1; i <= 100000; ++i ) {
    const size_t before = collection.memory();
    collection.reserve( i );
    growths += collection.memory() != before;
    const size_t reserved = collection.memory();
    collection.findOrAdd( i, [ & ] { return i; } );
    ASSERT_EQ( collection.memory(), reserved ) << i;
  }
  EXPECT_LE( growths, 50u );
}

} // namespace
