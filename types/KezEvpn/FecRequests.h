// FECs and the hardware ids asked for and given for them: what machines that need FECs exchange
// with the hardware side, a pair of entities for each of them.
//
// Asking is two writes, first the FEC and then the request. The hardware side answers with an
// entry of the response and takes it back once both are gone; it may answer within the write or
// at any later time, also for a FEC that has been given up meanwhile.
#pragma once

#include "KezEvpn/KezEvpn.h"
#include "Mpls/Fec.h"

namespace Kez {

struct HwFecIdRequest {
  Rook::Fib::FecId fecId;
  HwTunnelId hwTunnelId; // not valid while the FEC's tunnel has none
  VEX_VALUE( HwFecIdRequest, "Kez::HwFecIdRequest", fecId, hwTunnelId )
};

// Says nothing yet while the interface is the empty one.
struct HwFecIdResponse {
  uint64_t hwFecId = 0;
  Wire::IntfId l2IntfId;
  VEX_VALUE( HwFecIdResponse, "Kez::HwFecIdResponse", hwFecId, l2IntfId )
};

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
  VEX_ATTRIBUTES( hwFecIdResponse )
};
Vex::Ptr< FecIdToHwFecIdResponse > fecIdToHwFecIdResponseFactory();

} // namespace Kez
