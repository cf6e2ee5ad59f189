// Whether hardware still has what the machines have on record, and whether that is what their
// inputs ask for.
//
// An audit goes round all tables that it was handed, from a task that yields, while everything else
// goes on: each entry is compared at one moment between two events, so that no call is under way.
// What it found in the last round that came by it stands in `difference`. It calls hardware only
// where it repairs: an entry that is wrong is removed, and one that is on record goes from the
// record and is tried again by the machine's next review, as if hardware had refused it. What a
// machine lags behind by rule is said, and left as it is.
//
// An entry that hardware turns out to have lost (HwTable::onLost), as a chip does that refuses
// later what was accepted, goes from the record likewise, at once.
//
// Over hardware that is taken over, the first round begins when that has ended.
#pragma once

#include "KezHelper/HwTable.h"
#include "KezHelper/TableView.h"
#include "KezHelper/Takeover.h"

#include <functional>
#include <map>
#include <set>
#include <vector>

namespace KezHelper {

VEX_ENUM( DifferenceKind, "KezHelper::DifferenceKind",
          missing,    // on record, and not in hardware
          unexpected, // in hardware, and not on record
          different,  // on record with other data than hardware has
          lagging ) // as on record, which is not what the inputs ask for, and no look at it is due

VEX_ENUM( Repair, "KezHelper::Repair", none, done, impossible )

// What is wrong with an entry, named "<table>/<key>". The data are texts, empty where there is no
// entry.
class AuditDifference : public Vex::Entity {
  VEX_ENTITY( AuditDifference, "KezHelper::AuditDifference" )
  VEX_KEY( AuditDifference, entry, Vex::String )
  VEX_ATTRIBUTE( 1, machine, Vex::String )
  VEX_ATTRIBUTE( 2, kind, DifferenceKind )
  VEX_ATTRIBUTE( 3, inHardware, Vex::String )
  VEX_ATTRIBUTE( 4, onRecord, Vex::String )
  VEX_ATTRIBUTE( 5, askedFor, Vex::String ) // as on record where the machine cannot say
  VEX_ATTRIBUTE( 6, since, Vex::Seconds )   // the time at which a round first found it
  VEX_ATTRIBUTE( 7, repair, Repair )
  VEX_ATTRIBUTES( machine, kind, inHardware, onRecord, askedFor, since, repair )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;
};

// The same of one that a part has come to.
struct Difference {
  Vex::String machine;
  DifferenceKind kind = DifferenceKind::missing;
  Vex::String inHardware;
  Vex::String onRecord;
  Vex::String askedFor;
  Repair repair = Repair::none;
};

class Audit;

// A table that is audited.
class AuditPart {
public:
  virtual ~AuditPart() = default;
  // A step of a round: compares an entry. False when none is left, and the next step begins anew.
  virtual bool auditOne( Audit & audit ) = 0;
  // Where it stands in a round: what uses an entry before it, as in a sweep.
  virtual SweepRank rank() const = 0;
};

template< class Key, class Data > struct AuditedSides;

// The tables that a machine has audited.
class AuditParts {
public:
  // Unless hardware cannot be asked for it.
  template< class Key, class Data > void add( AuditedSides< Key, Data > sides );

private:
  friend class Audit;
  std::vector< std::unique_ptr< AuditPart > > parts_;
};

class Audit : public Vex::Entity {
  VEX_ENTITY( Audit, "KezHelper::Audit" )
  // From the end of a round to the next one, in seconds; 0 when rounds begin only when asked for.
  VEX_HANDLED_TUNABLE( 1, interval, Vex::Seconds, 0.0 )
  VEX_TUNABLE( 2, repairs, bool, false )
  VEX_TUNABLE( 3, differenceLimit, uint32_t, 1000 ) // what there is more is counted
  VEX_ATTRIBUTE( 4, rounds, uint64_t )              // that have ended
  VEX_ATTRIBUTE( 5, compared, uint64_t )            // entries in the last round, or so far in this
  VEX_COUNTER( 6, found, DifferenceKind )           // in the last round
  VEX_ATTRIBUTE( 7, repaired, uint64_t )            // entries since it was made
  VEX_ENTITIES( 8, difference, AuditDifference )
  VEX_ATTRIBUTES( interval, repairs, differenceLimit, rounds, compared, found, repaired,
                  difference )
  VEX_OPERATIONS( VEX_OPERATION( begin, repairs ) )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  // `takeover` is null where hardware is not taken over.
  Audit( const Vex::Ptr< Loom::TaskScheduler > & scheduler,
         const Vex::Ptr< const Takeover > & takeover );
  ~Audit() override;

