#include "inspect/RecordText.h"

#include "Kez/HwTunnelId.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace Inspect {

namespace {

template< class T > void appendAs( Vex::TextBuffer & out, const std::byte * field ) {
  T value{};
  std::memcpy( static_cast< void * >( &value ), field, sizeof( value ) );
  appendBriefText( out, value );
}

using Append = void ( * )( Vex::TextBuffer & out, const std::byte * field );

// Of types that do not print as the number that they are.
Append appendOfType( std::string_view type ) {
  static const std::map< std::string_view, Append > all{
    { Kez::HwTunnelId::vexTypeName(), appendAs< Kez::HwTunnelId > },
    { vexTypeName( Kez::HwTunnelIdType() ), appendAs< Kez::HwTunnelIdType > }
  };
  const auto at = all.find( type );
  return at == all.end() ? nullptr : at->second;
}

Append appendOfKind( char kind, size_t size ) {
  static const std::map< std::pair< char, size_t >, Append > all{
    { { 'u', 1 }, appendAs< uint8_t > },  { { 'u', 2 }, appendAs< uint16_t > },
    { { 'u', 4 }, appendAs< uint32_t > }, { { 'u', 8 }, appendAs< uint64_t > },
    { { 'i', 1 }, appendAs< int8_t > },   { { 'i', 2 }, appendAs< int16_t > },
    { { 'i', 4 }, appendAs< int32_t > },  { { 'i', 8 }, appendAs< int64_t > },
    { { 'b', 1 }, appendAs< bool > },     { { 'f', 8 }, appendAs< double > }
  };
  const auto at = all.find( { kind, size } );
  return at == all.end() ? nullptr : at->second;
}

std::string_view parseUntil( Vex::TextCursor & in, std::string_view stops ) {
  const auto text = in.rest().substr( 0, in.rest().find_first_of( stops ) );
  in.atIs( text.data() + text.size() );
  return text;
}

} // namespace

RecordText::RecordText( std::string_view fields ) {
  Vex::TextCursor in( fields );
  record_.type = parseUntil( in, "[" );
  in.expect( "[" );
  const Vex::String key( parseUntil( in, "]" ) );
  in.expect( "]" );
  parseFields( in, record_ );
  Vex::expectEnd( in );
  const auto at = std::ranges::find( record_.fields, key, &Field::name );
  if ( at == record_.fields.end() ) {
    in.fail( "a field named " + key );
  }
  key_ = *at;
}

void RecordText::parseFields( Vex::TextCursor & in, Field & value ) {
  in.expect( "{" );
  do {
    auto & field = value.fields.emplace_back();
    field.name = parseUntil( in, ":" );
    in.expect( ":" );
    field.type = parseUntil( in, "@" );
    in.expect( "@" );
    parseText( in, field.offset );
    if ( in.skip( "+" ) ) {
      size_t size = 0;
      parseText( in, size );
      const char kind = in.rest().empty() ? '?' : in.rest()[ 0 ];
      field.append = appendOfType( field.type );
      if ( !field.append ) {
        field.append = appendOfKind( kind, size );
        field.form = kind == 'b' ? Vex::TextForm::truth : Vex::TextForm::number;
      }
      if ( !field.append ) {
        in.fail( "a kind of field that is known" );
      }
      in.atIs( in.at() + 1 );
    } else {
      parseFields( in, field );
    }
  } while ( in.skip( "," ) );
  in.expect( "}" );
}

void RecordText::append( Vex::TextBuffer & out, const std::byte * record ) const {
  appendFull( out, record_, record );
}

void RecordText::appendKey( Vex::TextBuffer & out, const std::byte * record ) const {
  appendBrief( out, key_, record );
}

void RecordText::put( Vex::JsonWriter & out, const Field & value, const std::byte * record ) {
  if ( value.append ) {
    Vex::TextBuffer text;
    value.append( text, record + value.offset );
    out.put( text.view(), value.form );
    return;
  }
  out.object( [ & ] {
    for ( const auto & field : value.fields ) {
      out.name( field.name );
      put( out, field, record );
    }
  } );
}

void RecordText::appendFull( Vex::TextBuffer & out, const Field & value,
                             const std::byte * record ) {
  if ( value.append ) {
    value.append( out, record + value.offset );
    return;
  }
  out.append( "Value('" );
  out.append( value.type );
  out.append( "', ** {'" );
  std::string_view before;
  for ( const auto & field : value.fields ) {
    out.append( std::exchange( before, ", '" ) );
    out.append( field.name );
    out.append( "': " );
    appendFull( out, field, record );
  }
  out.append( "})" );
}

void RecordText::appendBrief( Vex::TextBuffer & out, const Field & value,
                              const std::byte * record ) {
  if ( value.append ) {
    value.append( out, record + value.offset );
    return;
  }
  std::string_view before;
  for ( const auto & field : value.fields ) {
    out.append( std::exchange( before, "," ) );
    out.append( field.append ? "" : "(" );
    appendBrief( out, field, record );
    out.append( field.append ? "" : ")" );
  }
}

} // namespace Inspect
