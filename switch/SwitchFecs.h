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
//
// Over hardware that is taken over, a request whose contents it has is answered from that, within
// the write and without a call. What hardware has and is not asked for stays until the sweep, and a
// FEC that is still used then until it is not.
#pragma once

#include "KezHelper/Audit.h"
#include "KezHelper/TableView.h"

#include "Loom/TimerWheel.h"
#include "Ringlog/Trace.h"
#include "switch/Agenda.h"
#include "switch/Random.h"
#include "switch/SimulatedSwitch.h"
#include "switch/SwitchTable.h"

#include <set>
#include <variant>

namespace Switch {

// What hardware answers for a FEC: an id of its own among those of all kinds, or the next that is
// free, and the interface of its only via, or one of its own where it shares traffic out.
uint64_t hwFecIdOf( Rook::Fib::FecId fecId );
uint64_t hwFecKindOf( uint64_t hwFecId ); // 0 for flood sets, others for hosts
Kez::HwFecIdResponse hwFecIdResponseOf( uint64_t hwFecId, const HwFec & fec );

// `User` is what uses FECs, as hardware is told of it, `Data` what it has for one.
template< class User, class Data > class SwitchFecs : public Vex::Entity, public Vex::ReactorOwner {
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

  // Before the machines start.
  void takeoverIs( const Vex::Ptr< KezHelper::Takeover > & takeover ) {
    takeover_ = takeover;
    for ( const auto walk = fecs().walk(); const auto entry = walk->next(); ) {
      inherited_.add( entry->key, entry->data );
      note( entry->key );
      simulatedSwitch()->hwFecIdUseDel( entry->key );
    }
    takeover->inheritedInc( inherited_.size() );
    for ( const auto walk = users().walk(); const auto entry = walk->next(); ) {
      usedBy( entry->key, hwFecIdUsedBy( entry->key, entry->data ) );
      takeover->inheritedInc( 1 );
    }
    takeover->partIs( sweepOfUsers_, KezHelper::SweepRank::fecUser );
    takeover->partIs( sweepOfFecs_, KezHelper::SweepRank::fec );
  }

  // Whether each request has been answered, or refused once.
  bool hasTriedAll() const { return unanswered_.empty(); }

  // What hardware has of those that are asked for here, and of their users.
  const KezHelper::HwFecTable & fecs() const { return *fecTable_; }
  virtual const KezHelper::HwTable< User, Data > & users() const = 0;

  // Of FECs, whose record is what has been answered, and of their users.
  void addAuditParts( KezHelper::AuditParts & out ) {
    {
      KezHelper::AuditedSides< uint64_t, HwFec > sides;
      sides.machine = this->name();
      sides.table = "fec";
      sides.rank = KezHelper::SweepRank::fec;
      sides.hardware = &fecs();
      sides.record = KezHelper::tableView< uint64_t, HwFec >(
          [ this ] { return this->fecResponse()->hwFecIdResponse(); },
          []( const auto & member ) {
            const auto [ fecId, response ] = *member;
            return std::vector{ response.hwFecId };
          },
          [ this ]( uint64_t hwFecId ) { return fecOnRecord( hwFecId ); } );
      sides.remove = [ this ]( uint64_t hwFecId, const HwFec & ) {
        if ( simulatedSwitch()->hwFecIdUse( hwFecId ) == 0 ) {
          deleteFec( hwFecId, Vex::text( hwFecId ) );
        }
      };
      sides.forget = [ this ]( uint64_t hwFecId, const HwFec & ) {
        retry( answeredFecId_.at( hwFecId ) );
      };
      sides.writesOver = true;
      out.add( std::move( sides ) );
    }
    {
      KezHelper::AuditedSides< User, Data > sides;
      sides.machine = this->name();
      sides.table = userTable_;
      sides.rank = KezHelper::SweepRank::fecUser;
      sides.hardware = &users();
      sides.record = KezHelper::tableView< User, Data >(
          [ this ] { return uses_.range(); },
          [ this ]( const User & user ) {
            const auto * const hwFecId = uses_.find( user );
            return hwFecId ? std::optional( dataOf( user, *hwFecId ) ) : std::nullopt;
          } );
      sides.remove = [ this ]( const User & user, const Data & ) { removeUser( user ); };
      sides.forget = [ this ]( const User & user, const Data & ) {
        leftBy( user );
        lost( user );
        retry( user );
      };
      out.add( std::move( sides ) );
    }
  }

protected:
  // `userTable` names the table of users, and `wrongWhenUsed` is what is wrong with the deletion of
  // a FEC that is used.
  SwitchFecs( Ringlog::Handle & traceHandle, const char * userTable, const char * wrongWhenUsed,
              const Vex::Ptr< SimulatedSwitch > & hardware,
              const Vex::Ptr< Loom::TimerWheel > & timerWheel,
              const Vex::Ptr< const Kez::FecIdToHwFecIdRequest > & fecRequest,
              const Vex::Ptr< Kez::FecIdToHwFecIdResponse > & fecResponse )
      : simulatedSwitch_( hardware ), fecRequest_( fecRequest ), fecResponse_( fecResponse ),
        handle_( traceHandle ), userTable_( userTable ), wrongWhenUsed_( wrongWhenUsed ),
        delay_( timerWheel, *this ), fecRequestReactor_( *this ) {}

  // For the constructor, last.
  void watchFecRequests() { fecRequestReactor_.notifierIs( fecRequest() ); }

  ~SwitchFecs() override {
    if ( takeover_ ) {
      takeover_->partDel( sweepOfUsers_ );
      takeover_->partDel( sweepOfFecs_ );
    }
  }

  // Brings hardware, and what it answers, to what is asked for.
  virtual void see( const User & user ) = 0;
  virtual uint64_t hwFecIdUsedBy( const User & user, const Data & data ) const = 0;
  // What hardware has for one that uses the FEC.
  virtual Data dataOf( const User & user, uint64_t hwFecId ) const = 0;
  // Has hardware remove one.
  virtual void removeUser( const User & user ) = 0;
  // Answers that hardware does not have it.
  virtual void lost( const User & user ) = 0;
  // Whether a FEC in hardware is of a kind that is asked for here.
  virtual bool isOwn( uint64_t hwFecId ) const = 0;

  // Whether something new may use the FEC: hardware has it, and it has not been given up.
  bool isUsable( uint64_t hwFecId ) const {
    return simulatedSwitch()->fecHas( hwFecId ) && !leaving_.contains( hwFecId );
  }

  // For what is asked for and stands.
  void kept() {
    if ( takeover_ && !takeover_->hasEnded() ) {
      takeover_->keptInc();
    }
  }
  // Whether what is not asked for stays in hardware for now.
  bool leavesStanding() const { return takeover_ && takeover_->collects(); }

  // Sees to what has changed about it, at once or after the delay.
  using Subject = std::variant< Rook::Fib::FecId, User >;
  void changed( const Subject & subject ) {
    if ( answerDelay() > 0 ) {
      asked_.emplace( subject, Vex::Clock::now() );
      dueIs( subject, Vex::Clock::now() + answerDelay() );
    } else {
      agenda_.del( subject );
      asked_.erase( subject );
      seeTo( subject );
    }
  }
  void retry( const Subject & subject ) { dueIs( subject, Vex::Clock::now() + retryInterval() ); }

  // For the call of hardware that is made now, which is told since when its answer is waited for.
  SimulatedSwitch & calledNow() {
    simulatedSwitch()->latencyIs( std::exchange( waited_, 0 ) );
    return *simulatedSwitch();
  }

  // Says of one that it was refused once more.
  template< class Status, class Key >
  static void refused( Status & status, const Key & key, std::string_view why ) {
    status.refusalIs( key, status.refusal( key ).again( why ) );
  }
  static constexpr std::string_view fecNotUsable = "hardware does not have its FEC";

  // What uses which FEC is known from here, not from hardware, which may lose it.
  void usedBy( const User & user, uint64_t hwFecId ) {
    leftBy( user );
    *uses_.findOrAdd( user, [] { return uint64_t( 0 ); } ).first = hwFecId;
    simulatedSwitch()->hwFecIdUseInc( hwFecId );
  }
  void leftBy( const User & user ) {
    const auto * const use = uses_.find( user );
    if ( !use ) {
      return;
    }
    const auto hwFecId = *use;
    uses_.erase( user );
    if ( simulatedSwitch()->hwFecIdUseDec( hwFecId ) == 0 ) {
      simulatedSwitch()->hwFecIdUseDel( hwFecId );
      if ( leftOver_.erase( hwFecId ) > 0 ) {
        deleteFec( hwFecId, Vex::text( hwFecId ) );
      }
    }
  }

private:
  // A request of a FEC that is not answered yet.
  struct Request {
    HwFec fec;
    double withdrawalAsked = 0; // once it has been given up, as the next
    double withdrawalDue = 0;
  };
  class Delay final : public Loom::Timer {
  public:
    Delay( const Vex::Ptr< Loom::TimerWheel > & wheel, SwitchFecs & owner )
        : Timer( wheel ), owner_( owner ) {}

  private:
    void fire() override { owner_.doDueWork(); }
    SwitchFecs & owner_;
  };
  // A part of a takeover that is swept by a function of this one.
  class Sweep final : public KezHelper::TakeoverPart {
  public:
    Sweep( SwitchFecs & owner, bool ( SwitchFecs::*sweep )() ) : owner_( owner ), sweep_( sweep ) {}
    bool sweepOne() override { return ( owner_.*sweep_ )(); }

  private:
    SwitchFecs & owner_;
    bool ( SwitchFecs::*const sweep_ )();
  };

  bool isRequested( Rook::Fib::FecId fecId ) const {
    return !fecRequest()->fec( fecId ).via.empty() && fecRequest()->hwFecIdRequestHas( fecId );
  }
  bool isGivenUp( Rook::Fib::FecId fecId ) const {
    return !fecRequest()->fecHas( fecId ) && !fecRequest()->hwFecIdRequestHas( fecId );
  }
  Request standingRequest( Rook::Fib::FecId fecId ) const {
    return { { fecId.kind() == Rook::Fib::FecKind::macLoadBalance, fecRequest()->fec( fecId ).via,
               fecRequest()->hwFecIdRequest( fecId ).hwTunnelId } };
  }

  void handleFecRequest( Rook::Fib::FecId fecId ) {
    if ( isRequested( fecId ) ) {
      if ( inherited_.size() > 0 && claim( fecId, standingRequest( fecId ).fec ) ) {
        return;
      }
      if ( const auto at = hwFecIds_.find( fecId ); at != hwFecIds_.end() ) {
        leaving_.erase( at->second );
      }
      unanswered_[ fecId ] = standingRequest( fecId );
      changed( fecId );
    } else if ( isGivenUp( fecId ) ) {
      fecResponse()->refusalDel( fecId );
      if ( const auto at = hwFecIds_.find( fecId ); at != hwFecIds_.end() ) {
        leaving_.insert( at->second );
      }
      if ( const auto at = unanswered_.find( fecId ); at != unanswered_.end() ) {
        at->second.withdrawalAsked = Vex::Clock::now();
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
      const auto subject = agenda_.take();
      const auto asked = asked_.extract( subject );
      waited_ = asked ? now - asked.mapped() : 0;
      seeTo( subject );
      waited_ = 0;
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
        asked_.emplace( fecId, unanswered.mapped().withdrawalAsked );
        dueIs( fecId, unanswered.mapped().withdrawalDue );
      }
      answer( fecId, unanswered.mapped() );
    } else if ( isGivenUp( fecId ) ) {
      withdraw( fecId );
    }
  }
  // Which it has, or would be given.
  uint64_t hwFecIdFor( Rook::Fib::FecId fecId ) const {
    if ( const auto at = hwFecIds_.find( fecId ); at != hwFecIds_.end() ) {
      return at->second;
    }
    const auto hwFecId = hwFecIdOf( fecId );
    const bool taken = simulatedSwitch()->fecHas( hwFecId ) || answeredFecId_.contains( hwFecId );
    if ( !taken ) {
      return hwFecId;
    }
    const auto highest = highest_.find( hwFecKindOf( hwFecId ) );
    auto next = highest == highest_.end() ? hwFecId : highest->second + 1;
    while ( simulatedSwitch()->fecHas( next ) ) {
      ++next;
    }
    return next;
  }
  void note( uint64_t hwFecId ) {
    auto & highest = highest_[ hwFecKindOf( hwFecId ) ];
    highest = std::max( highest, hwFecId );
  }
  void isAnsweredWith( Rook::Fib::FecId fecId, uint64_t hwFecId ) {
    hwFecIds_[ fecId ] = hwFecId;
    answeredFecId_[ hwFecId ] = fecId;
  }
  void answer( Rook::Fib::FecId fecId, const Request & request ) {
    auto & hardware = *simulatedSwitch();
    const auto response = hwFecIdResponseOf( hwFecIdFor( fecId ), request.fec );
    const bool room = hardware.hasRoom( Operation::createFec, hardware.fecHas( response.hwFecId ) );
    if ( calledNow().creation(
             Operation::createFec, room, std::nullopt, [ & ] { return Vex::text( fecId ); },
             [ & ] { return Vex::briefText( response ); } ) ) {
      if ( isRequested( fecId ) ) {
        refused( *fecResponse(), fecId, hardware.lastFailure() );
        retry( fecId );
      }
      return;
    }
    fecResponse()->refusalDel( fecId );
    const auto & traceHandle = handle_;
    TRACE( 5, "createFec ", fecId, " hwTunnelId ", request.fec.hwTunnelId );
    hardware.fecIs( response.hwFecId, request.fec );
    note( response.hwFecId );
    isAnsweredWith( fecId, response.hwFecId );
    fecResponse()->hwFecIdResponseIs( fecId, response );
  }
  void withdraw( Rook::Fib::FecId fecId ) {
    const auto at = hwFecIds_.find( fecId );
    if ( at == hwFecIds_.end() ) {
      return;
    }
    const auto hwFecId = at->second;
    if ( leavesStanding() ) {
      inherited_.add( hwFecId, simulatedSwitch()->fec( hwFecId ) );
    } else if ( takeover_ && simulatedSwitch()->hwFecIdUse( hwFecId ) > 0 ) {
      leftOver_.insert( hwFecId ); // by what an earlier life made, which the machine does not know
    } else if ( !deleteFec( hwFecId, Vex::text( fecId ) ) ) {
      return;
    }
    leaving_.erase( hwFecId );
    answeredFecId_.erase( hwFecId );
    hwFecIds_.erase( at );
    fecResponse()->hwFecIdResponseDel( fecId );
  }
  bool deleteFec( uint64_t hwFecId, const Vex::String & name ) {
    auto & hardware = *simulatedSwitch();
    if ( !hardware.fecHas( hwFecId ) ) {
      return true;
    }
    const bool used = hardware.hwFecIdUse( hwFecId ) > 0;
    const bool deleted = calledNow().deletion(
        Operation::deleteFec, wrongIf( used, wrongWhenUsed_ ), [ & ] { return name; } );
    if ( deleted ) {
      const auto & traceHandle = handle_;
      TRACE( 5, "deleteFec ", name );
      hardware.fecDel( hwFecId );
    }
    return deleted;
  }

  // Answers a request from what hardware has. Whether it could.
  bool claim( Rook::Fib::FecId fecId, const HwFec & fec ) {
    if ( hwFecIds_.contains( fecId ) ) {
      return false;
    }
    const auto hwFecId = inherited_.claim( fec );
    if ( hwFecId ) {
      kept();
      isAnsweredWith( fecId, *hwFecId );
      unanswered_.erase( fecId );
      agenda_.del( fecId );
      asked_.erase( fecId );
      fecResponse()->hwFecIdResponseIs( fecId, hwFecIdResponseOf( *hwFecId, fec ) );
    }
    return hwFecId.has_value();
  }
  bool sweepUser() {
    if ( !userWalk_ ) {
      userWalk_ = users().walk();
    }
    const auto user = userWalk_->next();
    if ( user ) {
      see( user->key );
      takeover_->removedInc( users().find( user->key ) ? 0 : 1 );
    }
    return user.has_value();
  }
  bool sweepFec() {
    const auto hwFecId = inherited_.take();
    if ( hwFecId && simulatedSwitch()->hwFecIdUse( *hwFecId ) > 0 ) {
      leftOver_.insert( *hwFecId );
    } else if ( hwFecId ) {
      takeover_->removedInc( 1 );
      deleteFec( *hwFecId, Vex::text( *hwFecId ) );
    }
    return hwFecId.has_value();
  }

  // One that something is due about may be as it was, if it is there.
  std::optional< HwFec > fecOnRecord( uint64_t hwFecId ) const {
    const auto at = answeredFecId_.find( hwFecId );
    const bool answered = at != answeredFecId_.end();
    const auto standing = ownFec( hwFecId );
    if ( answered && isRequested( at->second ) && !( standing && agenda_.has( at->second ) ) ) {
      return standingRequest( at->second ).fec;
    }
    return answered || leftOver_.contains( hwFecId ) ? standing : std::nullopt;
  }

  std::optional< HwFec > ownFec( uint64_t hwFecId ) const {
    return simulatedSwitch()->fecHas( hwFecId ) && isOwn( hwFecId )
               ? std::optional( simulatedSwitch()->fec( hwFecId ) )
               : std::nullopt;
  }

  const std::unique_ptr< const KezHelper::HwFecTable > fecTable_ =
      switchTable< uint64_t, HwFec >( [ this ] { return simulatedSwitch()->fec(); },
                                      [ this ]( uint64_t hwFecId ) { return ownFec( hwFecId ); } );
  const Ringlog::Handle & handle_; // the part's
  const char * const userTable_;
  const char * const wrongWhenUsed_;
  Agenda< Subject > agenda_;
  std::map< Subject, double > asked_; // since when an answer that is late is waited for
  double waited_ = 0;                 // in seconds, for the answer that is being made
  std::map< Rook::Fib::FecId, Request > unanswered_;
  std::map< Rook::Fib::FecId, uint64_t > hwFecIds_;      // of what has been answered
  std::map< uint64_t, Rook::Fib::FecId > answeredFecId_; // the other way round
  Vex::Collection< User, uint64_t > uses_; // the hardware id of the FEC that each uses
  std::set< uint64_t > leaving_;           // hardware ids of what has been given up
  std::map< uint64_t, uint64_t > highest_; // hardware id by its kind, of those there were
  uint64_t changes_ = 0;
  Delay delay_;
  Vex::Ptr< KezHelper::Takeover > takeover_; // null over hardware that was empty
  KezHelper::InheritedFecs inherited_;
  std::set< uint64_t > leftOver_; // of a takeover, as long as they are used
  std::unique_ptr< typename KezHelper::HwTable< User, Data >::Walk > userWalk_; // of the sweep
  Sweep sweepOfUsers_{ *this, &SwitchFecs::sweepUser };
  Sweep sweepOfFecs_{ *this, &SwitchFecs::sweepFec };
  VexFecRequest fecRequestReactor_;
};

template< class User, class Data > size_t SwitchFecs< User, Data >::pendingAnswers() const {
  return agenda_.size();
}

} // namespace Switch
