// Hands the switch's thread what its tables take from entities of the host's: FECs and what uses
// them, which the driver answers for at once since memory always has room for them; hardware tunnel
// ids; and what no machine programs. A change goes on its way within the write that makes it, in
// order with the helpers' calls.
//
// A real product's driver writes its chip here too, and answers a FEC when the chip has.
#pragma once

#include "SwitchThread.h"

namespace LinuxPe {

// What is handed over. Nothing stands in it when the feed begins.
struct FeedSources {
  Vex::Ptr< const Switch::SimulatedSwitch > books;
  Vex::Ptr< const Switch::ForwardingInput > forwarding;
  Vex::Ptr< const Kez::LagCreatorConfigDir > lags;
  Vex::Ptr< const Evpn::EvpnStatus > segments;
  Vex::Ptr< const CoreConfig > core;
};

class TableFeed : public Vex::Entity, public Vex::ReactorOwner {
public:
  class VexHwTunnelIdPool : public Vex::MemberReactor< TableFeed, Switch::HwTunnelIdPool > {
  public:
    using MemberReactor::MemberReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };
  class VexLagInfo : public Vex::MemberReactor< TableFeed, Kez::LagInfo > {
  public:
    using MemberReactor::MemberReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
    void handOver( Wire::IntfId port );
  };

  VEX_ENTITY( TableFeed, "LinuxPe::TableFeed" )
  VEX_INPUT( 1, books, Switch::SimulatedSwitch )
  VEX_INPUT( 2, lags, Kez::LagCreatorConfigDir )
  VEX_REACTORS( 3, hwTunnelIdPool, VexHwTunnelIdPool )
  VEX_REACTORS( 4, lagInfo, VexLagInfo )
  VEX_ATTRIBUTES( books, lags, hwTunnelIdPool, lagInfo )

  // The thread outlives it.
  TableFeed( SwitchThread & thread, const FeedSources & sources );

private:
  class VexBooks : public Vex::MirrorReactor< Switch::SimulatedSwitch::hwTunnelIdPoolEntities,
                                              hwTunnelIdPoolReactors > {
  public:
    using MirrorReactor::MirrorReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };
  class VexLags
      : public Vex::MirrorReactor< Kez::LagCreatorConfigDir::lagConfigEntities, lagInfoReactors > {
  public:
    using MirrorReactor::MirrorReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };
  class VexForwarding : public Vex::ReactorOf< TableFeed, Switch::ForwardingInput > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };
  class VexSegments : public Vex::ReactorOf< TableFeed, Evpn::EvpnStatus > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };
  class VexCore : public Vex::ReactorOf< TableFeed, CoreConfig > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  SwitchThread & thread_;
  VexBooks booksReactor_;
  VexLags lagsReactor_;
  VexForwarding forwardingReactor_;
  VexSegments segmentsReactor_;
  VexCore coreReactor_;
};

} // namespace LinuxPe
