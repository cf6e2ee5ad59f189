# What the stories of agents that are killed have alike. They begin with
#
#   . agent-lives.sh NAME KEZ-AGENT KEZ-INSPECT KIB
#
# where NAME is the story's; an agent has so many KiB of addresses, or unlimited ones.
set -euo pipefail

story=$1
agent=$2
inspect=$3
addresses=$4
dir=$( mktemp -d )
trap 'kill -9 $( jobs -p ) 2>/dev/null || true; rm -rf "$dir"' EXIT
table=$dir/tables/tunnelIdHwTunnelId/tunnelIdToHwTunnelId
mkdir "$dir/tables"

fail() {
  echo "$story: $1" >&2
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

# An agent in the place of this shell.
run_agent() {
  ulimit -v "$addresses"
  exec "$agent" "$@" --tables "$dir/tables"
}
