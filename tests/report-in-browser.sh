#!/usr/bin/env bash
# A report in a browser: what it shows of a run with failures, that no script fails, whatever the lines
# hold, and how large it is and how long it takes for 10,000 lines.
#
# report-in-browser.sh KEZ-AGENT SCENARIOS
set -euo pipefail
agent=$1
scenarios=$2

browser=$( command -v chromium || true )
if [ -z "$browser" ]; then
  echo "report-in-browser: skipped, there is no chromium"
  exit 77
fi
work=$( mktemp -d )
trap 'rm -rf "$work"' EXIT

fail() {
  echo "report-in-browser: expected $1" >&2
  exit 1
}
# The page as its script leaves it.
show() {
  timeout 100 "$browser" --headless --no-sandbox --disable-gpu --user-data-dir="$work/profile" \
    --virtual-time-budget=20000 --dump-dom "file://$work/$1.html" 2>/dev/null >"$work/dom"
}
shows() { grep -qF -- "$1" "$work/dom" || fail "in $page: $1"; }

page=full
hostile='</script><script>throw 1</script><img src=x onerror=alert(1)> & "quoted" \ größer'
{
  cat "$scenarios/hardware-full.kez"
  echo "set switch.lastRefusal $hostile"
  echo 'expect switch.nonDfPort count 7'
} >"$work/full.kez"
"$agent" run --report "$work/full.html" "$work/full.kez" >"$work/out" 2>&1 && fail 'a failed expectation'
show full
shows 'data-errors="0"'
shows 'data-drawn="46 65 '
shows '<p id="verdict" class="bad">1 failed, 10 expectations</p>'
shows '<div><dt>calls of hardware</dt><dd>11</dd></div>'
shows '<td class="text">createNonDfPort Ethernet4,Ethernet4,10 -&gt; no room</td>'
shows 'expectation failed: switch.nonDfPort'
shows '<b>kezEvpnFloodFilterSm</b><span>intfVlanSet 3, vlanIntfSet 1, programmedStatus 3</span>'
shows '<summary>nonDfPort <small>3 entries</small></summary>'
shows '<td class="text">Ethernet3,Ethernet3,10</td>'
shows '<dt>seconds, virtual</dt><dd>15</dd>'
grep -qE '(src|href)="?(https?:)?//|@import|url\(' "$work/full.html" && fail 'a page that stands alone'

page=large
awk 'BEGIN {
  srand( 4 )
  print "set switch.capacity[nonDfPort] 600"
  print "set switch.fault[createFloodSetDest].everyNth 11"
  for ( n = 3; n <= 10000; ++n ) {
    vlan = 10 + int( rand() * 30 )
    port = 1 + int( rand() * 60 )
    r = rand()
    if ( r < 0.5 ) {
      printf "set evpnStatus.evpnVlanFloodStatus[%d].floodFilter[Ethernet%d]\n", vlan, port
    } else if ( r < 0.97 ) {
      printf "set floodSetOutput.vlanFloodSet[%d].floodSet[ff:ff:ff:ff:ff:ff].destSet[mpls(,%d,%d)]\n", vlan, 100 + port, port
    } else {
      print "advance 0.5"
    }
  }
}' >"$work/large.kez"
"$agent" run --report "$work/large.html" "$work/large.kez" >/dev/null
size=$( wc -c <"$work/large.html" )
show large
shows 'data-errors="0"'
shows '<dt>lines</dt><dd>10,000</dd>'
shows ' failures of the run are counted above and not listed'
drawn=$( grep -oE 'data-milliseconds="[0-9]+"' "$work/dom" | tr -dc 0-9 )
echo "report-in-browser: 10,000 lines: $size bytes, drawn after $drawn ms"
[ "$size" -lt 5000000 ] || fail "less than 5,000,000 bytes, not $size"
