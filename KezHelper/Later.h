// A chip that answers later, behind helpers whose machines are answered at once.
//
// What a machine asks for is accepted, as if hardware had done it, and kept: for each key, what is
// wanted of it. The chip is brought to that call by call:
//
//   - Of a key one call at most is outstanding. When its answer comes, the next one is made of what
//     is wanted by then; what was wanted in between is never called.
//   - A creation that the chip refuses after it has been accepted is lost: what stood under its key
//     is removed, and who listens to the table is told later (HwTable::onLost). An audit has the
//     machine try again as if it had been refused at once, so that a host needs one, over all
//     tables.
//   - A creation waits for the entry that it needs, and the removal of what others use waits until
//     all calls that were accepted before have been answered.
//
// A chip that answers within its call is passed on: the machine gets its answer.
#pragma once

#include "KezHelper/HwTable.h"
#include "KezHelper/KezBaseHelper.h"
#include "KezHelper/LateCalls.h"
#include "Vex/Collection.h"

namespace KezHelper {

// Who hears of a chip's answers.
template< class Key, class Answer > class LateAnswers {
public:
  virtual ~LateAnswers() = default;
  // Of the outstanding call of the key.
  virtual void answerIs( const Key & key, Answer answer ) = 0;
};

// What a chip does for one of its tables. It answers each call once, in any order, within the call
// or later, on the thread of the machines; a removal cannot fail. An answer may lead to the next
// call of its key, and to calls of other tables, before it returns.
template< class Key, class Data, class Answer > class LateChip {
public:
  virtual ~LateChip() = default;
  virtual void create( const Key & key, const Data & data ) = 0;
  virtual void remove( const Key & key, const Data & data ) = 0;
  // What is being created is wanted no more, or with other data: it may answer that it has not done
  // so, and has what stood before.
  virtual void cancel( const Key & ) {}

  // Whom it answers; and that this one waits for answers no more. What an earlier one has called is
  // answered, or forgotten, by then.
  void answersGoTo( LateAnswers< Key, Answer > & answers ) { answers_ = &answers; }
  void answersEnd( const LateAnswers< Key, Answer > & answers ) {
    if ( answers_ == &answers ) {
      answers_ = nullptr;
    }
  }

protected:
  void answer( const Key & key, Answer answer ) {
    if ( answers_ ) {
      answers_->answerIs( key, answer );
    }
  }

private:
  LateAnswers< Key, Answer > * answers_ = nullptr;
};

// Whether what an entry needs is there as it is wanted, or will be, or is not wanted at all.
enum class LateNeed { there, awaited, missing };

// How one table's calls depend on others.
template< class Key, class Data > struct LateOrder {
  std::function< LateNeed( const Key & key, const Data & data ) > need =
      []( const Key &, const Data & ) { return LateNeed::there; };
  // `retry( key )` is to be called once it is there, `lose( key )` when it is wanted no more.
  std::function< void( const Key & key ) > await = []( const Key & ) {};
  // An entry is there as it is wanted; and one is not, nor wanted.
  std::function< void( const Key & key ) > created = []( const Key & ) {};
  std::function< void( const Key & key ) > absent = []( const Key & ) {};
  bool isUsedByOthers = false;
  std::function< bool() > writesOver = [] { return false; };
};

// What a machine asks for of one table, and the calls of the chip that make it so. As hardware's
// table it has what hardware will have when all that is outstanding has been done.
template< class Key, class Data, class Answer >
class LateTable final : public HwTable< Key, Data >, private LateAnswers< Key, Answer > {
  using Base = HwTable< Key, Data >;

public:
  using Entry = typename Base::Entry;
  using Chip = LateChip< Key, Data, Answer >;

