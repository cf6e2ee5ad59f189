#!/usr/bin/env bash
# Pages in a browser. A report: what it shows of a run with failures, that no script fails, whatever the
# lines hold, and how large it is and how long it takes for 10,000 lines. A frame's way: its copies, what
# stopped others, what is wrong, and that no text is on another.
#
# report-in-browser.sh KEZ-AGENT KEZ-FABRIC SCENARIOS
set -euo pipefail
agent=$1
fabric=$2
scenarios=$3

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
# The page as its script leaves it, at a link within it if there is one.
show() {
  timeout 100 "$browser" --headless --no-sandbox --disable-gpu --user-data-dir="$work/profile" \
    --window-size=1200,900 --virtual-time-budget=20000 --dump-dom "file://$work/$1.html${2:-}" \
    2>/dev/null >"$work/dom"
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
alone() { ! grep -qE '(src|href)="?(https?:)?//|@import|url\(' "$work/$page.html" || fail "$page to stand alone"; }
alone

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

# Texts of the drawing that lie on each other, as the page would count them itself.
count_overlaps() {
  cat >>"$work/$page.html" <<'END'
<script>
const boxes = [...document.querySelectorAll("#picture text")].filter((each) => each.textContent.trim())
  .map((each) => each.getBoundingClientRect());
const meets = (a, b) => Math.min(a.right, b.right) - Math.max(a.left, b.left) > 1 &&
  Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top) > 3;
document.documentElement.dataset.overlaps =
  boxes.reduce((sum, a, i) => sum + boxes.slice(i + 1).filter((b) => meets(a, b)).length, 0);
</script>
END
}

page=way
"$fabric" send --report "$work/way.html" "$scenarios/fabric/pair.topology" client >/dev/null
alone
count_overlaps
show way '#copy-2'
shows 'data-errors="0"'
shows 'data-overlaps="0"'
shows 'data-drawn="2 2 2 2"'
shows '<p id="verdict">nothing is wrong</p>'
shows '>not designated forwarder switch.nonDfPort[Port-Channel1,Ethernet1,10]'
shows 'data-copy="2" aria-current="true"'

# What is expected of a frame and does not happen is marked, and so is what arrives too often.
page=wrong
cat >"$work/wrong.story" <<END
topology $scenarios/fabric/pairs.topology
rest
expect flood c by leaf3 at four 0 of 1
END
"$fabric" play --report "$work/wrong.html" "$work/wrong.story" >/dev/null && fail 'a failed expectation'
count_overlaps
show wrong
shows 'data-errors="0"'
shows 'data-overlaps="0"'
shows '<p id="verdict" class="bad">copies 1, not 0</p>'
shows '<tr class="copy wrong"'
shows '>1 copy, not 0</text>'

# Sixteen switches, each with a host of two links, and names that are markup and that are long.
page=many
hostile='</script><script>throw(1)</script><img/src=x/onerror=alert(1)>&"'
awk -v hostile="$hostile" 'BEGIN {
  print "vlan 10 tag 110\nvlan 20"
  for ( n = 1; n <= 16; ++n ) print "switch " ( n == 3 ? hostile : "a-leaf-with-a-long-name-" n )
  for ( n = 1; n <= 16; ++n ) {
    a = n == 3 ? hostile : "a-leaf-with-a-long-name-" n
    m = n % 16 + 1
    b = m == 3 ? hostile : "a-leaf-with-a-long-name-" m
    print "segment rack" n hostile " vlans 10,20"
    print "link rack" n hostile, a, "Port-Channel1 Ethernet1,Ethernet2"
    print "link rack" n hostile, b, "Port-Channel2 Ethernet3"
    printf "host h%d%s 00:00:00:00:01:%02x vlan 10 at rack%d%s\n", n, hostile, n, n, hostile
  }
}' >"$work/many.topology"
"$fabric" run --events 0 --report "$work/many.html" "$work/many.topology" >/dev/null
count_overlaps
show many
shows 'data-errors="0"'
shows 'data-overlaps="0"'
shows 'data-drawn="16 16 30 '
