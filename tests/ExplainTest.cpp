// What machines tell an operator, at every stage that what they are asked about goes through. Each
// stage is reached by input lines, and what is told is checked against the simulated switch too.
#include "RookTestTypes.h"

#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"
#include "KezEvpn/frame/Missing.h"
#include "KezEvpn/frame/StateMachine.h"
#include "Vex/Clock.h"
#include "agent/Shell.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

struct Stage {
  std::string lines;
  std::string words; // of the story's machine
};

struct Story {
  std::string subject;
  std::string machine;
  std::vector< Stage > stages;
};

void PrintTo( const Story & story, std::ostream * out ) {
  *out << story.machine << ", " << story.subject;
}

const std::string segment = "evpnStatus.ethernetSegmentStatus[Port-Channel1]";
const std::string lag = "lagConfigDir.lagConfig[Port-Channel1].member";
const std::string broadcast = "floodSetOutput.vlanFloodSet[10].floodSet[ff:ff:ff:ff:ff:ff].destSet";
const std::string filterVia = "lfibStatus.evpnEthernetSegmentFilterVia[evpnEthernetSegmentFilter:";
const std::string via1 = filterVia + "1] evpnEthernetSegmentFilter:1,500,Port-Channel1\n";

const std::vector< Story > stories{
  { "pair Ethernet1,10",
    "kezEvpnVlanMembershipSm",
    { { "", "no EVPN member; not operational in the VLAN" },
      { "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet1] forwarding",
        "an EVPN member; operational in the VLAN" },
      { "set evpnStatus.encapBumFilter[Ethernet1]\n"
        "set bridgingConfig.vlanConfig[10].intf[Ethernet2] tagged",
        "an EVPN member; not configured in the VLAN, which decides while its BUM encapsulation is "
        "filtered; decided anew when its port status or configuration in the VLAN changes" },
      { "set bridgingConfig.vlanConfig[10].intf[Ethernet1] tagged\n"
        "expect evpnVlanStatus.vlanStatus[10].member[Ethernet1]",
        "an EVPN member; configured in the VLAN, which decides while its BUM encapsulation is "
        "filtered" } } },
  { "vlan 10",
    "kezEvpnVlanMembershipSm",
    { { "", "has no EVPN members" },
      { "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet1] forwarding\n"
        "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet2] forwarding",
        "has the EVPN members Ethernet1, Ethernet2" } } },
  { "pair Port-Channel1,10",
    "evpnFloodingDot1qSm",
    { { "", "waiting for EVPN members of VLAN 10, none published" },
      { "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet9] forwarding",
        "waiting for Port-Channel1 to be an EVPN member of VLAN 10" },
      { "set vlanStatusDir.vlanStatus[10].vlanPortStatus[Port-Channel1] forwarding\n"
        "del vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet9]",
        "waiting for the dot1q tag of VLAN 10, none published; changes are being collected, next "
        "look in 1.0 s" },
      { "advance 2\nset switch.fault[createVlan].nextCalls 2\nset evpnStatus.vlanToDot1q[10] 110\n"
        "advance 4\nexpect no switch.vlan",
        "waiting for VLAN 10 to be created in hardware; hardware refused once (notProgrammed as "
        "planned) 4.0 s ago, next try in 1.0 s" },
      { "advance 1",
        "waiting for VLAN 10 to be created in hardware; hardware refused twice (notProgrammed as "
        "planned), first 5.0 s ago, last just now, next try in 5.0 s" },
      { "advance 5\nexpect switch.vlan[10] 110",
        "tag 110; waiting for member ports of Port-Channel1, none published; "
        "changes are being collected, next look in 1.0 s" },
      { "set switch.fault[createVlanToDot1qMapping].nextCalls 4\n"
        "set " +
            lag + "[Ethernet1] portProgRxTx\nset " + lag +
            "[Ethernet2] portProgRxTx\n"
            "advance 2\nexpect no switch.dot1qMapping",
        "tag 110; not programmed on Ethernet1, Ethernet2; hardware refused once (notProgrammed as "
        "planned) 1.0 s ago, next try in 4.0 s" },
      { "advance 4",
        "tag 110; not programmed on Ethernet1, Ethernet2; hardware refused twice (notProgrammed "
        "as planned), first 5.0 s ago, last just now, next try in 5.0 s" },
      { "set switch.capacity[dot1qMapping] 1\nadvance 5\nexpect switch.dot1qMapping count 1",
        "tag 110; programmed on Ethernet1; not programmed on Ethernet2; hardware refused 3 times "
        "(no room), first 10.0 s ago, last just now, next try in 5.0 s" },
      { "del switch.capacity[dot1qMapping]\nadvance 5\nexpect switch.dot1qMapping count 2",
        "tag 110; programmed on Ethernet1, Ethernet2" },
      { "del " + lag + "[Ethernet1]",
        "tag 110; programmed on Ethernet2; still programmed, though it is no port of it any more, "
        "on "
        "Ethernet1; changes are being collected, next look in 1.0 s" },
      { "advance 2\nset switch.capacity[dot1qMapping] 1\nset " + lag +
            "[Ethernet1] portProgRxTx\n"
            "advance 2\nset switch.fault[createVlan].nextCalls 2\nset evpnStatus.vlanToDot1q[10] "
            "120\n"
            "advance 6.2\nexpect switch.dot1qMapping[Port-Channel1,Ethernet2,10] 110",
        "waiting for VLAN 10 to be created in hardware; hardware refused twice (notProgrammed as "
        "planned), first 6.2 s ago, last 2.2 s ago, next try in 2.8 s; mapped to tag 110 till "
        "then; programmed on Ethernet2; not programmed on Ethernet1" } } },
  { "vlan 10",
    "evpnFloodingDot1qSm",
    { { "", "waiting for the dot1q tag of VLAN 10, none published" },
      { "set switch.fault[createVlan].nextCalls 1\nset evpnStatus.vlanToDot1q[10] 110",
        "to be programmed with tag 110; hardware refused once (notProgrammed as planned) just "
        "now, next try in 5.0 s" },
      { "advance 5\nexpect switch.vlan[10] 110", "programmed with tag 110" } } },
  { "pair Ethernet1,10",
    "kezEvpnFloodFilterSm",
    { { "", "not in the flood filter of VLAN 10" },
      { "set switch.fault[createNonDfPort].nextCalls 1\n"
        "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet1]",
        "in the flood filter of VLAN 10; not programmed on Ethernet1; hardware refused once "
        "(notProgrammed as planned) just now, next try in 5.0 s" },
      { "advance 5\nexpect switch.nonDfPort count 1",
        "in the flood filter of VLAN 10; programmed on Ethernet1" },
      { "del evpnStatus.evpnVlanFloodStatus[10]\nexpect no switch.nonDfPort",
        "not in the flood filter of VLAN 10" } } },
  { "pair Port-Channel1,10",
    "evpnFloodingEsiSm",
    { { "", "Port-Channel1 is no Ethernet segment, no status of it published" },
      { "set " + segment, "waiting for the designated forwarder of VLAN 10, none published" },
      { "set " + segment + ".designatedForwarderTep[10] DynamicTunnel0.1",
        "waiting for the remote ESI label of TEP DynamicTunnel0.1, none published" },
      { "set " + segment + ".remoteEsiLabel[DynamicTunnel0.1] 0:100",
        "waiting for a remote ESI label of TEP DynamicTunnel0.1 of the right encapsulation type, "
        "0:100 published" },
      { "set switch.capacity[hwTunnelIdTypeDefault] 1\n"
        "set evpnStatus.ethernetSegmentStatus[Port-Channel2].remoteEsiLabel[DynamicTunnel0.9] 2:1\n"
        "del " +
            segment +
            ".remoteEsiLabel\n"
            "del evpnStatus.ethernetSegmentStatus[Port-Channel2]\n"
            "set evpnStatus.ethernetSegmentStatus[Port-Channel2].remoteEsiLabel[DynamicTunnel0.9] "
            "2:1\n"
            "set " +
            segment + ".remoteEsiLabel[DynamicTunnel0.1] 2:100",
        "tunnel 1, label 100; waiting for member ports of Port-Channel1, none "
        "published; waiting for a hardware tunnel id of tunnel 1, none published" },
      { "set " + lag +
            "[Ethernet1] portProgRxTx\n"
            "del evpnStatus.ethernetSegmentStatus[Port-Channel2]\nexpect no switch.esiData",
        "tunnel 1, label 100; waiting for the local ESI label of Port-Channel1, none "
        "published" },
      { "set switch.fault[createEsiData].nextCalls 1\n"
        "set evpnStatus.localEsiLabel[Port-Channel1] 2:50\nexpect no switch.esiData",
        "tunnel 1, label 100; not programmed on Ethernet1; hardware refused once (notProgrammed "
        "as planned) just now, next try in 5.0 s" },
      { "advance 5\nexpect switch.esiData count 1",
        "tunnel 1, label 100; programmed on Ethernet1" },
      { "set floodingHelper.updateSupportedOnCreateEsiData 1\n"
        "set switch.fault[createEsiData].nextCalls 1\n"
        "set " +
            segment + ".remoteEsiLabel[DynamicTunnel0.1] 2:101\nexpect switch.esiData count 1",
        "tunnel 1, label 101; to be programmed anew, and as before till then, on Ethernet1; not "
        "programmed anew on Ethernet1; hardware refused once (notProgrammed as planned) just now, "
        "next try in 5.0 s" },
      { "advance 5\nset " + segment + ".remoteEsiLabel[DynamicTunnel0.1] 0:200",
        "waiting for a remote ESI label of TEP DynamicTunnel0.1 of the right encapsulation type, "
        "0:200 published; what is programmed stays till then, tunnel 1, label 101; "
        "unprogramUnusableLabel would delete it; programmed on Ethernet1" },
      { "set " + segment +
            ".remoteEsiLabel[DynamicTunnel0.1] 2:200\n"
            "set evpnStatus.localEsiLabel[Port-Channel1] 2:51",
        "tunnel 1, label 200; programmed on Ethernet1; with an earlier hardware tunnel id or "
        "local label on Ethernet1, 0:1 and 50 where 0:1 and 51 are asked for; reprogramChangedEsi "
        "would follow" },
      { "set evpnFloodingEsiSm.reprogramChangedEsi true",
        "tunnel 1, label 200; programmed on Ethernet1" } } },
  { "tunnel 7",
    "evpnHwTunnelIdSm",
    { { "set switch.capacity[hwTunnelIdTypeDefault] 1\nset " + broadcast + "[mpls(,100,5)]", "" },
      { "set " + broadcast + "[mpls(,100,7)]\nexpect evpnRemoteInfo.remoteTunnelId[7] 1",
        "waiting for a default hardware tunnel id, none was free; hardware refused once (no room) "
        "just now, next try when an id is given back or a tunnel's last segment leaves it" },
      { "set " + segment +
            ".remoteEsiLabel[DynamicTunnel0.7] 2:100\n"
            "expect tunnelIdHwTunnelId.tunnelIdToHwTunnelId[7] 7,0:1",
        "used by segments Port-Channel1; has hardware tunnel id 0:1" },
      { "set switch.capacity[hwTunnelIdTypeSharedEsi] 0\nset " + segment + ".sharedEsiLabel 200",
        "used by segments Port-Channel1; has hardware tunnel id 0:1; found no shared-ESI id free "
        "when its segments changed; retryLackingTunnel would try again" },
      { "del " + segment,
        "has hardware tunnel id 0:1; gives it up when a segment's tunnel needs one" },
      { "set " + segment +
            ".remoteEsiLabel[DynamicTunnel0.8] 2:100\n"
            "expect no tunnelIdHwTunnelId.tunnelIdToHwTunnelId[7]",
        "gave its hardware tunnel id up to a segment's tunnel, and gets one when a segment or a "
        "first flood-set destination uses it again; retryLackingTunnel would try again" },
      { "set evpnHwTunnelIdSm.retryLackingTunnel true",
        "waiting for a default hardware tunnel id, none was free; hardware refused once (no room) "
        "just now, next try in 5.0 s" },
      { "set switch.capacity[hwTunnelIdTypeDefault] 3\nadvance 5",
        "has hardware tunnel id 0:3; gives it up when a segment's tunnel needs one" } } },
  { "tunnel 6",
    "evpnHwTunnelIdSm",
    { { "set switch.capacity[hwTunnelIdTypeDefault] 0\nset " + segment +
            ".sharedEsiLabel 200\nset " + segment + ".remoteEsiLabel[DynamicTunnel0.6] 2:100",
        "used by segments Port-Channel1; has hardware tunnel id 1:1" },
      { "del " + segment + ".sharedEsiLabel",
        "used by segments Port-Channel1; has hardware tunnel id 1:1; found no default id free when "
        "its segments changed; retryLackingTunnel would try again" },
      { "set evpnHwTunnelIdSm.retryLackingTunnel true",
        "used by segments Port-Channel1; has hardware tunnel id 1:1; waiting for a default "
        "hardware tunnel id, none was free; hardware refused once (no room) just now, next try in "
        "5.0 s" },
      { "set switch.capacity[hwTunnelIdTypeDefault] 1\nadvance 5",
        "used by segments Port-Channel1; has hardware tunnel id 0:1" } } },
  { "tunnel 9",
    "evpnHwTunnelIdSm",
    { { "set switch.capacity[hwTunnelIdTypeDefault] 1\nset " + broadcast + "[mpls(,100,5)]\nset " +
            broadcast + "[mpls(,100,9)]\ndel " + broadcast + "[mpls(,100,9)]",
        "waited for a hardware tunnel id; nothing uses it any more" } } },
  { "tunnel 5",
    "evpnRemoteInfoFinderSm",
    { { "", "" },
      { "set " + broadcast + "[mpls(,100,5)]", "used by 1 flood-set destination" },
      { "set " + broadcast + "[mpls(,101,5)]", "used by 2 flood-set destinations" } } },
  { "path 5,100,0",
    "evpnFloodSetFecSm",
    { { "set switchFloodSets.answerDelay 2\nset switch.capacity[hwTunnelIdTypeDefault] 0", "" },
      { "set " + broadcast + "[mpls(,100,5)]",
        "used by 1 flood-set destination; waiting for hardware's answer for FEC "
        "792633534417207296, none published; its tunnel has no hardware tunnel id" },
      { "set switch.capacity[hwTunnelIdTypeDefault] 1\n"
        "set evpnStatus.ethernetSegmentStatus[Port-Channel1].remoteEsiLabel[DynamicTunnel0.5] 2:1\n"
        "advance 2\nexpect switch.fec count 1",
        "used by 1 flood-set destination; hardware answered for FEC 792633534417207296 with id 1 "
        "on DynamicTunnel0.5" },
      { "advance 2\nexpect switch.floodSetDest count 1\ndel " + broadcast,
        "used by no destination any more, waiting for hardware to unprogram 1 flood set; hardware "
        "answered for FEC 792633534417207296 with id 1 on DynamicTunnel0.5" },
      { "advance 2\nexpect no switch.floodSetDest",
        "keeps FEC 792633534417207296 until hardware takes its answer back" },
      { "advance 2\nexpect no switch.fec", "" } } },
  { "path 5,100,0",
    "evpnVlanFloodSetSm",
    { { "set switchFloodSets.answerDelay 2", "" },
      { "set " + broadcast + "[mpls(,100,5)]",
        "1 flood-set destination waiting for the hardware id of the path, none published" },
      { "set switch.fault[createFloodSetDest].nextCalls 1\nadvance 2",
        "1 flood-set destination waiting for hardware's answer" },
      { "advance 2",
        "1 flood-set destination refused by hardware (notProgrammed as planned), which tries by "
        "itself" },
      { "advance 10\nexpect switch.floodSetDest count 1",
        "1 flood-set destination programmed" } } },
  { "vlan 10",
    "evpnVlanFloodSetSm",
    { { "set switchFloodSets.answerDelay 2\nset " + broadcast + "[vxlan(10.0.0.1)]", "" },
      { "set " + broadcast + "[mpls(,100,5)]\nadvance 10\nset " + broadcast + "[mpls(,101,5)]",
        "1 flood-set destination programmed; 1 flood-set destination waiting for the hardware id "
        "of the path, none published" } } },
  { "route 100",
    "esiFilteringDecapSm",
    { { "", "waiting for the route, none published" },
      { "set lfibStatus.route[100] 100,1", "waiting for a via in via set 1, none published" },
      { "set lfibStatus.viaSet[1] 1,mpls:3", "needs no port map, its first via being mpls:3" },
      { "set lfibStatus.viaSet[1] 1,evpnEthernetSegmentFilter:1",
        "waiting for via evpnEthernetSegmentFilter:1, none published" },
      { "set " + via1 + "expect no switch.esiPortMap",
        "port map of label 500 and Port-Channel1; not looked at before it comes into the backlog" },
      { "set switch.fault[createEsiPortMap].nextCalls 1\n"
        "set lfibTrackingStatus.routeKeyBacklog[100]\nexpect no switch.esiPortMap",
        "port map of label 500 and Port-Channel1; hardware refused once (notProgrammed as "
        "planned) just now; next try in 5.0 s" },
      { "advance 5\nexpect switch.esiPortMap[Port-Channel1] 500",
        "port map of label 500 and Port-Channel1; programmed" },
      { "set " + filterVia + "1] evpnEthernetSegmentFilter:1,501,Port-Channel1",
        "port map of label 501 and Port-Channel1; programmed is the port map of label 500 and "
        "Port-Channel1; not looked at before it comes into the backlog" },
      { "set lfibStatus.viaSet[1] 1,mpls:3\nset lfibTrackingStatus.routeKeyBacklog[100]\n"
        "expect switch.esiPortMap[Port-Channel1] 500",
        "needs no port map, its first via being mpls:3; keeps the port map of label 500 and "
        "Port-Channel1; unprogramOtherViaType would delete it" },
      { "set esiFilteringDecapSm.unprogramOtherViaType true\nexpect no switch.esiPortMap",
        "needs no port map, its first via being mpls:3" } } },
  { "route 200",
    "esiFilteringDecapSm",
    { { "set " + via1 +
            "set lfibStatus.viaSet[1] 1,evpnEthernetSegmentFilter:1\n"
            "set lfibStatus.route[100] 100,1\nset lfibTrackingStatus.routeKeyBacklog[100]\n"
            "set " +
            filterVia +
            "2] evpnEthernetSegmentFilter:2,600,Port-Channel1\n"
            "set lfibStatus.viaSet[2] 2,evpnEthernetSegmentFilter:2\n"
            "set lfibStatus.route[200] 200,2\nset lfibTrackingStatus.routeKeyBacklog[200]\n"
            "expect switch.esiPortMap[Port-Channel1] 500",
        "port map of label 600 and Port-Channel1; waiting for route 100 to give up Port-Channel1; "
        "next try in 5.0 s" },
      { "advance 10\ndel lfibStatus.route[100]\nset lfibTrackingStatus.routeKeyBacklog[100]",
        "port map of label 600 and Port-Channel1; another route had its interface when it was last "
        "tried; next try in 5.0 s" },
      { "set switch.fault[createEsiPortMap].nextCalls 1\nadvance 5",
        "port map of label 600 and Port-Channel1; hardware refused once (notProgrammed as "
        "planned) just now; next try in 5.0 s" },
      { "advance 5\nexpect switch.esiPortMap[Port-Channel1] 600",
        "port map of label 600 and Port-Channel1; programmed" } } },
  { "mac 10,00:00:00:00:00:01",
    "kezMacAddrFecRequestSm",
    { { "set switchMacs.answerDelay 2\nset hostOutput.dest[2] mpls(,200,5)", "" },
      { "set hostOutput.host[00:00:00:00:00:01,10] 1",
        "changes are being collected, next look in 0.5 s" },
      { "advance 1", "refers to chain 1; which has no FEC: object 1 is missing" },
      { "set hostOutput.loadBalance[1] [2]",
        "refers to chain 1; which is to be read in 0.5 s; which has no FEC: tunnel 5 has no "
        "hardware tunnel id" },
      { "set " + broadcast + "[mpls(,100,5)]\nadvance 1",
        "refers to chain 1; waiting for hardware's answer for FEC 936748722493063168" },
      { "set switch.fault[createMacEntry].nextCalls 1\nadvance 4",
        "refers to chain 1; published with FEC 936748722493063168 of chain 1, hardware id "
        "8589934593 on LoadBalance0; not in hardware, which tries again by itself; hardware "
        "refused once (notProgrammed as planned) just now" },
      { "advance 10\nexpect switch.macEntry count 1",
        "refers to chain 1; published with FEC 936748722493063168 of chain 1, hardware id "
        "8589934593 on LoadBalance0; in hardware" } } },
};

