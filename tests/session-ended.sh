#!/usr/bin/env bash
# A session that a signal ends while it waits for a line, or for time, has written its report and its
# record; an older report stands until then. One that is killed leaves the older one too.
#
#   session-ended.sh KEZ-AGENT
set -euo pipefail

agent=$1
dir=$( mktemp -d )
trap 'kill -9 $( jobs -p ) 2>/dev/null || true; rm -rf "$dir"' EXIT
fail() {
  echo "session-ended: not so: $1: $( cat "$dir/said" )" >&2
  exit 1
}
mkfifo "$dir/lines"

# ended SIGNAL STATUS LAST-LINE COMMAND...: the command, over lines of which the last takes long or does not
# come, gets the signal when the first has been executed.
ended() {
  local signal=$1 status=$2 last=$3 ended=0
  shift 3
  rm -f "$dir/record" "$dir/said"
  echo old >"$dir/page"
  # Shells have what runs in the background ignore SIGINT.
  env --default-signal=INT "$agent" "$@" --echo --record "$dir/record" --report "$dir/page" \
    <"$dir/lines" >"$dir/said" 2>&1 &
  local pid=$!
  exec 3>"$dir/lines"
  printf 'set evpnStatus.vlanToDot1q[10] 110\n%s' "$last" >&3
  until [ -e "$dir/record" ] && grep -aq '^set evpn' "$dir/record"; do
    kill -0 "$pid" || fail 'a session goes on'
    sleep 0.05
  done
  sleep 0.3
  [ "$( cat "$dir/page" )" = old ] || fail 'an older report stands meanwhile'
  kill "-$signal" "$pid"
  wait "$pid" 2>/dev/null || ended=$?
  exec 3>&-
  [ "$ended" = "$status" ] || fail "$signal ends $* with $status, not $ended"
}
for signal in INT=130 TERM=143; do
  for command in 'run -' shell 'run - --clock steady' 'shell --clock steady'; do
    last=
    [[ $command != *steady ]] || last=$'advance 60\n'
    # shellcheck disable=SC2086
    ended "${signal%=*}" "${signal#*=}" "$last" $command
    grep -q '</html>' "$dir/page" && grep -q 'ended by a signal' "$dir/page" || fail 'the report is written'
    [ -z "$( tail -c 1 "$dir/record" | tr -d '\n' )" ] && [ -n "$( tail -n 1 "$dir/record" )" ] ||
      fail 'the record ends with its last line'
    "$agent" replay "$dir/record" >"$dir/said" 2>&1 || fail "what $command recorded is played again"
  done
done
ended KILL 137 '' run -
[ "$( cat "$dir/page" )" = old ] || fail 'an older report outlives a session that is killed'
[ "$( ls "$dir" | xargs )" = 'lines page record said' ] || fail "nothing else is left: $( ls "$dir" )"
