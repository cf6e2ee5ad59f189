// Taking over hardware that forwards by what an earlier life of the process has programmed.
//
// A takeover begins before the machines start. Until its host says that the inputs are complete it
// collects: what a machine asks for and hardware has already is answered without a call, what
// differs is replaced, and nothing that stands is removed. Once the inputs are complete and the
// machines have looked at all of them, at the latest after `timeLimit`, it sweeps: whatever no
// machine has asked for is removed, table by table in an order in which no chip refuses it, from a
// task that yields. Then it has ended, and what stood between machines and chips passes calls on.
//
// A table with no room for old and new at once refuses the new until the sweep; what was refused is
// tried again as ever. When the time limit ends a takeover whose inputs were late, what they would
// have asked for is removed, and programmed again when they come.
#pragma once

#include "KezHelper/HwTable.h"
#include "Loom/Task.h"
#include "Vex/Collection.h"

#include <functional>
#include <map>

namespace KezHelper {

VEX_ENUM( TakeoverState, "KezHelper::TakeoverState", collecting, sweeping, ended )

// In which order tables are swept: what uses an entry before it.
enum class SweepRank { fecUser, fec, port, vlan, hwTunnelId };

// A table that is taken over.
class TakeoverPart {
public:
  virtual ~TakeoverPart() = default;
  // A step of the sweep: looks at an entry and removes it if no machine has asked for it. False
  // when none is left to look at.
  virtual bool sweepOne() = 0;
};

class Takeover : public Vex::Entity {
  VEX_ENTITY( Takeover, "KezHelper::Takeover" )
  VEX_ATTRIBUTE( 1, state, TakeoverState )
  VEX_TUNABLE( 2, timeLimit, Vex::Interval, 300.0 ) // since it began
  VEX_ATTRIBUTE( 3, inputsComplete, bool )
  VEX_ATTRIBUTE( 4, inherited, uint64_t ) // entries that stood as it began
  VEX_ATTRIBUTE( 5, kept, uint64_t )      // of them, or of what was made since, without a call
  VEX_ATTRIBUTE( 6, replaced, uint64_t )  // tries of entries that differed
  VEX_ATTRIBUTE( 7, removed, uint64_t )   // by the sweep
  VEX_ATTRIBUTES( state, timeLimit, inputsComplete, inherited, kept, replaced, removed )
  VEX_OPERATIONS( VEX_OPERATION( inputsAreComplete ) )

public:
  static constexpr auto vexAccess = Vex::Access::readOnly;

  explicit Takeover( const Vex::Ptr< Loom::TaskScheduler > & scheduler );
  ~Takeover() override;

  // For the host, once; it cannot be taken back.
  void inputsAreComplete() { inputsCompleteIs( true ); }
  // Says whether every machine has looked at all of its inputs; without it all have. It is asked
  // until the sweep begins.
  void settledIs( std::function< bool() > settled ) { settled_ = std::move( settled ); }

  bool collects() const { return state() == TakeoverState::collecting; }
  bool hasEnded() const { return state() == TakeoverState::ended; }

  // For parts, which count what they do.
  void inheritedInc( uint64_t entries ) { inheritedIs( inherited() + entries ); }
  void keptInc() { keptIs( kept() + 1 ); }
  void replacedInc() { replacedIs( replaced() + 1 ); }
  void removedInc( uint64_t entries ) { removedIs( removed() + entries ); }

  // A part is handed in before the machines start, and taken out again by its own end.
  void partIs( TakeoverPart & part, SweepRank rank ) { parts_.emplace( rank, &part ); }
  void partDel( TakeoverPart & part ) {
    std::erase_if( parts_, [ & ]( const auto & each ) { return each.second == &part; } );
  }

private:
  class Run final : public Loom::Task {
  public:
    Run( const Vex::Ptr< Loom::TaskScheduler > & scheduler, Takeover & owner );

  private:
    void run() override { owner_.go(); }
    Takeover & owner_;
  };

  void go();
  bool sweep();

  std::function< bool() > settled_;
  const double began_;
  std::multimap< SweepRank, TakeoverPart * > parts_;
  const Vex::Ptr< Run > run_;
};

// One table of hardware while it is taken over: between the calls of a machine and those of a chip.
template< class Key, class Data > class TakeoverTable final : public TakeoverPart {
public:
  using Table = HwTable< Key, Data >;
  using Remove = std::function< void( const Key & key, const Data & data ) >;

  // Reads what hardware has; `remove` has the chip remove an entry.
  TakeoverTable( const Vex::Ptr< Takeover > & takeover, SweepRank rank, const Table & table,
                 Remove remove )
      : takeover_( takeover ), remove_( std::move( remove ) ) {
    for ( const auto walk = table.walk(); auto entry = walk->next(); ) {
      const Standing standing{ std::move( entry->data ), false };
      entries_.findOrAdd( entry->key, [ & ] { return standing; } );
    }
    takeover->inheritedInc( entries_.size() );
    takeover->partIs( *this, rank );
    lossListener_ = table.onLost( [ this ]( const Key & key ) { entries_.erase( key ); } );
  }
  ~TakeoverTable() override { takeover_->partDel( *this ); }

  // What `create()`, the chip's creation, answers, or `done` without a call when hardware has the
  // entry. One that differs is removed first, but where the chip writes over it.
  template< class Answer, class Create >
  Answer create( const Key & key, const Data & data, Answer done, bool writesOver,
                 Create && create ) {
    if ( takeover_->hasEnded() ) [[likely]] {
      return create();
    }
    auto * const standing = entries_.find( key );
    if ( standing && standing->data == data ) {
      standing->claimed = true;
      takeover_->keptInc();
      return done;
    }
    if ( standing ) {
      takeover_->replacedInc();
      if ( !writesOver ) {
        const auto gone = standing->data;
        entries_.erase( key );
        remove_( key, gone );
      }
    }
    const auto answer = create();
    if ( answer == done ) {
      *entries_.findOrAdd( key, [] { return Standing(); } ).first = { data, true };
    }
    return answer;
  }

  // What a machine wants no more is left standing until the sweep: it may want it again before the
  // inputs are complete. Whether the chip is to remove it now.
  bool removes( const Key & key ) {
    if ( takeover_->hasEnded() ) [[likely]] {
      return true;
    }
    auto * const standing = entries_.find( key );
    if ( takeover_->collects() && standing ) {
      standing->claimed = false;
      return false;
    }
    entries_.erase( key );
    return true;
  }

private:
  struct Standing {
    Data data;
    bool claimed = false;
  };

  bool sweepOne() override {
    const auto * const key = entries_.lastKey();
    if ( !key ) {
      return false;
    }
    const Key last = *key;
    const Standing standing = *entries_.find( last );
    entries_.erase( last );
    if ( !standing.claimed ) {
      takeover_->removedInc( 1 );
      remove_( last, standing.data );
    }
    return true;
  }

  const Vex::Ptr< Takeover > takeover_;
  const Remove remove_;
  Vex::Collection< Key, Standing > entries_;
  typename Table::LossListener lossListener_;
};

} // namespace KezHelper