  // `done` is the answer of a creation that the chip carried out. What hardware has is read from
  // `inventory`; without one it is to be empty, and to have what was answered since.
  LateTable( const Vex::Ptr< LateCalls > & calls, Chip & chip, Answer done, const Base * inventory,
             LateOrder< Key, Data > order = {} )
      : calls_( calls ), chip_( chip ), done_( done ), inventory_( inventory ),
        order_( std::move( order ) ) {
    if ( inventory_ ) {
      for ( const auto walk = inventory_->walk(); const auto entry = walk->next(); ) {
        present( entry->key ) = entry->data;
      }
    }
    chip_.answersGoTo( *this );
  }
  ~LateTable() override {
    chip_.answersEnd( *this );
    KeyWalk< decltype( open_.range() ) > open( open_.range() );
    while ( const auto key = open.next() ) {
      abandon( *openOf( *key ) );
    }
    for ( auto count = lost_.size(); count > 0; --count ) {
      calls_->pendingDec();
    }
  }

  Answer create( const Key & key, const Data & data ) {
    const bool wasLost = isLostNoMore( key );
    if ( auto * const standing = openOf( key ) ) {
      wants( key, *standing, data );
      return done_;
    }
    if ( order_.need( key, data ) == LateNeed::missing ) {
      isLost( key ); // with what it needs, of which the machine has yet to hear
      return done_;
    }
    seeWhatStands( key );
    Open & open = add( key );
    open.wanted = data;
    std::optional< Answer > answer;
    open.within = &answer;
    makeCall( key, open, true );
    if ( !answer ) {
      open.within = nullptr;
      return done_;
    }
    close( key );
    if ( wasLost && *answer != done_ ) {
      isLost( key ); // the machine takes what it updates to stand
    }
    return *answer;
  }
  void remove( const Key & key, const Data & data ) {
    if ( isLostNoMore( key ) ) {
      return;
    }
    if ( auto * const standing = openOf( key ) ) {
      wants( key, *standing, std::nullopt );
      return;
    }
    present( key ) = data;
    makeCall( key, add( key ), true );
  }
  void retry( const Key & key ) {
    if ( auto * const open = openOf( key ); open && open->state == State::waits ) {
      makeCall( key, *open, false );
    }
  }

  // Its creation waits for what will not be there.
  void lose( const Key & key ) {
    if ( auto * const open = openOf( key ); open && open->state == State::waits && open->wanted ) {
      open->wanted.reset();
      makeCall( key, *open, false );
      isLost( key );
    }
  }

  // Whether hardware has the entry as it is wanted, and no call is to remove it.
  bool stands( const Key & key ) const {
    const auto * const there = present_.find( key );
    const auto * const open = openOf( key );
    const bool removes = open && open->state == State::calls && !open->created;
    return there && !removes && ( !open || open->wanted == *there );
  }

  std::optional< Data > find( const Key & key ) const override {
    if ( const auto * const open = openOf( key ) ) {
      return open->wanted;
    }
    if ( inventory_ ) {
      return inventory_->find( key );
    }
    const auto * const there = present_.find( key );
    return there ? std::optional( *there ) : std::nullopt;
  }
  std::unique_ptr< typename Base::Walk > walk() const override {
    return std::make_unique< Walk >( *this );
  }

private:
  enum class State { waits, calls };
  struct Open {
    std::optional< Data > wanted;
    std::optional< Data > created; // by the outstanding call; none when that removes
    State state = State::waits;
    uint64_t number = 0; // of what the outstanding call, or the next, is to fulfil; 0 for none
    uint64_t next = 0;   // of what was asked for since the outstanding call; 0 for nothing
    std::optional< Answer > * within = nullptr; // where an answer goes before create() returns
  };

  // One pass over the keys of a collection; it stands on a key only while that is handed out.
  template< class Range > class KeyWalk {
  public:
    explicit KeyWalk( const Range & range ) : walk_( range.begin() ) {}
    std::optional< Key > next() {
      if ( std::exchange( begun_, true ) ) {
        ++walk_;
      }
      return walk_.valid() ? std::optional( walk_.key() ) : std::nullopt;
    }

  private:
    decltype( std::declval< const Range & >().begin() ) walk_;
    bool begun_ = false;
  };

