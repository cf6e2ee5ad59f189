#include "fabric/CommandLine.h"

#include "fabric/Convergence.h"
#include "fabric/Events.h"
#include "fabric/Story.h"
#include "fabric/WayPage.h"
#include "fabric/Words.h"
#include "program/CommandLine.h"
#include "sim/Shrink.h"

#include "Vex/Assert.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>

namespace Fabric {

namespace {

constexpr auto usage = R"(kez-fabric joins switches and their agents, and sends frames through them.

  kez-fabric run TOPOLOGY|random [--events N] [--seed S|A-B] [--report FILE]
                             what happens at random, for each seed, of 200 events at first; a
                             failure is cut down and printed as a story
  kez-fabric play STORY [--report FILE]
                             the lines of a story, over the topology that it names
  kez-fabric send TOPOLOGY HOST [to HOST] [--seed S] [--report FILE]
                             the way of a broadcast, or of a frame to a host
  kez-fabric converge TOPOLOGY [--events N] [--seed S]
                             what events of each kind cost: calls of hardware, seconds of loss
                             and of doubled frames
  kez-fabric inputs TOPOLOGY [--seed S]
                             what the agent of each switch is given, as lines that it takes
  kez-fabric help            this text
  kez-fabric --version       its version

--report writes a page about a frame's way, for a browser: the one that was sent; of a story the
first that went wrong, else the last; of what happens at random the one that went wrong, else a
flood at the end.

Exit status: 0; 1 something failed; 2 a bad command line or file.
)";

constexpr std::string_view topologyLine = "topology ";
constexpr std::string_view seedLine = "seed ";

struct Options {
  Program::Arguments words; // that are no option
  size_t events = 200;
  uint64_t firstSeed = 1;
  uint64_t lastSeed = 1;
  String report;
};

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

String fileName( const String & path ) {
  return std::filesystem::path( path ).filename();
}

// The page that the options ask for, if they do. Its file is made before anything else is done.
class PageFile {
public:
  explicit PageFile( const String & name ) : name_( name ) {
    if ( !name_.empty() ) {
      file_.open( name_ );
      check();
    }
  }

  bool isWanted() const { return !name_.empty(); }
  void write( const String & topologyName, const Network & network,
              const std::optional< Way > & way, const String & wrong ) {
    if ( isWanted() ) {
      writeWayPage( file_, topologyName, network, way, wrong );
      file_.flush();
      check();
    }
  }

private:
  void check() const {
    if ( !file_ ) {
      throw std::runtime_error( "cannot write " + name_ + ": " + std::strerror( errno ) );
    }
  }

