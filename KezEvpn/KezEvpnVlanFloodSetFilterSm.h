// Copies, of a flood-set output, what has destinations of one type into another one.
//
// Reads FloodSetOutput down to each FloodSet::destSet, and its source; writes a second
// FloodSetOutput. A VLAN or a flood set is in the output exactly while it has a destination of the
// type; a flood set has the type that the input's had when a destination was last added. Starting,
// the machine removes what an earlier one left and the input does not have. Nothing can fail, and
// everything is done within the notification.
#pragma once

#include "KezEvpn/frame/FloodSetReactors.h"

namespace Kez {

class VlanFloodSetFilterSm : public InitializedSm {
public:
  class VexFloodSet : public FloodSetReactor< VlanFloodSetFilterSm > {
  public:
    using FloodSetReactor::FloodSetReactor;
    void handleFloodSet() override;
    void handleDestSet( const L2Rib::Dest & dest ) override;
  };

  class VexVlanFloodSet : public VlanFloodSetReactor< VlanFloodSetFilterSm, VexFloodSet > {
  public:
    using VlanFloodSetReactor::VlanFloodSetReactor;
    void handleVlanFloodSet();

  private:
    void handleNotifier() override;
  };

  VEX_ENTITY( VlanFloodSetFilterSm, "Kez::VlanFloodSetFilterSm", InitializedSm )
  VEX_ATTRIBUTE( 1, destType, L2Rib::DestType )
  VEX_INPUT( 2, inFloodSetOutput, L2Rib::FloodSetOutput )
  VEX_OUTPUT( 3, outFloodSetOutput, L2Rib::FloodSetOutput )
  VEX_REACTORS( 4, vlanFloodSet, VexVlanFloodSet )
  VEX_ATTRIBUTES( destType, inFloodSetOutput, outFloodSetOutput, vlanFloodSet )

  class VexInFloodSetOutput
      : public Vex::MirrorReactor< L2Rib::FloodSetOutput::vlanFloodSetEntities,
                                   vlanFloodSetReactors > {
  public:
    using MirrorReactor::MirrorReactor;
    void handleSource();

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VlanFloodSetFilterSm( L2Rib::DestType destType, In< L2Rib::FloodSetOutput > inFloodSetOutput,
                        Out< L2Rib::FloodSetOutput > outFloodSetOutput );
  // Takes what the constructor takes.
  template< class... Arguments >
  static Vex::Ptr< VlanFloodSetFilterSm > VlanFloodSetFilterSmIs( const Arguments &... arguments ) {
    return Vex::makePtr< VlanFloodSetFilterSm >( arguments... );
  }

  void handleInitialized() override;
  void vex_handleFloodSet( FloodSetReactor< VlanFloodSetFilterSm > & reactor ) {
    reactor.handleFloodSet();
  }
  void vex_handleVlanFloodSet( VexVlanFloodSet & reactor ) { reactor.handleVlanFloodSet(); }
  void handleSource();

  void processVlanFloodSet( Bridging::VlanId vlanId );
  void processFloodSet( Bridging::VlanId vlanId, const Wire::EthAddr & mac );
  void processDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac, const L2Rib::Dest & dest );
  bool isDestPresent( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                      const L2Rib::Dest & dest ) const;
  void explain( const Subject & subject, Explanation & out ) const override;
  void check( Findings & out ) const override;
  void addDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac, const L2Rib::Dest & dest );
  void deleteDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac, const L2Rib::Dest & dest );

private:
  void makeUpForZombieMark() override;
  void deleteStaleDests();

  VexInFloodSetOutput inFloodSetOutputReactor_;
};

Vex::Ptr< VlanFloodSetFilterSm >
vlanFloodSetFilterSmFactory( L2Rib::DestType destType, In< L2Rib::FloodSetOutput > inFloodSetOutput,
                             Out< L2Rib::FloodSetOutput > outFloodSetOutput );

} // namespace Kez