class ExplainTest : public testing::TestWithParam< Story > {};

TEST_P( ExplainTest, EveryStageIsToldAsItIs ) {
  Vex::Clock::virtualIs( 0 );
  auto wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell( wiring, out, out );
  Vex::TextCursor in( GetParam().subject );
  const auto subject = Kez::parseSubject( in );
  EXPECT_EQ( Kez::text( subject ), GetParam().subject );
  const auto & root = *wiring.roots.root( GetParam().machine );
  const auto & machine = dynamic_cast< const Kez::StateMachine & >( *root.entity );
  for ( const auto & stage : GetParam().stages ) {
    std::istringstream lines( stage.lines );
    for ( std::string line; std::getline( lines, line ); ) {
      shell.execute( line, line );
    }
    Kez::Explanation explanation;
    machine.explain( subject, explanation );
    EXPECT_EQ( explanation.text(), stage.words ) << "after\n" << stage.lines;
    // What is missing is found from the other end, the collections of what waits.
    Kez::Missing missing( Kez::SubjectPattern{ subject.word(), subject.keyText() } );
    machine.addMissing( missing );
    if ( explanation.standing() == Kez::Standing::settled ) {
      EXPECT_EQ( missing.groups().size(), 0u ) << "after\n" << stage.lines;
    } else if ( explanation.standing() == Kez::Standing::refused ) {
      EXPECT_NE( missing.groups().size(), 0u ) << "after\n" << stage.lines;
    }
  }
  EXPECT_EQ( shell.failures(), 0u ) << out.str();
}

