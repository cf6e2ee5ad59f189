#include "sim/Events.h"

#include "switch/Operation.h"

#include <array>
#include <random>

namespace Sim {

using Vex::String;

namespace {

const String updatesLine = "set floodingHelper.updateSupportedOnCreateEsiData ";

// Few names, so that events meet.
class Generator {
public:
  explicit Generator( uint64_t seed );
  Lines lines( size_t events );

private:
  struct Kind {
    uint32_t weight;
    void ( Generator::*happen )();
  };

  void lag();
  void vlanConfig();
  void vlanStatus();
  void tag();
  void floodFilter();
  void segment();
  void wholeSegment();
  void forwarder();
  void remoteLabel();
  void localLabel();
  void floodSet();
  void host();
  void route();
  void fault();
  void capacity();
  void timing();
  void late();
  void time();
  void unheard();
  void tunable();
  String machines();
  void restart();
  void tamper();
  void afterStart();

  static constexpr std::array teps{ "DynamicTunnel0.1", "DynamicTunnel0.2", "DynamicTunnel0.3",
                                    "SrTePolicy0.1",    "SrTePolicy0.4",    "DynamicTunnel14.1" };

  uint64_t below( uint64_t n ) { return random_() % n; }
  bool oneIn( uint64_t n ) { return below( n ) == 0; }
  String any( std::initializer_list< const char * > texts ) {
    return texts.begin()[ below( texts.size() ) ];
  }
  String anyOf( const auto & names ) { return String( names[ below( names.size() ) ] ); }
  String number( uint64_t from, uint64_t to ) {
    return std::to_string( from + below( to - from + 1 ) );
  }
  String vlan() { return number( 1, 3 ); }
  String port() { return "Ethernet" + number( 1, 4 ); }
  String lagName() { return "Port-Channel" + number( 1, 2 ); }
  String intf() { return oneIn( 2 ) ? lagName() : "Ethernet" + number( 1, 2 ); }
  String tep() { return anyOf( teps ); }
  void add( const String & line ) { lines_.push_back( line ); }
  // Sets a member twice as often as it deletes it.
  void setOrDelete( const String & path, const String & value ) {
    oneIn( 3 ) ? add( "del " + path ) : add( "set " + path + ( value.empty() ? "" : " " + value ) );
  }

