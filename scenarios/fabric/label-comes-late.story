# A designated forwarder returns, and the other switch of the segment hears of its ESI label late.
#
# Until then the forwarder cannot know that a flood is from the segment, and sends it back there. It
# does once, and not once the label is there.

topology pair.topology
rest
expect flood server by leaf2 at rack 0 of 0

fail link leaf1 Port-Channel1
rest
delay leaf2 evpnStatus.ethernetSegmentStatus[Port-Channel1].remoteEsiLabel
return link leaf1 Port-Channel1
pass 3
expect flood server by leaf2 at rack 1 of 1
expect flood server by leaf1 at rack 0 of 0
rest
expect flood server by leaf2 at rack 0 of 0
expect flood server by leaf2 at desk 1 of 1
