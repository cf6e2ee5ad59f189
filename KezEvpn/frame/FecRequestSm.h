// What machines share that ask hardware for FECs: the ids, drawn from a number allocator, and the
// pair of entities through which a FEC is asked for and answered.
//
// A FEC id is a number of the allocator with the FEC's kind in the top byte. It is given back once
// neither the request nor the response has it any more, and then rests. The ids that the requests
// and responses of an earlier machine held are passed over once, since answers to those may still
// come.
#pragma once

#include "KezEvpn/FecRequests.h"
#include "KezEvpn/frame/Findings.h"
#include "KezEvpn/frame/StateMachine.h"
#include "Loom/NumAllocator.h"

namespace Kez {

// `Base` is InitializedSm or a machine's base on top of it.
template< class Base > class FecRequestSm : public Base {
public:
  class VexFecResponse : public Vex::ReactorOf< FecRequestSm, FecIdToHwFecIdResponse > {
  public:
    using Vex::ReactorOf< FecRequestSm, FecIdToHwFecIdResponse >::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override {
      const auto sm = this->sm();
      if ( id == FecIdToHwFecIdResponse::hwFecIdResponseAttr && sm->initialized() ) {
        sm->handleFecResponse( FecIdToHwFecIdResponse::hwFecIdResponseAttr.key( key ) );
      }
    }
  };

  VEX_ENTITY( FecRequestSm, "Kez::FecRequestSm", Base )
  VEX_OUTPUT( 50, timerWheel, Loom::TimerWheel )
  // These three from `handleInitialized()` on; an allocator may be replaced while no FEC has a
  // number of it.
  VEX_PART( 51, numAllocatorConfig, Loom::NumAllocatorConfig )
  VEX_PART( 52, numAllocatorStatus, Loom::NumAllocatorStatus )
  VEX_PART( 53, numAllocator, Loom::NumAllocator )
  // Ids of an earlier machine that have not been passed over yet.
  VEX_SET( 54, earlierFecId, Rook::Fib::FecId )
  VEX_ATTRIBUTES( timerWheel, numAllocatorConfig, numAllocatorStatus, numAllocator, earlierFecId )

  virtual void handleFecResponse( Rook::Fib::FecId fecId ) = 0;

  // Whether hardware has answered, with an interface.
  bool hasFecResponse( Rook::Fib::FecId fecId ) const {
    return fecResponse().hwFecIdResponse( fecId ).l2IntfId != Wire::IntfId();
  }

protected:
  template< class... Arguments >
  explicit FecRequestSm( Out< Loom::TimerWheel > timerWheel, Arguments &&... arguments )
      : Base( std::forward< Arguments >( arguments )... ), timerWheel_( timerWheel ),
        fecResponseReactor_( *this ) {}

  using Base::vexNotify; // which the accessors above call

  virtual FecIdToHwFecIdRequest & fecRequest() const = 0;
  virtual const FecIdToHwFecIdResponse & fecResponse() const = 0;

  // For the constructor of a machine, last.
  void watchFecResponse( In< FecIdToHwFecIdResponse > response ) {
    fecResponseReactor_.notifierIs( response );
  }

  // For the start of a machine, in this order.
  void rememberEarlierFecIds() {
    for ( const auto & [ fecId, fec ] : fecRequest().fec() ) {
      earlierFecIdIs( fecId );
    }
    for ( const auto & [ fecId, request ] : fecRequest().hwFecIdRequest() ) {
      earlierFecIdIs( fecId );
    }
    for ( const auto & [ fecId, response ] : fecResponse().hwFecIdResponse() ) {
      earlierFecIdIs( fecId );
    }
  }
  void withdrawEveryFec() {
    fecRequest().fecDelAll();
    fecRequest().hwFecIdRequestDelAll();
  }
  void makeNumAllocator() {
    constexpr double restOfReleasedIndex = 10.0; // seconds
    numAllocatorConfig_ = Vex::makePtr< Loom::NumAllocatorConfig >( Loom::Range( 0, UINT32_MAX ),
                                                                    restOfReleasedIndex );
    numAllocatorStatus_ = Vex::makePtr< Loom::NumAllocatorStatus >();
    numAllocator_ = Vex::makePtr< Loom::NumAllocator >( numAllocatorConfig_, numAllocatorStatus_,
                                                        timerWheel() );
  }

  // A number whose FEC is held, or may be answered from an earlier machine's request, is given back
  // at once: it rests, and then it is looked at again. `fecIdOf( index )` is its FEC id.
  template< class FecIdOf > Rook::Fib::FecId allocateFecId( FecIdOf && fecIdOf ) {
    while ( true ) {
      const auto index = numAllocator()->getNumber();
      VEX_ASSERT_IN( this->handle().source(), index != numAllocator()->invalidNumber() &&
                                                  "FecId range exhausted, Not possible" );
      const Rook::Fib::FecId fecId = fecIdOf( static_cast< int64_t >( index ) );
      if ( !earlierFecIdHas( fecId ) && !isFecHeld( fecId ) ) {
        return fecId;
      }
      earlierFecIdDel( fecId );
      numAllocator()->releaseNumber( index );
    }
  }
  void releaseFecId( Rook::Fib::FecId fecId ) { numAllocator()->releaseNumber( fecId.number() ); }

  // What stands in part is not requested: hardware is not told of new vias with old hardware tunnel
  // ids, and hears of a change of both once. Where it answers within the first write, and that
  // makes or withdraws the request, that is left as it is.
  void requestFec( const Rook::Fib::Fec & fec, const HwTunnelIds & hwTunnelId ) {
    const auto fecId = fec.fecId;
    const HwFecIdRequest request{ fecId, hwTunnelId };
    if ( fecRequest().fec( fecId ) != fec && fecRequest().hwFecIdRequest( fecId ) != request ) {
      fecRequest().hwFecIdRequestDel( fecId );
    }
    const auto before = fecRequest().hwFecIdRequest( fecId );
    fecRequest().fecIs( fec );
    if ( fecRequest().fec( fecId ) == fec && fecRequest().hwFecIdRequest( fecId ) == before ) {
      fecRequest().hwFecIdRequestIs( request );
    }
  }
  void withdrawFec( Rook::Fib::FecId fecId ) {
    fecRequest().fecDel( fecId );
    if ( !fecRequest().fecHas( fecId ) ) {
      fecRequest().hwFecIdRequestDel( fecId );
    }
  }
  bool isFecRequested( Rook::Fib::FecId fecId ) const {
    return fecRequest().fecHas( fecId ) || fecRequest().hwFecIdRequestHas( fecId );
  }
  // Whether a whole request stands, with these.
  bool isFecRequestedWith( Rook::Fib::FecId fecId, const HwTunnelIds & hwTunnelId ) const {
    return fecRequest().fecHas( fecId ) &&
           fecRequest().hwFecIdRequest( fecId ) == HwFecIdRequest{ fecId, hwTunnelId };
  }
  // Whether the request or the response has it.
  bool isFecHeld( Rook::Fib::FecId fecId ) const {
    return isFecRequested( fecId ) || fecResponse().hwFecIdResponseHas( fecId );
  }

private:
  VexFecResponse fecResponseReactor_;
};

} // namespace Kez