// The record of tunnel 5 in the file of the mapping is damaged after it was written.
TEST( ExplainDamageTest, DamageIsSaidAndNothingIsDoneAboutIt ) {
  Vex::Clock::virtualIs( 0 );
  const RookTest::MountDirectory directory;
  auto wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell( wiring, out, out );
  const auto execute = [ & ]( const std::string & line ) {
    out.str( "" );
    shell.execute( line, line );
    return out.str();
  };
  execute( "set " + broadcast + "[mpls(,100,5)]" );
  execute( "set " + segment + ".designatedForwarderTep[10] DynamicTunnel0.5" );
  execute( "set " + segment + ".remoteEsiLabel[DynamicTunnel0.5] 2:100" );
  const auto mapping = Vex::dynamicCast< Kez::TunnelIdToHwTunnelIdMapping >(
      wiring.roots.root( "tunnelIdHwTunnelId" )->entity );
  RookTest::poke( directory.path( "tunnelIdHwTunnelId/tunnelIdToHwTunnelId" ),
                  RookTest::recordOffset + 8, 7 );
  size_t handled = 0;
  mapping->tunnelIdToHwTunnelIdTable().corruptionHandlerIs(
      [ & ]( const Rook::Corruption & ) { ++handled; } );
  execute( "trace Kez*/0-9" );
  for ( const std::string subject : { "tunnel 5", "path 5,100,0", "pair Port-Channel1,10" } ) {
    const auto told = execute( "explain " + subject );
    EXPECT_NE( told.find( "slot 0 is damaged" ), std::string::npos ) << told;
    EXPECT_EQ( told.find( "gave its hardware tunnel id up" ), std::string::npos ) << told;
    EXPECT_EQ( told.find( "] " ), std::string::npos ) << "traced: " << told;
  }
  execute( "trace off" );
  EXPECT_EQ( handled, 0u );
}

