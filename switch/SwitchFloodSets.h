// The simulated switch's side of flood sets: programs the FECs that are requested and the
// configurations of flood-set destinations, and answers.
//
// An answer comes within the write that it answers, or `answerDelay` later. A FEC is answered as it
// was requested, so that a delayed answer may come for one that has been given up meanwhile; one
// that is requested anew is not withdrawn in between. What is configured is looked at when its turn
// comes. What is due at one time is taken in order, or, with a `shuffleSeed`, in a random one, but
// for what concerns the same FEC. What could not be programmed is tried again after
// `retryInterval`, a destination with the status notProgrammed meanwhile. Deleting a FEC that a
// destination uses is a wrong call.
#pragma once

#include "Loom/TimerWheel.h"
#include "switch/SimulatedSwitch.h"

#include <deque>
#include <map>
#include <random>
#include <variant>

namespace Switch {

class SwitchFloodSets : public Vex::Entity, public Vex::ReactorOwner {
public:
  class VexFecRequest : public Vex::ReactorOf< SwitchFloodSets, Kez::FecIdToHwFecIdRequest > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
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
  VEX_ATTRIBUTE( 7, answerDelay, double )        // in seconds; 0: within the write
  VEX_ATTRIBUTE( 8, shuffleSeed, uint64_t )      // 0: in order
  VEX_ATTRIBUTE( 9, retryInterval, double, 5.0 ) // in seconds
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
  // The answer to a request, or its withdrawal.
  struct FecWork {
    Rook::Fib::FecId fecId;
    std::optional< Kez::HwFecIdResponse > answer;
    Kez::HwTunnelId hwTunnelId;
    bool retry = false; // worth it only while the FEC is requested
  };
  using DestWork = Kez::FloodSetMplsDestConfig;
  struct Work {
    double due;
    std::variant< FecWork, DestWork > what;
  };
  class Delay final : public Loom::Timer {
  public:
    Delay( const Vex::Ptr< Loom::TimerWheel > & wheel, SwitchFloodSets & owner )
        : Timer( wheel ), owner_( owner ) {}

  private:
    void fire() override { owner_.doDueWork(); }
    SwitchFloodSets & owner_;
  };

  void handleFecRequest( Rook::Fib::FecId fecId );
  void accept( const FecWork & work );
  void accept( const DestWork & work );
  template< class T > void workLater( const T & work, double due );
  void doDueWork();
  size_t nextWork( double now );
  void doWork( const FecWork & work );
  void doWork( const DestWork & work );

  std::deque< Work > work_;                          // by due time
  std::map< Rook::Fib::FecId, double > lastFecWork_; // when the last that was accepted is due
  std::mt19937_64 random_;
  Delay delay_;
  VexFecRequest fecRequestReactor_;
  VexHwConfig hwConfigReactor_;
};

} // namespace Switch
