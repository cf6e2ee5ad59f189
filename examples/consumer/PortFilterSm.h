// A small machine, complete: keeps a hardware filter on every interface whose encapsulated BUM
// traffic is filtered.
//
// Reads EvpnStatus::encapBumFilter; calls PortFilterHelper. An interface is in `programmed`
// exactly while hardware has its filter, in `unprogrammed` exactly while it is wanted and was
// refused; a review of the refused ones is due as long as there are any.
#pragma once

#include "Evpn/EvpnStatus.h"
#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/frame/Parking.h"
#include "KezHelper/KezBaseHelper.h"

namespace Example {

// What a platform implements for its chip.
class PortFilterHelper : public Kez::KezBaseHelper {
  VEX_ENTITY( PortFilterHelper, "Example::PortFilterHelper", Kez::KezBaseHelper )
  VEX_ATTRIBUTES()

public:
  using KezBaseHelper::KezBaseHelper;
  virtual Kez::HwProgrammingStatus createFilter( Wire::IntfId intfId ) = 0;
  virtual void deleteFilter( Wire::IntfId intfId ) = 0;
};

class PortFilterSm : public Kez::RetryingSm< Wire::IntfId > {
public:
  class VexEvpnStatus : public Vex::ReactorOf< PortFilterSm, Evpn::EvpnStatus > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( PortFilterSm, "Example::PortFilterSm", Kez::RetryingSm< Wire::IntfId > )
  VEX_OUTPUT( 1, helper, PortFilterHelper )
  VEX_OUTPUT( 2, scheduler, Loom::TaskScheduler )
  VEX_INPUT( 3, evpnStatus, Evpn::EvpnStatus )
  VEX_SET( 4, programmed, Wire::IntfId )
  VEX_SET( 5, unprogrammed, Wire::IntfId )
  VEX_ATTRIBUTES( helper, scheduler, evpnStatus, programmed, unprogrammed )

  PortFilterSm( Kez::Out< PortFilterHelper > helper, Kez::Out< Loom::TaskScheduler > scheduler,
                Kez::In< Evpn::EvpnStatus > evpnStatus );

  void handleInitialized() override;
  void handleEncapBumFilter( Wire::IntfId intfId );
  void programFilter( Wire::IntfId intfId );
  void unprogramFilter( Wire::IntfId intfId );
  void doReviewUnprogrammed() override;
  void explain( const Kez::Subject & subject, Kez::Explanation & out ) const override;
  void addMissing( Kez::Missing & out ) const override;
  void check( Kez::Findings & out ) const override;

private:
  size_t parked() const override { return unprogrammeds(); }

  Kez::Parking< Wire::IntfId > parking_;
  VexEvpnStatus evpnStatusReactor_;
};

} // namespace Example