// What the command answers after lines.
std::string asked( const std::string & lines, const std::string & question ) {
  Vex::Clock::virtualIs( 0 );
  auto wiring = Agent::wire();
  std::ostringstream out;
  Agent::Shell shell( wiring, out, out );
  std::istringstream in( lines );
  for ( std::string line; std::getline( in, line ); ) {
    shell.execute( line, line );
  }
  EXPECT_EQ( shell.failures(), 0u ) << out.str();
  out.str( "" );
  shell.execute( question, question );
  return out.str();
}

const std::string member10 = "set vlanStatusDir.vlanStatus[10].vlanPortStatus[";
const std::string twoPortsOfOne = "set switch.capacity[dot1qMapping] 2\n"
                                  "set evpnStatus.vlanToDot1q[10] 110\n" +
                                  member10 + "Ethernet1] forwarding\n" + member10 +
                                  "Ethernet2] forwarding\n" + member10 +
                                  "Ethernet3] forwarding\nadvance 2\n";

TEST( ExplainMissingTest, NothingIsMissingWhileNothingIsAskedForOrAllIsThere ) {
  const std::string nothing = "no machine lacks anything in hardware\n";
  EXPECT_EQ( asked( "", "explain" ), nothing );
  EXPECT_EQ( asked( member10 + "Ethernet1] forwarding\nset evpnStatus.vlanToDot1q[10] 110\nset " +
                        broadcast + "[mpls(,100,5)]\nadvance 2",
                    "explain" ),
             nothing );
}

