#!/usr/bin/env bash
# Pages in a browser. A report: what it shows of a run with failures and of one as a story, that what it
# shows is in its address and comes back from it, that no script fails, whatever the lines hold, and how
# large it is and how long it takes for 10,000 lines. A frame's way: its copies, what stopped others, and
# what is wrong. In both, that no text of a drawing is on another.
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
# Has the page run what is on standard input, with `said` to say what comes of it.
drive() {
  echo "<script>{ const said = document.documentElement.dataset; $( cat ) }</script>" >>"$work/$page.html"
}
# Counts the texts of a drawing that lie on each other, for each way to draw it.
count_overlaps() {
  drive <<END
const meets = (a, b) => Math.min(a.right, b.right) - Math.max(a.left, b.left) > 1 &&
  Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top) > 3;
said.overlaps = said.texts = 0;
for (const axis of typeof lanes === "undefined" ? [""] : ["times", "steps"]) {
  if (axis) stateIs({ axis });
  const boxes = [...document.querySelectorAll("$1 text")].filter((each) => each.textContent.trim())
    .map((each) => each.getBoundingClientRect());
  said.texts = Number(said.texts) + boxes.length;
  said.overlaps = Number(said.overlaps) +
    boxes.reduce((sum, a, i) => sum + boxes.slice(i + 1).filter((b) => meets(a, b)).length, 0);
}
END
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
shows 'data-drawn="4 3 '
shows '<p id="verdict" class="bad">1 failed, 10 expectations, <span class="remark">6 planned refusals</span></p>'
shows '<div class="bad"><dt>failures</dt><dd>1</dd></div>'
shows '<div><dt>calls of hardware</dt><dd>11</dd></div>'
shows 'full.kez:34: expectation failed: <a class="object" '
shows '<b>kezEvpnFloodFilterSm</b><span>intfVlanSet 3, vlanIntfSet 1, programmedStatus 3</span>'
shows '<summary>nonDfPort <small>3 entries</small></summary>'
shows '>Ethernet3,Ethernet3,10</a></td>'
shows '<dt>seconds, virtual</dt><dd>15</dd>'
alone() { ! grep -qE '(src|href)="?(https?:)?//|@import|url\(' "$work/$page.html" || fail "$page to stand alone"; }
alone

# The run as it was meant: its refusals are no failures, its events a story that names lines as the file does,
# and each entry has a history. What is shown is in the address, and comes back from it.
page=story
{
  cat "$scenarios/hardware-full.kez"
  printf '# %0300d needle\n' 0
} >"$work/story.kez"
"$agent" run --report "$work/story.html" "$work/story.kez" >/dev/null
drive <<'END'
const rows = () => [...byId("list").tBodies[0].rows].map((row) => [...row.cells].map((cell) => cell.textContent));
said.story = rows().slice(0, 9).map(([line, , kind]) => `${line} ${kind}`).join(", ");
said.folded = rows().map((row) => row[3]).find((text) => text.startsWith("unfold "));
document.querySelector("#list button.fold").click();
said.unfolded = rows().find((row) => row[2] === "trace" && !/fold \d/.test(row[3]))[3];
document.querySelector("#table-list a.object[data-object='Ethernet4,Ethernet4,10']").click();
said.history = rows().filter((row) => row[2] !== "trace").map(([line, , kind]) => `${line.split(":")[1]} ${kind}`).join(", ");
said.address = location.hash;
stateIs({ object: "", search: "needle" });
said.needle = rows().length;
stateIs({ search: "" });
stateIs({ keys: "ethernet3" });
said.entries = byId("keys-found").textContent;
byId("moment").value = 4;
byId("moment").dispatchEvent(new Event("input"));
byId("graph").querySelector("button").click();
said.moment = location.hash;
END
show story
shows 'data-errors="0"'
shows '<p id="verdict">all 9 expectations hold, <span class="remark">6 planned refusals</span></p>'
shows 'data-story="story.kez:1 comment, story.kez:2 comment, story.kez:3 comment, story.kez:4 comment, story.kez:6 line, story.kez:7 line, story.kez:7 call, story.kez:8 line, story.kez:8 call"'
shows 'data-folded="unfold '
shows 'data-unfolded="KezEvpnFloodFilterSm/5 '
shows 'data-history="11 line, 11 refusal, 14 line, 17 refusal, 21 refusal, 26 refusal, 28 call, 30 line"'
shows 'data-address="#object=Ethernet4%2CEthernet4%2C10"'
shows 'data-needle="1"'
shows 'data-entries="1 entry"'
shows 'data-moment="#root=evpnStatus&amp;line=10&amp;keys=ethernet3"'
shows ' tables that stayed empty</summary>'
page=story-linked
"$agent" run --report "$work/$page.html" "$work/story.kez" >/dev/null
drive <<'END'
said.places = [...document.querySelectorAll("#list td.place")].map((cell) => cell.textContent.split(":")[1]).join(" ");
said.moment = byId("moment-text").textContent.split(":").slice(0, 2).join(":");
said.held = document.querySelector(".node[aria-pressed='true'] b").textContent;
END
show story-linked '#kind=refusal&object=Ethernet4%2C10&from=12&to=story.kez:21&root=evpnStatus&line=10'
shows 'data-places="17 21"'
shows 'data-moment="after story.kez:10'
shows 'data-held="evpnStatus"'

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
# As wide as a telephone, which no window of this browser is.
drive <<<'document.body.style.width = "400px"; dispatchEvent(new Event("resize"));'
count_overlaps '#lanes'
drive <<'END'
said.labels = document.querySelectorAll("#lanes text.tick").length > 1;
const folded = tables.filter(({ details }) => details && !details.open);
stateIs({ keys: folded[0].rows[folded[0].rows.length - 1][0] });
said.opened = folded[0].details.open;
END
show large
shows 'data-labels="true"'
shows 'data-overlaps="0"'
shows 'data-opened="true"'
shows ' and cannot be found (switch.'
shows 'data-errors="0"'
shows '<dt>lines</dt><dd>10,000</dd>'
shows ' of the run are cut here and cannot be found'
drawn=$( grep -oE 'data-milliseconds="[0-9]+"' "$work/dom" | tr -dc 0-9 )
echo "report-in-browser: 10,000 lines: $size bytes, drawn after $drawn ms"
[ "$size" -lt 5000000 ] || fail "less than 5,000,000 bytes, not $size"

page=way
"$fabric" send --report "$work/way.html" "$scenarios/fabric/pair.topology" client >/dev/null
alone
count_overlaps '#picture'
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
count_overlaps '#picture'
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
count_overlaps '#picture'
show many
shows 'data-errors="0"'
shows 'data-overlaps="0"'
shows 'data-drawn="16 16 30 '
