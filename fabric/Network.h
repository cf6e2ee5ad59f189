// A fabric on virtual time: switches with their agents, the routes that travel between them, and
// what happens to all that, a line at a time:
//
//   fail switch S              return switch S        with all that it knows, and its links
//   fail link S INTERFACE      return link S INTERFACE        a port, or all those of a LAG
//   move HOST SEGMENT          prefer SEGMENT S N
//   restart S [hitless]
//   refuse S OPERATION N       of the next so many calls each fails, until it settles
//   late S SECONDS             hardware answers after that time, until it settles
//   delay S PATH               inputs whose paths begin so stay as they are, until it settles
//   pass SECONDS
//
// What hardware refuses, and when it answers, stays so over a failure or a restart of its switch.
// Lines that change nothing, as the failure of what has failed, do no harm. Each route takes its
// time to each switch, and a switch writes its agent's inputs a few at a time and in any order, all
// by the seed alone; what one switch tells another arrives in order.
//
// What is asked of inputs is answered from what was written, not from what agents made of it.
#pragma once

#include "fabric/ControlPlane.h"
#include "fabric/Node.h"

#include <functional>
#include <memory>

namespace Fabric {

class Network {
public:
  // Virtual time begins anew. Nothing has been told to anybody yet.
  Network( const Topology & topology, uint64_t seed );

  // Raises KezShell::BadLine, having changed nothing.
  void execute( std::string_view line );
  // Ends what keeps hardware or inputs behind, and lets all that is due be done.
  void settle();
  // What is called when something may have changed, before time goes on.
  void observerIs( std::function< void() > observer ) { observer_ = std::move( observer ); }

  const Topology & topology() const { return topology_; }
  uint64_t seed() const { return seed_; }
  // Null while the switch has failed.
  Node * node( Index node ) const { return members_[ node ].node.get(); }
  Index segmentOf( Index host ) const { return hostAt_[ host ].segment; }
  bool isUp( Index node, IntfId port ) const;
  // Whether any switch is reached from the segment.
  bool isAttached( Index segment ) const;
  // The segment that a port leads to, none if the port is no link's.
  std::optional< Index > segmentAt( Index node, IntfId port ) const;
  // What the switch's agent has been given.
  const Inputs & inputs( Index node ) const { return members_[ node ].inputs; }
  // Whether that is among it, and its value.
  const String * input( Index node, const String & path ) const;
  // Whether its hardware was made to refuse calls, or to answer late, since it settled last.
  bool isHindered( Index node ) const { return members_[ node ].hindered; }
  uint64_t hardwareCalls() const;

private:
  struct Member {
    std::unique_ptr< Node > node;
    std::set< IntfId > downPorts;
    LocalView view;
    Routes originated;
    Routes received;
    Inputs inputs;      // that are written
    Inputs wanted;      // that are to be
    bool judged = true; // whether the latter says what the view and the routes do
    std::vector< String > toWrite;
    std::optional< double > writesAt;
    std::vector< String > delayed;
    bool hindered = false;
    std::vector< String > hindrances; // of one that has failed, to be said when it returns
    uint64_t callsOfEarlier = 0;
  };
  struct Message {
    Index to;
    RouteKey key;
    std::optional< uint32_t > value; // none when it is withdrawn
  };

  // Each takes the rest of its line.
  void failLine( Vex::TextCursor & in );
  void returnLine( Vex::TextCursor & in );
  void moveLine( Vex::TextCursor & in );
  void preferLine( Vex::TextCursor & in );
  void restartLine( Vex::TextCursor & in );
  void refuseLine( Vex::TextCursor & in );
  void lateLine( Vex::TextCursor & in );
  void delayLine( Vex::TextCursor & in );
  void passLine( Vex::TextCursor & in );

  void failOrReturn( Vex::TextCursor & in, bool fails );
  void failSwitch( Index node );
  void returnSwitch( Index node );
  static void hinder( Member & member, const std::vector< String > & lines );

  void viewChanged( Index node );
  void tell( Index to, const RouteKey & key, std::optional< uint32_t > value );
  void originate( Index node );
  void inputsAreStale( Index node );
  void listWrites( Index node );
  void writeSome( Index node );
  void write( Member & member, const String & path );

  void pass( double seconds );
  std::optional< double > nextTime() const;
  void step();
  // From 0 to 1, for what is told apart by the numbers.
  double drawn( uint64_t a, uint64_t b, uint64_t c ) const;

  const Topology topology_;
  const uint64_t seed_;
  std::map< std::pair< Index, IntfId >, Index > segmentAt_;
  std::vector< Member > members_;
  std::vector< Learned > hostAt_;
  std::multimap< double, Message > messages_;
  std::map< std::pair< Index, Index >, double > lastMessage_; // from and to
  uint64_t draws_ = 0;
  std::function< void() > observer_ = [] {};
};

} // namespace Fabric
