// What the parts of the simulated switch share that program FECs and what uses these: answers to
// requests of FECs, and when anything is done about what is asked for.
//
// A FEC is requested while both halves of its request stand, with a via, and given up when neither
// does. An answer comes within the write that it answers, or `answerDelay` later, and is one to
// what is requested or configured when its turn comes. A FEC that has been given up meanwhile is
// answered all the same, since hardware has not heard of that yet; one that is requested anew is
// not withdrawn in between. What is due at one time is taken in order, or, with a `shuffleSeed`, in
// a random one. What could not be programmed is tried again after `retryInterval`, once for each
// FEC or user however often it has changed. Deleting a FEC that is used is a wrong call.
#pragma once

#include "Loom/TimerWheel.h"
#include "Ringlog/Trace.h"
#include "switch/Agenda.h"
#include "switch/Random.h"
#include "switch/SimulatedSwitch.h"

#include <variant>

namespace Switch {

// What hardware answers for a FEC: an id of its own among those of all kinds, and the interface of
// its only via, or one of its own where it shares traffic out.
uint64_t hwFecIdOf( Rook::Fib::FecId fecId );
Kez::HwFecIdResponse hwFecIdResponseOf( const Rook::Fib::Fec & fec );

// `User` is what uses FECs, as hardware is told of it.
template< class User > class SwitchFecs : public Vex::Entity, public Vex::ReactorOwner {
public:
  class VexFecRequest : public Vex::ReactorOf< SwitchFecs, Kez::FecIdToHwFecIdRequest > {
  public:
    using Vex::ReactorOf< SwitchFecs, Kez::FecIdToHwFecIdRequest >::ReactorOf;

  private:
    void onAttribute( Vex::AttrId, const void * key ) override {
      this->sm()->handleFecRequest( Kez::FecIdToHwFecIdRequest::fecAttr.key( key ) );
    }
    void handleNotifier() override {
      const auto request = this->notifier();
      for ( const auto & [ fecId, fec ] : request->fec() ) {
        this->sm()->handleFecRequest( fecId );
      }
    }
  };

  VEX_ENTITY( SwitchFecs, "Switch::SwitchFecs" )
  VEX_OUTPUT( 40, simulatedSwitch, SimulatedSwitch )
  VEX_INPUT( 41, fecRequest, Kez::FecIdToHwFecIdRequest )
  VEX_OUTPUT( 42, fecResponse, Kez::FecIdToHwFecIdResponse )
  VEX_ATTRIBUTE( 43, answerDelay, Vex::Seconds ) // 0: within the write
  VEX_ATTRIBUTE( 44, shuffleSeed, uint64_t )     // 0: in order
  VEX_ATTRIBUTE( 45, retryInterval, Vex::Interval, 5.0 )
  VEX_COMPUTED( 46, pendingAnswers, size_t )
  VEX_ATTRIBUTES( simulatedSwitch, fecRequest, fecResponse, answerDelay, shuffleSeed, retryInterval,
                  pendingAnswers )

  static uint64_t hwFecIdOf( Rook::Fib::FecId fecId ) { return Switch::hwFecIdOf( fecId ); }

protected:
  // `wrongWhenUsed` is what is wrong with the deletion of a FEC that is used.
  SwitchFecs( Ringlog::Handle & traceHandle, const char * wrongWhenUsed,
              const Vex::Ptr< SimulatedSwitch > & hardware,
              const Vex::Ptr< Loom::TimerWheel > & timerWheel,
              const Vex::Ptr< const Kez::FecIdToHwFecIdRequest > & fecRequest,
              const Vex::Ptr< Kez::FecIdToHwFecIdResponse > & fecResponse )
      : simulatedSwitch_( hardware ), fecRequest_( fecRequest ), fecResponse_( fecResponse ),
        handle_( traceHandle ), wrongWhenUsed_( wrongWhenUsed ), delay_( timerWheel, *this ),
        fecRequestReactor_( *this ) {}

  // For the constructor, last.
  void watchFecRequests() { fecRequestReactor_.notifierIs( fecRequest() ); }

  // Brings hardware, and what it answers, to what is asked for.
  virtual void see( const User & user ) = 0;

  // Sees to what has changed about it, at once or after the delay.
  using Subject = std::variant< Rook::Fib::FecId, User >;
  void changed( const Subject & subject ) {
    if ( answerDelay() > 0 ) {
      dueIs( subject, Vex::Clock::now() + answerDelay() );
    } else {
      agenda_.del( subject );
      seeTo( subject );
    }
  }
  void retry( const Subject & subject ) { dueIs( subject, Vex::Clock::now() + retryInterval() ); }

  void usedBy( uint64_t hwFecId ) { simulatedSwitch()->hwFecIdUseInc( hwFecId ); }
  void leftBy( uint64_t hwFecId ) {
    if ( simulatedSwitch()->hwFecIdUseDec( hwFecId ) == 0 ) {
      simulatedSwitch()->hwFecIdUseDel( hwFecId );
    }
  }

private:
  // A request of a FEC that is not answered yet.
  struct Request {
    Kez::HwFecIdResponse answer;
    Kez::HwTunnelIds hwTunnelId;
    double withdrawalDue = 0; // once it has been given up
  };
  class Delay final : public Loom::Timer {
  public:
    Delay( const Vex::Ptr< Loom::TimerWheel > & wheel, SwitchFecs & owner )
        : Timer( wheel ), owner_( owner ) {}

  private:
    void fire() override { owner_.doDueWork(); }
    SwitchFecs & owner_;
  };

  bool isRequested( Rook::Fib::FecId fecId ) const {
    return !fecRequest()->fec( fecId ).via.empty() && fecRequest()->hwFecIdRequestHas( fecId );
  }
  bool isGivenUp( Rook::Fib::FecId fecId ) const {
    return !fecRequest()->fecHas( fecId ) && !fecRequest()->hwFecIdRequestHas( fecId );
  }
  Request standingRequest( Rook::Fib::FecId fecId ) const {
    return { hwFecIdResponseOf( fecRequest()->fec( fecId ) ),
             fecRequest()->hwFecIdRequest( fecId ).hwTunnelId };
  }

  void handleFecRequest( Rook::Fib::FecId fecId ) {
    if ( isRequested( fecId ) ) {
      unanswered_[ fecId ] = standingRequest( fecId );
      changed( fecId );
    } else if ( isGivenUp( fecId ) ) {
      if ( const auto at = unanswered_.find( fecId ); at != unanswered_.end() ) {
        at->second.withdrawalDue =
            std::max( Vex::Clock::now() + answerDelay(), agenda_.dueOf( fecId ) );
      } else {
        changed( fecId );
      }
    }
  }

  void dueIs( const Subject & subject, double due ) {
    agenda_.dueIs( subject, due, nextOrder() );
    delay_.setAt( agenda_.nextDue() );
  }
  uint64_t nextOrder() {
    if ( shuffleSeed() == 0 ) {
      return ++changes_;
    }
    const auto number = randomNumber( shuffleSeed(), 1 );
    shuffleSeedIs( number | 1 );
    return number;
  }
  void doDueWork() {
    const double now = Vex::Clock::now();
    while ( agenda_.size() > 0 && agenda_.nextDue() <= now ) {
      seeTo( agenda_.take() );
    }
    if ( agenda_.size() > 0 ) {
      delay_.setAt( agenda_.nextDue() );
    }
  }

  void seeTo( const Subject & subject ) {
    if ( const auto * const fecId = std::get_if< Rook::Fib::FecId >( &subject ) ) {
      seeToFec( *fecId );
    } else {
      see( std::get< User >( subject ) );
    }
  }
  void seeToFec( Rook::Fib::FecId fecId ) {
    const auto unanswered = unanswered_.extract( fecId );
    if ( isRequested( fecId ) ) {
      answer( fecId, standingRequest( fecId ) );
    } else if ( unanswered ) {
      if ( isGivenUp( fecId ) ) {
        dueIs( fecId, unanswered.mapped().withdrawalDue );
      }
      answer( fecId, unanswered.mapped() );
    } else if ( isGivenUp( fecId ) ) {
      withdraw( fecId );
    }
  }
  void answer( Rook::Fib::FecId fecId, const Request & request ) {
    auto & hardware = *simulatedSwitch();
    const bool room = hardware.hasRoom( Operation::createFec, hardware.fecHas( fecId ) );
    if ( hardware.creation(
             Operation::createFec, room, std::nullopt, [ & ] { return Vex::text( fecId ); },
             [ & ] { return Vex::briefText( request.answer ); } ) ) {
      if ( isRequested( fecId ) ) {
        retry( fecId );
      }
      return;
    }
    const auto & traceHandle = handle_;
    TRACE( 5, "createFec ", fecId, " hwTunnelId ", request.hwTunnelId );
    hardware.fecIs( fecId, request.hwTunnelId );
    fecResponse()->hwFecIdResponseIs( fecId, request.answer );
  }
  void withdraw( Rook::Fib::FecId fecId ) {
    auto & hardware = *simulatedSwitch();
    if ( !hardware.fecHas( fecId ) ) {
      return;
    }
    const bool used = hardware.hwFecIdUse( hwFecIdOf( fecId ) ) > 0;
    if ( hardware.deletion( Operation::deleteFec, wrongIf( used, wrongWhenUsed_ ),
                            [ & ] { return Vex::text( fecId ); } ) ) {
      const auto & traceHandle = handle_;
      TRACE( 5, "deleteFec ", fecId );
      hardware.fecDel( fecId );
      fecResponse()->hwFecIdResponseDel( fecId );
    }
  }

  const Ringlog::Handle & handle_; // the part's
  const char * const wrongWhenUsed_;
  Agenda< Subject > agenda_;
  std::map< Rook::Fib::FecId, Request > unanswered_;
  uint64_t changes_ = 0;
  Delay delay_;
  VexFecRequest fecRequestReactor_;
};

template< class User > size_t SwitchFecs< User >::pendingAnswers() const {
  return agenda_.size();
}

} // namespace Switch
