#!/usr/bin/env bash
# The agent is killed and started again while kez-inspect follows the tunnels' table: the follower
# sees each change, what the new agent clears and publishes included, and never has to reattach.
#
#   agent-restart.sh KEZ-AGENT KEZ-INSPECT KIB
. "$( dirname "$0" )/agent-lives.sh" agent-restart "$@"

start() {
  rm -f "$dir/lines"
  mkfifo "$dir/lines"
  ( run_agent shell ) <"$dir/lines" >/dev/null &
  pid=$!
  exec 3>"$dir/lines"
}

destination='floodSetOutput.vlanFloodSet[10].floodSet[ff:ff:ff:ff:ff:ff].destSet'

start
echo "set $destination[mpls(,100,5)]" >&3
for _ in $( seq 600 ); do
  [ -e "$table" ] && break
  sleep 0.05
done
"$inspect" table "$table" --follow >"$dir/followed" &
expect "$dir/followed" 1 "'key': 5, 'hwTunnelId': 0:1"
echo "set $destination[mpls(,100,6)]" >&3
expect "$dir/followed" 1 "'key': 6, 'hwTunnelId': 0:2"

kill -9 "$pid"
wait "$pid" 2>/dev/null || true
exec 3>&-
"$inspect" table "$table" | grep -q "'key': 5, 'hwTunnelId': 0:1" || fail 'the records outlive the agent'

start
echo "set $destination[mpls(,100,7)]" >&3
expect "$dir/followed" 1 "'key': 7, 'hwTunnelId': 0:1"
"$inspect" table "$table" 7 | grep -q "'key': 7, 'hwTunnelId': 0:1" || fail 'the table has the new record'
if "$inspect" table "$table" | grep -q "'key': 5, 'hwTunnelId': 0:1"; then
  fail 'a new agent begins with an empty mapping'
fi
cat "$dir/followed"
