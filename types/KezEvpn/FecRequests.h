// FECs and the hardware ids asked for and given for them: what machines that need FECs exchange
// with the hardware side, a pair of entities for each of them.
//
// Asking is two writes, first the FEC and then the request; asking for the same FEC with another
// content is one write of what has changed, or three: the request is taken back, and both written.
// The hardware side answers with an
// entry of the response and takes it back once both are gone; it may answer within the write or
// at any later time, also for a FEC that has been given up meanwhile.
#pragma once

#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/Refusal.h"
#include "Mpls/Fec.h"

#include <array>

namespace Kez {

// Of a FEC's vias, in their order; not valid for one whose tunnel has none. One by default, at most
// four; one more raises Vex::RangeError. Text form: the one id, "0:7", or a list, "[0:7,0:8]".
class HwTunnelIds {
public:
  HwTunnelIds( HwTunnelId only = {} ) : ids_{ only } {}
  template< class Range > static HwTunnelIds of( const Range & ids ) {
    HwTunnelIds all;
    all.size_ = 0;
    for ( const auto & id : ids ) {
      all.append( id );
    }
    return all;
  }

  void append( HwTunnelId id );
  size_t size() const { return size_; }
  HwTunnelId front() const { return ids_.front(); }
  const HwTunnelId * begin() const { return ids_.data(); }
  const HwTunnelId * end() const { return begin() + size_; }

  static constexpr std::string_view vexTypeName() { return "Kez::HwTunnelIds"; }
  uint32_t hash( uint32_t seed ) const;
  friend bool operator==( const HwTunnelIds &, const HwTunnelIds & ) = default;
  friend std::strong_ordering operator<=>( const HwTunnelIds &, const HwTunnelIds & ) = default;

private:
  std::array< HwTunnelId, 4 > ids_; // not valid from `size_` on
  uint32_t size_ = 1;
};

void appendText( Vex::TextBuffer & out, const HwTunnelIds & ids );
void parseText( Vex::TextCursor & in, HwTunnelIds & ids );

// The hardware tunnel ids of a FEC's vias, in their order.
struct HwFecIdRequest {
  Rook::Fib::FecId fecId;
  HwTunnelIds hwTunnelId;
  VEX_VALUE( HwFecIdRequest, "Kez::HwFecIdRequest", fecId, hwTunnelId )
};

// Says nothing yet while the interface is the empty one.
struct HwFecIdResponse {
  uint64_t hwFecId = 0;
  Wire::IntfId l2IntfId;
  VEX_VALUE( HwFecIdResponse, "Kez::HwFecIdResponse", hwFecId, l2IntfId )
};

// The FECs that machines ask hardware for, and what their vias lead over.
class FecIdToHwFecIdRequest : public MachineState {
  VEX_ENTITY( FecIdToHwFecIdRequest, "Kez::FecIdToHwFecIdRequest" )
  VEX_MAP( 1, fec, Rook::Fib::FecId, Rook::Fib::Fec )
  VEX_MAP( 2, hwFecIdRequest, Rook::Fib::FecId, HwFecIdRequest )
  VEX_ATTRIBUTES( fec, hwFecIdRequest )

public:
  void fecIs( const Rook::Fib::Fec & fec ) { fecIs( fec.fecId, fec ); }
  void hwFecIdRequestIs( const HwFecIdRequest & request ) {
    hwFecIdRequestIs( request.fecId, request );
  }
};
Vex::Ptr< FecIdToHwFecIdRequest > fecIdToHwFecIdRequestFactory();

// Written by the hardware side.
class FecIdToHwFecIdResponse : public Vex::Entity {
  VEX_ENTITY( FecIdToHwFecIdResponse, "Kez::FecIdToHwFecIdResponse" )
  VEX_MAP( 1, hwFecIdResponse, Rook::Fib::FecId, HwFecIdResponse )
  // Of those that are requested and that hardware could not make, or not change, as they stand; it
  // tries them again by itself. Hardware that does not say leaves it empty.
  VEX_MAP( 2, refusal, Rook::Fib::FecId, Refusal )
  VEX_ATTRIBUTES( hwFecIdResponse, refusal )
};
Vex::Ptr< FecIdToHwFecIdResponse > fecIdToHwFecIdResponseFactory();

} // namespace Kez
