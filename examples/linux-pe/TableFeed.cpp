#include "TableFeed.h"

namespace LinuxPe {

namespace {

// A member as it stands, to the thread: `is( tables, key, data )` or `del( tables, key )`.
template< class Key, class Data, class Is, class Del >
void handOver( SwitchThread & thread, bool there, const Key & key, const Data & data, Is is,
               Del del ) {
  if ( there ) {
    thread.carryOut( [ key, data, is ]( Tables & tables ) { is( tables, key, data ); } );
  } else {
    thread.carryOut( [ key, del ]( Tables & tables ) { del( tables, key ); } );
  }
}

} // namespace

TableFeed::TableFeed( SwitchThread & thread, const FeedSources & sources )
    : books_( sources.books ), lags_( sources.lags ), thread_( thread ), booksReactor_( *this ),
      lagsReactor_( *this ), forwardingReactor_( *this ), segmentsReactor_( *this ),
      coreReactor_( *this ) {
  booksReactor_.notifierIs( sources.books );
  lagsReactor_.notifierIs( sources.lags );
  forwardingReactor_.notifierIs( sources.forwarding );
  segmentsReactor_.notifierIs( sources.segments );
  coreReactor_.notifierIs( sources.core );
}

// What the helpers' calls program is in the books once the switch has it, and goes nowhere.
void TableFeed::VexBooks::onAttribute( Vex::AttrId id, const void * key ) {
  using S = Switch::SimulatedSwitch;
  const auto books = notifier();
  auto & thread = sm()->thread_;
  switch ( id ) {
  case S::fecAttr.id: {
    const auto & hwFecId = S::fecAttr.key( key );
    handOver(
        thread, books->fecHas( hwFecId ), hwFecId, books->fec( hwFecId ),
        []( Tables & to, auto hwFecId, const auto & fec ) { to.hardware->fecIs( hwFecId, fec ); },
        []( Tables & to, auto hwFecId ) { to.hardware->fecDel( hwFecId ); } );
    break;
  }
  case S::floodSetDestAttr.id: {
    const auto & dest = S::floodSetDestAttr.key( key );
    handOver(
        thread, books->floodSetDestHas( dest ), dest, Vex::NoValue(),
        []( Tables & to, const auto & dest, auto ) { to.hardware->floodSetDestIs( dest ); },
        []( Tables & to, const auto & dest ) { to.hardware->floodSetDestDel( dest ); } );
    break;
  }
  case S::macEntryAttr.id: {
    const auto & host = S::macEntryAttr.key( key );
    handOver(
        thread, books->macEntryHas( host ), host, books->macEntry( host ),
        []( Tables & to, const auto & host, auto hwFecId ) {
          to.hardware->macEntryIs( host, hwFecId );
        },
        []( Tables & to, const auto & host ) { to.hardware->macEntryDel( host ); } );
    break;
  }
  case S::capacityAttr.id: {
    const auto & table = S::capacityAttr.key( key );
    handOver(
        thread, books->capacityHas( table ), table, books->capacity( table ),
        []( Tables & to, auto table, auto entries ) { to.hardware->capacityIs( table, entries ); },
        []( Tables & to, auto table ) { to.hardware->capacityDel( table ); } );
    break;
  }
  default:
    MirrorReactor::onAttribute( id, key );
  }
}

void TableFeed::VexHwTunnelIdPool::onAttribute( Vex::AttrId id, const void * key ) {
  using Pool = Switch::HwTunnelIdPool;
  if ( id != Pool::inUseAttr.id ) {
    return;
  }
  const auto & hwTunnelId = Pool::inUseAttr.key( key );
  handOver(
      sm()->thread_, notifier()->inUseHas( hwTunnelId ), hwTunnelId,
      notifier()->inUse( hwTunnelId ),
      []( Tables & to, const auto & hwTunnelId, auto tunnelId ) {
        to.hardware->hwTunnelIdPoolIs( hwTunnelId.hwTunnelIdType() )
            ->inUseIs( hwTunnelId, tunnelId );
      },
      []( Tables & to, const auto & hwTunnelId ) {
        to.hardware->hwTunnelIdPoolIs( hwTunnelId.hwTunnelIdType() )->inUseDel( hwTunnelId );
      } );
}

void TableFeed::VexLags::onAttribute( Vex::AttrId id, const void * key ) {
  using Lags = Kez::LagCreatorConfigDir;
  if ( id == Lags::lagConfigAttr.id ) {
    const auto & lag = Lags::lagConfigAttr.key( key );
    if ( !notifier()->lagConfig( lag ) ) {
      sm()->thread_.carryOut( [ lag ]( Tables & to ) { to.lags->lagConfigDel( lag ); } );
    }
  }
  MirrorReactor::onAttribute( id, key );
}

void TableFeed::VexLagInfo::onAttribute( Vex::AttrId, const void * key ) {
  handOver( Kez::LagInfo::memberAttr.key( key ) );
}

void TableFeed::VexLagInfo::handleNotifier() {
  const auto lag = notifier();
  sm()->thread_.carryOut( [ lag = fwkKey() ]( Tables & to ) { to.lags->lagConfigIs( lag ); } );
  for ( const auto & [ port, progType ] : lag->member() ) {
    handOver( port );
  }
}

void TableFeed::VexLagInfo::handOver( Wire::IntfId port ) {
  LinuxPe::handOver(
      sm()->thread_, notifier()->memberHas( port ), port, notifier()->member( port ),
      [ lag = fwkKey() ]( Tables & to, auto port, auto progType ) {
        to.lags->lagConfigIs( lag )->memberIs( port, progType );
      },
      [ lag = fwkKey() ]( Tables & to, auto port ) {
        to.lags->lagConfigIs( lag )->memberDel( port );
      } );
}

void TableFeed::VexForwarding::onAttribute( Vex::AttrId id, const void * key ) {
  using Input = Switch::ForwardingInput;
  auto & thread = sm()->thread_;
  if ( id == Input::serviceLabelAttr.id ) {
    const auto & label = Input::serviceLabelAttr.key( key );
    handOver(
        thread, notifier()->serviceLabelHas( label ), label, notifier()->serviceLabel( label ),
        []( Tables & to, auto label, const auto & use ) {
          to.forwarding->serviceLabelIs( label, use );
        },
        []( Tables & to, auto label ) { to.forwarding->serviceLabelDel( label ); } );
  } else if ( id == Input::localHostAttr.id ) {
    const auto & host = Input::localHostAttr.key( key );
    handOver(
        thread, notifier()->localHostHas( host ), host, notifier()->localHost( host ),
        []( Tables & to, const auto & host, auto intfId ) {
          to.forwarding->localHostIs( host, intfId );
        },
        []( Tables & to, const auto & host ) { to.forwarding->localHostDel( host ); } );
  }
}

void TableFeed::VexSegments::onAttribute( Vex::AttrId id, const void * key ) {
  using Status = Evpn::EvpnStatus;
  if ( id != Status::localEsiLabelAttr.id ) {
    return;
  }
  const auto & intfId = Status::localEsiLabelAttr.key( key );
  handOver(
      sm()->thread_, notifier()->localEsiLabelHas( intfId ), intfId,
      notifier()->localEsiLabel( intfId ),
      []( Tables & to, auto intfId, auto label ) { to.segments->localEsiLabelIs( intfId, label ); },
      []( Tables & to, auto intfId ) { to.segments->localEsiLabelDel( intfId ); } );
}

void TableFeed::VexCore::onAttribute( Vex::AttrId, const void * key ) {
  const auto & tunnelId = CoreConfig::nextHopAttr.key( key );
  handOver(
      sm()->thread_, notifier()->nextHopHas( tunnelId ), tunnelId, notifier()->nextHop( tunnelId ),
      []( Tables & to, auto tunnelId, auto address ) { to.core->nextHopIs( tunnelId, address ); },
      []( Tables & to, auto tunnelId ) { to.core->nextHopDel( tunnelId ); } );
}

} // namespace LinuxPe