  // Tables of an owner, which is held for as long as the audit lives. Before the first round.
  void partsAre( const Vex::Ptr< const Vex::Entity > & owner, AuditParts parts );

  // Begins a round, unless one is under way; `repairs` has that one repair, from where it stands.
  void begin( bool repairs );
  bool repairsNow() const { return repairsNow_; }
  bool isUnderWay() const { return underWay_; }

  // For parts: an entry has been looked at, and what is wrong with it.
  void comparedInc() { comparedIs( compared() + 1 ); }
  void differs( const Vex::String & entry, const Difference & found );

private:
  class Run final : public Loom::Task {
  public:
    Run( const Vex::Ptr< Loom::TaskScheduler > & scheduler, Audit & owner );

  private:
    void run() override { owner_.go(); }
    Audit & owner_;
  };
  struct Owned {
    Vex::Ptr< const Vex::Entity > owner;
    std::unique_ptr< AuditPart > part;
  };

  void intervalChanged();
  void beginRound( bool repairs );
  void go();
  bool goRound();
  void endRound();

  const Vex::Ptr< const Takeover > takeover_;
  std::vector< Owned > parts_;
  size_t at_ = 0; // the part that the round has come to
  bool underWay_ = false;
  bool repairsNow_ = false;
  std::map< DifferenceKind, uint32_t > foundSoFar_; // in this round
  std::set< Vex::String > notFoundAgain_;           // of what stood before it
  const Vex::Ptr< Run > run_;
};

// A table of hardware, and the same as a machine has it on record and as its inputs ask for it.
template< class Key, class Data > struct AuditedSides {
  Vex::String machine;
  Vex::String table;
  SweepRank rank = SweepRank::port;
  const HwTable< Key, Data > * hardware = nullptr; // the helper's
  std::unique_ptr< const TableView< Key, Data > > record;
  std::unique_ptr< const TableView< Key, Data > > askedFor; // null where the machine cannot say
  // Whether it has yet to look at an input, or to retry.
  std::function< bool( const Key & ) > due = []( const Key & ) { return false; };
  // From hardware, what need not be on record.
  std::function< void( const Key & key, const Data & data ) > remove;
  // From the record, as if refused; null where nothing would try it again.
  std::function< void( const Key & key, const Data & data ) > forget;
  bool writesOver = false; // what hardware has otherwise than on record, by the next try
};

// A table of hardware that an audit goes round.
template< class Key, class Data > class AuditedTable final : public AuditPart {
public:
  explicit AuditedTable( AuditedSides< Key, Data > sides )
      : sides_( std::move( sides ) ),
        lossListener_( sides_.hardware->onLost( [ this ]( const Key & key ) { lost( key ); } ) ) {}

  SweepRank rank() const override { return sides_.rank; }
  bool auditOne( Audit & audit ) override {
    if ( side_ == Side::hardware ) {
      if ( !hardwareWalk_ ) {
        hardwareWalk_ = sides_.hardware->walk();
      }
      if ( const auto entry = hardwareWalk_->next() ) {
        compare( entry->key, entry->data, audit );
        return true;
      }
      hardwareWalk_.reset();
      side_ = Side::record;
    }
    if ( side_ == Side::record ) {
      if ( stepOver( *sides_.record, audit ) ) {
        return true;
      }
      side_ = Side::askedFor;
    }
    if ( sides_.askedFor && stepOver( *sides_.askedFor, audit ) ) {
      return true;
    }
    side_ = Side::hardware;
    return false;
  }

private:
  // Which is walked over, in this order.
  enum class Side { hardware, record, askedFor };

  // An entry is compared in the first walk that comes to it.
  bool stepOver( const TableView< Key, Data > & view, Audit & audit ) {
    if ( !viewWalk_ ) {
      viewWalk_ = view.walk();
    }
    std::optional< Key > key;
    if ( !viewWalk_->next( key ) ) {
      viewWalk_.reset();
      return false;
    }
    if ( !key ) {
      return true;
    }
    if ( !sides_.hardware->find( *key ) ) {
      compare( *key, std::nullopt, audit );
    }
    return true;
  }

  void compare( const Key & key, const std::optional< Data > & inHardware, Audit & audit ) {
    const auto onRecord = sides_.record->find( key );
    if ( side_ == Side::askedFor && onRecord ) {
      return;
    }
    const auto askedFor = sides_.askedFor ? sides_.askedFor->find( key ) : onRecord;
    if ( !inHardware && !onRecord && !askedFor ) {
      return;
    }
    audit.comparedInc();
    if ( inHardware == onRecord && ( askedFor == onRecord || sides_.due( key ) ) ) {
      return;
    }
    Difference difference;
    difference.machine = sides_.machine;
    difference.kind = inHardware == onRecord ? DifferenceKind::lagging
                      : !inHardware          ? DifferenceKind::missing
                      : !onRecord            ? DifferenceKind::unexpected
                                             : DifferenceKind::different;
    difference.inHardware = textOf( inHardware );
    difference.onRecord = textOf( onRecord );
    difference.askedFor = textOf( askedFor );
    if ( audit.repairsNow() && difference.kind != DifferenceKind::lagging ) {
      difference.repair = repair( key, inHardware, onRecord ) ? Repair::done : Repair::impossible;
    }
    audit.differs( sides_.table + '/' + Vex::briefText( key ), difference );
  }

  void lost( const Key & key ) {
    const auto onRecord = sides_.record->find( key );
    if ( onRecord && sides_.forget ) {
      sides_.forget( key, *onRecord );
    }
  }

  bool repair( const Key & key, const std::optional< Data > & inHardware,
               const std::optional< Data > & onRecord ) {
    if ( onRecord && !sides_.forget ) {
      return false;
    }
    const bool isWrittenOver = onRecord && sides_.writesOver;
    if ( inHardware && !isWrittenOver ) {
      sides_.remove( key, *inHardware );
      if ( sides_.hardware->find( key ) ) {
        return false;
      }
    }
    if ( onRecord ) {
      sides_.forget( key, *onRecord );
    }
    return true;
  }

  static Vex::String textOf( const std::optional< Data > & data ) {
    if constexpr ( std::is_same_v< Data, Vex::NoValue > ) {
      return data ? "there" : "";
    } else {
      return data ? Vex::briefText( *data ) : Vex::String();
    }
  }

  const AuditedSides< Key, Data > sides_;
  const typename HwTable< Key, Data >::LossListener lossListener_;
  Side side_ = Side::hardware;
  std::unique_ptr< typename HwTable< Key, Data >::Walk > hardwareWalk_;
  std::unique_ptr< typename TableView< Key, Data >::Walk > viewWalk_;
};

template< class Key, class Data > void AuditParts::add( AuditedSides< Key, Data > sides ) {
  if ( sides.hardware ) {
    parts_.push_back( std::make_unique< AuditedTable< Key, Data > >( std::move( sides ) ) );
  }
}

} // namespace KezHelper
