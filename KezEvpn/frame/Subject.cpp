#include "KezEvpn/frame/Subject.h"

#include "Vex/Pattern.h"

namespace Kez {

using Tunnel::TunnelTable::TunnelId;

namespace {

// The word of a kind, by the word that is read for it; nothing for another one.
std::string_view kindOf( std::string_view word ) {
  word = word == "lag" ? "interface" : word;
  const auto at = std::find( Subjects::words.begin(), Subjects::words.end(), word );
  return at == Subjects::words.end() ? std::string_view() : *at;
}

template< size_t kind = 0 >
void readKey( std::string_view word, Vex::TextCursor & in, Subjects::Key & key ) {
  if constexpr ( kind < Subjects::words.size() ) {
    if ( word != Subjects::words[ kind ] ) {
      readKey< kind + 1 >( word, in, key );
    } else {
      parseBriefText( in, key.emplace< kind >() );
    }
  }
}

Vex::String wordList() {
  Vex::String list;
  for ( const auto word : Subjects::words ) {
    list += list.empty() ? "" : word == Subjects::words.back() ? " or " : ", ";
    list += word;
  }
  return list;
}

void check( const Vex::TextCursor & in, IntfVlanKey & pair ) {
  if ( pair.intfId == Wire::IntfId() ) {
    in.fail( "an interface and a VLAN, separated by a comma" );
  }
}
void check( const Vex::TextCursor & in, Wire::IntfId & intfId ) {
  if ( intfId == Wire::IntfId() ) {
    in.fail( "an interface" );
  }
}
void check( const Vex::TextCursor & in, Segment & segment ) {
  check( in, segment.intfId );
}
// Whose path is the same for all VLANs may be asked of with any.
void check( const Vex::TextCursor &, MplsFloodSetVia & path ) {
  path = mplsFloodSetVia( path.tunnelId, path.label, path.vlanId.value() );
}
template< class Key > void check( const Vex::TextCursor &, Key & ) {}

TunnelId tunnelIdOf( const VlanMacDest & vmd ) {
  return vmd.dest.destType() == L2Rib::destTypeMpls_ ? destMplsTunnelId( vmd.dest )
                                                     : TunnelId::invalid();
}

// What else a subject is part of, of the kind that the word names; nothing for none.
Vex::String partText( const Subject & subject, std::string_view word ) {
  if ( word == "interface" || word == "segment" ) {
    return Vex::briefText( subject.intfId() );
  }
  if ( word == "vlan" ) {
    if ( const auto * const pair = subject.get< IntfVlanKey >() ) {
      return Vex::briefText( pair->vlanId );
    }
    if ( const auto * const host = subject.get< VlanMac >() ) {
      return Vex::briefText( host->vlanId );
    }
    const auto * const vmd = subject.get< VlanMacDest >();
    return vmd ? Vex::briefText( vmd->vlanId ) : Vex::String();
  }
  if ( word == "path" ) {
    const auto * const vmd = subject.get< VlanMacDest >();
    return vmd && vmd->dest.destType() == L2Rib::destTypeMpls_
               ? Vex::briefText( mplsFloodSetVia( *vmd ) )
               : Vex::String();
  }
  if ( word == "tunnel" ) {
    if ( const auto * const via = subject.get< MplsFloodSetVia >() ) {
      return Vex::briefText( via->tunnelId );
    }
    const auto * const vmd = subject.get< VlanMacDest >();
    return vmd ? Vex::briefText( tunnelIdOf( *vmd ) ) : Vex::String();
  }
  return {};
}

} // namespace

Wire::IntfId Subject::intfId() const {
  if ( const auto * const pair = get< IntfVlanKey >() ) {
    return pair->intfId;
  }
  if ( const auto * const segment = get< Segment >() ) {
    return segment->intfId;
  }
  const auto * const intfId = get< Wire::IntfId >();
  return intfId ? *intfId : Wire::IntfId();
}

Subject Subject::withIntfId( Wire::IntfId intfId ) const {
  if ( const auto * const pair = get< IntfVlanKey >() ) {
    return { IntfVlanKey( intfId, pair->vlanId ) };
  }
  return get< Segment >() ? Subject{ Segment( intfId ) } : Subject{ intfId };
}

Vex::String Subject::keyText() const {
  return std::visit( []( const auto & each ) { return Vex::briefText( each ); }, key );
}

Subject parseSubject( Vex::TextCursor & in ) {
  Subject subject;
  auto ahead = in;
  const auto word = kindOf( ahead.word() );
  if ( word.empty() ) {
    in.fail( wordList() );
  }
  ahead.skip( " " );
  readKey( word, ahead, subject.key );
  in = ahead;
  std::visit( [ & ]( auto & key ) { check( in, key ); }, subject.key );
  return subject;
}

Vex::String text( const Subject & subject ) {
  Vex::String text( subject.word() );
  text += ' ';
  text += subject.keyText();
  return text;
}

bool SubjectPattern::takes( const Subject & subject ) const {
  const auto key = subject.word() == word ? subject.keyText() : partText( subject, word );
  return !key.empty() && Vex::matches( pattern, key );
}

std::optional< SubjectPattern > parseSubjectPattern( Vex::TextCursor & in ) {
  auto ahead = in;
  const auto word = kindOf( ahead.word() );
  ahead.skip( " " );
  if ( word.empty() || !Vex::isPattern( ahead.rest() ) ) {
    return std::nullopt;
  }
  SubjectPattern pattern{ word, Vex::String( ahead.rest() ) };
  ahead.atIs( ahead.end() );
  in = ahead;
  return pattern;
}

Vex::String text( const SubjectPattern & pattern ) {
  Vex::String text( pattern.word );
  text += ' ';
  text += pattern.pattern;
  return text;
}

} // namespace Kez
