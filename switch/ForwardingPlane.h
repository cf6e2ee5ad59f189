// What the simulated switch does to a frame: its copies, and the entries that stopped those which
// are not made. A function of the switch's tables and of what else the switch is told (LAGs,
// service labels, its ESI labels, the hosts behind its own interfaces), and of nothing before.
//
// What the tables say is put together when a frame comes, and again when one comes after a table
// has changed; that saves time, and decides nothing.
#pragma once

#include "switch/ForwardingInput.h"
#include "switch/ForwardingLists.h"

#include <memory>

namespace Switch {

class ForwardingPlane : public Vex::Entity, public Vex::ReactorOwner {
public:
  // Watches a member entity whose every attribute counts.
  template< class Notifier >
  class WatchOf : public Vex::MemberReactor< ForwardingPlane, Notifier > {
  public:
    using Vex::MemberReactor< ForwardingPlane, Notifier >::MemberReactor;

  private:
    void onAttribute( Vex::AttrId, const void * ) override { this->sm()->listsDel(); }
    // An entity that is put back has its attributes as it comes.
    void handleNotifier() override { this->sm()->listsDel(); }
  };
  using VexHwTunnelIdPool = WatchOf< HwTunnelIdPool >;
  using VexLagInfo = WatchOf< Kez::LagInfo >;

  VEX_ENTITY( ForwardingPlane, "Switch::ForwardingPlane" )
  VEX_INPUT( 1, simulatedSwitch, SimulatedSwitch )
  VEX_INPUT( 2, forwardingInput, ForwardingInput )
  VEX_INPUT( 3, lagConfigDir, Kez::LagCreatorConfigDir )
  VEX_INPUT( 4, evpnStatus, Evpn::EvpnStatus )
  VEX_REACTORS( 5, hwTunnelIdPool, VexHwTunnelIdPool )
  VEX_REACTORS( 6, lagInfo, VexLagInfo )
  VEX_ATTRIBUTES( simulatedSwitch, forwardingInput, lagConfigDir, evpnStatus, hwTunnelIdPool,
                  lagInfo )

  ForwardingPlane( const Vex::Ptr< const SimulatedSwitch > & hardware,
                   const Vex::Ptr< const ForwardingInput > & forwardingInput,
                   const Vex::Ptr< const Kez::LagCreatorConfigDir > & lagConfigDir,
                   const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus );

  // In place of what `out` holds, whose memory is used again.
  void forward( const Crossing & in, const Frame & frame, Forwarded & out );

private:
  class VexSimulatedSwitch : public Vex::MirrorReactor< SimulatedSwitch::hwTunnelIdPoolEntities,
                                                        hwTunnelIdPoolReactors > {
  public:
    using MirrorReactor::MirrorReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };
  using VexLagConfigDir =
      Vex::MirrorReactor< Kez::LagCreatorConfigDir::lagConfigEntities, lagInfoReactors >;
  class VexEvpnStatus : public Vex::ReactorOf< ForwardingPlane, Evpn::EvpnStatus > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  const ForwardingLists & lists();
  void listsDel() { lists_.reset(); }

  void forwardFromPort( const Crossing & in, const Frame & frame, Forwarded & out );
  void forwardFromTunnel( const Crossing & in, const Frame & frame, Forwarded & out );
  // `from` is where the frame came in, with no interface when that was a tunnel. Whether the
  // address is a host's.
  bool toHost( const VlanLists & vlan, const PortVlanKey & from, const Frame & frame,
               Forwarded & out ) const;
  void toLocalHost( const VlanLists & vlan, const PortVlanKey & from, Wire::IntfId intfId,
                    const Frame & frame, Forwarded & out ) const;
  void toRemoteHost( uint64_t hwFecId, const Frame & frame, Forwarded & out ) const;

  std::unique_ptr< const ForwardingLists > lists_; // null once a table has changed
  VexSimulatedSwitch simulatedSwitchReactor_;
  VexLagConfigDir lagConfigDirReactor_;
  VexEvpnStatus evpnStatusReactor_;
};

} // namespace Switch