// Of all machines, the longest wait first, what nobody knows the beginning of last.
TEST( ExplainMissingTest, IsGroupedAndCountedTheLongestWaitFirst ) {
  const auto lines = "set switch.capacity[fec] 0\nset " + broadcast +
                     "[mpls(,100,5)]\nadvance 4\nset evpnStatus.vlanToDot1q[10] 110\n"
                     "set switch.capacity[dot1qMapping] 1\n" +
                     member10 + "Ethernet1] forwarding\n" + member10 + "Ethernet2] forwarding\n" +
                     member10 + "Ethernet3] forwarding\nadvance 3\n" + member10 +
                     "Ethernet4] forwarding";
  EXPECT_EQ(
      asked( lines, "explain" ),
      "  7.0 s ago  evpnFloodSetFecSm    1 path without a FEC, refused by hardware (no room): "
      "5,100,0\n"
      "  2.0 s ago  evpnFloodingDot1qSm  2 pairs refused by hardware (no room), next try in 3.0 s: "
      "Ethernet2,10, Ethernet3,10\n"
      "             evpnFloodingDot1qSm  1 pair of which changes are being collected, next look in "
      "1.0 s: Ethernet4,10\n"
      "             evpnVlanFloodSetSm   1 destination waiting for the hardware id of the path: "
      "10,ff:ff:ff:ff:ff:ff,mpls(,100,5)\n" );
  EXPECT_EQ( asked( lines, "explain interface Ethernet?" ),
             "  2.0 s ago  evpnFloodingDot1qSm  2 pairs refused by hardware (no room), next try in "
             "3.0 s: Ethernet2,10, Ethernet3,10\n"
             "             evpnFloodingDot1qSm  1 pair of which changes are being collected, next "
             "look in 1.0 s: Ethernet4,10\n" );
  EXPECT_EQ( asked( lines, "explain pair *3,10" ),
             "  2.0 s ago  evpnFloodingDot1qSm  1 pair refused by hardware (no room), next try in "
             "3.0 s: Ethernet3,10\n" );
  EXPECT_EQ( asked( lines, "explain pair Ethernet1,*" ),
             "no machine lacks anything in hardware of pair Ethernet1,*\n" );
  EXPECT_EQ( asked( lines, "explain interface Eth3*" ),
             "no input knows interface Eth3*; nearest is Ethernet1, Ethernet2, Ethernet3, "
             "Ethernet4\n" );
}