  std::mt19937_64 random_;
  std::vector< Kind > kinds_;
  const bool updatesEsiData_ =
      oneIn( 2 );                   // where it never does, nothing may outlive its tunnel's id
  const bool follows_ = oneIn( 2 ); // from each start on
  const bool answersLater_ = oneIn( 2 );
  Lines lines_;
};

Generator::Generator( uint64_t seed ) : random_( seed ) {
  const auto kind = [ this ]( void ( Generator::*happen )(), uint32_t usual ) {
    const uint32_t weights[] = { 0, usual, usual, usual, usual * 4 };
    kinds_.push_back( { weights[ below( 5 ) ], happen } );
  };
  kind( &Generator::lag, 10 );
  kind( &Generator::vlanConfig, 5 );
  kind( &Generator::vlanStatus, 8 );
  kind( &Generator::tag, 8 );
  kind( &Generator::floodFilter, 6 );
  kind( &Generator::segment, 3 );
  kind( &Generator::wholeSegment, 2 );
  kind( &Generator::forwarder, 8 );
  kind( &Generator::remoteLabel, 10 );
  kind( &Generator::localLabel, 4 );
  kind( &Generator::floodSet, 14 );
  kind( &Generator::host, 14 );
  kind( &Generator::route, 14 );
  kind( &Generator::fault, 4 );
  kind( &Generator::capacity, 2 );
  kind( &Generator::timing, 4 );
  kind( &Generator::unheard, 3 );
  kind( &Generator::restart, 1 );
  kind( &Generator::tamper, 1 );
  if ( oneIn( 4 ) ) {
    kind( &Generator::tunable, 3 );
  }
  kinds_.push_back( { 12, &Generator::time } );
}

Lines Generator::lines( size_t events ) {
  if ( oneIn( 3 ) ) {
    add( String( tablesLine ) );
    add( "restart" );
  }
  afterStart();
  late();
  if ( oneIn( 2 ) ) { // pools that last for some of the tunnels
    add( "set switch.capacity[hwTunnelIdTypeDefault] " + number( 0, 4 ) );
    add( "set switch.capacity[hwTunnelIdTypeSharedEsi] " + number( 0, 2 ) );
  }
  uint64_t all = 0;
  for ( const auto & kind : kinds_ ) {
    all += kind.weight;
  }
  while ( lines_.size() < events ) {
    auto chosen = below( all );
    for ( const auto & kind : kinds_ ) {
      if ( chosen < kind.weight ) {
        ( this->*kind.happen )();
        break;
      }
      chosen -= kind.weight;
    }
    if ( oneIn( 30 ) ) {
      add( String( compareLine ) );
      late();
    }
    if ( oneIn( 120 ) ) {
      add( String( hitlessLine ) );
      afterStart();
      late();
    }
  }
  add( String( compareLine ) );
  return std::move( lines_ );
}

void Generator::lag() {
  const auto path = "lagConfigDir.lagConfig[" + lagName() + "]";
  oneIn( 12 )
      ? setOrDelete( path, "" )
      : setOrDelete( path + ".member[" + port() + "]", any( { "portProgRxTx", "portProgRx" } ) );
}

void Generator::vlanConfig() {
  const auto path = "bridgingConfig.vlanConfig[" + vlan() + "]";
  if ( oneIn( 3 ) ) {
    setOrDelete( "evpnStatus.encapBumFilter[" + intf() + "]", "" );
  } else {
    oneIn( 10 ) ? setOrDelete( path, "" )
                : setOrDelete( path + ".intf[" + intf() + "]", any( { "tagged", "untagged" } ) );
  }
}

void Generator::vlanStatus() {
  const auto path = "vlanStatusDir.vlanStatus[" + vlan() + "]";
  oneIn( 10 ) ? setOrDelete( path, "" )
              : setOrDelete( path + ".vlanPortStatus[" + intf() + "]",
                             any( { "forwarding", "blocking" } ) );
}

void Generator::tag() {
  if ( oneIn( 6 ) ) {
    add( "set evpnMplsConfig.vlanServiceDot1qEnabled " + any( { "true", "false" } ) );
  } else {
    setOrDelete( "evpnStatus.vlanToDot1q[" + vlan() + "]", any( { "0", "0", "100", "200" } ) );
  }
}

void Generator::floodFilter() {
  const auto path = "evpnStatus.evpnVlanFloodStatus[" + vlan() + "]";
  oneIn( 8 ) ? setOrDelete( path, "" ) : setOrDelete( path + ".floodFilter[" + intf() + "]", "" );
}

void Generator::segment() {
  const auto path = "evpnStatus.ethernetSegmentStatus[" + intf() + "]";
  switch ( below( 4 ) ) {
  case 0:
    add( "del " + path + any( { "", ".remoteEsiLabel", ".designatedForwarderTep" } ) );
    break;
  case 1:
    if ( updatesEsiData_ ) { // which a chip cannot cease to do while it is at it
      add( updatesLine + ( answersLater_ || oneIn( 2 ) ? "true" : "false" ) );
    }
    break;
  default:
    setOrDelete( path + ".sharedEsiLabel", number( 200, 201 ) );
  }
}

// What a segment's data needs, as routes tell of it that arrive together.
void Generator::wholeSegment() {
  const auto name = intf();
  const auto path = "evpnStatus.ethernetSegmentStatus[" + name + "]";
  add( "set evpnStatus.localEsiLabel[" + name + "] 2:" + number( 50, 51 ) );
  for ( const auto * const each : teps ) {
    add( "set " + path + ".remoteEsiLabel[" + each + "] " + any( { "2:100", "2:101", "3:100" } ) );
  }
  for ( const auto * const vlanId : { "1", "2", "3" } ) {
    add( "set " + path + ".designatedForwarderTep[" + vlanId + "] " + tep() );
  }
}

void Generator::forwarder() {
  setOrDelete( "evpnStatus.ethernetSegmentStatus[" + intf() + "].designatedForwarderTep[" + vlan() +
                   "]",
               tep() );
}

void Generator::remoteLabel() {
  setOrDelete( "evpnStatus.ethernetSegmentStatus[" + intf() + "].remoteEsiLabel[" + tep() + "]",
               any( { "2:100", "2:101", "3:100", "2:0", "1:100", "0:0" } ) );
}

void Generator::localLabel() {
  setOrDelete( "evpnStatus.localEsiLabel[" + intf() + "]",
               any( { "2:50", "2:51", "1:50", "0:0" } ) );
}

void Generator::floodSet() {
  if ( oneIn( 20 ) ) {
    add( "set floodSetOutput.source " + any( { "bgp", "static" } ) );
    return;
  }
  const auto ofVlan = "floodSetOutput.vlanFloodSet[" + vlan() + "]";
  const auto set =
      ofVlan + ".floodSet[" + any( { "ff:ff:ff:ff:ff:ff", "00:00:00:00:00:01" } ) + "]";
  if ( oneIn( 12 ) ) {
    setOrDelete( any( { "v", "s" } ) == "v" ? ofVlan : set, "" );
  } else if ( oneIn( 12 ) ) {
    add( oneIn( 2 ) ? "del " + set + ".destSet"
                    : "set " + set + ".floodSetType underlayMulticast" );
  } else if ( oneIn( 8 ) ) {
    setOrDelete( set + ".destSet[" + any( { "vxlan(10.0.0.1)", "intf(Ethernet1)", "tunnel(1)" } ) +
                     "]",
                 "" );
  } else {
    setOrDelete( set + ".destSet[mpls(" + any( { "", "", "Ethernet1", "SrTePolicy0.2" } ) + "," +
                     number( 100, 101 ) + "," +
                     any( { "1", "1", "2", "3", "4", "246290604621825", "0" } ) + ")]",
                 "" );
  }
}

// Objects of few ids, so that chains are shared, lead over each other, and meet.
void Generator::host() {
  const auto object = [ this ] { return number( 1, 8 ); };
  switch ( below( 12 ) ) {
  case 0:
    add( oneIn( 2 ) ? "call kezMacAddrFecRequestSm.maxChainLengthIs " + number( 2, 3 )
                    : "set toggles.toggle[KezEvpnVxlan4WayL2Ecmp] " + any( { "true", "false" } ) );
    break;
  case 1:
  case 2:
    setOrDelete( "hostOutput.label[" + number( 1, 3 ) + "]", number( 200, 201 ) + "," + object() );
    break;
  case 3:
  case 4:
    setOrDelete( "hostOutput.loadBalance[" + number( 3, 5 ) + "]",
                 oneIn( 8 ) ? "[]" : "[" + object() + "," + object() + "," + object() + "]" );
    break;
  case 5:
  case 6:
  case 7:
    setOrDelete( "hostOutput.dest[" + number( 5, 8 ) + "]",
                 any( { "tunnel(1)", "tunnel(2)", "tunnel(3)", "mpls(,100,1)", "mpls(,100,2)",
                        "mpls(SrTePolicy0.2,1048576,0)", "vxlan(10.0.0.1)", "intf(Ethernet1)" } ) );
    break;
  default:
    setOrDelete( "hostOutput.host[00:00:00:00:00:0" + number( 1, 4 ) + "," + vlan() + "]",
                 object() );
  }
}

// A publisher that tells of what it changed, most of the time.
void Generator::route() {
  const auto route = number( 1, 5 );
  const auto set = number( 1, 3 );
  const auto via = "evpnEthernetSegmentFilter:" + number( 1, 3 );
  switch ( below( 5 ) ) {
  case 0:
    setOrDelete( "lfibStatus.route[" + route + "]", route + "," + set );
    break;
  case 1:
    setOrDelete( "lfibStatus.viaSet[" + set + "]", set + "," + any( { "", "mpls:1," } ) + via );
    break;
  case 2:
    add( "set lfibStatus.viaSet[" + set + "] " + set + "," + any( { "", "mpls:1" } ) );
    break;
  default:
    setOrDelete( "lfibStatus.evpnEthernetSegmentFilterVia[" + via + "]",
                 via + "," + number( 500, 501 ) + "," + intf() );
  }
  for ( int key = 1; key <= 5; ++key ) {
    if ( !oneIn( 6 ) ) {
      add( "set lfibTrackingStatus.routeKeyBacklog[" + std::to_string( key ) + "]" );
    }
  }
}

void Generator::fault() {
  auto operation = anyOf( Switch::FallibleOperation::names() );
  if ( operation == "getHwTunnelId" && !oneIn( 6 ) ) { // that leaves much without hardware at once
    operation = "createEsiData";
  }
  const auto path = "switch.fault[" + operation + "]";
  switch ( below( 6 ) ) {
  case 0:
    add( "set " + path + ".everyNth " + number( 1, 3 ) );
    break;
  case 1:
    add( "set " + path + ".seed " + number( 1, 1000 ) );
    add( "set " + path + ".probability " + any( { "0.2", "0.5", "0.9" } ) );
    break;
  case 2:
    add( "set " + path + ".untilTime " + number( 1, 300 ) );
    break;
  case 3:
    add( "set " + path + ".answer tableFull" );
    break;
  default:
    add( "set " + path + ".nextCalls " + number( 1, 4 ) );
  }
}

void Generator::capacity() {
  setOrDelete( "switch.capacity[" + anyOf( vexNames( Switch::Table() ) ) + "]", number( 0, 5 ) );
}

void Generator::timing() {
  const auto part = any( { "switchFloodSets", "switchMacs" } );
  late();
  switch ( below( 3 ) ) {
  case 0:
    add( "set " + part + ".answerDelay " + any( { "0", "0.5", "1.5" } ) );
    break;
  case 1:
    add( "set " + part + ".shuffleSeed " + number( 0, 9 ) );
    break;
  default:
    add( "set scheduler.workBudget " + any( { "1", "2", "1000" } ) );
  }
}

// The switch comes to answer later, until everything is let come to rest.
void Generator::late() {
  if ( answersLater_ ) {
    add( "set switchAnswers.answerDelay " + any( { "0", "0.5", "1.5", "1.5" } ) );
    add( "set switchAnswers.shuffleSeed " + number( 0, 9 ) );
  }
}

// Any machines cease to hear for a while, or hear again, one after the other.
void Generator::unheard() {
  if ( oneIn( 3 ) ) {
    add( String( heardLine ) );
    return;
  }
  const std::string_view kinds[] = { unheardLine, unheardLine, silentLine, heardLine };
  add( String( kinds[ below( 4 ) ] ) + machines() );
}

// Hardware comes to follow what it lags behind by rule, or ceases to.
void Generator::tunable() {
  auto line = anyOf( followLines );
  if ( oneIn( 3 ) ) {
    line.replace( line.rfind( "true" ), 4, "false" );
  }
  add( line );
}

void Generator::restart() {
  add( any( { "restart", "restart hitless", "restart hitless" } ) );
  afterStart();
}

void Generator::tamper() {
  add( String( tamperLine ) +
       any( { "del switch.vlan", "del switch.dot1qMapping", "del switch.nonDfPort",
              "del switch.esiData", "del switch.esiPortMap", "del switch.fec",
              "del switch.floodSetDest", "del switch.macEntry", "set switch.vlan[2] 9",
              "set switch.dot1qMapping[Ethernet1,Ethernet1,2] 9",
              "set switch.nonDfPort[Ethernet1,Ethernet1,2]",
              "set switch.esiData[Ethernet1,Ethernet1,2] 9,0:9,100,50",
              "set switch.esiPortMap[Ethernet1] 9",
              "set switch.macEntry[00:00:00:00:00:01,1] 9" } ) );
}

void Generator::afterStart() {
  if ( follows_ ) {
    lines_.insert( lines_.end(), followLines.begin(), followLines.end() );
  }
  if ( updatesEsiData_ && oneIn( 2 ) ) {
    add( updatesLine + "true" );
  }
}

// Some names: often one, and often all.
String Generator::machines() {
  auto names = machineNames();
  const size_t number = oneIn( 2 ) ? 1 : oneIn( 4 ) ? names.size() : 1 + below( names.size() );
  String some;
  for ( size_t i = 0; i < number; ++i ) {
    std::swap( names[ i ], names[ i + below( names.size() - i ) ] );
    some += " " + names[ i ];
  }
  return some;
}

void Generator::time() {
  add( "advance " + any( { "0.1", "0.5", "1", "1", "3", "5", "7", "12" } ) );
}

} // namespace

Lines randomLines( uint64_t seed, size_t events ) {
  return Generator( seed ).lines( events );
}

} // namespace Sim