  const String name_;
  std::ofstream file_;
};

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

// What happens to a fabric.
struct Life {
  String name; // of the topology, as a story says it
  Topology topology;
  uint64_t seed;
  Sim::Lines lines;
};

// Lives it once more, here. What ended its process has no frame, so the page is about the last one
// before that.
void writePage( PageFile & page, Life life, const std::optional< Sim::Outcome > & outcome ) {
  if ( !page.isWanted() ) {
    return;
  }
  const bool ended = outcome && outcome->endedProcess;
  if ( ended ) {
    life.lines.resize( outcome->line );
  }
  run( life.topology, life.seed, life.lines, nullptr, nullptr,
       [ & ]( const Story & story, const String & wrong ) {
         page.write( fileName( life.name ), story.network(),
                     outcome ? story.way() : story.firstFlood(), ended ? outcome->text : wrong );
       } );
}

void printComment( std::ostream & out, const String & text ) {
  std::istringstream in( text );
  for ( String line; std::getline( in, line ); ) {
    out << "# " << line << '\n';
  }
}

void cutDown( std::ostream & out, const Life & life, const Sim::Outcome & outcome,
              const Sim::Runner & runner, PageFile & page ) {
  out << "# seed " << life.seed << " fails at line " << outcome.line + 1 << ":\n";
  printComment( out, outcome.text );
  out << std::flush;
  auto least = life;
  least.lines = shrink( life.lines, outcome, runner );
  const auto again = runApart( least.lines, runner );
  out << "# cut down to " << least.lines.size() << " lines, which fail so:\n";
  printComment( out, again ? again->text : "not any more" );
  out << seedLine << life.seed << '\n' << topologyLine << life.name << '\n';
  for ( const auto & line : least.lines ) {
    out << line << '\n';
  }
  writePage( page, std::move( least ), again ? *again : Sim::Outcome() );
}

// One topology for all, or one of its own for each seed.
int runSeeds( std::ostream & out, const Options & options ) {
  const auto & name = options.words[ 0 ];
  const bool isRandom = name == "random";
  const auto fixed = isRandom ? String() : contents( name );
  PageFile page( options.report );
  SharedCount frames;
  for ( uint64_t seed = options.firstSeed; seed <= options.lastSeed; ++seed ) {
    const auto text = isRandom ? randomTopology( seed ) : fixed;
    Life life{ isRandom ? name : String( std::filesystem::absolute( name ) ),
               readTopology( name, text ),
               seed,
               {} };
    life.lines = randomLines( life.topology, seed, options.events );
    const auto runner = runnerOf( life.topology, seed, frames );
    if ( const auto outcome = runApart( life.lines, runner ) ) {
      if ( isRandom ) {
        printComment( out, text );
      }
      cutDown( out, life, *outcome, runner, page );
      return 1;
    }
    if ( seed == options.lastSeed ) {
      writePage( page, std::move( life ), std::nullopt );
    }
  }
  out << "seeds " << options.firstSeed << " to " << options.lastSeed << ", " << options.events
      << " events each, " << *frames << " frames: nothing is wrong\n";
  return 0;
}

// --- Stories

int play( std::ostream & out, const Options & options ) {
  const auto & name = options.words[ 0 ];
  std::istringstream in( contents( name ) );
  PageFile page( options.report );
  String topologyName;
  std::optional< Topology > topology;
  std::optional< Story > story;
  uint64_t seed = 1;
  size_t number = 0;
  String wrong;
  for ( String line; wrong.empty() && std::getline( in, line ); ) {
    ++number;
    const String text( KezShell::trimmed( line ) );
    if ( text.empty() || text.starts_with( '#' ) ) {
      continue;
    }
    if ( !story && text.starts_with( topologyLine ) ) {
      topologyName = text.substr( topologyLine.size() );
      topology = topologyName == "random"
                     ? readTopology( topologyName, randomTopology( seed ) )
                     : topologyOf( std::filesystem::path( name ).parent_path() / topologyName );
    } else if ( !story && text.starts_with( seedLine ) ) {
      seed = Vex::parseBriefly< uint64_t >( text.substr( seedLine.size() ) );
    } else if ( !topology ) {
      throw std::runtime_error( name + ":" + std::to_string( number ) +
                                ": expected a topology first" );
    } else {
      wrong = ( story ? *story : story.emplace( *topology, seed ) ).execute( text );
    }
  }
  if ( story ) {
    page.write( fileName( topologyName ), story->network(), story->way(), wrong );
  } else if ( page.isWanted() ) {
    throw std::runtime_error( name + ": expected lines of a story, for a page" );
  }
  if ( !wrong.empty() ) {
    out << name << ':' << number << ": " << wrong << '\n';
    return 1;
  }
  out << ( story ? story->frames() : 0 ) << " frames: nothing is wrong\n";
  return 0;
}

Index hostOf( const Topology & topology, const String & name ) {
  const auto index = indexOf( topology.hosts, name, std::mem_fn( &Host::name ) );
  if ( !index ) {
    throw Program::UsageError( "expected a host of the topology, found '" + name + "'" );
  }
  return *index;
}

int send( std::ostream & out, const Options & options ) {
  const auto topology = topologyOf( options.words[ 0 ] );
  const Index host = hostOf( topology, options.words[ 1 ] );
  std::optional< Index > to;
  if ( options.words.size() == 4 ) {
    to = hostOf( topology, options.words[ 3 ] );
  }
  PageFile page( options.report );
  Network network( topology, options.firstSeed );
  network.settle();
  const auto entries = entriesOf( network, host );
  if ( entries.empty() ) {
    throw std::runtime_error( topology.hosts[ host ].name + " has no link to a switch" );
  }
  const auto sentBy = [ & ]( const Entry & entry ) {
    return to ? frameTo( network, host, *to, entry ) : floodOf( network, host, entry );
  };
  auto sent = sentBy( entries[ sentBy( entries[ 0 ] ).frame.hash() % entries.size() ] );
  sent.atRest = !to || topology.hosts[ host ].vlanId == topology.hosts[ *to ].vlanId;
  const auto way = wayOf( network, sent );
  showWay( out, network, way.hops );
  for ( Index segment = 0; segment < topology.segments.size(); ++segment ) {
    const auto copies = way.walked.copies[ segment ];
    if ( copies > 0 ) {
      out << "to " << topology.segments[ segment ].name << ": " << copies
          << ( copies == 1 ? " copy\n" : " copies\n" );
    }
  }
  page.write( fileName( options.words[ 0 ] ), network, way, way.wrong );
  if ( !way.wrong.empty() ) {
    out << "wrong: " << way.wrong << '\n';
    return 1;
  }
  return 0;
}

int converge( std::ostream & out, const Options & options ) {
  showConvergence( out, topologyOf( options.words[ 0 ] ), options.firstSeed, options.events );
  return 0;
}

int showInputs( std::ostream & out, const Options & options ) {
  const auto topology = topologyOf( options.words[ 0 ] );
  Network network( topology, options.firstSeed );
  network.settle();
  for ( Index node = 0; node < topology.nodes.size(); ++node ) {
    out << "# " << topology.nodes[ node ] << '\n';
    for ( const auto & [ path, value ] : network.inputs( node ) ) {
      out << "set " << path << ( value.empty() ? "" : " " ) << value << '\n';
    }
  }
  return 0;
}

int dispatch( const Program::Arguments & arguments, std::ostream & out ) {
  const String command = arguments.empty() ? "" : arguments[ 0 ];
  Options to;
  const auto events = Program::value( "--events", to.events );
  const auto seed = Program::value( "--seed", to.firstSeed );
  const auto report = Program::text( "--report", to.report );
  struct Command {
    std::string_view name;
    std::string_view takes;
    std::vector< Program::Option > options;
    int ( *body )( std::ostream & out, const Options & options );
  };
  const Command commands[] = {
    { "run",
      "a topology, or random",
      { events, Program::range( "--seed", to.firstSeed, to.lastSeed ), report },
      runSeeds },
    { "play", "a story", { report }, play },
    { "send", "a topology and HOST or HOST to HOST", { seed, report }, send },
    { "converge", "a topology", { events, seed }, converge },
    { "inputs", "a topology", { seed }, showInputs },
  };
  const auto at = std::ranges::find( commands, command, &Command::name );
  if ( at == std::end( commands ) ) {
    throw Program::UsageError(
        "expected run, play, send, converge, inputs, help or --version, found " +
        ( command.empty() ? "nothing" : "'" + command + "'" ) );
  }
  to.words = Program::takeOptions( { arguments.begin() + 1, arguments.end() }, at->options );
  const auto words = to.words.size();
  const bool fits =
      command == "send" ? words == 2 || ( words == 4 && to.words[ 2 ] == "to" ) : words == 1;
  if ( !fits ) {
    throw Program::UsageError( command + ": expected " + String( at->takes ) );
  }
  return at->body( out, to );
}

} // namespace

int kezFabric( const std::vector< String > & arguments, std::ostream & out, std::ostream & err ) {
  return Program::run(
      { "kez-fabric", usage }, arguments, out, err,
      [ & ]( const Program::Arguments & given ) { return dispatch( given, out ); } );
}

} // namespace Fabric
