// What machines are asked about: one object, by its key, or all whose keys fit a pattern.
#pragma once

#include "KezEvpn/FloodSets.h"
#include "Mpls/Lfib.h"

#include <algorithm>
#include <array>
#include <variant>

namespace Kez {

// A host: a MAC address in a VLAN, as an operator writes it.
struct VlanMac {
  Bridging::VlanId vlanId;
  Wire::EthAddr macAddr;
  VEX_VALUE( VlanMac, "Kez::VlanMac", vlanId, macAddr )

  Bridging::MacVlanPair macVlanPair() const { return { macAddr, vlanId }; }
};

// An Ethernet segment, by its interface on this switch.
struct Segment {
  Wire::IntfId intfId;
  VEX_VALUE( Segment, "Kez::Segment", intfId )
};

// A text that a template can be told.
template< size_t size > struct SubjectWord {
  char text[ size ];
  constexpr SubjectWord( const char ( &literal )[ size ] ) { std::copy_n( literal, size, text ); }
};
// A kind of subject: the word for it, and the type of its keys.
template< SubjectWord word_, class Key_ > struct SubjectKind {
  static constexpr std::string_view word = word_.text;
  using Key = Key_;
};
// All kinds there are.
template< class... Kind > struct SubjectKinds {
  static constexpr std::array words{ Kind::word... };
  using Key = std::variant< typename Kind::Key... >;
};

// All that may be asked about.
using Subjects =
    SubjectKinds< SubjectKind< "pair", IntfVlanKey >, //
                  SubjectKind< "vlan", Bridging::VlanId >,
                  SubjectKind< "interface", Wire::IntfId >, // "lag" is read as this, too
                  SubjectKind< "segment", Segment >,
                  SubjectKind< "tunnel", Tunnel::TunnelTable::TunnelId >,
                  SubjectKind< "path", MplsFloodSetVia >,    // of flood-set destinations
                  SubjectKind< "destination", VlanMacDest >, // of a flood set
                  SubjectKind< "route", Mpls::RouteKey >, SubjectKind< "mac", VlanMac > >;

// Reads as the word and the key in its brief form: "pair Ethernet1,10", "vlan 10", "tunnel 7",
// "path 7,100,0", "destination 10,ff:ff:ff:ff:ff:ff,mpls(,100,7)", "route 100",
// "mac 10,00:00:00:00:00:01".
struct Subject {
  Subjects::Key key;

  // Null unless the subject is a `Key`.
  template< class Key > const Key * get() const { return std::get_if< Key >( &key ); }

  // The interface that it names; the default one where it names none.
  Wire::IntfId intfId() const;
  // The same with another interface in its place.
  Subject withIntfId( Wire::IntfId intfId ) const;

  std::string_view word() const { return Subjects::words[ key.index() ]; }
  Vex::String keyText() const;
};

// Raises Vex::ParseError.
Subject parseSubject( Vex::TextCursor & in );
Vex::String text( const Subject & subject );

// The subjects of a kind whose key fits a pattern in its brief form: "pair Ethernet*,10".
struct SubjectPattern {
  std::string_view word;
  Vex::String pattern;

  // Whether it is one of them, or is part of one: the pair Ethernet1,10 of the interface Ethernet1
  // and of the VLAN 10, a path of its tunnel.
  bool takes( const Subject & subject ) const;
};

// None when what stands there is no pattern, and `in` stays where it is.
std::optional< SubjectPattern > parseSubjectPattern( Vex::TextCursor & in );
Vex::String text( const SubjectPattern & pattern );

} // namespace Kez
