#include "fabric/Story.h"

#include "fabric/Words.h"

namespace Fabric {

namespace {

// Frames that are sent whenever something may have changed.
constexpr size_t framesAtOnce = 3;

Entry takeEntry( Vex::TextCursor & in, const Network & network, Index host ) {
  const size_t offset = in.offset();
  const Index node = takeNode( in, network.topology() );
  for ( const auto & entry : entriesOf( network, host ) ) {
    if ( entry.node == node ) {
      return entry;
    }
  }
  KezShell::failAt( offset, "a switch to which the host has a link that is up",
                    network.topology().nodes[ node ] );
}

String difference( const char * what, uint32_t found, uint32_t expected ) {
  return found == expected
             ? ""
             : what + std::to_string( found ) + ", not " + std::to_string( expected ) + "; ";
}

} // namespace

Story::Story( const Topology & topology, uint64_t seed )
    : network_( topology, seed ), judge_( network_ ) {
  network_.observerIs( [ this ] {
    if ( wrong_.empty() ) {
      wrong_ = judge_.some( framesAtOnce, quiet_ );
    }
  } );
}

String Story::execute( const String & line ) {
  wrong_.clear();
  try {
    KezShell::inTextAt( 1, [ & ] {
      Vex::TextCursor in( line );
      if ( skipWord( in, "rest" ) ) {
        Vex::expectEnd( in );
        network_.settle();
        quiet_ = true;
        wrong_ += wrong_.empty() ? judge_.all() : "";
      } else if ( skipWord( in, "expect" ) ) {
        wrong_ = expect( in );
      } else {
        quiet_ = quiet_ && ( line.starts_with( "pass" ) || line.ends_with( " hitless" ) );
        network_.execute( line );
      }
    } );
  } catch ( const KezShell::BadLine & error ) {
    return "bad line: " + String( error.what() );
  }
  return wrong_.empty() ? brokenPromise() : wrong_;
}

String Story::expect( Vex::TextCursor & in ) {
  const auto & topology = network_.topology();
  const bool flood = skipWord( in, "flood" );
  if ( !flood ) {
    expectWord( in, "frame" );
  }
  const Index host = takeHost( in, topology );
  expectWord( in, "by" );
  const auto entry = takeEntry( in, network_, host );
  Switch::Frame frame{ topology.hosts[ host ].mac, 0xffff'ffff'ffff };
  Index segment = 0;
  if ( flood ) {
    expectWord( in, "at" );
    segment = takeSegment( in, topology );
  } else {
    expectWord( in, "to" );
    const Index to = takeHost( in, topology );
    frame.to = topology.hosts[ to ].mac;
    segment = network_.segmentOf( to );
  }
  const auto expected = takeValue< uint32_t >( in );
  std::vector< Hop > way;
  const auto walked = walk( network_, entry, frame, &way );
  auto wrong = walked.wrong + difference( "copies ", walked.copies[ segment ], expected );
  if ( flood ) {
    expectWord( in, "of" );
    wrong += difference( "allowed copies ", allowedCopies( network_, entry, segment ),
                         takeValue< uint32_t >( in ) );
  }
  Vex::expectEnd( in );
  if ( !wrong.empty() ) {
    std::ostringstream out;
    showWay( out, network_, way );
    wrong += "the frame's way:\n" + out.str();
  }
  return wrong;
}

String Story::brokenPromise() const {
  String broken;
  for ( Index node = 0; node < network_.topology().nodes.size() && broken.empty(); ++node ) {
    broken = network_.node( node ) ? network_.node( node )->brokenPromise() : "";
  }
  return broken;
}

std::optional< Sim::Outcome > run( const Topology & topology, uint64_t seed,
                                   const Sim::Lines & lines, volatile size_t * line,
                                   uint64_t * frames ) {
  Story story( topology, seed );
  for ( size_t i = 0; i < lines.size(); ++i ) {
    if ( line ) {
      *line = i;
    }
    if ( auto wrong = story.execute( lines[ i ] ); !wrong.empty() ) {
      return Sim::Outcome{ i, std::move( wrong ) };
    }
  }
  if ( frames ) {
    *frames += story.frames();
  }
  return std::nullopt;
}

} // namespace Fabric
