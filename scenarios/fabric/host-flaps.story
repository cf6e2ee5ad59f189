# A host flaps between two homes, faster than the switches hear of it. Its frames arrive once or are
# lost; in the end its last place is the one that all know.

topology pairs.topology
rest
expect frame g by leaf4 to a 1

move a east
pass 0.05
move a west
pass 0.05
move a east
pass 0.3
move a west
pass 0.1
move a east
rest
expect frame g by leaf4 to a 1
expect frame e by leaf1 to a 1
move a west
rest
expect frame c by leaf4 to a 1
