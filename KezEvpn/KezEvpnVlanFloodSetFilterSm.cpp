#include "KezEvpn/KezEvpnVlanFloodSetFilterSm.h"

#include "Ringlog/Trace.h"

namespace Kez {

static Ringlog::Handle traceHandle( "KezEvpnVlanFloodSetFilterSm" );

VlanFloodSetFilterSm::VlanFloodSetFilterSm( L2Rib::DestType destType,
                                            In< L2Rib::FloodSetOutput > inFloodSetOutput,
                                            Out< L2Rib::FloodSetOutput > outFloodSetOutput )
    : InitializedSm( traceHandle ), destType_( destType ), inFloodSetOutput_( inFloodSetOutput ),
      outFloodSetOutput_( outFloodSetOutput ), inFloodSetOutputReactor_( *this ) {
  inFloodSetOutputReactor_.notifierIs( inFloodSetOutput );
}

Vex::Ptr< VlanFloodSetFilterSm >
vlanFloodSetFilterSmFactory( L2Rib::DestType destType, In< L2Rib::FloodSetOutput > inFloodSetOutput,
                             Out< L2Rib::FloodSetOutput > outFloodSetOutput ) {
  return Vex::makePtr< VlanFloodSetFilterSm >( destType, inFloodSetOutput, outFloodSetOutput );
}

void VlanFloodSetFilterSm::VexInFloodSetOutput::onAttribute( Vex::AttrId id, const void * key ) {
  if ( id == L2Rib::FloodSetOutput::sourceAttr ) {
    handleSource();
  } else {
    MirrorReactor::onAttribute( id, key );
  }
}

void VlanFloodSetFilterSm::VexVlanFloodSet::handleNotifier() {
  const auto sm = this->sm();
  const auto vlan = vlanId();
  sm->vex_handleVlanFloodSet( *this );
  if ( sm->vlanFloodSet( vlan ) == this ) {
    VlanFloodSetReactor::handleNotifier();
  }
}

void VlanFloodSetFilterSm::handleInitialized() {
  TRACE( 8, " handleInitialized" );
  initializedIs( true );
  handleSource();
  deleteStaleDests();
  for ( const auto & [ vlanId, vlanFloodSet ] : inFloodSetOutput()->vlanFloodSet() ) {
    processVlanFloodSet( vlanId );
  }
}

void VlanFloodSetFilterSm::makeUpForZombieMark() {
  handleSource();
  deleteStaleDests();
}

// What stays is not taken away and brought back: who watches the output need not know.
void VlanFloodSetFilterSm::deleteStaleDests() {
  for ( const auto & [ vlanId, vlanFloodSet ] : outFloodSetOutput()->vlanFloodSet() ) {
    for ( const auto & [ mac, floodSet ] : vlanFloodSet->floodSet() ) {
      for ( const auto & dest : floodSet->destSet() ) {
        if ( dest.destType() != destType() || !isDestPresent( vlanId, mac, dest ) ) {
          deleteDest( vlanId, mac, dest );
        }
      }
      vlanFloodSet->floodSetDelIfEmpty( mac );
    }
    outFloodSetOutput()->vlanFloodSetDelIfEmpty( vlanId );
  }
}

void VlanFloodSetFilterSm::VexInFloodSetOutput::handleSource() {
  const auto sm = this->sm();
  if ( sm->initialized() ) {
    TRACE( 8, "handleSource source: ", notifier()->source() );
    sm->handleSource();
  }
}

void VlanFloodSetFilterSm::handleSource() {
  outFloodSetOutput()->sourceIs( inFloodSetOutput()->source() );
}

void VlanFloodSetFilterSm::VexVlanFloodSet::handleVlanFloodSet() {
  const auto sm = this->sm();
  if ( sm->initialized() ) {
    TRACE( 8, "handleVlanFloodSet vlan: ", vlanId() );
    sm->processVlanFloodSet( vlanId() );
  }
}

void VlanFloodSetFilterSm::VexFloodSet::handleFloodSet() {
  const auto sm = this->sm();
  if ( sm->initialized() ) {
    TRACE( 8, " handleFloodSet vlan: ", vlanId(), " mac: ", mac() );
    sm->processFloodSet( vlanId(), mac() );
  }
}

void VlanFloodSetFilterSm::VexFloodSet::handleDestSet( const L2Rib::Dest & dest ) {
  const auto sm = this->sm();
  if ( sm->initialized() ) {
    TRACE( 8, "  handleDestSet vlan: ", vlanId(), " mac: ", mac(), " dest: ", dest );
    sm->processDest( vlanId(), mac(), dest );
  }
}

void VlanFloodSetFilterSm::processVlanFloodSet( Bridging::VlanId vlanId ) {
  TRACE( 8, " processVlanFloodSet vlan: ", vlanId );
  VEX_ASSERT( initialized() );
  if ( const auto vlanFloodSet = inFloodSetOutput()->vlanFloodSet( vlanId ) ) {
    for ( const auto & [ mac, floodSet ] : vlanFloodSet->floodSet() ) {
      processFloodSet( vlanId, mac );
    }
  } else {
    TRACE( 1, "  deleting vlanFloodSet with vlan: ", vlanId );
    outFloodSetOutput()->vlanFloodSetDel( vlanId );
  }
}

void VlanFloodSetFilterSm::processFloodSet( Bridging::VlanId vlanId, const Wire::EthAddr & mac ) {
  TRACE( 8, "  processFloodSet vlan: ", vlanId, " mac: ", mac );
  VEX_ASSERT( initialized() );
  const auto vlanFloodSet = inFloodSetOutput()->vlanFloodSet( vlanId );
  if ( const auto floodSet = vlanFloodSet ? vlanFloodSet->floodSet( mac ) : nullptr ) {
    for ( const auto & dest : floodSet->destSet() ) {
      if ( dest.destType() == destType() ) {
        addDest( vlanId, mac, dest );
      }
    }
    return;
  }
  TRACE( 1, "   deleting floodSet with vlan ", vlanId, " and mac ", mac );
  const auto outVlanFloodSet = outFloodSetOutput()->vlanFloodSet( vlanId );
  if ( !outVlanFloodSet ) {
    return;
  }
  outVlanFloodSet->floodSetDel( mac );
  if ( outVlanFloodSet->floodSets() == 0 ) {
    TRACE( 1, "   deleting vlanFloodSet with vlan ", vlanId );
    outFloodSetOutput()->vlanFloodSetDel( vlanId );
  }
}

void VlanFloodSetFilterSm::processDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                        const L2Rib::Dest & dest ) {
  TRACE( 8, "   processDest vlan: ", vlanId, " mac: ", mac, " dest: ", dest );
  VEX_ASSERT( initialized() );
  if ( dest.destType() != destType() ) {
    return;
  }
  if ( isDestPresent( vlanId, mac, dest ) ) {
    addDest( vlanId, mac, dest );
  } else {
    deleteDest( vlanId, mac, dest );
  }
}

