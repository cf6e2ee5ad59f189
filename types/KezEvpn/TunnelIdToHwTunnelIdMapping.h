// Which hardware tunnel id each remote tunnel has that has one: the output that other machines
// watch, and that other processes read from the shared table "tunnelIdToHwTunnelId".
//
// One machine writes it. Each write of a record tells its key, also when nothing in it differs.
// A table that is damaged ends its writer. One that cannot grow refuses new records with
// Rook::NoRoom; who asks tunnelIdToHwTunnelIdMakeRoom() first never meets that.
#pragma once

#include "KezEvpn/KezEvpn.h"
#include "Rook/CollectionControl.h"
#include "Rook/TableAttribute.h"

namespace Kez {

class TunnelIdToHwTunnelIdMapping;

// Lets the collection control outlive the mapping: when the last reference to that goes, the
// control refers to it no more.
class TunnelIdToHwTunnelIdMappingZeroReferencesNotifiee : public Vex::ZeroReferencesNotifiee {
public:
  explicit TunnelIdToHwTunnelIdMappingZeroReferencesNotifiee(
      TunnelIdToHwTunnelIdMapping & mapping )
      : mapping_( mapping ) {}

  void onZeroReferences( const Vex::Entity & entity ) override;

private:
  TunnelIdToHwTunnelIdMapping & mapping_;
};

class TunnelIdToHwTunnelIdMapping : public MachineState {
  VEX_ENTITY( TunnelIdToHwTunnelIdMapping, "Kez::TunnelIdToHwTunnelIdMapping" )
  VEX_TABLE( 1, tunnelIdToHwTunnelId, TunnelIdToHwTunnelId, key )
  VEX_REFERENCE( 2, tunnelIdToHwTunnelIdControl, Rook::CollectionControl )
  VEX_COMPUTED( 3, notifications, uint64_t )
  VEX_ATTRIBUTES( tunnelIdToHwTunnelId, tunnelIdToHwTunnelIdControl, notifications )
  VEX_OPERATIONS( VEX_OPERATION( tunnelIdToHwTunnelIdNotifyMountStatus ) )

public:
  // Mounts the table, with a control of its own. Raises std::runtime_error when the table cannot
  // be mounted.
  explicit TunnelIdToHwTunnelIdMapping( const Vex::String & name );

  // The control that was there refers to this entity no more; one that another mapping has taken
  // over goes on referring to that.
  void tunnelIdToHwTunnelIdControlIs( const Vex::Ptr< Rook::CollectionControl > & control );
  void tunnelIdToHwTunnelIdNotifyQuiesced( bool quiesced );
  void tunnelIdToHwTunnelIdNotifyMountStatus();

private:
  void publishTable();

  TunnelIdToHwTunnelIdMappingZeroReferencesNotifiee zeroReferencesNotifiee_;
};

// Raises std::runtime_error as the constructor does.
Vex::Ptr< TunnelIdToHwTunnelIdMapping >
tunnelIdToHwTunnelIdMappingFactory( const Vex::String & name );

} // namespace Kez
