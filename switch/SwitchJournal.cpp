#include "switch/SwitchJournal.h"

#include "KezHelper/JournalFile.h"
#include "KezHelper/KezBaseHelper.h"
#include "Ringlog/Trace.h"

#include <algorithm>

static Ringlog::Handle traceHandle( "KezSwitchJournal" );

namespace Switch {

// A table of a switch and its file.
class SwitchJournal::Kept {
public:
  explicit Kept( Table table ) : table( table ) {}
  virtual ~Kept() = default;

  // Gives the switch what the file has, and follows it from then on.
  virtual void keep( SimulatedSwitch & hardware ) = 0;
  virtual void startOver( SimulatedSwitch & hardware ) = 0;
  virtual size_t size() const = 0;
  virtual bool makeRoom() = 0;
  virtual const Vex::String & lack() const = 0;

  const Table table;
};

namespace {

template< class Storage > struct DataOf { using Type = Vex::NoValue; };
template< class Storage >
  requires requires {
    typename Storage::Value;
  }
struct DataOf< Storage > {
  using Type = typename Storage::Value;
};

template< class Owner > Owner & ownerIn( SimulatedSwitch & hardware, Table table ) {
  if constexpr ( std::is_same_v< Owner, HwTunnelIdPool > ) {
    const auto type =
        static_cast< uint32_t >( table ) - static_cast< uint32_t >( Table::hwTunnelIdTypeDefault );
    return *hardware.hwTunnelIdPoolIs( static_cast< Kez::HwTunnelIdType >( type ) );
  } else {
    return hardware;
  }
}

} // namespace

// The attribute `attrId` of a switch, or of one of its pools.
template< class Owner, Vex::AttrId attrId >
class SwitchJournal::KeptTable final : public SwitchJournal::Kept, private Vex::Reactor {
  static constexpr auto storage = Owner::vexStorage( Vex::AttrTag< attrId >() );
  using Storage = std::remove_cvref_t< decltype( std::declval< Owner & >().*storage ) >;
  using Key = typename Storage::Key;
  using Data = typename DataOf< Storage >::Type;
  static constexpr bool isSet = std::is_empty_v< Data >;

public:
  KeptTable( SwitchJournal & journal, Table table )
      : Kept( table ), Reactor( journal ), file_( journal.names_, stringValue( table ) ) {}

  void keep( SimulatedSwitch & hardware ) override {
    auto & owner = ownerIn< Owner >( hardware, table );
    for ( const auto walk = file_.walk(); const auto entry = walk->next(); ) {
      if constexpr ( isSet ) {
        ( owner.*storage ).is( owner, attrId, entry->key, true );
      } else {
        ( owner.*storage ).is( owner, attrId, entry->key, entry->data );
      }
    }
    notifierIs( &owner );
  }
  void startOver( SimulatedSwitch & hardware ) override {
    notifierIs( nullptr );
    file_.delAll();
    keep( hardware );
  }
  size_t size() const override { return file_.size(); }
  bool makeRoom() override { return file_.makeRoom(); }
  const Vex::String & lack() const override { return file_.lack(); }

private:
  // The switch has asked for room.
  void onAttribute( Vex::AttrId id, const void * changed ) override {
    if ( id != attrId ) {
      return;
    }
    const auto & key = *static_cast< const Key * >( changed );
    const auto & all = static_cast< const Owner & >( *notifierEntity() ).*storage;
    if ( !all.has( key ) ) {
      file_.del( key );
    } else if ( !put( key, all ) ) {
      Kez::KezBaseHelper::kezAssert( "the switch has what its journal has not: " + lack() );
    }
  }
  bool put( const Key & key, const Storage & all ) {
    if constexpr ( isSet ) {
      return file_.put( key, {} );
    } else {
      return file_.put( key, all.get( key ) );
    }
  }

  KezHelper::JournalFile< Key, Data > file_;
};

SwitchJournal::SwitchJournal( SimulatedSwitch & hardware ) : names_( "switch" ) {
  const auto add = [this]< class Owner, auto attr >( Table table ) {
    tables_.push_back( std::make_unique< KeptTable< Owner, attr > >( *this, table ) );
  };
  using S = SimulatedSwitch;
  using P = HwTunnelIdPool;
  add.operator()< S, S::vlanAttr.id >( Table::vlan );
  add.operator()< S, S::dot1qMappingAttr.id >( Table::dot1qMapping );
  add.operator()< S, S::nonDfPortAttr.id >( Table::nonDfPort );
  add.operator()< S, S::esiDataAttr.id >( Table::esiData );
  add.operator()< S, S::esiPortMapAttr.id >( Table::esiPortMap );
  add.operator()< S, S::fecAttr.id >( Table::fec );
  add.operator()< S, S::floodSetDestAttr.id >( Table::floodSetDest );
  add.operator()< S, S::macEntryAttr.id >( Table::macEntry );
  add.operator()< P, P::inUseAttr.id >( Table::hwTunnelIdTypeDefault );
  add.operator()< P, P::inUseAttr.id >( Table::hwTunnelIdTypeSharedEsi );
  beOf( hardware, &Kept::keep );
}

SwitchJournal::~SwitchJournal() {
  hardware_->journalIs( nullptr );
}

void SwitchJournal::startOver( SimulatedSwitch & hardware ) {
  hardware_->journalIs( nullptr );
  beOf( hardware, &Kept::startOver );
}

bool SwitchJournal::empty() const {
  return std::ranges::all_of( tables_, []( const auto & each ) { return each->size() == 0; } );
}

bool SwitchJournal::hasRoom( Table table ) {
  const auto at =
      std::ranges::find( tables_, table, []( const auto & each ) { return each->table; } );
  const bool has = ( *at )->makeRoom();
  if ( !has ) {
    TRACE( 1, "no room for an entry of ", table, ": ", ( *at )->lack() );
  }
  return has;
}

void SwitchJournal::beOf( SimulatedSwitch & hardware,
                          void ( Kept::*begin )( SimulatedSwitch & hardware ) ) {
  for ( const auto & each : tables_ ) {
    ( *each.*begin )( hardware );
  }
  for ( const auto & [ hwTunnelIdType, pool ] : hardware.hwTunnelIdPool() ) {
    pool->releaseGaps();
  }
  hardware_ = &hardware;
  hardware.journalIs( this );
}

} // namespace Switch
