#!/usr/bin/env python3
# What lines are answered in JSON is by the schema, whatever the command; a session's end tells so.
#
#   answers-by-schema.py KEZ-AGENT KEZ-INSPECT SOURCE-DIRECTORY
import json
import pathlib
import subprocess
import sys
import tempfile

try:
    import jsonschema
except ImportError:
    sys.exit( 77 )

agent, inspect, source = sys.argv[ 1 ], sys.argv[ 2 ], pathlib.Path( sys.argv[ 3 ] )
schema = json.loads( ( source / "docs/answers.schema.json" ).read_text() )
validator = jsonschema.Draft7Validator( schema )
directory = tempfile.TemporaryDirectory()


def fail( what ):
    sys.exit( f"answers-by-schema: not so: {what}" )


# The values that a program says, each of which is by the schema and in no words.
def said( *command, lines=None ):
    ran = subprocess.run( [ *command, "--json" ], input=lines, text=True, capture_output=True,
                          cwd=directory.name )
    if ran.stderr:
        fail( f"nothing but JSON is said: {ran.stderr}" )
    values = [ json.loads( line ) for line in ran.stdout.splitlines() ]
    for value in values:
        if not validator.is_valid( value ) or "text" in value:
            fail( f"by the schema: {value}" )
    return values


def answers( *arguments, lines=None ):
    return said( agent, *arguments, lines=lines )


def statuses( values ):
    return [ value[ "status" ] for value in values if "status" in value ]


def given( text ):
    return [ line for line in map( str.strip, text.splitlines() ) if line and line[ 0 ] != "#" ]


# One status for each line of each story, all of which hold.
for story in sorted( ( source / "scenarios" ).glob( "*.kez" ) ):
    values = answers( "run", story )
    if statuses( values ) != [ "ok" ] * len( given( story.read_text() ) ):
        fail( f"every line of {story.name} is answered that it was executed" )

# Every command by the examples that it gives, over an agent in the midst of things.
story = ( source / "scenarios/hardware-full.kez" ).read_text()
commands = [ each for each in answers( "shell", lines="help" ) if "command" in each ]
if len( commands ) < 15:
    fail( f"commands are listed: {commands}" )
for command in commands:
    name = command[ "command" ]
    examples = [ line.strip() for line in command[ "detail" ].splitlines()
                 if line.startswith( "  " ) and name in line.split()[ :2 ] ]
    if not examples:
        fail( f"{name} has an example" )
    for example in examples:
        before = len( given( story ) )
        values = answers( "shell", "--ring", "ring", lines=f"{story}\n{example}\n" )
        if len( statuses( values ) ) != before + 1 or statuses( values )[ -1 ] == "bad":
            fail( f"{example} is executed: {values[ -3: ]}" )

# What all roots and all that is below them is shown as.
roots = [ each[ "path" ] for each in answers( "shell", lines=story + "\nshow" ) if "role" in each ]
lines = "\n".join( f"{word} {root}" for root in roots for word in ( "show", "help" ) )
shown = answers( "shell", lines=f"{story}\n{lines}\ncomplete show switch.v" )
if "bad" in statuses( shown ):
    fail( "every root can be shown" )


# The values but for the status, which is this, of a line after these.
def last( line, status, before="" ):
    values = answers( "shell", lines=f"{before}\n{line}\n" )
    after = [ i for i, value in enumerate( values ) if "status" in value ]
    if values[ -1 ][ "status" ] != status:
        fail( f"{line} is {status}: {values[ -1 ]}" )
    return values[ after[ -2 ] + 1 if len( after ) > 1 else 0 : -1 ]


def check( line, status, expected, before="" ):
    found = last( line, status, before )
    if found != expected:
        fail( f"{line} is answered {expected}, not {found}" )


large = 2**64 - 1
check( "show switch.vlan[10]", "ok",
       [ { "path": "switch.vlan[10]", "key": 10, "value": 110 } ],
       "set evpnStatus.vlanToDot1q[10] 110" )
check( "show switchAnswers.shuffleSeed", "ok",
       [ { "path": "switchAnswers.shuffleSeed", "kind": "value", "valueType": "whole number",
           "value": large } ], f"set switchAnswers.shuffleSeed {large}" )
