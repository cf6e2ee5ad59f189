// The simulated switch's side of flood sets: programs the FECs that are requested and the
// configurations of flood-set destinations, and answers.
//
// A FEC is requested while both halves of its request stand, with a via, and given up when neither
// does. An answer comes within the write that it answers, or `answerDelay` later, and is one to
// what is requested or configured when its turn comes. A FEC that has been given up meanwhile is
// answered all the same, since hardware has not heard of that yet; one that is requested anew is
// not withdrawn in between. What is due at one time is taken in order, or, with a `shuffleSeed`, in
// a random one. What could not be programmed is tried again after `retryInterval`, once for each
// FEC or destination however often it has changed, a destination with the status notProgrammed
// meanwhile. Deleting a FEC that a destination uses is a wrong call.
#pragma once

#include "Loom/TimerWheel.h"
#include "switch/Agenda.h"
#include "switch/SimulatedSwitch.h"

#include <variant>

namespace Switch {

class SwitchFloodSets : public Vex::Entity, public Vex::ReactorOwner {
public:
  class VexFecRequest : public Vex::ReactorOf< SwitchFloodSets, Kez::FecIdToHwFecIdRequest > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  class VexVlanFloodSetConfig
      : public Vex::MemberReactor< SwitchFloodSets, Kez::VlanFloodSetConfig > {
  public:
    using MemberReactor::MemberReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( SwitchFloodSets, "Switch::SwitchFloodSets" )
  VEX_OUTPUT( 1, simulatedSwitch, SimulatedSwitch )
  VEX_INPUT( 2, fecRequest, Kez::FecIdToHwFecIdRequest )
  VEX_OUTPUT( 3, fecResponse, Kez::FecIdToHwFecIdResponse )
  VEX_INPUT( 4, hwConfig, Kez::EvpnVlanFloodSetHwConfig )
  VEX_OUTPUT( 5, hwStatus, Kez::EvpnVlanFloodSetHwStatus )
  VEX_REACTORS( 6, vlanFloodSetConfig, VexVlanFloodSetConfig )
  VEX_ATTRIBUTE( 7, answerDelay, Vex::Seconds ) // 0: within the write
  VEX_ATTRIBUTE( 8, shuffleSeed, uint64_t )     // 0: in order
  VEX_ATTRIBUTE( 9, retryInterval, Vex::Interval, 5.0 )
  VEX_COMPUTED( 10, pendingAnswers, size_t )
  VEX_ATTRIBUTES( simulatedSwitch, fecRequest, fecResponse, hwConfig, hwStatus, vlanFloodSetConfig,
                  answerDelay, shuffleSeed, retryInterval, pendingAnswers )

  using VexHwConfig = Vex::MirrorReactor< Kez::EvpnVlanFloodSetHwConfig::configEntities,
                                          vlanFloodSetConfigReactors >;

  SwitchFloodSets( const Vex::Ptr< SimulatedSwitch > & hardware,
                   const Vex::Ptr< Loom::TimerWheel > & timerWheel,
                   const Vex::Ptr< const Kez::FecIdToHwFecIdRequest > & fecRequest,
                   const Vex::Ptr< Kez::FecIdToHwFecIdResponse > & fecResponse,
                   const Vex::Ptr< const Kez::EvpnVlanFloodSetHwConfig > & hwConfig,
                   const Vex::Ptr< Kez::EvpnVlanFloodSetHwStatus > & hwStatus );

  // What hardware answers for a FEC.
  static uint64_t hwFecIdOf( Rook::Fib::FecId fecId );

private:
  // A request of a FEC that is not answered yet.
  struct Request {
    Kez::HwFecIdResponse answer;
    Kez::HwTunnelId hwTunnelId;
    double withdrawalDue = 0; // once it has been given up
  };
  using Dest = Kez::FloodSetMplsDestConfig;
  using Subject = std::variant< Rook::Fib::FecId, Dest >;
  class Delay final : public Loom::Timer {
  public:
    Delay( const Vex::Ptr< Loom::TimerWheel > & wheel, SwitchFloodSets & owner )
        : Timer( wheel ), owner_( owner ) {}

  private:
    void fire() override { owner_.doDueWork(); }
    SwitchFloodSets & owner_;
  };

  void handleFecRequest( Rook::Fib::FecId fecId );
  bool isRequested( Rook::Fib::FecId fecId ) const;
  bool isGivenUp( Rook::Fib::FecId fecId ) const;
  Request standingRequest( Rook::Fib::FecId fecId ) const;
  // Sees to what has changed about it, at once or after the delay.
  void changed( const Subject & subject );
  void dueIs( const Subject & subject, double due );
  uint64_t nextOrder();
  void doDueWork();
  // Brings hardware, and what it answers, to what is asked for.
  void see( Rook::Fib::FecId fecId );
  void see( const Dest & dest );
  void answer( Rook::Fib::FecId fecId, const Request & request );
  void withdraw( Rook::Fib::FecId fecId );
  void program( const Dest & dest );
  void unprogram( const Dest & dest );

  Agenda< Subject > agenda_;
  std::map< Rook::Fib::FecId, Request > unanswered_;
  uint64_t changes_ = 0;
  Delay delay_;
  VexFecRequest fecRequestReactor_;
  VexHwConfig hwConfigReactor_;
};

} // namespace Switch