// However many there are.
TEST( ExplainMissingTest, StaysShort ) {
  std::string lines = "set switch.capacity[dot1qMapping] 0\nset evpnStatus.vlanToDot1q[10] 110\n";
  for ( int port = 1; port <= 1001; ++port ) {
    lines += member10 + "Ethernet" + std::to_string( port ) + "] forwarding\n";
  }
  const auto told = asked( lines + "advance 2", "explain" );
  EXPECT_NE( told.find( "1001 pairs refused" ), std::string::npos ) << told;
  EXPECT_NE( told.find( "Ethernet8,10 and 993 more\n" ), std::string::npos ) << told;
  const auto ofVlan =
      asked( lines + "set switch.capacity[dot1qMapping] 1000\nadvance 2", "explain vlan 10" );
  EXPECT_NE( ofVlan.find( "mapped on 1000 of 1001 ports; not on Ethernet1001, refused once (no "
                          "room)" ),
             std::string::npos )
      << ofVlan;
}

// The reasons of each machine that has inputs, answers or ids to wait for.
TEST( ExplainMissingTest, EachMachineSaysWhatItWaitsFor ) {
  const std::vector< std::pair< std::string, std::string > > cases{
    { "set switch.fault[createVlan].nextCalls 9\nset evpnStatus.vlanToDot1q[10] 110\n" + member10 +
          "Ethernet1] forwarding\nadvance 2",
      "  2.0 s ago  evpnFloodingDot1qSm  1 vlan refused by hardware (notProgrammed as planned), "
      "next "
      "try in 3.0 s: 10\n"
      "  2.0 s ago  evpnFloodingDot1qSm  1 pair waiting for VLAN 10 to be created in hardware, "
      "next "
      "look in 3.0 s: Ethernet1,10\n" },
    { "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Port-Channel1]",
      "    kezEvpnFloodFilterSm  1 pair waiting for member ports of Port-Channel1: "
      "Port-Channel1,10\n" },
    { "set evpnStatus.localEsiLabel[Ethernet1] 2:50\n"
      "set evpnStatus.ethernetSegmentStatus[Ethernet1].designatedForwarderTep[10] "
      "DynamicTunnel0.1\n"
      "set evpnStatus.ethernetSegmentStatus[Ethernet1].designatedForwarderTep[11] DynamicTunnel0.1",
      "    evpnFloodingEsiSm  2 pairs waiting for the remote ESI label of TEP DynamicTunnel0.1: "
      "Ethernet1,10, Ethernet1,11\n" },
    { "set evpnStatus.ethernetSegmentStatus[Ethernet1].designatedForwarderTep[10] "
      "DynamicTunnel0.1\n"
      "set evpnStatus.ethernetSegmentStatus[Ethernet1].remoteEsiLabel[DynamicTunnel0.1] 2:100",
      "    evpnFloodingEsiSm  1 pair waiting for the local ESI label of Ethernet1: Ethernet1,10\n" },
    { "set switch.capacity[hwTunnelIdTypeDefault] 0\nset " + broadcast + "[mpls(,100,5)]",
      "  just now  evpnHwTunnelIdSm    1 tunnel without a hardware tunnel id, none was free (no "
      "room): 5\n"
      "            evpnVlanFloodSetSm  1 destination programmed without a hardware tunnel id, "
      "which "
      "tunnel 5 lacks: 10,ff:ff:ff:ff:ff:ff,mpls(,100,5)\n" },
    { "set switch.fault[createFloodSetDest].nextCalls 1\nset " + broadcast + "[mpls(,100,5)]",
      "  just now  evpnVlanFloodSetSm  1 destination refused by hardware (notProgrammed as "
      "planned): 10,ff:ff:ff:ff:ff:ff,mpls(,100,5)\n" },
    { "set switchFloodSets.answerDelay 2\nset " + broadcast + "[mpls(,100,5)]\nadvance 2",
      "    evpnVlanFloodSetSm  1 destination waiting for hardware's answer: "
      "10,ff:ff:ff:ff:ff:ff,mpls(,100,5)\n" },
    { "set lfibStatus.route[100] 100,1\nset lfibStatus.viaSet[1] "
      "1,evpnEthernetSegmentFilter:1\nset " +
          via1 + "set switch.capacity[esiPortMap] 0\nset lfibTrackingStatus.routeKeyBacklog[100]",
      "  just now  esiFilteringDecapSm  1 route refused by hardware (no room), next try in 5.0 s: "
      "100\n" },
    { "set switch.capacity[macEntry] 0\nset hostOutput.dest[1] mpls(,200,5)\nset " + broadcast +
          "[mpls(,100,5)]\nset hostOutput.host[00:00:00:00:00:01,10] 1\n"
          "set hostOutput.host[00:00:00:00:00:02,10] 2\nadvance 2",
      "  1.5 s ago  kezMacAddrFecRequestSm  1 mac refused by hardware (no room): "
      "10,00:00:00:00:00:01\n"
      "             kezMacAddrFecRequestSm  1 host on a chain that has no FEC: object 2 is "
      "missing\n" },
  };
  for ( const auto & [ lines, words ] : cases ) {
    EXPECT_EQ( asked( lines, "explain" ), words ) << lines;
  }
}

