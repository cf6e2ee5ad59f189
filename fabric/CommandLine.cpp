#include "fabric/CommandLine.h"

#include "fabric/Convergence.h"
#include "fabric/Story.h"
#include "fabric/Words.h"
#include "sim/Shrink.h"

#include "Vex/Assert.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>

namespace Fabric {

namespace {

constexpr auto usage = R"(kez-fabric joins switches and their agents, and sends frames through them.

  kez-fabric run TOPOLOGY|random [--events N] [--seed S|A-B]
        what happens at random, for each seed; a failure is cut down and printed as a story
  kez-fabric play STORY                    the lines of a story, over the topology that it names
  kez-fabric send TOPOLOGY HOST [to HOST]  the way of a broadcast, or of a frame to a host
  kez-fabric converge TOPOLOGY [--events N] [--seed S]
        what events of each kind cost: calls of hardware, seconds of loss and of doubled frames
  kez-fabric help

Exit status: 0; 1 something failed; 2 a bad command line or file.
)";

constexpr std::string_view topologyLine = "topology ";
constexpr std::string_view seedLine = "seed ";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Options {
  std::vector< String > words; // that are no option
  size_t events = 200;
  uint64_t firstSeed = 1;
  uint64_t lastSeed = 1;
};

Options parseOptions( const std::vector< String > & arguments ) {
  Options options;
  for ( size_t i = 1; i < arguments.size(); ++i ) {
    const auto & argument = arguments[ i ];
    if ( !argument.starts_with( "--" ) ) {
      options.words.push_back( argument );
      continue;
    }
    if ( ( argument != "--events" && argument != "--seed" ) || ++i == arguments.size() ) {
      throw UsageError( "expected --events N or --seed S, found '" + argument + "'" );
    }
    try {
      if ( argument == "--events" ) {
        options.events = Vex::parseBriefly< size_t >( arguments[ i ] );
      } else {
        const auto & range = arguments[ i ];
        const auto dash = range.find( '-' );
        options.firstSeed = Vex::parseBriefly< uint64_t >( range.substr( 0, dash ) );
        options.lastSeed = dash == String::npos
                               ? options.firstSeed
                               : Vex::parseBriefly< uint64_t >( range.substr( dash + 1 ) );
      }
    } catch ( const Vex::ParseError & error ) {
      throw UsageError( argument + ": " + error.what() );
    }
  }
  return options;
}

String contents( const String & name ) {
  std::ifstream file( name );
  std::stringstream text;
  if ( !( text << file.rdbuf() ) ) {
    throw std::runtime_error( "cannot read " + name + ": " + std::strerror( errno ) );
  }
  return text.str();
}

Topology topologyOf( const String & name ) {
  return readTopology( name, contents( name ) );
}

// --- Running

// A number that the processes of runs add to, too.
class SharedCount {
public:
  SharedCount()
      : count_(
            static_cast< uint64_t * >( mmap( nullptr, sizeof( uint64_t ), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) ) ) {
    VEX_ASSERT( count_ != MAP_FAILED );
  }
  ~SharedCount() { munmap( count_, sizeof( uint64_t ) ); }
  SharedCount( const SharedCount & ) = delete;
  SharedCount & operator=( const SharedCount & ) = delete;

