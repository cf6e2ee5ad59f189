// What the machines share that program, for pairs of an interface and a VLAN, every port of the
// interface through the flooding helper: the two-way index of interfaces and VLANs, the
// expansion of a LAG into its ports, the status of a pair by port, and its parking.
//
// A pair's status is there from the first attempt until the pair is unprogrammed. `programmed`
// holds exactly the ports that hardware has; the pair is parked exactly while its status has
// unprogrammed ports. A port is in both only when it bears a force mark.
#pragma once

#include "Evpn/EvpnStatus.h"
#include "KezEvpn/KezEvpn.h"
#include "KezEvpn/Review.h"
#include "KezHelper/EvpnFloodingSmHelper.h"

#include <optional>

namespace Kez {

// What becomes of a programmed port that bears a force mark: it is removed and programmed anew, or
// programmed over what hardware has.
enum class ForceMark { removeFirst, programOver };

// What is traced of ports, at level 5; nothing where a text is empty.
struct PortTexts {
  std::string_view noLagConfiguration;
  std::string_view noLagMembers;
  std::string_view alreadyProgrammed;
  std::string_view programmed;
  std::string_view failed;
  std::string_view invalidHwId;
};

class PortProgrammingSm : public RetryingSm< IntfVlanKey > {
public:
  class VexEvpnLagMemberInfo : public Vex::ReactorOf< PortProgrammingSm, EvpnLagMemberInfo > {
  public:
    using ReactorOf::ReactorOf;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override;
  };

  VEX_ENTITY( PortProgrammingSm, "Kez::PortProgrammingSm", RetryingSm< IntfVlanKey > )
  VEX_OUTPUT( 40, floodingHelper, KezHelper::EvpnFloodingSmHelper )
  VEX_OUTPUT( 41, scheduler, Loom::TaskScheduler )
  VEX_INPUT( 42, evpnLagMemberInfo, EvpnLagMemberInfo )
  VEX_INPUT( 43, evpnStatus, Evpn::EvpnStatus )
  VEX_ENTITIES( 44, intfVlanSet, IntfVlanSet )
  VEX_ENTITIES( 45, vlanIntfSet, VlanIntfSet )
  VEX_ATTRIBUTES( floodingHelper, scheduler, evpnLagMemberInfo, evpnStatus, intfVlanSet,
                  vlanIntfSet )

  virtual void handleLagPort( Wire::IntfId intfId ) = 0;
  virtual void maybeScheduleUnprogrammedReview( bool immediate );
  void doReviewUnprogrammed() override;

protected:
  // An attribute of the machine's own.
  template< class Storage > struct Own {
    Storage & members;
    Vex::AttrId id;
  };
  // What a machine differs in.
  struct Traits {
    Own< Vex::EntityStorage< IntfVlanStatus > > status;
    Own< Vex::SetStorage< IntfVlanKey > > unprogrammed;
    const PortTexts & texts;
    Ringlog::Handle & traceHandle;
    Resume resume;
  };
  PortProgrammingSm( const Traits & traits,
                     const Vex::Ptr< KezHelper::EvpnFloodingSmHelper > & floodingHelper,
                     const Vex::Ptr< Loom::TaskScheduler > & scheduler,
                     const Vex::Ptr< const EvpnLagMemberInfo > & evpnLagMemberInfo,
                     const Vex::Ptr< const Evpn::EvpnStatus > & evpnStatus );

  // For the end of a machine's constructor.
  void watchLagPorts() { evpnLagMemberInfoReactor_.notifierIs( evpnLagMemberInfo() ); }

  // What a review does with a parked key.
  virtual void retry( const IntfVlanKey & key ) = 0;

  void addToIndex( Wire::IntfId intfId, Bridging::VlanId vlanId );
  void removeFromIndex( Wire::IntfId intfId, Bridging::VlanId vlanId );

  // The interface itself, or the ports of a LAG; nothing for a LAG that has none.
  std::optional< KezPortList > portsOf( Wire::IntfId intfId ) const;
  // Says what the interface lacks to have ports.
  void explainMissingPorts( Wire::IntfId intfId, Explanation & out ) const;
  // Says which ports of a pair are in hardware, and which are not.
  void explainPorts( const IntfVlanKey & key, Explanation & out ) const;
  // Says how often hardware refused what is parked.
  void explainRefusal( const IntfVlanKey & key, Explanation & out ) const;