// A FEC without room is not one that hardware has yet to answer.
TEST( ExplainRefusalTest, SaysWhyAndSinceWhen ) {
  const auto lines = "set switch.capacity[fec] 0\nset " + broadcast + "[mpls(,100,5)]\nadvance 6";
  EXPECT_EQ( asked( lines, "explain path 5,100,0" ),
             "  evpnFloodSetFecSm   used by 1 flood-set destination; hardware refused twice (no "
             "room), first 6.0 s ago, last 1.0 s ago, FEC 792633534417207296, which it tries by "
             "itself\n"
             "  evpnVlanFloodSetSm  1 flood-set destination waiting for the hardware id of the "
             "path, none published\n" );
  // It is forgotten with what was refused.
  EXPECT_EQ( asked( lines + "\nset switch.capacity[fec] 1\nadvance 5\nexpect no "
                            "mplsFloodSetFecResponse.refusal",
                    "explain" ),
             "no machine lacks anything in hardware\n" );
  EXPECT_EQ( asked( lines + "\ndel " + broadcast + "\nexpect no mplsFloodSetFecResponse.refusal",
                    "explain" ),
             "no machine lacks anything in hardware\n" );
}

// Refused after it had been accepted.
TEST( ExplainRefusalTest, ALateRefusalIsOneToo ) {
  const auto told = asked( "set switchAnswers.answerDelay 1\n"
                           "set switch.fault[createNonDfPort].nextCalls 1\n"
                           "set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet1]\n"
                           "advance 2",
                           "explain" );
  EXPECT_EQ( told, "  1.0 s ago  kezEvpnFloodFilterSm  1 pair refused by hardware (found missing "
                   "after it was accepted), next try in 4.0 s: Ethernet1,10\n" );
}