  // First what is open, then the rest.
  class Walk final : public Base::Walk {
  public:
    explicit Walk( const LateTable & table ) : table_( table ), open_( table.open_.range() ) {}

    std::optional< Entry > next() override {
      while ( const auto key = nextKey() ) {
        if ( auto data = table_.find( *key ) ) {
          return Entry{ *key, std::move( *data ) };
        }
      }
      return std::nullopt;
    }

  private:
    std::optional< Key > nextKey() {
      if ( !openEnded_ ) {
        if ( const auto key = open_.next() ) {
          wasOpen_.add( *key );
          return key;
        }
        openEnded_ = true;
        if ( table_.inventory_ ) {
          inventory_ = table_.inventory_->walk();
        } else {
          present_.emplace( table_.present_.range() );
        }
      }
      auto key = nextPresent();
      while ( key && wasOpen_.has( *key ) ) {
        key = nextPresent();
      }
      return key;
    }
    std::optional< Key > nextPresent() {
      if ( present_ ) {
        return present_->next();
      }
      const auto entry = inventory_->next();
      return entry ? std::optional( entry->key ) : std::nullopt;
    }

    const LateTable & table_;
    KeyWalk< decltype( std::declval< const LateTable & >().open_.range() ) > open_;
    bool openEnded_ = false;
    std::unique_ptr< typename Base::Walk > inventory_;
    std::optional< KeyWalk< decltype( std::declval< const LateTable & >().present_.range() ) > >
        present_;
    Vex::Collection< Key > wasOpen_;
  };

  // Of what is created: nothing stands there, unless it is to be written over.
  void seeWhatStands( const Key & key ) {
    const auto there = order_.writesOver() && inventory_ ? inventory_->find( key ) : std::nullopt;
    if ( there ) {
      present( key ) = *there;
    } else if ( !order_.writesOver() || inventory_ ) {
      present_.erase( key );
    }
  }

  Open * openOf( const Key & key ) const {
    const auto * const open = open_.find( key );
    return open ? open->get() : nullptr;
  }
  Open & add( const Key & key ) {
    calls_->pendingInc();
    return **open_.findOrAdd( key, [] { return std::make_unique< Open >(); } ).first;
  }
  Data & present( const Key & key ) {
    return *present_.findOrAdd( key, [] { return Data(); } ).first;
  }

  // Of an entry that is open: what is wanted of it is another thing from now on.
  void wants( const Key & key, Open & open, const std::optional< Data > & wanted ) {
    if ( open.wanted == wanted ) {
      return;
    }
    open.wanted = wanted;
    if ( open.state == State::waits ) {
      calls_->supersededInc();
      makeCall( key, open, false );
    } else if ( open.next > 0 ) {
      calls_->supersededInc();
    } else {
      open.next = calls_->begin();
      if ( open.created ) {
        chip_.cancel( key );
      }
    }
  }

  // The next call that brings the chip to what is wanted, unless it is there or what comes before
  // has yet to happen. What a machine has just asked for is called in any case.
  void makeCall( const Key key, Open & open, bool asked ) {
    const auto * const there = present_.find( key );
    if ( !asked && open.wanted == ( there ? std::optional( *there ) : std::nullopt ) ) {
      close( key );
      return;
    }
    const bool creates = open.wanted && ( asked || !there || order_.writesOver() );
    const auto need = creates ? order_.need( key, *open.wanted ) : LateNeed::there;
    if ( need == LateNeed::missing ) {
      lose( key );
      return;
    }
    if ( need == LateNeed::awaited ) {
      order_.await( key );
      if ( const auto number = std::exchange( open.number, 0 ) ) {
        calls_->end( number );
      }
      return;
    }
    if ( open.number == 0 ) {
      open.number = calls_->begin();
    }
    if ( creates ) {
      call( open, open.wanted );
      chip_.create( key, Data( *open.wanted ) );
    } else if ( order_.isUsedByOthers ) {
      const auto removeIt = [ this, key, number = open.number, alive = std::weak_ptr( alive_ ) ] {
        if ( !alive.expired() ) {
          removeUnlessChanged( key, number );
        }
      };
      calls_->whenEndedBefore( open.number, removeIt );
    } else {
      removeNow( key, open );
    }
  }
  void removeUnlessChanged( const Key & key, uint64_t number ) {
    auto * const open = openOf( key );
    if ( open && open->number == number && open->state == State::waits ) {
      removeNow( key, *open );
    }
  }
  void removeNow( const Key & key, Open & open ) {
    call( open, std::nullopt );
    chip_.remove( key, Data( present( key ) ) );
  }
  void call( Open & open, const std::optional< Data > & created ) {
    open.state = State::calls;
    open.created = created;
    calls_->callIs();
  }