bool VlanFloodSetFilterSm::isDestPresent( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                          const L2Rib::Dest & dest ) const {
  return hasDest( *inFloodSetOutput(), vlanId, mac, dest );
}

void VlanFloodSetFilterSm::addDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                    const L2Rib::Dest & dest ) {
  TRACE( 8, "    addDest vlan: ", vlanId, " mac: ", mac, " dest: ", dest );
  const auto outFloodSet = outFloodSetOutput()->vlanFloodSetIs( vlanId )->floodSetIs( mac );
  const auto vlanFloodSet = inFloodSetOutput()->vlanFloodSet( vlanId );
  if ( const auto floodSet = vlanFloodSet ? vlanFloodSet->floodSet( mac ) : nullptr ) {
    outFloodSet->floodSetTypeIs( floodSet->floodSetType() );
  }
  TRACE( 1, "     adding dest ", dest );
  outFloodSet->destSetIs( dest );
}

void VlanFloodSetFilterSm::deleteDest( Bridging::VlanId vlanId, const Wire::EthAddr & mac,
                                       const L2Rib::Dest & dest ) {
  TRACE( 8, "    deleteDest vlan: ", vlanId, " mac: ", mac, " dest: ", dest );
  const auto outVlanFloodSet = outFloodSetOutput()->vlanFloodSet( vlanId );
  const auto outFloodSet = outVlanFloodSet ? outVlanFloodSet->floodSet( mac ) : nullptr;
  if ( !outFloodSet ) {
    return;
  }
  if ( outFloodSet->destSetHas( dest ) ) {
    TRACE( 1, "     deleting dest ", dest );
    outFloodSet->destSetDel( dest );
  }
  if ( outFloodSet->destSets() == 0 ) {
    TRACE( 1, "     deleting floodSet with vlan ", vlanId, " and mac ", mac );
    outVlanFloodSet->floodSetDel( mac );
  }
  if ( outVlanFloodSet->floodSets() == 0 ) {
    TRACE( 1, "     deleting vlanFloodSet with vlan ", vlanId );
    outFloodSetOutput()->vlanFloodSetDel( vlanId );
  }
}

} // namespace Kez