TEST( ExplainCommandTest, APortIsAnsweredForItsLag ) {
  const auto lines = "set " + lag +
                     "[Ethernet1] portProgRxTx\nset evpnStatus.vlanToDot1q[10] 110\n" + member10 +
                     "Port-Channel1] forwarding\nadvance 2";
  EXPECT_EQ( asked( lines, "explain pair Ethernet1,10" ),
             "Ethernet1 is a port of Port-Channel1: pair Port-Channel1,10\n"
             "  kezEvpnVlanMembershipSm  an EVPN member; operational in the VLAN\n"
             "  evpnFloodingDot1qSm      tag 110; programmed on Ethernet1\n"
             "  kezEvpnFloodFilterSm     not in the flood filter of VLAN 10\n"
             "  evpnFloodingEsiSm        Port-Channel1 is no Ethernet segment, no status of it "
             "published\n" );
  EXPECT_EQ( asked( lines, "explain interface Ethernet1" ),
             "Ethernet1 is a port of Port-Channel1: interface Port-Channel1\n"
             "  evpnLagSm                has the ports Ethernet1\n"
             "  kezEvpnVlanMembershipSm  an EVPN member of 1 VLAN: 10\n"
             "  evpnFloodingDot1qSm      mapped on 1 of 1 port\n" );
  EXPECT_EQ( asked( lines, "explain lag Port-Channel1" ),
             asked( lines, "explain interface Port-Channel1" ) );
}

TEST( ExplainCommandTest, WhatNoInputKnowsIsSaidToBeUnknown ) {
  EXPECT_EQ( asked( twoPortsOfOne, "explain pair ethernet1,10" ),
             "no input knows interface ethernet1; nearest is Ethernet1, Ethernet2, Ethernet3\n" );
  EXPECT_EQ( asked( twoPortsOfOne, "explain vlan 11" ), "no input knows VLAN 11; nearest is 10\n" );
  EXPECT_EQ( asked( twoPortsOfOne, "explain mac 10,00:00:00:00:00:09" ),
             "no input knows mac 10,00:00:00:00:00:09\n" );
  EXPECT_EQ( asked( twoPortsOfOne, "explain tunnel 9" ), "no machine has to do with tunnel 9\n" );
  // Machines are asked all the same while hardware has something of it.
  const auto left =
      asked( twoPortsOfOne + "del vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet2]",
             "explain pair Ethernet2,10" );
  EXPECT_NE( left.find( "no input knows interface Ethernet2" ), std::string::npos ) << left;
  EXPECT_NE( left.find( "programmed on Ethernet2; changes are being collected" ),
             std::string::npos )
      << left;
}

TEST( ExplainSubjectTest, ReadsWhatIsAskedOfAndRefusesTheRest ) {
  const auto read = []( std::string_view text ) {
    Vex::TextCursor in( text );
    return Kez::text( Kez::parseSubject( in ) );
  };
  EXPECT_EQ( read( "path 5,100,10" ), "path 5,100,0" ); // the same for every VLAN
  EXPECT_EQ( read( "path 246290604621830,100,10" ), "path 246290604621830,100,10" );
  EXPECT_EQ( read( "lag Port-Channel1" ), "interface Port-Channel1" );
  EXPECT_EQ( read( "segment Port-Channel1" ), "segment Port-Channel1" );
  const auto * dest = "destination 10,ff:ff:ff:ff:ff:ff,mpls(,100,5)";
  EXPECT_EQ( read( dest ), dest );
  for ( const auto * bad : { "", "interface", "segment ", "pear Ethernet1,10", "pair ,10",
                             "pair Ethernet1,4095", "vlan" } ) {
    EXPECT_THROW( read( bad ), Vex::ParseError ) << bad;
  }
}

INSTANTIATE_TEST_SUITE_P( Stories, ExplainTest, testing::ValuesIn( stories ) );

} // namespace