check( "show evpnFloodingEsiSm.reprogramChangedEsi", "ok",
       [ { "path": "evpnFloodingEsiSm.reprogramChangedEsi", "kind": "value", "valueType": "bool",
           "value": True } ], "set evpnFloodingEsiSm.reprogramChangedEsi true" )
check( "del switch.vlan[10]", "ok", [ { "path": "switch.vlan[10]", "there": False } ] )
check( "expect switch.vlan count 2", "failed",
       [ { "expectation": "switch.vlan", "holds": False, "expected": "count 2",
           "found": "count 0" } ] )
error = last( "set vlanStatusDir.vlanStatus[4095].vlanPortStatus[Ethernet1] \"\x7f", "bad" )
wrong = { "error": "expected a VLAN id, 1 to 4094, found '4095'", "place": "stdin:2", "line": 2,
          "column": 30, "expected": "a VLAN id, 1 to 4094", "found": "4095" }
if error != [ wrong ]:
    fail( f"an error is {wrong}, not {error}" )
refused = [ each for each in last( "explain pair Ethernet1,10", "ok", """
set evpnStatus.vlanToDot1q[10] 110
set vlanStatusDir.vlanStatus[10].vlanPortStatus[Ethernet1] forwarding
set switch.fault[createVlanToDot1qMapping].nextCalls 3
advance 8""" ) if each[ "machine" ] == "evpnFloodingDot1qSm" ]
why = ( "hardware refused twice (notProgrammed as planned), first 7.0 s ago, last 2.0 s ago, next "
        "try in 3.0 s" )
if refused != [ { "machine": "evpnFloodingDot1qSm", "subject": "pair Ethernet1,10",
                  "state": "refused", "says": [ "tag 110", "not programmed on Ethernet1", why ],
                  "reasons": [ "not programmed on Ethernet1", why ], "nextTry": 11 } ]:
    fail( f"a refusal has its parts: {refused}" )
check( "explain", "ok",
       [ { "machine": "kezEvpnFloodFilterSm", "state": "refused", "what": "pair", "count": 1,
           "reason": "refused by hardware (no room)", "subjects": [ "pair Ethernet1,10" ],
           "since": 0, "nextTry": 5 } ],
       """set switch.capacity[nonDfPort] 0
set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet1]
advance 2""" )
check( "explain interface ethernet1", "ok",
       [ { "unknown": "interface ethernet1", "nearest": [ "Ethernet1" ] } ],
       "set evpnStatus.encapBumFilter[Ethernet1]" )

traced = answers( "shell", "--ring", "ring", lines="""\
set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet1]
explain pair Ethernet1,10""" )[ -2 ]
if "createNonDfPort Ethernet1,Ethernet1,10" not in traced.get( "trace", "" ):
    fail( f"explain ends with what was traced last: {traced}" )

changes = [ each for each in answers( "shell", lines="""watch switch.vlan
set switch.vlan[10] 7
del switch.vlan[10]""" ) if "there" in each ]
if changes != [ { "time": 0, "path": "switch.vlan[10]", "there": True, "value": 7 },
                { "time": 0, "path": "switch.vlan[10]", "there": False } ]:
    fail( f"changes are told: {changes}" )

# What files show.
answers( "run", "--ring", "ring", "--tables", "tables", source / "scenarios/hardware-tunnel-ids.kez" )
records = said( inspect, "table", "tables/tunnelIdHwTunnelId/tunnelIdToHwTunnelId" )
if not records or { type( each[ "key" ] ) for each in records } != { int }:
    fail( f"records have keys that are numbers: {records}" )
if len( said( inspect, "ring", "ring" ) ) < 100:
    fail( "a ring has records" )

# A line alone.
ran = subprocess.run( [ agent, "shell" ], input="--json show switch.vlan\nshow switch.vlan\n",
                      text=True, capture_output=True )
if [ line[ 0 ] for line in ran.stdout.splitlines() ] != [ "{", "{", "s" ]:
    fail( f"one line is answered in JSON, and one is not: {ran.stdout}" )
