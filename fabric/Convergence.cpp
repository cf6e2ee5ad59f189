#include "fabric/Convergence.h"

#include "fabric/Judge.h"
#include "shell/Show.h"

#include "Vex/Clock.h"

#include <algorithm>
#include <iomanip>

namespace Fabric {

namespace {

// Of one kind of event.
struct Cost {
  size_t events = 0;
  uint64_t calls = 0;
  uint64_t mostCalls = 0;
  double lost = 0; // seconds
  double mostLost = 0;
  double doubled = 0;
  double mostDoubled = 0;
};

// Follows a network from an event on: while any frame is lost, while any is doubled.
class Watch {
public:
  explicit Watch( Network & network ) : network_( network ), judge_( network ) {
    network.observerIs( [ this ] { look(); } );
  }
  ~Watch() {
    network_.observerIs( [] {} );
  }
  Watch( const Watch & ) = delete;
  Watch & operator=( const Watch & ) = delete;

  double lost() const { return lost_; }
  double doubled() const { return doubled_; }

private:
  void look() {
    const double now = Vex::Clock::now();
    lost_ += losing_ ? now - last_ : 0;
    doubled_ += doubling_ ? now - last_ : 0;
    last_ = now;
    losing_ = doubling_ = false;
    const auto & hosts = network_.topology().hosts;
    for ( Index host = 0; host < hosts.size(); ++host ) {
      for ( const auto & entry : entriesOf( network_, host ) ) {
        count( judge_.flood( host, entry, false ) );
        for ( Index to = 0; to < hosts.size(); ++to ) {
          if ( hosts[ to ].vlanId == entry.vlanId && to != host ) {
            count( judge_.unicast( host, to, entry, false ) );
          }
        }
      }
    }
  }
  void count( const Judge::Verdict & verdict ) {
    losing_ |= verdict.lost;
    doubling_ |= verdict.doubled;
  }

  Network & network_;
  Judge judge_;
  double last_ = Vex::Clock::now();
  bool losing_ = false;
  bool doubling_ = false;
  double lost_ = 0;
  double doubled_ = 0;
};

void measure( Network & network, const String & line, Cost & cost ) {
  const auto before = network.hardwareCalls();
  const Watch watch( network );
  network.execute( line );
  network.settle();
  const auto calls = network.hardwareCalls() - before;
  ++cost.events;
  cost.calls += calls;
  cost.mostCalls = std::max( cost.mostCalls, calls );
  cost.lost += watch.lost();
  cost.mostLost = std::max( cost.mostLost, watch.lost() );
  cost.doubled += watch.doubled();
  cost.mostDoubled = std::max( cost.mostDoubled, watch.doubled() );
}

String number( double value, int digits ) {
  std::ostringstream out;
  out << std::fixed << std::setprecision( digits ) << value;
  return out.str();
}

std::vector< String > row( const String & name, const Cost & cost ) {
  const auto events = double( cost.events );
  return { name,
           std::to_string( cost.events ),
           number( double( cost.calls ) / events, 1 ),
           std::to_string( cost.mostCalls ),
           number( cost.lost / events, 3 ),
           number( cost.mostLost, 3 ),
           number( cost.doubled / events, 3 ),
           number( cost.mostDoubled, 3 ) };
}

} // namespace

void showConvergence( std::ostream & out, const Topology & topology, uint64_t seed,
                      size_t events ) {
  std::mt19937_64 random( seed );
  Network network( topology, seed );
  network.settle();
  std::vector< std::vector< String > > rows{ { "event", "number", "calls", "most", "lost s", "most",
                                               "doubled s", "most" } };
  for ( const auto name : vexNames( EventKind() ) ) {
    Cost cost;
    Cost undone;
    for ( size_t i = 0; i < events; ++i ) {
      const auto event = randomEvent( topology, Vex::parse< EventKind >( String( name ) ), random );
      if ( event ) {
        measure( network, event->line, cost );
        if ( !event->undo.empty() ) {
          measure( network, event->undo, undone );
        }
      }
    }
    if ( cost.events > 0 ) {
      rows.push_back( row( String( name ), cost ) );
    }
    if ( undone.events > 0 ) {
      rows.push_back( row( "  undone", undone ) );
    }
  }
  KezShell::showTable( out, rows );
}

} // namespace Fabric
