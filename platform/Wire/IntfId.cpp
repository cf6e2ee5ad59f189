#include "Wire/IntfId.h"

#include "Tunnel/TunnelTable.h"

#include <algorithm>
#include <array>
#include <bit>
#include <mutex>
#include <unordered_map>

namespace Wire {

using Tunnel::TunnelTable::TunnelId;
using Kind = IntfId::Kind;

namespace {

constexpr size_t maxNameLength = 63;
constexpr std::string_view expectedName =
    "an interface name of at most 63 letters, digits or / . _ : -";

bool allowedInName( char c ) {
  static constexpr auto allowed = [] {
    std::array< bool, 256 > table{};
    for ( const unsigned char each : std::string_view(
              "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._:-" ) ) {
      table[ each ] = true;
    }
    return table;
  }();
  return allowed[ static_cast< unsigned char >( c ) ];
}

// The interned names. A name never moves and never goes, so that it is read without the lock by
// whoever has its number. Block n holds 2^n names.
class NameTable {
public:
  uint64_t number( std::string_view name ) {
    const std::lock_guard lock( mutex_ );
    if ( const auto known = numbers_.find( name ); known != numbers_.end() ) {
      return known->second;
    }
    const uint64_t number = numbers_.size();
    const Place place( number );
    if ( place.index == 0 ) {
      blocks_[ place.block ] = std::make_unique< Name[] >( size_t( 1 ) << place.block );
    }
    Name & entry = blocks_[ place.block ][ place.index ];
    std::copy( name.begin(), name.end(), entry.text );
    entry.length = static_cast< uint8_t >( name.size() );
    numbers_.emplace( entry.view(), number );
    return number;
  }

  std::string_view name( uint64_t number ) const {
    const Place place( number );
    return blocks_[ place.block ][ place.index ].view();
  }

private:
  struct Name {
    std::string_view view() const { return { text, length }; }
    char text[ maxNameLength ];
    uint8_t length;
  };
  struct Place {
    explicit Place( uint64_t number )
        : block( std::bit_width( number + 1 ) - 1 ),
          index( number + 1 - ( uint64_t( 1 ) << block ) ) {}
    int block;
    uint64_t index;
  };

