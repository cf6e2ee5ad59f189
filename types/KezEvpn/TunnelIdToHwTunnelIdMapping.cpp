#include "KezEvpn/TunnelIdToHwTunnelIdMapping.h"

namespace Kez {

void TunnelIdToHwTunnelIdMappingZeroReferencesNotifiee::onZeroReferences( const Vex::Entity & ) {
  mapping_.tunnelIdToHwTunnelIdControlIs( nullptr );
  mapping_.zeroReferencesNotifieeDel( this );
}

TunnelIdToHwTunnelIdMapping::TunnelIdToHwTunnelIdMapping( const Vex::String & name )
    : zeroReferencesNotifiee_( *this ) {
  nameIs( name );
  zeroReferencesNotifieeIs( &zeroReferencesNotifiee_ );
  tunnelIdToHwTunnelId_.statusHandlerIs( [ this ] { publishTable(); } );
  tunnelIdToHwTunnelIdMount();
  tunnelIdToHwTunnelIdControlIs( Vex::makePtr< Rook::CollectionControl >() );
}

uint64_t TunnelIdToHwTunnelIdMapping::notifications() const {
  return tunnelIdToHwTunnelIdNotifications();
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdControlIs(
    const Vex::Ptr< Rook::CollectionControl > & control ) {
  if ( control == tunnelIdToHwTunnelIdControl_ ) {
    return;
  }
  const auto left = tunnelIdToHwTunnelIdControl_;
  tunnelIdToHwTunnelIdControl_ = control;
  if ( left && left->entity() == this ) {
    left->entityIs( nullptr );
  }
  if ( control ) {
    control->entityIs( this );
    publishTable();
  }
  vexNotify( tunnelIdToHwTunnelIdControlAttr, nullptr );
}

void TunnelIdToHwTunnelIdMapping::publishTable() {
  tunnelIdToHwTunnelIdNotifyMountStatus();
  tunnelIdToHwTunnelIdNotifyQuiesced( tunnelIdToHwTunnelId_.quiesced() );
  if ( tunnelIdToHwTunnelIdControl_ ) {
    tunnelIdToHwTunnelIdControl_->notificationsSuppressedIs(
        tunnelIdToHwTunnelId_.notificationsSuppressed() );
  }
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdNotifyQuiesced( bool quiesced ) {
  if ( tunnelIdToHwTunnelIdControl_ ) {
    tunnelIdToHwTunnelIdControl_->quiescedIs( quiesced );
  }
}

void TunnelIdToHwTunnelIdMapping::tunnelIdToHwTunnelIdNotifyMountStatus() {
  if ( tunnelIdToHwTunnelIdControl_ ) {
    tunnelIdToHwTunnelIdControl_->mountStatusIs( tunnelIdToHwTunnelId_.mountStatus() );
  }
}

Vex::Ptr< TunnelIdToHwTunnelIdMapping >
tunnelIdToHwTunnelIdMappingFactory( const Vex::String & name ) {
  return Vex::makePtr< TunnelIdToHwTunnelIdMapping >( name );
}

} // namespace Kez
