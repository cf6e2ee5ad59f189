# Another switch comes to be the designated forwarder of a segment, by preference.
#
# While the earlier one has not heard, inputs say that both forward, and a flood arrives twice; while
# the later one has not, they say that none does, and it is lost. The machines add nothing to either.

topology pairs.topology
rest
expect flood c by leaf3 at four 1 of 1

# leaf2 lags, then leaf1.
delay leaf2 evpnStatus.evpnVlanFloodStatus
prefer four leaf1 500
pass 2
expect flood c by leaf3 at four 2 of 2
rest
expect flood c by leaf3 at four 1 of 1
delay leaf2 evpnStatus.evpnVlanFloodStatus
prefer four leaf1 100
pass 2
expect flood c by leaf3 at four 0 of 0
rest
expect flood c by leaf3 at four 1 of 1
