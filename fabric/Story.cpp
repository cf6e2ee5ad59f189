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
  auto sent = floodOf( network_, host, entry );
  Index segment = 0;
  if ( flood ) {
    expectWord( in, "at" );
    segment = takeSegment( in, topology );
  } else {
    expectWord( in, "to" );
    const Index to = takeHost( in, topology );
    sent = frameTo( network_, host, to, entry );
    segment = network_.segmentOf( to );
  }
  const auto expected = takeValue< uint32_t >( in );
  auto way = wayOf( network_, sent );
  judge_.lastIs( sent );
  auto wrong = way.walked.wrong + difference( "copies ", way.walked.copies[ segment ], expected );
  if ( flood ) {
    expectWord( in, "of" );
    wrong += difference( "allowed copies ", allowedCopies( network_, entry, segment ),
                         takeValue< uint32_t >( in ) );
  }
  Vex::expectEnd( in );
  if ( !wrong.empty() ) {
    std::ostringstream out;
    showWay( out, network_, way.hops );
    way.bounds[ segment ] = { expected, expected };
    way.wrong = wrong;
    judge_.wrongIs( std::move( way ) );
    wrong += "the frame's way:\n" + out.str();
  }
  return wrong;
}

std::optional< Way > Story::firstFlood() const {
  const auto & hosts = network_.topology().hosts;
  for ( Index host = 0; host < hosts.size(); ++host ) {
    if ( const auto entries = entriesOf( network_, host ); !entries.empty() ) {
      auto sent = floodOf( network_, host, entries[ 0 ] );
      sent.atRest = quiet_;
      return wayOf( network_, sent );
    }
  }
  return std::nullopt;
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
                                   uint64_t * frames, const AtEnd & atEnd ) {
  Story story( topology, seed );
  std::optional< Sim::Outcome > outcome;
  for ( size_t i = 0; i < lines.size() && !outcome; ++i ) {
    if ( line ) {
      *line = i;
    }
    if ( auto wrong = story.execute( lines[ i ] ); !wrong.empty() ) {
      outcome = { i, std::move( wrong ) };
    }
  }
  if ( frames && !outcome ) {
    *frames += story.frames();
  }
  if ( atEnd ) {
    atEnd( story, outcome ? outcome->text : "" );
  }
  return outcome;
}

} // namespace Fabric
