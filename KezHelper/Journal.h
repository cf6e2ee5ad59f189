// A journal of what a chip has, for a driver whose chip cannot be read back: every call that
// changes the chip goes through it, and the helper of the next process answers with it for the
// tables of its inventory.
//
//   KezHelper::JournalNames names_{ "chip" };
//   KezHelper::JournalTable< PortVlanKey, Vex::NoValue > ports_{ names_, "nonDfPort", remove };
//
// A call and its entry are not one step, and a process may end between them. So an entry is marked
// before the call and the mark taken away after it, and what a process finds marked as it mounts
// the journal is what the earlier one was at when it ended: the chip may have it or not, and for an
// entry that was being replaced the new data or the old. There is one at most, since calls return
// before the next is made. Mounting brings it to a sure state: `remove` has the chip delete it, and
// it goes from the journal. What was being created or replaced is asked for again by the machine.
//
// Without room for an entry the chip is not called, so that it never has what the journal lacks.
#pragma once

#include "KezHelper/JournalFile.h"

#include <concepts>

namespace KezHelper {

namespace Detail {

// What a journal has of an entry, and whether a call is about it.
template< class Data > struct JournalNoted {
  Data data;
  bool uncertain = false;
  static constexpr std::string_view vexTypeName() { return "KezHelper::JournalNoted"; }
  static constexpr auto vexFields() {
    return std::tuple( Vex::field( "data", &JournalNoted::data ),
                       Vex::field( "uncertain", &JournalNoted::uncertain ) );
  }
};

} // namespace Detail

// A table of the journal: what a chip was programmed with, in a file that outlives the process.
template< class Key, class Data > class JournalTable final : public HwTable< Key, Data > {
  using Base = HwTable< Key, Data >;

public:
  using Entry = typename Base::Entry;

  // Raises what JournalFile does. `remove( key )` deletes from the chip an entry that it has or
  // has not.
  JournalTable( JournalNames & names, const Vex::String & name,
                std::invocable< const Key & > auto && remove )
      : file_( names, name ) {
    std::vector< Key > uncertain;
    for ( const auto walk = file_.walk(); const auto entry = walk->next(); ) {
      if ( entry->data.uncertain ) {
        uncertain.push_back( entry->key );
      }
    }
    for ( const auto & key : uncertain ) {
      remove( key );
      file_.del( key );
    }
  }

  std::optional< Data > find( const Key & key ) const override {
    auto noted = file_.find( key );
    return noted ? std::optional( std::move( noted->data ) ) : std::nullopt;
  }
  std::unique_ptr< typename Base::Walk > walk() const override {
    return std::make_unique< Walk >( file_.walk() );
  }
  size_t size() const { return file_.size(); }

  // Has the chip create the entry, or write over the one that stands: `create()` is the call, and
  // whether the chip has carried it out; what it has refused leaves all as it was. False also when
  // there is no room in the journal, for which `lack` says why: nothing was called then, and the
  // helper answers as for a full table, to be tried again.
  [[nodiscard]] bool is( const Key & key, const Data & data, std::predicate auto && create ) {
    const auto before = file_.find( key );
    if ( !file_.put( key, { data, true } ) ) {
      return false;
    }
    const bool created = create();
    if ( created || before ) {
      replace( key, created ? Noted{ data, false } : *before );
    } else {
      file_.del( key );
    }
    return created;
  }
  // Has the chip delete the entry: `remove()` is the call.
  void del( const Key & key, std::invocable auto && remove ) {
    if ( auto noted = file_.find( key ) ) {
      noted->uncertain = true;
      replace( key, *noted );
    }
    remove();
    file_.del( key );
  }
  // Why is() returned false without a call; empty otherwise.
  const Vex::String & lack() const { return file_.lack(); }

private:
  using Noted = Detail::JournalNoted< Data >;
  using NotedWalk = typename HwTable< Key, Noted >::Walk;

  class Walk final : public Base::Walk {
  public:
    explicit Walk( std::unique_ptr< NotedWalk > walk ) : walk_( std::move( walk ) ) {}

    std::optional< Entry > next() override {
      auto entry = walk_->next();
      return entry ? std::optional( Entry{ entry->key, std::move( entry->data.data ) } )
                   : std::nullopt;
    }

  private:
    const std::unique_ptr< NotedWalk > walk_;
  };

  // Of what stands, with data that it has had: that needs no room.
  void replace( const Key & key, const Noted & noted ) {
    const bool replaced = file_.put( key, noted );
    VEX_ASSERT( replaced );
  }

  JournalFile< Key, Noted > file_;
};

} // namespace KezHelper
