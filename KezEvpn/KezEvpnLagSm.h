// Publishes, for every configured LAG that has members, the list of its member ports.
//
// Reads LagCreatorConfigDir::lagConfig and each LagInfo::member (whether a key is there, not its
// value); writes EvpnLagMemberInfo::lagToPort. A LAG has an entry exactly while it is configured
// and has at least one member; the entry is always replaced whole. Nothing can fail softly, and
// everything is done within the notification. A null directory is fatal.
#pragma once

#include "Kez/KezCommonSmData.h"
#include "Kez/LagConfig.h"
#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/frame/StateMachine.h"

namespace Kez {

class EvpnLagSm : public StateMachine {
public:
  class VexLagConfig : public Vex::MemberReactor< EvpnLagSm, LagInfo > {
  public:
    using MemberReactor::MemberReactor;
    Wire::IntfId intfId() const { return fwkKey(); }

    void handleLagConfig();
    void handleLagMemberConfigured( Wire::IntfId memberIntfId );

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
    void handleNotifier() override;
  };

  VEX_ENTITY( EvpnLagSm, "Kez::EvpnLagSm", StateMachine )
  VEX_INPUT( 1, acsd, KezCommonSmData )
  VEX_INPUT( 2, lagConfigDir, LagCreatorConfigDir )
  VEX_OUTPUT( 3, evpnLagMemberInfo, EvpnLagMemberInfo )
  VEX_REACTORS( 4, lagConfig, VexLagConfig )
  VEX_ATTRIBUTES( acsd, lagConfigDir, evpnLagMemberInfo, lagConfig )
  VEX_OPERATIONS( VEX_OPERATION( publishEvpnLagMemberInfo, lagIntfId, portList ) )

  using VexLagConfigDir =
      Vex::MirrorReactor< LagCreatorConfigDir::lagConfigEntities, lagConfigReactors >;

  EvpnLagSm( In< KezCommonSmData > acsd, In< LagCreatorConfigDir > lagConfigDir,
             Out< EvpnLagMemberInfo > evpnLagMemberInfo );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< EvpnLagSm > EvpnLagSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< EvpnLagSm >( arguments... );
  }

  // LAGs that come or go from now on are not heard of; those that are known still are.
  void lagConfigDirDel();
  void vex_handleLagConfig( VexLagConfig & reactor );
  void publishEvpnLagMemberInfo( Wire::IntfId lagIntfId, const KezPortList & portList );
  void explain( const Subject & subject, Explanation & out ) const override;
  void check( Findings & out ) const override;

private:
  VexLagConfigDir lagConfigDirReactor_;
};

// Adds the member to the list under construction if the LAG has it, else removes it.
void processMemberIntf( Wire::IntfId lagIntfId, Wire::IntfId memberIntfId, KezPortList & portList,
                        const Vex::Ptr< EvpnLagSm > & sm );

Vex::Ptr< EvpnLagSm > evpnLagSmFactory( In< KezCommonSmData > acsd,
                                        In< LagCreatorConfigDir > lagConfigDir,
                                        Out< EvpnLagMemberInfo > evpnLagMemberInfo );

} // namespace Kez
