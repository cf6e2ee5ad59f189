#include "fabric/Words.h"

#include <algorithm>

namespace Fabric {

namespace {

class Reader {
public:
  void line( Vex::TextCursor & in );
  // Once all lines are read.
  Topology topology() { return std::move( topology_ ); }

private:
  void readVlan( Vex::TextCursor & in );
  void readSegment( Vex::TextCursor & in );
  void readLink( Vex::TextCursor & in );
  void readHost( Vex::TextCursor & in );
  // A name that nothing of its kind has.
  template< class All, class NameOf >
  String newName( Vex::TextCursor & in, const char * what, const All & all, NameOf && nameOf );
  // A VLAN that has a line.
  void checkVlan( VlanId vlanId, size_t offset ) const;

  Topology topology_;
  std::set< std::pair< Index, IntfId > > taken_; // interfaces and ports of switches
};

template< class All, class NameOf >
String Reader::newName( Vex::TextCursor & in, const char * what, const All & all,
                        NameOf && nameOf ) {
  const size_t offset = in.offset();
  const auto name = KezShell::takeWord( in );
  if ( name.empty() || indexOf( all, name, nameOf ) ) {
    KezShell::failAt( offset, String( "a new name of a " ) + what, name );
  }
  return String( name );
}

void Reader::line( Vex::TextCursor & in ) {
  const size_t offset = in.offset();
  if ( skipWord( in, "switch" ) ) {
    topology_.nodes.push_back( newName( in, "switch", topology_.nodes, std::identity() ) );
  } else if ( skipWord( in, "vlan" ) ) {
    readVlan( in );
  } else if ( skipWord( in, "segment" ) ) {
    readSegment( in );
  } else if ( skipWord( in, "link" ) ) {
    readLink( in );
  } else if ( skipWord( in, "host" ) ) {
    readHost( in );
  } else {
    KezShell::failAt( offset, "switch, vlan, segment, link or host", KezShell::takeWord( in ) );
  }
  Vex::expectEnd( in );
}

void Reader::readVlan( Vex::TextCursor & in ) {
  const size_t offset = in.offset();
  const auto vlanId = takeValue< VlanId >( in );
  const auto tag = skipWord( in, "tag" ) ? takeValue< VlanId >( in ) : vlanId;
  if ( topology_.vlans.contains( vlanId ) ) {
    KezShell::failAt( offset, "a VLAN without a line before", Vex::text( vlanId ) );
  }
  if ( std::ranges::any_of( topology_.vlans,
                            [ & ]( const auto & each ) { return each.second == tag; } ) ) {
    KezShell::failAt( offset, "a tag that no other VLAN has", Vex::text( tag ) );
  }
  topology_.vlans.emplace( vlanId, tag );
}

void Reader::checkVlan( VlanId vlanId, size_t offset ) const {
  if ( !topology_.vlans.contains( vlanId ) ) {
    KezShell::failAt( offset, "a VLAN that has a line", Vex::text( vlanId ) );
  }
}

void Reader::readSegment( Vex::TextCursor & in ) {
  Segment segment;
  segment.name = newName( in, "segment", topology_.segments, std::mem_fn( &Segment::name ) );
  expectWord( in, "vlans" );
  const size_t offset = in.offset();
  for ( const auto vlanId : takeValues< VlanId >( in ) ) {
    checkVlan( vlanId, offset );
    segment.vlans.insert( vlanId );
  }
  topology_.segments.push_back( std::move( segment ) );
}

void Reader::readLink( Vex::TextCursor & in ) {
  auto & segment = topology_.segments[ takeSegment( in, topology_ ) ];
  size_t offset = in.offset();
  Link link;
  link.node = takeNode( in, topology_ );
  if ( segment.linkOf( link.node ) ) {
    KezShell::failAt( offset, "a switch without a link to " + segment.name,
                      topology_.nodes[ link.node ] );
  }
  offset = in.offset();
  link.intfId = takeValue< IntfId >( in );
  link.ports = { link.intfId };
  if ( Wire::isLag( link.intfId ) ) {
    link.ports = takeValues< IntfId >( in );
    taken_.emplace( link.node, link.intfId );
  }
  for ( const auto port : link.ports ) {
    if ( Wire::isLag( port ) || !taken_.emplace( link.node, port ).second ) {
      KezShell::failAt( offset, "ports that are in use nowhere else", Vex::text( port ) );
    }
  }
  if ( skipWord( in, "preference" ) ) {
    segment.byPreference = true;
    segment.preference[ link.node ] = takeValue< uint32_t >( in );
  }
  segment.links.push_back( std::move( link ) );
}

void Reader::readHost( Vex::TextCursor & in ) {
  Host host;
  host.name = newName( in, "host", topology_.hosts, std::mem_fn( &Host::name ) );
  host.mac = takeValue< Wire::EthAddr >( in );
  expectWord( in, "vlan" );
  const size_t offset = in.offset();
  host.vlanId = takeValue< VlanId >( in );
  expectWord( in, "at" );
  host.segment = takeSegment( in, topology_ );
  if ( !topology_.segments[ host.segment ].vlans.contains( host.vlanId ) ) {
    KezShell::failAt( offset, "a VLAN of the segment", Vex::text( host.vlanId ) );
  }
  topology_.hosts.push_back( std::move( host ) );
}

} // namespace

const Link * Segment::linkOf( Index node ) const {
  const auto at = std::ranges::find( links, node, &Link::node );
  return at == links.end() ? nullptr : &*at;
}

std::set< VlanId > Topology::vlansOf( Index node ) const {
  std::set< VlanId > all;
  for ( const auto & segment : segments ) {
    if ( segment.linkOf( node ) ) {
      all.insert( segment.vlans.begin(), segment.vlans.end() );
    }
  }
  return all;
}

Topology readTopology( const String & name, std::string_view text ) {
  Reader reader;
  for ( size_t number = 1; !text.empty(); ++number ) {
    const auto end = std::min( text.find( '\n' ), text.size() );
    const auto line = KezShell::trimmed( text.substr( 0, end ) );
    if ( !line.empty() && !line.starts_with( '#' ) ) {
      Vex::TextCursor in( text.data(), line.data() + line.size() );
      in.atIs( line.data() );
      try {
        KezShell::inTextAt( 1, [ & ] { reader.line( in ); } );
      } catch ( const KezShell::BadLine & error ) {
        throw std::runtime_error( name + ":" + std::to_string( number ) + ":" +
                                  std::to_string( error.column ) + ": " + error.what() );
      }
    }
    text.remove_prefix( std::min( end + 1, text.size() ) );
  }
  return reader.topology();
}

} // namespace Fabric