  // What comes before programming a pair's ports: it is parked no more, and `unprogram( port,
  // forceReprogram )` runs for every programmed port that is not in `ports` or, under
  // ForceMark::removeFirst, bears a mark. True if there was one.
  template< class Unprogram >
  bool dropStalePorts( const IntfVlanKey & key, const KezPortList & ports, ForceMark forceMark,
                       Unprogram && unprogram );

  // Runs `program( port )` for every port.
  template< class Program >
  void programPorts( const IntfVlanKey & key, const KezPortList & ports, Program && program );

  // Calls `create()` unless the port is programmed and unmarked, and records its answer: a port
  // that was refused is parked, and a review due; an invalid hardware id is fatal.
  template< class Create >
  void programPort( const IntfVlanKey & key, Wire::IntfId port, Create && create );

  // Runs `unprogram( port )` for every programmed port; then the pair has no status and is parked
  // no more. True if there was a port.
  template< class Unprogram >
  bool unprogramPorts( const IntfVlanKey & key, Unprogram && unprogram );

  // Calls `remove()` if the port is programmed, and forgets the port. True if it was.
  template< class Remove >
  bool unprogramPort( const IntfVlanKey & key, Wire::IntfId port, Remove && remove );

  // Nothing of the pair is to be tried again until an input changes.
  void waitForInput( const IntfVlanKey & key );
  // After an unprogramming: freed hardware may do for what is parked.
  void reviewParkedAtOnce();

private:
  // What a LAG lacks to have ports.
  enum class Lack { nothing, configuration, members };
  Lack lackOf( Wire::IntfId intfId ) const;

  void park( const IntfVlanKey & key );
  void unpark( const IntfVlanKey & key );
  bool anyParked() const { return traits_.unprogrammed.members.size() > 0; }
  void record( IntfVlanStatus & status, Wire::IntfId port, HwProgrammingStatus rc );
  void say( std::string_view text ) const;

  const Traits traits_;
  VexEvpnLagMemberInfo evpnLagMemberInfoReactor_;
};

template< class Unprogram >
bool PortProgrammingSm::dropStalePorts( const IntfVlanKey & key, const KezPortList & ports,
                                        ForceMark forceMark, Unprogram && unprogram ) {
  unpark( key );
  const auto status = traits_.status.members.get( key );
  if ( !status ) {
    return false;
  }
  status->unprogrammedDelAll();
  bool dropped = false;
  for ( const auto port : status->programmed() ) {
    const bool marked = status->forceReprogramHas( port );
    if ( !ports.portHas( port ) || ( marked && forceMark == ForceMark::removeFirst ) ) {
      unprogram( port, marked );
      dropped = true;
    }
  }
  return dropped;
}

template< class Program >
void PortProgrammingSm::programPorts( const IntfVlanKey & key, const KezPortList & ports,
                                      Program && program ) {
  for ( const auto port : ports ) {
    program( port );
  }
  attempted( key, traits_.unprogrammed.members.has( key ) );
}

template< class Create >
void PortProgrammingSm::programPort( const IntfVlanKey & key, Wire::IntfId port,
                                     Create && create ) {
  const auto status = traits_.status.members.make( *this, traits_.status.id, key );
  if ( status->programmedHas( port ) && !status->forceReprogramHas( port ) ) {
    say( traits_.texts.alreadyProgrammed );
    return;
  }
  status->unprogrammedDel( port );
  if ( status->unprogrammeds() == 0 ) {
    unpark( key );
  }
  record( *status, port, create() );
}

template< class Unprogram >
bool PortProgrammingSm::unprogramPorts( const IntfVlanKey & key, Unprogram && unprogram ) {
  unpark( key );
  attempted( key, false );
  const auto status = traits_.status.members.get( key );
  if ( !status ) {
    return false;
  }
  const bool any = status->programmeds() > 0;
  for ( const auto port : status->programmed() ) {
    unprogram( port );
  }
  traits_.status.members.del( *this, traits_.status.id, key );
  return any;
}

template< class Remove >
bool PortProgrammingSm::unprogramPort( const IntfVlanKey & key, Wire::IntfId port,
                                       Remove && remove ) {
  const auto status = traits_.status.members.get( key );
  if ( !status ) {
    return false;
  }
  const bool programmed = status->programmedHas( port );
  if ( programmed ) {
    remove();
  }
  status->unprogrammedDel( port );
  status->forceReprogramDel( port );
  status->programmedDel( port );
  return programmed;
}

} // namespace Kez
