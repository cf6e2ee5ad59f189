#!/usr/bin/env bash
# What metrics prints is OpenMetrics and what an agent that serves leaves in its file is what
# collectors of files read, by the word of promtool; the file is whole whenever it is read, has its
# mode, and its directory may go and come.
#
#   metrics-by-promtool.sh KEZ-AGENT SCENARIOS
set -euo pipefail

agent=$1
scenarios=$2
promtool=$( command -v promtool || true )
if [ -z "$promtool" ]; then
  echo "metrics-by-promtool: skipped, there is no promtool"
  exit 77
fi
dir=$( mktemp -d )
trap 'kill -9 $( jobs -p ) 2>/dev/null || true; rm -rf "$dir"' EXIT
fail() {
  echo "metrics-by-promtool: not so: $1" >&2
  exit 1
}

# It reads OpenMetrics where samples have a time, so they are given one. Blanks stand in no label here.
checkOpen() {
  sed '/^#/!s/$/ 1700000000/' "$1" >"$dir/timed"
  "$promtool" tsdb create-blocks-from openmetrics "$dir/timed" "$dir/blocks" >"$dir/said" 2>&1 ||
    fail "$2 is OpenMetrics: $( cat "$dir/said" )"
  rm -rf "$dir/blocks"
}
for story in "$scenarios"/*.kez; do
  echo metrics | "$agent" run "$story" - | sed -n '/^# TYPE/,/^# EOF/p' >"$dir/open"
  [ "$( tail -n 1 "$dir/open" )" = '# EOF' ] && [ "$( wc -l <"$dir/open" )" -gt 300 ] ||
    fail "figures are printed after $story"
  checkOpen "$dir/open" "$story"
done
printf '# TYPE a counter\na_total 1\nb_total{c="d} 1\n# EOF\n' >"$dir/open"
( checkOpen "$dir/open" 'a spoilt text' ) 2>/dev/null && fail 'promtool refuses what is wrong'

mkdir "$dir/files"
file=$dir/files/kez.prom
umask 077
sed '/^advance/,$d' "$scenarios/hardware-full.kez" >"$dir/lines" # on the steady clock that would take its time
"$agent" serve --socket "$dir/control" --metrics "$file" --metrics-interval 0.02 \
  "$dir/lines" >"$dir/served" 2>&1 &
pid=$!
until [ -e "$file" ]; do
  kill -0 "$pid" || fail "an agent serves: $( cat "$dir/served" )"
  sleep 0.05
done
[ "$( stat -c %a "$file" )" = 644 ] || fail "the file may be read: $( stat -c %a "$file" )"
for _ in $( seq 100 ); do
  cat "$file" >"$dir/read"
  [[ $( tail -n 1 "$dir/read" ) = kez_process_start_time_seconds\ * ]] || fail 'the file is read whole'
done
"$promtool" check metrics <"$dir/read" >"$dir/said" 2>&1 || fail "the file is in order: $( cat "$dir/said" )"
grep -q '^# TYPE kez_hardware_calls_total counter$' "$dir/read" || fail 'counters are counters'

# What is not the agent's own it leaves alone.
inode=$( stat -c %i "$file" )
mv "$dir/files" "$dir/gone"
for _ in $( seq 200 ); do
  ! grep -q 'cannot make' "$dir/served" || break
  sleep 0.05
done
sleep 0.2
kill -0 "$pid" || fail 'an agent outlives the directory of its file'
[ "$( grep -c 'cannot make' "$dir/served" )" = 1 ] || fail "that is said once: $( cat "$dir/served" )"
echo mine >"$dir/mine"
mkdir "$dir/linked"
ln -s "$dir/mine" "$dir/linked/kez.prom"
mv "$dir/linked" "$dir/files"
sleep 0.2
[ "$( cat "$dir/mine" )" = mine ] || fail 'a link is not followed'
rm "$file"
for _ in $( seq 100 ); do
  [ ! -e "$file" ] || break
  sleep 0.05
done
[ "$( stat -c %i "$file" )" != "$inode" ] || fail 'the file is written anew'
kill -TERM "$pid"
wait "$pid" || fail "SIGTERM ends it in order: $( cat "$dir/served" )"
[ "$( ls "$dir/files" )" = kez.prom ] || fail "nothing else is left: $( ls "$dir/files" )"
"$agent" serve --socket "$dir/control" --metrics "$dir/none/kez.prom" 2>"$dir/err" && fail 'a file has a place'
grep -q 'cannot make .*/none/kez.prom.*: No such file' "$dir/err" || fail "that is told: $( cat "$dir/err" )"
