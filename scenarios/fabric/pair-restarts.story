# Both switches of a pair are restarted, one after the other: first without an outage, which loses and
# doubles nothing at all, then over switches that are empty.

topology pairs.topology
rest
restart leaf1 hitless
pass 0.1
restart leaf2 hitless
pass 10
rest

# Mappings come a second after the agent.
restart leaf1
expect flood c by leaf3 at west 0 of 1
pass 2
expect flood c by leaf3 at west 1 of 1
restart leaf2
pass 2
rest
expect flood c by leaf3 at west 1 of 1
