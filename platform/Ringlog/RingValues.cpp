#include "Ringlog/RingValues.h"

namespace Ringlog {

bool takeText( std::span< const uint64_t > & words, std::string_view & text, bool & cut ) {
  if ( words.empty() ) {
    return false;
  }
  const uint64_t size = words[ 0 ] & ~RingFormat::cutText;
  if ( size > words.size_bytes() || textWords( size ) > words.size() ) {
    return false;
  }
  cut = ( words[ 0 ] & RingFormat::cutText ) != 0;
  text = { reinterpret_cast< const char * >( words.data() + 1 ), size };
  words = words.subspan( textWords( size ) );
  return true;
}

bool appendPieces( Vex::TextBuffer & out, std::span< const PieceForm > forms,
                   std::span< const uint64_t > words ) {
  using Vex::appendText;
  using enum RingFormat::PieceKind;
  for ( const auto & form : forms ) {
    if ( form.kind == literal ) {
      out.append( form.literal );
      continue;
    }
    if ( form.kind == text ) {
      std::string_view value;
      bool cut = false;
      if ( !takeText( words, value, cut ) ) {
        return false;
      }
      out.append( value );
      out.append( cut ? "..." : "" );
      continue;
    }
    if ( words.empty() ) {
      return false;
    }
    const uint64_t word = words[ 0 ];
    words = words.subspan( 1 );
    if ( form.kind == integer ) {
      appendText( out, static_cast< int64_t >( word ) );
    } else if ( form.kind == real ) {
      appendText( out, std::bit_cast< double >( word ) );
    } else if ( form.kind == boolean ) {
      appendText( out, word != 0 );
    } else {
      appendText( out, word );
    }
  }
  return words.empty();
}

} // namespace Ringlog
