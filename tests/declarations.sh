#!/usr/bin/env bash
# declarations.sh COMPILER INCLUDES
#
# What is declared wrongly does not compile, and is told in one message that says what.
set -euo pipefail

compiler=$1
includes=$2
work=$( mktemp -d )
trap 'rm -rf "$work"' EXIT
failed=0

# refuse NAME MESSAGE: what stands on standard input is refused with MESSAGE, and nothing else.
refuse() {
  { echo '#include "Vex/Attributes.h"'; echo 'struct Plain { int a; };'; cat; } >"$work/$1.cpp"
  if "$compiler" -std=c++20 -Wall -Wextra -fsyntax-only "-I$includes" "$work/$1.cpp" >"$work/said" 2>&1; then
    echo "$1: compiles"
  elif ! grep -qF "$2" "$work/said"; then
    echo "$1: expected \"$2\", found:"
  elif [ "$( grep -cE '(error|warning):' "$work/said" )" -ne 1 ]; then
    echo "$1: expected that alone, found:"
  else
    return 0
  fi
  grep -E '(error|warning):' "$work/said" || true
  failed=1
}

refuse key-of-no-value-type 'foo has keys of type Plain, which is no value type' <<'END'
class Thing : public Vex::Entity {
  VEX_ENTITY( Thing, "Thing" )
  VEX_MAP( 1, foo, Plain, int )
  VEX_ATTRIBUTES( foo )
};
END
refuse value-of-no-value-type 'foo has values of type Plain, which is no value type' <<'END'
class Thing : public Vex::Entity {
  VEX_ENTITY( Thing, "Thing" )
  VEX_ATTRIBUTE( 1, foo, Plain )
  VEX_ATTRIBUTES( foo )
};
END
refuse member-named-by-no-value-type 'Thing has keys of type Plain, which is no value type' <<'END'
class Thing : public Vex::Entity {
  VEX_ENTITY( Thing, "Thing" )
  VEX_KEY( Thing, key, Plain )
  VEX_ATTRIBUTES()
};
END
refuse list-not-closed 'VEX_ATTRIBUTES closes the list that VEX_ENTITY opens' <<'END'
class Base : public Vex::Entity {
  VEX_ENTITY( Base, "Base" )
  VEX_ATTRIBUTES()
};
class Thing : public Base {
  VEX_ENTITY( Thing, "Thing", Base )
  VEX_SET( 1, foo, int )
};
END
refuse attribute-left-out 'VEX_ATTRIBUTES names every attribute of the class' <<'END'
class Thing : public Vex::Entity {
  VEX_ENTITY( Thing, "Thing" )
  VEX_SET( 1, foo, int )
  VEX_SET( 2, bar, int )
  VEX_ATTRIBUTES( foo )
};
END
refuse id-of-a-base 'no id stands in a base' <<'END'
class Base : public Vex::Entity {
  VEX_ENTITY( Base, "Base" )
  VEX_SET( 1, foo, int )
  VEX_ATTRIBUTES( foo )
};
class Thing : public Base {
  VEX_ENTITY( Thing, "Thing", Base )
  VEX_SET( 1, bar, int )
  VEX_ATTRIBUTES( bar )
};
END
refuse base-left-out "VEX_ENTITY names the class's base" <<'END'
class Base : public Vex::Entity {
  VEX_ENTITY( Base, "Base" )
  VEX_ATTRIBUTES()
};
class Thing : public Base {
  VEX_ENTITY( Thing, "Thing" )
  VEX_ATTRIBUTES()
};
END
exit "$failed"
