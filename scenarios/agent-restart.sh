#!/usr/bin/env bash
# The agent is killed and started again while kez-inspect follows the tunnels' table: the follower
# sees each change, what the new agent clears and publishes included, and never has to reattach.
# The agent has so many KiB of addresses, or unlimited ones.
#
#   agent-restart.sh KEZ-AGENT KEZ-INSPECT KIB
set -euo pipefail

agent=$1
inspect=$2
addresses=$3
dir=$( mktemp -d )
trap 'kill -9 $( jobs -p ) 2>/dev/null || true; rm -rf "$dir"' EXIT

fail() {
  echo "agent-restart: $1" >&2
  cat "$dir/followed" >&2
  exit 1
}

# Waits until the file has so many lines that match.
expect() {
  for _ in $( seq 600 ); do
    if [ -e "$1" ] && [ "$( grep -c -- "$3" "$1" )" -ge "$2" ]; then
      return
    fi
    sleep 0.05
  done
  fail "expected $2 lines like '$3'"
}

start() {
  rm -f "$dir/lines"
  mkfifo "$dir/lines"
  ( ulimit -v "$addresses" && exec "$agent" shell --tables "$dir/tables" ) <"$dir/lines" >/dev/null &
  pid=$!
  exec 3>"$dir/lines"
}

destination='floodSetOutput.vlanFloodSet[10].floodSet[ff:ff:ff:ff:ff:ff].destSet'
table=$dir/tables/tunnelIdHwTunnelId/tunnelIdToHwTunnelId
mkdir "$dir/tables"

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
