#include "Wire/IntfId.h"

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

// Numbers with a separator between them, at most three; none when `text` is anything else.
struct Numbers {
  Numbers( std::string_view text, char separator ) {
    const char * at = text.data();
    const char * const end = at + text.size();
    for ( size_t i = 0; i < value.size(); ++i ) {
      const auto [ next, error ] = std::from_chars( at, end, value[ i ] );
      if ( error != std::errc() || ( next != end && *next != separator ) ) {
        return;
      }
      if ( next == end ) {
        count = i + 1;
        return;
      }
      at = next + 1;
    }
  }
  std::array< uint64_t, 3 > value{};
  size_t count = 0;
};

constexpr uint64_t lowBits( uint64_t value, unsigned bits ) {
  return value & ( ( uint64_t( 1 ) << bits ) - 1 );
}

// An Ethernet interface's first number, and one more than its second and third, 0 for none.
constexpr unsigned portBits = 18;
constexpr unsigned firstBits = IntfId::numberBits - 2 * portBits;

uint64_t ethernetNumber( const Numbers & numbers ) {
  const auto later = [ & ]( size_t i ) {
    return i < numbers.count ? lowBits( numbers.value[ i ] + 1, portBits ) : 0;
  };
  return lowBits( numbers.value[ 0 ], firstBits ) << 2 * portBits | later( 1 ) << portBits |
         later( 2 );
}

uint64_t tunnelNumber( const Numbers & numbers ) {
  return lowBits( numbers.value[ 0 ], IntfId::numberBits - TunnelId::typeShift )
             << TunnelId::typeShift |
         lowBits( numbers.value[ 1 ], TunnelId::typeShift );
}

// The id that `name` would have as one of the kinds with numbers, which are cut to what fits, so
// that a name that does not fit reads differently; the empty id when it is of no such kind.
IntfId idOfNumbers( std::string_view name ) {
  const auto numbersAfter = [ & ]( std::string_view prefix, char separator ) {
    return Numbers( name.starts_with( prefix ) ? name.substr( prefix.size() ) : "", separator );
  };
  if ( const auto numbers = numbersAfter( "Ethernet", '/' ); numbers.count ) {
    return { Kind::ethernet, ethernetNumber( numbers ) };
  }
  if ( const auto numbers = numbersAfter( "Port-Channel", '/' ); numbers.count ) {
    return PortChannelIntfId::intfId( static_cast< uint32_t >( numbers.value[ 0 ] ) );
  }
  if ( const auto numbers = numbersAfter( "Vlan", '/' ); numbers.count ) {
    return { Kind::vlan, static_cast< uint32_t >( numbers.value[ 0 ] ) };
  }
  if ( const auto numbers = numbersAfter( "DynamicTunnel", '.' ); numbers.count ) {
    return { Kind::dynamicTunnel, tunnelNumber( numbers ) };
  }
  if ( const auto numbers = numbersAfter( "SrTePolicy", '.' ); numbers.count ) {
    return { Kind::srTePolicy, tunnelNumber( numbers ) };
  }
  return name == "Cpu" ? IntfId( Kind::cpu, 0 ) : IntfId();
}

// The id of `name`, which is what `in` stands before.
IntfId idOfName( Vex::TextCursor & in, std::string_view name ) {
  const auto bad = std::find_if_not( name.begin(), name.end(), allowedInName );
  if ( bad != name.end() || name.size() > maxNameLength ) {
    in.atIs( bad != name.end() ? &*bad : in.at() );
    in.fail( Vex::String( expectedName ) );
  }
  const IntfId id = idOfNumbers( name );
  Vex::TextBuffer printed;
  appendText( printed, id );
  return printed.view() == name ? id : IntfId( Kind::other, names().number( name ) );
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
  *this = idOfName( in, name );
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
  const auto name = in.peekWord();
  if ( name.empty() && !in.done() &&
       std::string_view( ",)]}" ).find( *in.at() ) == std::string_view::npos ) {
    in.fail( Vex::String( expectedName ) );
  }
  intfId = idOfName( in, name );
  in.atIs( in.at() + name.size() );
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

} // namespace Wire
