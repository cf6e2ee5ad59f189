// The simulated switch's side of hosts: programs the FECs that are requested for their chains, and
// for each host that is published with one an entry of the MAC table, and answers.
//
// An entry that comes to have another FEC is written over. One that could not be programmed stays
// with the FEC that it has, or away, and is tried again after `retryInterval`.
#pragma once

#include "KezEvpn/MacFecs.h"
#include "switch/SwitchFecs.h"

namespace Switch {

class SwitchMacs : public SwitchFecs< Bridging::MacVlanPair, uint64_t > {
public:
  class VexMacAddrFecStatus : public Vex::ReactorOf< SwitchMacs, Kez::MacAddrFecStatus > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( SwitchMacs, "Switch::SwitchMacs", SwitchFecs< Bridging::MacVlanPair, uint64_t > )
  VEX_INPUT( 1, macAddrFecStatus, Kez::MacAddrFecStatus )
  VEX_OUTPUT( 2, macAddrHwStatus, Kez::MacAddrHwStatus )
  VEX_ATTRIBUTES( macAddrFecStatus, macAddrHwStatus )

  SwitchMacs( const Vex::Ptr< SimulatedSwitch > & hardware,
              const Vex::Ptr< Loom::TimerWheel > & timerWheel,
              const Vex::Ptr< const Kez::FecIdToHwFecIdRequest > & fecRequest,
              const Vex::Ptr< Kez::FecIdToHwFecIdResponse > & fecResponse,
              const Vex::Ptr< const Kez::MacAddrFecStatus > & macAddrFecStatus,
              const Vex::Ptr< Kez::MacAddrHwStatus > & macAddrHwStatus );

  const KezHelper::HwTable< Bridging::MacVlanPair, uint64_t > & users() const override {
    return *macEntries_;
  }

private:
  void see( const Bridging::MacVlanPair & host ) override;
  uint64_t hwFecIdUsedBy( const Bridging::MacVlanPair &, const uint64_t & hwFecId ) const override {
    return hwFecId;
  }
  bool isOwn( uint64_t hwFecId ) const override;
  uint64_t dataOf( const Bridging::MacVlanPair &, uint64_t hwFecId ) const override {
    return hwFecId;
  }
  void removeUser( const Bridging::MacVlanPair & host ) override;
  void lost( const Bridging::MacVlanPair & host ) override;
  void program( const Bridging::MacVlanPair & host, const Kez::MacFec & fec );
  void unprogram( const Bridging::MacVlanPair & host );

  const std::unique_ptr< const KezHelper::HwTable< Bridging::MacVlanPair, uint64_t > > macEntries_;
  VexMacAddrFecStatus macAddrFecStatusReactor_;
};

} // namespace Switch
