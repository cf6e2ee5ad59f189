#include "Kez/KezPortList.h"

#include <algorithm>

namespace Kez {

void KezPortList::portIs( Wire::IntfId intfId, bool present ) {
  if ( !present ) {
    portDel( intfId );
    return;
  }
  // Most are added in their order.
  const bool isLast = size_ == 0 || end()[ -1 ] < intfId;
  const auto at = ( isLast ? end() : std::lower_bound( begin(), end(), intfId ) ) - begin();
  if ( at != size_ && begin()[ at ] == intfId ) {
    return;
  }
  if ( size_ < few_.size() ) {
    std::copy_backward( few_.begin() + at, few_.begin() + size_, few_.begin() + size_ + 1 );
    few_[ at ] = intfId;
  } else {
    if ( size_ == few_.size() ) {
      many_.assign( few_.begin(), few_.end() );
    }
    many_.insert( many_.begin() + at, intfId );
  }
  ++size_;
}

void KezPortList::portDel( Wire::IntfId intfId ) {
  const auto at = std::lower_bound( begin(), end(), intfId ) - begin();
  if ( at == size_ || begin()[ at ] != intfId ) {
    return;
  }
  if ( size_ <= few_.size() ) {
    std::copy( few_.begin() + at + 1, few_.begin() + size_, few_.begin() + at );
  } else {
    many_.erase( many_.begin() + at );
    if ( many_.size() == few_.size() ) {
      std::copy( many_.begin(), many_.end(), few_.begin() );
      many_.clear();
    }
  }
  --size_;
}

bool KezPortList::portHas( Wire::IntfId intfId ) const {
  return std::binary_search( begin(), end(), intfId );
}

bool operator==( const KezPortList & a, const KezPortList & b ) {
  return std::equal( a.begin(), a.end(), b.begin(), b.end() );
}

void appendText( Vex::TextBuffer & out, const KezPortList & ports ) {
  std::string_view separator;
  for ( const Wire::IntfId port : ports ) {
    out.append( separator );
    appendText( out, port );
    separator = ",";
  }
}

void parseText( Vex::TextCursor & in, KezPortList & ports ) {
  ports = KezPortList();
  if ( in.done() ) {
    return;
  }
  do {
    if ( in.peekWord().empty() ) {
      in.fail( "a port's name" );
    }
    Wire::IntfId port;
    parseText( in, port );
    ports.portIs( port, true );
  } while ( in.skip( "," ) );
}

std::ostream & operator<<( std::ostream & out, const KezPortList & ports ) {
  return out << Vex::text( ports );
}

} // namespace Kez
