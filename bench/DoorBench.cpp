// What sessions at a door cost the machines, and their questions in processor time.
#include "AgentRoad.h"
#include "Ratio.h"
#include "Resident.h"

#include "shell/Door.h"

#include <array>
#include <atomic>
#include <ctime>
#include <malloc.h>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>

namespace {

using Bench::AgentRoad;

bool isReadable( int descriptor, int milliseconds ) {
  pollfd watched{ descriptor, POLLIN, 0 };
  return poll( &watched, 1, milliseconds ) > 0;
}

// Somebody at the other end of a door.
class Visitor {
public:
  explicit Visitor( KezShell::Door & door ) {
    int ends[ 2 ];
    if ( socketpair( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends ) != 0 ) {
      throw std::runtime_error( "no pair of sockets" );
    }
    own_ = Vex::Descriptor( ends[ 0 ] );
    door.peerIs( Vex::Descriptor( ends[ 1 ] ), KezShell::Rights::change );
  }
  void ask( const std::string & line ) {
    if ( send( own_.number(), line.data(), line.size(), MSG_NOSIGNAL ) !=
         static_cast< ssize_t >( line.size() ) ) {
      throw std::runtime_error( "a line was not taken" );
    }
    ++asked_;
  }
  // Reads what is there, and counts the answers that end in it. Lines that say so alone are
  // looked for: no other line of an answer begins with a point.
  void read() {
    std::array< char, 65'536 > some;
    for ( ssize_t got; ( got = recv( own_.number(), some.data(), some.size(), 0 ) ) > 0; ) {
      for ( ssize_t i = 0; i < got; ++i ) {
        const bool begins = before_ == '\n';
        before_ = some[ static_cast< size_t >( i ) ];
        answered_ += begins && before_ == '.';
      }
    }
  }
  size_t asked() const { return asked_; }
  // The greeting is none.
  size_t answered() const { return answered_ - 1; }

private:
  Vex::Descriptor own_;
  char before_ = '\n';
  size_t asked_ = 0;
  size_t answered_ = 0;
};

constexpr size_t sessions = 200;

// A hundred that ask for a long answer and never read it, and a hundred of which each asks a
// question a second and reads what it is answered, from a thread of their own.
class Crowd {
public:
  explicit Crowd( KezShell::Door & door ) {
    for ( size_t i = 0; i < sessions; ++i ) {
      visitors_.emplace_back( door );
    }
    for ( size_t i = 0; i < sessions / 2; ++i ) {
      visitors_[ i ].ask( "show floodSetOutput\n" );
    }
    thread_ = std::thread( [ this ] { live(); } );
  }
  ~Crowd() { end(); }
  // Nobody asks any more.
  void end() {
    over_ = true;
    if ( thread_.joinable() ) {
      thread_.join();
    }
  }
  // Whether all who read have their answers.
  bool isAnswered() {
    bool all = true;
    for ( size_t i = sessions / 2; i < sessions; ++i ) {
      visitors_[ i ].read();
      all = all && visitors_[ i ].answered() == visitors_[ i ].asked();
    }
    return all;
  }
  size_t asked() const {
    size_t all = 0;
    for ( size_t i = sessions / 2; i < sessions; ++i ) {
      all += visitors_[ i ].asked();
    }
    return all;
  }

private:
  void live() {
    for ( size_t at = 0; !over_; at = ( at + 1 ) % ( sessions / 2 ) ) {
      auto & visitor = visitors_[ sessions / 2 + at ];
      visitor.read();
      const auto vlan = std::to_string( at + 1 );
      visitor.ask( at % 2 ? "explain vlan " + vlan + "\n" : "show switch.vlan[" + vlan + "]\n" );
      std::this_thread::sleep_for( std::chrono::duration< double >( 2.0 / sessions ) );
    }
  }

