# The designated forwarder of a segment is lost. Until the switch that takes its place knows, floods
# to the segment are lost, as the inputs have it, and frames to hosts behind it are not: of them the
# lost switch's share is, until the others know.

topology pairs.topology
rest
expect flood c by leaf3 at west 1 of 1

delay leaf2 evpnStatus.evpnVlanFloodStatus
fail switch leaf1
pass 2
expect flood c by leaf3 at west 0 of 0
expect frame c by leaf3 to a 1
rest
expect flood c by leaf3 at west 1 of 1
return switch leaf1
rest
expect flood c by leaf3 at west 1 of 1
