#include "KezEvpn/FecRequests.h"

#include "Vex/ListText.h"

namespace Kez {

void HwTunnelIds::append( HwTunnelId id ) {
  if ( size_ == ids_.size() ) {
    throw Vex::RangeError( "HwTunnelIds::size > 4 not allowed" );
  }
  ids_[ size_++ ] = id;
}

uint32_t HwTunnelIds::hash( uint32_t seed ) const {
  for ( const auto id : *this ) {
    seed = id.hash( seed );
  }
  return seed;
}

void appendText( Vex::TextBuffer & out, const HwTunnelIds & ids ) {
  if ( ids.size() == 1 ) {
    appendText( out, ids.front() );
  } else {
    Vex::appendList( out, ids, [ & ]( HwTunnelId id ) { appendText( out, id ); } );
  }
}

void parseText( Vex::TextCursor & in, HwTunnelIds & ids ) {
  const auto parseOne = [ & ] {
    HwTunnelId id;
    parseText( in, id );
    return id;
  };
  if ( in.startsWith( "[" ) ) {
    ids = HwTunnelIds::of( std::array< HwTunnelId, 0 >() );
    Vex::parseList( in, [ & ] { ids.append( parseOne() ); } );
  } else {
    ids = parseOne();
  }
}

Vex::Ptr< FecIdToHwFecIdRequest > fecIdToHwFecIdRequestFactory() {
  return Vex::makePtr< FecIdToHwFecIdRequest >();
}

Vex::Ptr< FecIdToHwFecIdResponse > fecIdToHwFecIdResponseFactory() {
  return Vex::makePtr< FecIdToHwFecIdResponse >();
}

} // namespace Kez
