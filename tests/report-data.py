#!/usr/bin/env python3
# The data of a report's page have the fields that docs/report.md says, and no others; what they say of a
# run is so, with two files, traces, a refusal and a failure in it.
#
#   report-data.py KEZ-AGENT SOURCE-DIRECTORY
import json
import pathlib
import re
import subprocess
import sys
import tempfile

agent, source = sys.argv[ 1 ], pathlib.Path( sys.argv[ 2 ] )
temporary = tempfile.TemporaryDirectory()
directory = pathlib.Path( temporary.name )


def expect( what, expected, found ):
    if found != expected:
        sys.exit( f"report-data: {what}: expected {expected}, found {found}" )


def dataOf( *files ):
    page = directory / "page.html"
    subprocess.run( [ agent, "run", "--report", page, *files ], capture_output=True, cwd=directory )
    return json.loads( re.search( r'id="data">(.*?)</script>', page.read_text(), re.DOTALL )[ 1 ] )


def fieldsOf( value, path=() ):
    if isinstance( value, dict ):
        for name, each in value.items():
            yield ".".join( ( *path, name ) )
            yield from fieldsOf( each, ( *path, name ) )
    elif isinstance( value, list ):
        for each in value:
            yield from fieldsOf( each, path )


( directory / "one.kez" ).write_text( """# Room for one.

trace KezEvpnFloodFilterSm/5
set switch.capacity[nonDfPort] 1
set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet1]
""" )
( directory / "two.kez" ).write_text( """set evpnStatus.evpnVlanFloodStatus[10].floodFilter[Ethernet2]
  # Not so.
expect switch.nonDfPort count 2
""" )
data = dataOf( "one.kez", "two.kez", "one.kez" )

section = ( source / "docs/report.md" ).read_text().split( "\n## The data\n" )[ 1 ].split( "\n## " )[ 0 ]
said = [ name for row in re.findall( r"^\| (`.*?) \|", section, re.MULTILINE )
         for name in re.findall( "`([^`]+)`", row ) ]
expect( "fields that the docs name twice", [], [ name for name in said if said.count( name ) > 1 ] )
expect( "fields", sorted( said ), sorted( set( fieldsOf( data ) ) ) )

events = list( zip( *( data[ "events" ][ name ] for name in ( "what", "step", "text" ) ) ) )
line, call, refusal, failure, comment, trace = range( 6 )
expect( "sources", [ ( "one.kez", 0 ), ( "two.kez", 5 ), ( "one.kez", 8 ) ],
        [ ( each[ "name" ], each[ "before" ] ) for each in data[ "sources" ] ] )
expect( "comments", [ ( 1, "# Room for one." ), ( 7, "# Not so." ), ( 9, "# Room for one." ) ],
        [ ( step, text ) for what, step, text in events if what == comment ] )
expect( "lines", [ 3, 4, 5, 6, 8, 11, 12, 13 ],
        [ step for what, step, _ in events if what == line ] )
expect( "refusals", [ ( 6, "createNonDfPort Ethernet2,Ethernet2,10 -> no room" ) ],
        [ ( step, text ) for what, step, text in events if what == refusal ] )
expect( "failures", [ 8 ], [ step for what, step, _ in events if what == failure ] )
traces = [ text for what, step, text in events if what == trace and step == 6 ]
expect( "the first trace of a line",
        "KezEvpnFloodFilterSm/5 KezEvpnFloodFilterSm::processIntfVlan intfId Ethernet2 vlanId 10 "
        "vlanFloodStatus exists 1 floodFilterApplied 1", traces[ 0 ] if traces else None )
expect( "happened", [ sum( what == kind for what, _, _ in events ) for kind in range( 6 ) ],
        data[ "happened" ] )
expect( "calls", data[ "happened" ][ call ] + data[ "happened" ][ refusal ], data[ "calls" ] )