  std::vector< Visitor > visitors_;
  std::atomic< bool > over_{ false };
  std::thread thread_;
};

// A turn of a host's loop: what is due, and a part of what there is at the door.
void turn( AgentRoad & agent, KezShell::Door * door ) {
  agent.wiring.scheduler->runReady();
  if ( door && isReadable( door->descriptor(), 0 ) ) {
    door->serve();
  }
}

// The road with two hundred sessions at once, against the road alone.
void crowd( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  const auto vlans = static_cast< uint16_t >( state.range( 0 ) );
  size_t asked = 0;
  const auto alone = [ & ] {
    return [ agent = std::make_shared< AgentRoad >( vlans, 0 ) ] {
      agent->run( [ & ] { turn( *agent, nullptr ); } );
    };
  };
  const auto crowded = [ & ] {
    return [ &, agent = std::make_shared< AgentRoad >( vlans, 0 ) ] {
      KezShell::Door door( agent->shell.commands(), { sessions, 65'536, 30 } );
      Crowd crowd( door );
      agent->run( [ & ] { turn( *agent, &door ); } );
      crowd.end();
      for ( size_t i = 0; i < 10'000 && !crowd.isAnswered(); ++i ) {
        door.serve();
      }
      if ( !crowd.isAnswered() || door.peers() != sessions ||
           agent->wiring.hardware->floodSetDests() != size_t( vlans ) * AgentRoad::destsOfAVlan ) {
        state.SkipWithError( "something was lost" );
      }
      asked += crowd.asked();
    };
  };
  Bench::compareWith( state, double( vlans ) * AgentRoad::destsOfAVlan, { "ratio" }, crowded,
                      alone );
  state.counters[ "questions" ] = double( asked ) / double( state.iterations() + 1 );
}
BENCHMARK( crowd )->Arg( 400 )->Arg( 4000 )->Iterations( 9 )->UseManualTime()->Unit(
    benchmark::kMillisecond );

// What a session takes of the process's memory whose answer of 1,000,000 lines nobody reads; the
// system keeps up to 64 KiB more for each.
void bytesASession( benchmark::State & state ) {
  Vex::Clock::virtualIs( 0 );
  AgentRoad agent( 4000, 0 );
  agent.run();
  for ( auto _ : state ) {
    KezShell::Door door( agent.shell.commands(), { sessions, 65'536, 30 } );
    malloc_trim( 0 ); // else it takes what others have given back
    const auto before = Bench::residentBytes();
    std::vector< Visitor > visitors;
    for ( size_t i = 0; i < sessions; ++i ) {
      visitors.emplace_back( door ).ask( "show vlanFloodSetConfigDir\n" );
    }
    while ( isReadable( door.descriptor(), 0 ) ) {
      door.serve();
    }
    state.counters[ "bytes" ] = ( Bench::residentBytes() - before ) / sessions;
  }
}
BENCHMARK( bytesASession )->Iterations( 1 )->Unit( benchmark::kMillisecond );

// From a line that comes in to the last byte of its answer, in processor time, on an agent that
// holds 1,024,000 destinations; of which hardware may refuse all.
void answer( benchmark::State & state, const char * line, bool refused ) {
  Vex::Clock::virtualIs( 0 );
  AgentRoad agent( 4000, 0 );
  if ( refused ) {
    agent.wiring.hardware->capacityIs( Switch::Table::floodSetDest, 0 );
    agent.inputsAre();
    agent.wiring.scheduler->runReady();
  } else {
    agent.run();
  }
  KezShell::Door door( agent.shell.commands() );
  Visitor visitor( door );
  while ( isReadable( door.descriptor(), 0 ) ) {
    door.serve();
  }
  visitor.read();
  for ( auto _ : state ) {
    visitor.ask( line );
    while ( visitor.answered() < visitor.asked() ) {
      door.serve();
      visitor.read();
    }
  }
}
BENCHMARK_CAPTURE( answer, explain, "explain\n", false )->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( answer, explainRefused, "explain\n", true )->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( answer, explainVlanRefused, "explain vlan 10\n", true )
    ->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( answer, explainVlan, "explain vlan 10\n", false )
    ->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( answer, explainTunnel, "explain tunnel 5\n", false )
    ->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( answer, explainPath, "explain path 5,100,0\n", false )
    ->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( answer, completeRoot, "complete show vlanF\n", false )
    ->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( answer, completeKey, "complete show floodSetOutput.vlanFloodSet[\n", false )
    ->Unit( benchmark::kMicrosecond );
BENCHMARK_CAPTURE( answer, completeAttribute, "complete show vlanFloodSetConfigDir.\n", false )
    ->Unit( benchmark::kMicrosecond );

} // namespace