  std::mutex mutex_;
  std::unordered_map< std::string_view, uint64_t > numbers_;
  std::array< std::unique_ptr< Name[] >, 32 > blocks_;
};

// Outlives whatever prints an id while the process exits.
NameTable & names() {
  static NameTable * const table = std::make_unique< NameTable >().release();
  return *table;
}

constexpr uint64_t lowBits( uint64_t value, unsigned bits ) {
  return value & ( ( uint64_t( 1 ) << bits ) - 1 );
}

// An Ethernet interface's first number, and one more than its second and third, 0 for none.
constexpr unsigned portBits = IntfId::portBits;
constexpr unsigned firstBits = IntfId::numberBits - 2 * portBits;

// A number as it is printed, of at most so many bits: false, and nothing read, when `in` stands
// before anything else.
bool readNumber( Vex::TextCursor & in, unsigned bits, uint64_t & number ) {
  const char * const begin = in.at();
  if ( !Vex::readNumber( in, number ) ) {
    return false;
  }
  if ( number >> bits != 0 ) {
    in.atIs( begin );
    return false;
  }
  return true;
}

IntfId readNumbered( Vex::TextCursor & in, Kind kind ) {
  uint64_t number = 0;
  return readNumber( in, 32, number ) ? IntfId( kind, number ) : IntfId();
}

IntfId readTunnel( Vex::TextCursor & in, Kind kind ) {
  uint64_t type = 0;
  uint64_t index = 0;
  const bool read = readNumber( in, IntfId::numberBits - TunnelId::typeShift, type ) &&
                    in.skip( "." ) && readNumber( in, TunnelId::typeShift, index );
  return read ? IntfId( kind, type << TunnelId::typeShift | index ) : IntfId();
}

IntfId readEthernet( Vex::TextCursor & in ) {
  uint64_t all = 0;
  if ( !readNumber( in, firstBits, all ) ) {
    return {};
  }
  all <<= 2 * portBits;
  for ( const unsigned shift : { portBits, 0u } ) {
    uint64_t later = 0;
    if ( !in.skip( "/" ) ) {
      break;
    }
    if ( !readNumber( in, portBits, later ) || lowBits( later + 1, portBits ) == 0 ) {
      return {};
    }
    all |= ( later + 1 ) << shift;
  }
  return { Kind::ethernet, all };
}

// The id of a kind with numbers that `in` stands before, read as far as it goes; the empty id
// when there is none.
IntfId readOfKind( Vex::TextCursor & in ) {
  if ( in.skip( "Ethernet" ) ) {
    return readEthernet( in );
  }
  if ( in.skip( "Port-Channel" ) ) {
    return readNumbered( in, Kind::portChannel );
  }
  if ( in.skip( "Vlan" ) ) {
    return readNumbered( in, Kind::vlan );
  }
  if ( in.skip( "DynamicTunnel" ) ) {
    return readTunnel( in, Kind::dynamicTunnel );
  }
  if ( in.skip( "SrTePolicy" ) ) {
    return readTunnel( in, Kind::srTePolicy );
  }
  return in.skip( "Cpu" ) ? IntfId( Kind::cpu, 0 ) : IntfId();
}

// The id of `name`, which is what `in` stands before and has no kind.
IntfId idOfOther( Vex::TextCursor & in, std::string_view name ) {
  const auto bad = std::find_if_not( name.begin(), name.end(), allowedInName );
  if ( bad != name.end() || name.size() > maxNameLength ) {
    in.atIs( bad != name.end() ? &*bad : in.at() );
    in.fail( Vex::String( expectedName ) );
  }
  return name.empty() ? IntfId() : IntfId( Kind::other, names().number( name ) );
}

void appendNumbers( Vex::TextBuffer & out, std::string_view prefix, uint64_t first, char separator,
                    uint64_t second ) {
  out.append( prefix );
  appendText( out, first );
  out.append( separator );
  appendText( out, second );
}

void appendEthernet( Vex::TextBuffer & out, uint64_t number ) {
  out.append( "Ethernet" );
  appendText( out, number >> 2 * portBits );
  for ( const uint64_t later :
        { lowBits( number >> portBits, portBits ), lowBits( number, portBits ) } ) {
    if ( later ) {
      out.append( '/' );
      appendText( out, later - 1 );
    }
  }
}

[[noreturn]] void tunnelIdOutOfRange() {
  throw Vex::RangeError(
      "TunnelId::value < TunnelId::minValue or > TunnelId::maxValue not allowed" );
}

IntfId tunnelIntfId( Kind kind, TunnelId tunnelId ) {
  if ( tunnelId.value() >> IntfId::numberBits ) {
    tunnelIdOutOfRange();
  }
  return { kind, tunnelId.value() };
}

} // namespace

IntfId::IntfId( std::string_view name ) {
  Vex::TextCursor in( name );
  *this = readOfKind( in );
  if ( kind() == Kind::empty || !in.done() ) {
    in.atIs( name.data() );
    *this = idOfOther( in, name );
  }
}

uint32_t IntfId::hash( uint32_t seed ) const {
  if ( kind() != Kind::other ) {
    return Vex::hashOf( word_, seed );
  }
  for ( const char c : names().name( number() ) ) {
    seed = Vex::hashMix( seed, static_cast< unsigned char >( c ) );
  }
  return Vex::hashResult( seed );
}

std::strong_ordering IntfId::compareNames( IntfId a, IntfId b ) {
  return names().name( a.number() ) <=> names().name( b.number() );
}

void appendText( Vex::TextBuffer & out, IntfId intfId ) {
  const uint64_t number = intfId.number();
  const uint64_t type = number >> TunnelId::typeShift;
  const uint64_t index = lowBits( number, TunnelId::typeShift );
  switch ( intfId.kind() ) {
  case Kind::empty:
    break;
  case Kind::cpu:
    out.append( "Cpu" );
    break;
  case Kind::ethernet:
    appendEthernet( out, number );
    break;
  case Kind::portChannel:
    out.append( "Port-Channel" );
    appendText( out, number );
    break;
  case Kind::vlan:
    out.append( "Vlan" );
    appendText( out, number );
    break;
  case Kind::dynamicTunnel:
    appendNumbers( out, "DynamicTunnel", type, '.', index );
    break;
  case Kind::srTePolicy:
    appendNumbers( out, "SrTePolicy", type, '.', index );
    break;
  case Kind::other:
    out.append( names().name( number ) );
    break;
  }
}

void parseText( Vex::TextCursor & in, IntfId & intfId ) {
  const char * const begin = in.at();
  intfId = readOfKind( in );
  if ( intfId.kind() != Kind::empty && in.atWordEnd() ) {
    return;
  }
  in.atIs( begin );
  const auto name = in.peekWord();
  if ( name.empty() && !in.done() &&
       std::string_view( ",)]}" ).find( *in.at() ) == std::string_view::npos ) {
    in.fail( Vex::String( expectedName ) );
  }
  intfId = idOfOther( in, name );
  in.atIs( begin + name.size() );
}

std::ostream & operator<<( std::ostream & out, IntfId intfId ) {
  return out << Vex::text( intfId );
}

TunnelId DynamicTunnelIntfId::tunnelId( IntfId intfId ) {
  if ( !isDynamicTunnelIntfId( intfId ) || intfId.number() > TunnelId::maxValue ) {
    tunnelIdOutOfRange();
  }
  return intfId.number();
}

IntfId DynamicTunnelIntfId::intfId( TunnelId tunnelId ) {
  return tunnelIntfId( Kind::dynamicTunnel, tunnelId );
}

TunnelId FecIdIntfId::tunnelId( IntfId intfId ) {
  if ( !isSrTePolicyIntfId( intfId ) ) {
    tunnelIdOutOfRange();
  }
  return intfId.number();
}

IntfId FecIdIntfId::srTePolicyIntfId( TunnelId tunnelId ) {
  return tunnelIntfId( Kind::srTePolicy, tunnelId );
}

IntfId VtepIntfId::intfId( Ip4Addr vtep ) {
  return "Vtep" + Vex::text( vtep );
}

} // namespace Wire

Wire::IntfId Tunnel::TunnelTable::TunnelId::intfId() const {
  return Wire::DynamicTunnelIntfId::intfId( *this );
}