  void answerIs( const Key & answered, Answer answer ) override {
    const Key key = answered;
    auto * const open = openOf( key );
    if ( !open || open->state != State::calls ) {
      Kez::KezBaseHelper::kezAssert( "an answer for " + Vex::briefText( key ) +
                                     ", of which no call is outstanding" );
    }
    calls_->answerIs();
    open->state = State::waits;
    const bool done = answer == done_;
    if ( open->created && done ) {
      present( key ) = *open->created;
    } else if ( !open->created ) {
      if ( !done ) {
        Kez::KezBaseHelper::kezAssert( "the removal of " + Vex::briefText( key ) + " was refused" );
      }
      present_.erase( key );
    }
    if ( open->within ) {
      *open->within = answer;
      return;
    }
    const bool lost = open->created && !done && open->next == 0;
    if ( lost ) {
      open->wanted.reset();
    }
    // What was to be written over stands, and is under way as before until it is gone.
    const bool oldStands = open->created && !done && present_.has( key );
    const auto next = std::exchange( open->next, 0 );
    const auto ended = oldStands ? next : std::exchange( open->number, next );
    if ( lost ) {
      isLost( key ); // before those that need it
    }
    makeCall( key, *open, false );
    if ( ended > 0 ) {
      calls_->end( ended );
    }
  }

  // A machine has it on record until it is told.
  void isLost( const Key & key ) {
    lost_.add( key );
    calls_->pendingInc();
    calls_->later( [ this, key, alive = std::weak_ptr( alive_ ) ] {
      if ( !alive.expired() && isLostNoMore( key ) ) {
        calls_->lostInc( Vex::briefText( key ), this->tellLost( key ) );
      }
    } );
  }
  // Whether it was, and nobody has been told.
  bool isLostNoMore( const Key & key ) {
    const bool was = lost_.erase( key );
    if ( was ) {
      calls_->pendingDec();
    }
    return was;
  }

  // What others wait for waits no more.
  void abandon( const Open & open ) {
    calls_->pendingDec();
    if ( open.state == State::calls ) {
      calls_->answerIs();
    }
    for ( const auto number : { open.number, open.next } ) {
      if ( number > 0 ) {
        calls_->end( number );
      }
    }
  }

  void close( const Key key ) {
    const auto number = openOf( key )->number;
    open_.erase( key );
    calls_->pendingDec();
    if ( present_.has( key ) ) {
      order_.created( key );
    } else {
      order_.absent( key );
    }
    if ( number > 0 ) {
      calls_->end( number );
    }
  }

  const Vex::Ptr< LateCalls > calls_;
  Chip & chip_;
  const Answer done_;
  const Base * const inventory_;
  const LateOrder< Key, Data > order_;
  Vex::Collection< Key, Data > present_; // in hardware, by what it answered
  Vex::Collection< Key, std::unique_ptr< Open > > open_;
  Vex::Collection< Key > lost_; // whose listeners have yet to be told
  const std::shared_ptr< const bool > alive_ = std::make_shared< const bool >( true );
};

} // namespace KezHelper