  uint64_t & operator*() { return *count_; }

private:
  uint64_t * const count_;
};

Sim::Runner runnerOf( const Topology & topology, uint64_t seed, SharedCount & frames ) {
  constexpr unsigned longestRun = 600;
  return { [ &, seed ]( const Sim::Lines & lines, volatile size_t * line ) {
            return run( topology, seed, lines, line, &*frames );
          },
           longestRun };
}

void cutDown( std::ostream & out, const String & name, uint64_t seed, const Sim::Lines & lines,
              const Sim::Outcome & outcome, const Sim::Runner & runner ) {
  const auto least = shrink( lines, outcome, runner );
  const auto again = runApart( least, runner );
  std::istringstream told( again ? again->text : "not any more" );
  for ( String line; std::getline( told, line ); ) {
    out << "# " << line << '\n';
  }
  out << seedLine << seed << '\n' << topologyLine << name << '\n';
  for ( const auto & line : least ) {
    out << line << '\n';
  }
}

// One topology for all, or one of its own for each seed.
int runSeeds( std::ostream & out, const Options & options ) {
  const auto & name = options.words[ 0 ];
  const bool isRandom = name == "random";
  const auto fixed = isRandom ? String() : contents( name );
  SharedCount frames;
  for ( uint64_t seed = options.firstSeed; seed <= options.lastSeed; ++seed ) {
    const auto text = isRandom ? randomTopology( seed ) : fixed;
    const auto topology = readTopology( name, text );
    const auto lines = randomLines( topology, seed, options.events );
    const auto runner = runnerOf( topology, seed, frames );
    if ( const auto outcome = runApart( lines, runner ) ) {
      if ( isRandom ) {
        std::istringstream in( text );
        for ( String line; std::getline( in, line ); ) {
          out << "#   " << line << '\n';
        }
      }
      cutDown( out, isRandom ? name : String( std::filesystem::absolute( name ) ), seed, lines,
               *outcome, runner );
      return 1;
    }
  }
  out << "seeds " << options.firstSeed << " to " << options.lastSeed << ", " << options.events
      << " events each, " << *frames << " frames: nothing is wrong\n";
  return 0;
}

// --- Stories

int play( std::ostream & out, const String & name ) {
  std::istringstream in( contents( name ) );
  std::optional< Topology > topology;
  std::optional< Story > story;
  uint64_t seed = 1;
  size_t number = 0;
  for ( String line; std::getline( in, line ); ) {
    ++number;
    const String text( KezShell::trimmed( line ) );
    if ( text.empty() || text.starts_with( '#' ) ) {
      continue;
    }
    String wrong;
    if ( !story && text.starts_with( topologyLine ) ) {
      const auto file = text.substr( topologyLine.size() );
      topology = file == "random"
                     ? readTopology( file, randomTopology( seed ) )
                     : topologyOf( std::filesystem::path( name ).parent_path() / file );
    } else if ( !story && text.starts_with( seedLine ) ) {
      seed = Vex::parseBriefly< uint64_t >( text.substr( seedLine.size() ) );
    } else if ( !topology ) {
      throw std::runtime_error( name + ":" + std::to_string( number ) +
                                ": expected a topology first" );
    } else {
      wrong = ( story ? *story : story.emplace( *topology, seed ) ).execute( text );
    }
    if ( !wrong.empty() ) {
      out << name << ':' << number << ": " << wrong << '\n';
      return 1;
    }
  }
  out << ( story ? story->frames() : 0 ) << " frames: nothing is wrong\n";
  return 0;
}

int send( std::ostream & out, const Options & options ) {
  const auto topology = topologyOf( options.words[ 0 ] );
  const auto host = [ & ]( const String & name ) {
    const auto index = indexOf( topology.hosts, name, std::mem_fn( &Host::name ) );
    if ( !index ) {
      throw UsageError( "expected a host of the topology, found '" + name + "'" );
    }
    return *index;
  };
  const Index from = host( options.words[ 1 ] );
  Switch::Frame frame{ topology.hosts[ from ].mac, 0xffff'ffff'ffff };
  if ( options.words.size() == 4 ) {
    frame.to = topology.hosts[ host( options.words[ 3 ] ) ].mac;
  }
  Network network( topology, options.firstSeed );
  network.settle();
  const auto entries = entriesOf( network, from );
  std::vector< Hop > way;
  const auto walked = walk( network, entries[ frame.hash() % entries.size() ], frame, &way );
  showWay( out, network, way );
  for ( Index segment = 0; segment < topology.segments.size(); ++segment ) {
    if ( walked.copies[ segment ] > 0 ) {
      out << "to " << topology.segments[ segment ].name << ": " << walked.copies[ segment ]
          << ( walked.copies[ segment ] == 1 ? " copy\n" : " copies\n" );
    }
  }
  return 0;
}

int dispatch( const std::vector< String > & arguments, std::ostream & out ) {
  const String command = arguments.empty() ? "" : arguments[ 0 ];
  if ( command == "help" ) {
    out << usage;
    return 0;
  }
  const auto options = parseOptions( arguments );
  const auto words = options.words.size();
  if ( command == "run" && words == 1 ) {
    return runSeeds( out, options );
  }
  if ( command == "play" && words == 1 ) {
    return play( out, options.words[ 0 ] );
  }
  if ( command == "send" && ( words == 2 || ( words == 4 && options.words[ 2 ] == "to" ) ) ) {
    return send( out, options );
  }
  if ( command == "converge" && words == 1 ) {
    showConvergence( out, topologyOf( options.words[ 0 ] ), options.firstSeed, options.events );
    return 0;
  }
  throw UsageError( "expected run, play, send or converge with what it takes, or help" );
}

} // namespace

int kezFabric( const std::vector< String > & arguments, std::ostream & out, std::ostream & err ) {
  try {
    return dispatch( arguments, out );
  } catch ( const UsageError & error ) {
    err << "kez-fabric: " << error.what() << "\ntry kez-fabric help\n";
  } catch ( const std::exception & error ) {
    err << "kez-fabric: " << error.what() << '\n';
  }
  return 2;
}

} // namespace Fabric
