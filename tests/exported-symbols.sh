#!/usr/bin/env bash
# The functions and variables that the library exports are those of tests/data/exported-symbols, so
# that nobody changes the interface unawares. Templates' instances and what else each user may have of
# his own are left out: which of them the library has, the compiler decides.
#
#   exported-symbols.sh LIBRARY [--update]
#
# With --update the list is made anew instead.
set -euo pipefail
export LC_ALL=C

library=$1
list=$( dirname "${BASH_SOURCE[0]}" )/data/exported-symbols
found=$( nm -D --defined-only "$library" )
# In neither case is it lost on anybody if nm finds nothing.
symbols=$( awk '$2 ~ /^[TDBR]$/ { print $3 }' <<<"$found" | c++filt | sort -u )
[ -n "$symbols" ] || { echo "exported-symbols: $library exports nothing" >&2; exit 1; }
if [ "${2:-}" = --update ]; then
  echo "$symbols" >"$list"
  exit 0
fi

foreign=$( awk '$3 ~ /^_ZN?K?S[a-z]|_ZN9__gnu_cxx/ { print $3 }' <<<"$found" | c++filt )
[ -z "$foreign" ] || { printf 'exported-symbols: not the library'"'"'s own:\n%s\n' "$foreign" >&2; exit 1; }
if ! differences=$( diff "$list" <( echo "$symbols" ) ); then
  cat >&2 <<TEXT
exported-symbols: the library's interface has changed ( < is gone, > is new ):
$( grep '^[<>]' <<<"$differences" )
Programs that use what is gone do not run any more, see "Versions" in CONTRIBUTING.md. If the change is
meant, name it in CHANGELOG.md and run: tests/exported-symbols.sh $library --update
TEXT
  exit 1
fi
