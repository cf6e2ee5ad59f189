#!/usr/bin/env bash
# An agent serves while clients attach: lines are answered and end with their status, whoever may
# only look changes nothing, and the agent ends in order, with a record that replays.
#
#   agent-attached.sh KEZ-AGENT
set -euo pipefail

agent=$1
dir=$( mktemp -d )
pid=
trap 'kill -9 $( jobs -p ) 2>/dev/null || true; rm -rf "$dir"' EXIT
fail() {
  echo "agent-attached: not so: $1" >&2
  exit 1
}
serve() {
  "$agent" serve --socket "$dir/control" --read-only-socket "$dir/look" "$@" >>"$dir/served" 2>&1 &
  pid=$!
  for _ in $( seq 600 ); do
    ! "$agent" attach --socket "$dir/control" '# anybody there?' 2>"$dir/err" || return 0
    sleep 0.05
  done
  fail "an agent serves: $( cat "$dir/err" "$dir/served" )"
}
# What attaching by a name with these lines ends with and says, errors last.
attached() {
  local socket=$1 status=$2 said=$3 ended=0
  shift 3
  "$agent" attach --socket "$dir/$socket" "$@" >"$dir/out" 2>"$dir/err" </dev/null || ended=$?
  [ "$ended" -eq "$status" ] || fail "$* ends with $status, not $ended: $( cat "$dir/err" )"
  [ "$( cat "$dir/out" "$dir/err" )" = "$said" ] || fail "$* says $( cat "$dir/out" "$dir/err" )"
}

echo 'set switch.capacity[vlan] 7' >"$dir/start.kez"
serve --record "$dir/record" --report "$dir/page" "$dir/start.kez"
[ "$( stat -c %a "$dir/control" "$dir/look" | xargs )" = '600 660' ] || fail 'the sockets have their modes'
attached look 0 'switch.capacity[vlan] = 7' 'show switch.capacity[vlan]'
attached control 0 '' 'set evpnStatus.vlanToDot1q[10] 110' 'expect switch.vlan[10] 110'
attached control 1 'line 1: expectation failed: switch.vlan
  expected  count 2
  found     count 1' 'expect switch.vlan count 2' 'expect switch.vlan count 1'
attached control 2 "switch.vlan[11]: none
line 2:1: expected a command that does not wait; advance is for the lines that the host starts with" \
  'show switch.vlan[11]' 'advance 1' 'set evpnStatus.vlanToDot1q[10] 120'
attached look 2 'line 1:1: expected a command that changes nothing, since this session is read-only; set may change something' \
  'set evpnStatus.vlanToDot1q[10] 120'
[ "$( "$agent" attach --socket "$dir/look" --json 'show switch.vlan[10]' | head -n 1 )" = \
  '{"path":"switch.vlan[10]","key":10,"value":110}' ] || fail 'answers are in JSON where that is wanted'
"$agent" serve --socket "$dir/control" 2>"$dir/err" && fail 'a name has one agent'
grep -q 'another process serves it' "$dir/err" || fail "a second agent says why: $( cat "$dir/err" )"

# Hardware follows where it lags behind by rule, also after a restart; lines come by a pipe too.
printf 'restart hitless\nexpect evpnFloodingEsiSm.reprogramChangedEsi true\nexpect switch.vlan[10] 110\n' |
  "$agent" attach "--socket=$dir/control" || fail 'an agent starts anew while it serves'

kill -TERM "$pid"
wait "$pid" || fail "SIGTERM ends an agent in order: $? $( cat "$dir/served" )"
[ ! -e "$dir/control" ] && [ ! -e "$dir/look" ] || fail 'the names go with the agent'
grep -q '</html>' "$dir/page" || fail 'the report is written'
"$agent" replay "$dir/record" >"$dir/out" 2>&1 || [ "$?" -eq 1 ] || fail 'the record is played'
grep -q 'replayed as recorded' "$dir/out" || fail "the record replays: $( cat "$dir/out" )"

serve
kill -9 "$pid"
wait "$pid" 2>/dev/null || true
[ -e "$dir/control" ] || fail 'a name outlives an agent that is killed'

# A service manager hears how it goes.
python3 -c 'import socket, sys
heard = socket.socket( socket.AF_UNIX, socket.SOCK_DGRAM )
heard.bind( sys.argv[ 1 ] )
told = ""
while told != "STOPPING=1":
  told = heard.recv( 100 ).decode()
  print( told, flush=True )' "$dir/manager" >"$dir/heard" &
manager=$!
until [ -S "$dir/manager" ]; do sleep 0.05; done
NOTIFY_SOCKET=$dir/manager WATCHDOG_USEC=2000 serve
until grep -q WATCHDOG "$dir/heard"; do sleep 0.05; done
kill -INT "$pid"
wait "$pid" || fail 'SIGINT ends an agent in order'
wait "$manager"
[ "$( uniq "$dir/heard" | xargs )" = 'READY=1 WATCHDOG=1 STOPPING=1' ] || fail "it heard $( uniq "$dir/heard" )"
