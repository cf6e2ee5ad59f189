#!/usr/bin/env bash
# An agent is killed so many times, at any moment, over a switch that goes on with what it has. The
# agents have one of two sets of inputs, so that most are killed while they program. One that is
# left alone brings the switch to what its inputs say, whatever was killed before, and the next one
# on the same inputs changes nothing. The readers of the tunnels' table find the tunnel that stays
# all the while.
#
#   agent-killed.sh KEZ-AGENT KEZ-INSPECT KIB KILLS
here=$( dirname "$0" )
. "$here/agent-lives.sh" agent-killed "$@"
kills=$4

run() {
  run_agent run --journal "$dir/journal" "$@"
}

# A life on the inputs of the story of the hitless restart, with ESI data beside them, and on the
# given tag of VLAN 10 and tunnels.
inputs() {
  sed "/^advance/,\$d; s/^\(set evpnStatus.vlanToDot1q\[10\]\) .*/\1 $1/" "$here/hitless-restart.kez"
  echo "set evpnStatus.localEsiLabel[Ethernet1] 2:50"
  echo "set evpnStatus.ethernetSegmentStatus[Ethernet1].designatedForwarderTep[10] DynamicTunnel0.1"
  echo "set evpnStatus.ethernetSegmentStatus[Ethernet1].remoteEsiLabel[DynamicTunnel0.1] 2:100"
  for tunnel in $( seq "$2" "$3" ); do
    echo "set evpnStatus.vlanToDot1q[$tunnel] $tunnel"
    echo "set floodSetOutput.vlanFloodSet[$tunnel].floodSet[ff:ff:ff:ff:ff:ff].destSet[mpls(,100,$tunnel)]"
    echo "set evpnStatus.evpnVlanFloodStatus[$tunnel].floodFilter[swp$tunnel]"
  done
  echo "inputs complete"
  echo "advance 2"
}
# What the switch has of them then.
complete() {
  cat <<END
check
expect no switch.refusalCount
expect switch.vlan count 31
expect switch.dot1qMapping[Port-Channel1,Ethernet1,10] $1
expect switch.nonDfPort count 31
expect switch.esiData count 1
expect switch.esiPortMap[Ethernet1] 500
expect switch.fec count 32
expect switch.floodSetDest count 31
expect switch.macEntry count 1
expect tunnelIdHwTunnelId.tunnelIdToHwTunnelId[5]
END
}
inputs 110 101 130 >"$dir/first"
complete 110 >"$dir/first.complete"
inputs 111 121 150 >"$dir/second"
complete 111 >"$dir/second.complete"
printf 'show switch.callCount\nexpect no switch.callCount\n' >"$dir/unchanged"

# Lives that nobody ends.
converges() {
  ( run "$dir/$1" "$dir/$1.complete" ) >"$dir/followed" 2>&1 || fail "the $1 inputs are programmed"
  ( run "$dir/$1" "$dir/$1.complete" "$dir/unchanged" ) >"$dir/followed" 2>&1 ||
    fail "what is programmed stays"
}
# One that is killed at a moment of the time that a whole one takes.
killed() {
  ( run "$dir/$1" ) >/dev/null 2>&1 &
  local pid=$!
  sleep "$( printf '0.%06d' $(( ( RANDOM << 15 | RANDOM ) % span )) )"
  kill -9 "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
}

touch "$dir/followed"
begin=$( date +%s%N )
( run "$dir/first" ) >/dev/null
span=$(( ( $( date +%s%N ) - begin ) / 1000 ))

# From nothing on.
for _ in 1 2 3; do
  rm -rf "$dir/journal" "$dir/tables/"*
  killed first
  converges first
done

"$inspect" table "$table" 5 --follow >"$dir/changes" &
follower=$!
while [ ! -e "$dir/over" ]; do
  "$inspect" table "$table" 5 >/dev/null 2>&1 && echo found || echo missed
done >"$dir/lookups" &
reader=$!
expect "$dir/lookups" 1 .

for at in $( seq "$kills" ); do
  killed "$( (( RANDOM % 2 )) && echo first || echo second )"
  if (( at % 20 == 0 || at == kills )); then
    converges first
    converges second
  fi
done
touch "$dir/over"
wait "$reader"
kill "$follower" 2>/dev/null || fail 'a reader stays attached'
wait "$follower" 2>/dev/null || true
expect "$dir/lookups" 1 found
! grep -q missed "$dir/lookups" || fail 'a tunnel that stays is found'
[ "$( sort -u "$dir/changes" | wc -l )" = 1 ] || fail 'a tunnel that stays keeps its id'
echo "$kills kills, $( grep -c found "$dir/lookups" ) look-ups"
