#include "VexTestTypes.h"

#include "Vex/Clock.h"

#include <gmock/gmock.h>

namespace {

using namespace VexTest;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert( sizeof( Vex::Entity ) <= 56 );
static_assert( sizeof( Gardener::VexBranch ) <= 72 );

// A constant entity hands out constant members.
template< class T > using MemberOf = decltype( ( *std::declval< T & >().branch().begin() ).value );
static_assert( std::is_same_v< MemberOf< const Tree >, Vex::Ptr< const Branch > > );
static_assert( std::is_same_v< MemberOf< Tree >, Vex::Ptr< Branch > > );

class VexEntity : public testing::Test {
protected:
  std::unique_ptr< Watcher > watch( const std::string & name, const Vex::Entity * entity ) {
    return std::make_unique< Watcher >( watchers, story, name, entity );
  }
  Story take() { return std::exchange( story, {} ); }

  Story story;
  Watchers watchers;
  Vex::Ptr< Tree > tree = Vex::makePtr< Tree >();
};

TEST_F( VexEntity, TellsOfChangesOnceTheyAreInPlaceAndOfNothingElse ) {
  tree->guestIs( "before" ); // nobody watches yet
  const auto watcher = watch( "tree", tree.get() );
  double seen = 0;
  watcher->then = [ & ] { seen = tree->height() + tree->visit( 7 ); };
  tree->heightIs( 1.5 );
  tree->visitDel( 7 );
  tree->branchIs( 1 );
  tree->branchIs( 1 );
  EXPECT_THAT( take(), ElementsAre( "tree branch[1]" ) );
  tree->heightIs( 20 );
  EXPECT_EQ( seen, 20 );
  tree->visitInc( 7, 3 );
  EXPECT_EQ( seen, 23 );
  tree->visitIs( 7, 3 );
  tree->visitIs( 8, 0 );
  tree->heightDel();
  tree->visitDelAll();
  EXPECT_EQ( seen, 1.5 );
  EXPECT_THAT( take(), ElementsAre( "tree height", "tree visit[7]", "tree visit[8]", "tree height",
                                    "tree visit[7]", "tree visit[8]" ) );
}

TEST_F( VexEntity, ReactorsMayComeAndGoWhileTheyAreTold ) {
  std::unique_ptr< Watcher > a, b, c, d;
  const std::vector< std::tuple< std::string, std::function< void() >, Story > > cases = {
    { "nothing", [] {}, { "a", "b", "c" } },
    { "detaches", [ & ] { a->notifierIs( nullptr ); }, { "a", "b", "c" } },
    { "ends", [ & ] { a.reset(); }, { "a", "b", "c" } },
    { "detaches the next", [ & ] { b->notifierIs( nullptr ); }, { "a", "c" } },
    { "attaches one, ends the others",
      [ & ] { d = watch( "d", tree.get() ), b.reset(), c.reset(); },
      { "a" } },
    { "attaches one", [ & ] { d = watch( "d", tree.get() ); }, { "a", "b", "c" } },
    { "ends the last, attaches one",
      [ & ] { c.reset(), d = watch( "d", tree.get() ); },
      { "a", "b" } },
    { "attaches the next again",
      [ & ] {
        b->notifierIs( nullptr );
        b->notifierIs( tree.get() );
      },
      { "a", "b here", "c" } },
    { "tells in between",
      [ & ] {
        a->then = [] {};
        tree->heightIs( 9 );
      },
      { "a", "a", "b", "c", "b", "c" } },
    { "switches the last off", [ & ] { c->hasNotificationActiveIs( false ); }, { "a", "b" } },
    { "drops the entity and all who watch it",
      [ & ] { a.reset(), b.reset(), c.reset(), tree = nullptr; },
      { "a" } },
  };
  for ( const auto & [ name, action, expected ] : cases ) {
    a.reset(), b.reset(), c.reset(), d.reset();
    tree = Vex::makePtr< Tree >();
    a = watch( "a", tree.get() );
    b = watch( "b", tree.get() );
    c = watch( "c", tree.get() );
    a->then = action;
    story.clear();
    Vex::Ptr< Tree >( tree )->heightIs( 3 );
    Story told;
    for ( const auto & each : story ) {
      told.push_back( each.substr( 0, each.find( " height" ) ) );
    }
    EXPECT_EQ( told, expected ) << name;
  }
}

TEST_F( VexEntity, DeletionTellsFromTheLeavesUpThenMarksThenTellsOfTheKey ) {
  const auto branch = tree->branchIs( 1 );
  branch->budIs( 10 );
  const auto leaf = branch->leafIs( 2 );
  leaf->veinIs( 20 );
  leaf->veinIs( 21 );
  branch->leafIs( 3 );
  const auto onTree = watch( "tree", tree.get() );
  const auto onBranch = watch( "branch", branch.get() );
  const auto onLeaf = watch( "leaf", leaf.get() );
  onBranch->then = [ & ] { EXPECT_FALSE( tree->branchHas( 1 ) ); };
  onLeaf->then = [ & ] { EXPECT_FALSE( branch->leafHas( 2 ) ); };
  tree->branchDel( 1 );
  EXPECT_THAT( take(), ElementsAre( "branch bud[10]", "leaf vein[20]", "leaf vein[21]",
                                    "leaf zombie", "branch leaf[2]", "branch leaf[3]",
                                    "branch zombie", "tree branch[1]" ) );
  EXPECT_EQ( branch->parent(), nullptr );
  EXPECT_EQ( leaf->veins(), 0u );

  branch->budIs( 11 ); // a zombie is told of nothing
  onBranch->then = [ & ] { EXPECT_TRUE( tree->branchHas( 1 ) ); };
  tree->branchIs( branch );
  branch->budIs( 12 );
  EXPECT_THAT( take(), ElementsAre( "branch here", "tree branch[1]", "branch bud[12]" ) );
  EXPECT_EQ( branch->leafs(), 0u );

  const auto other = Vex::makePtr< Branch >( 1 );
  onBranch->then = [] {};
  tree->branchIs( other ); // takes the place of what stands
  EXPECT_THAT( take(), ElementsAre( "branch bud[11]", "branch bud[12]", "branch zombie",
                                    "tree branch[1]", "tree branch[1]" ) );
  EXPECT_EQ( tree->branch( 1 ), other );
}

TEST_F( VexEntity, MirrorFollowsAKeyMadeAgainOrPutBackAtAnyStageOfItsDeletion ) {
  const std::string stages[] = { "1 bud 10", "1 gone", "told" };
  const Story stories[] = {
    // When the machine's reactor is marked the key is there again; it still stands for the old one.
    { "1 bud 10", "1 bud 11", "1 present", "1 present" },
    { "1 bud 10", "1 bud 11", "1 gone", "1 present" },
    { "1 bud 10", "1 bud 11", "1 gone", "1 present" },
  };
  for ( const bool putBack : { false, true } ) {
    for ( int stage = 0; stage < 3; ++stage ) {
      SCOPED_TRACE( stages[ stage ] + ( putBack ? ": put back" : ": made again" ) );
      tree = Vex::makePtr< Tree >();
      const auto old = tree->branchIs( 1 );
      old->budIs( 10 );
      old->budIs( 11 );
      const auto gardener = Vex::makePtr< Gardener >( tree, story );
      const auto told = watch( "tree", tree.get() );
      bool done = false;
      const auto act = [ & ]( const std::string & what ) {
        if ( what == stages[ stage ] && !std::exchange( done, true ) ) {
          if ( putBack ) {
            tree->branchIs( old );
          } else {
            tree->branchIs( 1 );
          }
        }
      };
      gardener->then = act;
      told->then = [ & ] { act( "told" ); };
      take();
      tree->branchDel( 1 );
      std::erase( story, "tree branch[1]" );
      EXPECT_EQ( take(), stories[ stage ] );
      const auto now = tree->branch( 1 );
      EXPECT_EQ( now == old, putBack );
      ASSERT_TRUE( gardener->branch( 1 ) );
      EXPECT_EQ( gardener->branch( 1 )->notifier(), now );
      now->budIs( 5 );
      EXPECT_THAT( take(), ElementsAre( "1 bud 5" ) ); // told of again, once
      tree->branchDel( 1 );
      EXPECT_THAT( take(), ElementsAre( "1 bud 5", "1 gone", "tree branch[1]" ) );
      EXPECT_EQ( gardener->branchs(), 0u );
    }
  }
}

TEST_F( VexEntity, MadeAndDeletedAgainDuringItsDeletionIsToldOnce ) {
  const auto old = tree->branchIs( 1 );
  old->budIs( 10 );
  const auto onTree = watch( "tree", tree.get() );
  const auto onBranch = watch( "branch", old.get() );
  onBranch->then = [ & ] {
    tree->branchIs( 1 )->budIs( 12 );
    tree->branchDel( 1 );
    tree->branchIs( 2 ); // another key is told of at once
    tree->branchDel( 2 );
  };
  tree->branchDel( 1 );
  EXPECT_THAT( take(),
               ElementsAre( "branch bud[10]", "tree branch[2]", "tree branch[2]", "branch zombie",
                            "tree branch[2]", "tree branch[2]", "tree branch[1]" ) );
  EXPECT_EQ( tree->branchs(), 0u );
}

TEST_F( VexEntity, MirrorMakesDropsAndRebindsItsReactors ) {
  tree->branchIs( 1 );
  tree->branchIs( 2 );
  auto gardener = Vex::makePtr< Gardener >( tree, story );
  tree->branchIs( 3 );
  EXPECT_THAT( take(), ElementsAre( "1 present", "2 present", "3 present" ) );
  tree->branchDel( 2 );
  EXPECT_FALSE( gardener->branchHas( 2 ) );
  // A reactor dropped for itself cleans up too, once, even when its own handler drops it.
  gardener->then = [ & ]( const auto & ) { gardener->branchDel( 3 ); };
  gardener->branchDel( 3 );
  gardener->then = []( const auto & ) {};
  EXPECT_EQ( gardener->branchs(), 1u );
  gardener->branchIs( tree->branch( 1 ) ); // bound already
  EXPECT_THAT( take(), ElementsAre( "2 gone", "3 present" ) );

  // Deleted and made while the machine was not told: bound to the new one when it is.
  gardener->hasNotificationActiveIs( false );
  tree->branchDel( 1 );
  const auto now = tree->branchIs( 1 );
  gardener->hasNotificationActiveIs( true );
  now->budIs( 1 );
  EXPECT_THAT( take(), ElementsAre( "1 gone" ) );
  for ( const auto & [ number, branch ] : tree->branch() ) {
    gardener->branchIs( branch );
  }
  now->budIs( 2 );
  EXPECT_THAT( take(), ElementsAre( "3 present", "1 present", "1 bud 2" ) );

  // The machine's end, here in a handler, drops its reactors and cleans nothing up.
  gardener->then = [ & ]( const auto & ) { gardener = nullptr; };
  gardener->branchDel( 3 );
  EXPECT_THAT( take(), ElementsAre( "3 present" ) );
  EXPECT_FALSE( tree->vexWatched() );
  EXPECT_FALSE( now->vexWatched() );
  EXPECT_THAT( take(), IsEmpty() );
}

TEST_F( VexEntity, AMemberEntityGoesWithTheLastThatItHolds ) {
  const auto branch = tree->branchIs( 1 );
  const auto leaf = branch->leafIs( 2 );
  leaf->veinIs( 20 );
  leaf->veinIs( 21 );
  const auto onBranch = watch( "branch", branch.get() );
  const auto onLeaf = watch( "leaf", leaf.get() );
  EXPECT_FALSE( branch->leafMemberDel( 3, 20 ) );
  EXPECT_FALSE( branch->leafMemberDel( 2, 20 ) );
  EXPECT_FALSE( branch->leafDelIfEmpty( 2 ) );
  EXPECT_TRUE( branch->leafMemberDel( 2, 21 ) );
  EXPECT_THAT( take(),
               ElementsAre( "leaf vein[20]", "leaf vein[21]", "leaf zombie", "branch leaf[2]" ) );

  // What a handler of the last member's deletion leaves is what counts.
  const std::tuple< std::function< void() >, bool, bool > cases[] = {
    { [ & ] { branch->leaf( 2 )->veinIs( 5 ); }, false, true },
    { [ & ] { branch->leafDel( 2 ); }, false, false },
    { [ & ] { branch->leafDel( 2 ), branch->leafIs( 2 ); }, false, true },
    { [] {}, true, false },
  };
  for ( const auto & [ act, gone, there ] : cases ) {
    branch->leafDel( 2 );
    branch->leafIs( 2 )->veinIs( 20 );
    const auto onVein = watch( "leaf", branch->leaf( 2 ).get() );
    onVein->then = [ &, act = act ] {
      onVein->then = [] {};
      act();
    };
    EXPECT_EQ( branch->leafMemberDel( 2, 20 ), gone );
    EXPECT_EQ( branch->leafHas( 2 ), there );
  }

  // Empty is what holds nothing in any of its collections.
  tree->branch( 1 )->budIs( 10 );
  EXPECT_FALSE( tree->branchDelIfEmpty( 1 ) );
  branch->budDel( 10 );
  branch->leafIs( 3 );
  EXPECT_FALSE( tree->branchDelIfEmpty( 1 ) );
  branch->leafDel( 3 );
  EXPECT_TRUE( tree->branchDelIfEmpty( 1 ) );
  EXPECT_FALSE( tree->branchDelIfEmpty( 1 ) );
}
static_assert( Vex::collectionCount< Tree >() == 4 && Vex::collectionCount< Plant >() == 0 &&
               Vex::collectionCount< Gardener >() == 0 );

TEST_F( VexEntity, OwnerSwitchesAndMarksAllItsReactors ) {
  const auto other = Vex::makePtr< Tree >();
  const auto a = watch( "a", tree.get() );
  auto b = watch( "b", other.get() );
  const auto change = [ & ] {
    tree->visitInc( 1 );
    other->visitInc( 1 );
    return take();
  };
  watchers.hasNotificationActiveIs( false );
  const auto c = watch( "c", tree.get() );
  EXPECT_THAT( change(), IsEmpty() );
  watchers.hasNotificationActiveIs( true );
  EXPECT_THAT( change(), ElementsAre( "a visit[1]", "c visit[1]", "b visit[1]" ) );

  a->then = [ & ] { b.reset(); };
  watchers.vexDoZombieReactors( true );
  watchers.vexDoZombieReactors( true );
  EXPECT_THAT( change(), ElementsAre( "a zombie", "c zombie" ) );
  watchers.hasNotificationActiveIs( false );
  watchers.hasNotificationActiveIs( true );
  EXPECT_THAT( change(), IsEmpty() );
  a->notifierIs( other.get() ); // marked: its handler waits for the mark to go
  watchers.vexDoZombieReactors( false );
  EXPECT_THAT( change(), ElementsAre( "a here", "c here", "c visit[1]", "a visit[1]" ) );

  auto d = watch( "d", tree.get() );
  d->then = [ & ] { d.reset(); };
  tree->branchIs( 1 );
  EXPECT_EQ( d, nullptr );
  d = watch( "d", tree.get() );
  d->then = [ & ] { d.reset(); };
  watchers.vexDoZombieReactors( true );
  EXPECT_EQ( d, nullptr );
}

TEST_F( VexEntity, IsNamedByItsHostOrItsKey ) {
  EXPECT_EQ( tree->entity(), tree );
  tree->nameIs( "oak" );
  const auto leaf = tree->branchIs( 4 )->leafIs( 5 );
  EXPECT_EQ( leaf->fullName(), "oak.branch[4].leaf[5]" );
  EXPECT_EQ( leaf->name(), "5" );
  EXPECT_EQ( leaf->parentAttrName(), "leaf" );
  EXPECT_EQ( leaf->parent(), tree->branch( 4 ).get() );
  tree = nullptr;
  EXPECT_EQ( leaf->parent(), nullptr );
  EXPECT_EQ( leaf->fullName(), "5" );
}

struct Keeper : Vex::ZeroReferencesNotifiee {
  void onZeroReferences( const Vex::Entity & entity ) override { then( entity ); }
  std::function< void( const Vex::Entity & ) > then;
};

TEST_F( VexEntity, NotifieesOfZeroReferencesRunBeforeTheEndAndMayPreventIt ) {
  Keeper first, second;
  Vex::Ptr< const Vex::Entity > kept;
  int ends = 0;
  first.then = [ & ]( const Vex::Entity & entity ) {
    ++ends;
    EXPECT_EQ( entity.name(), "ash" );
    tree->zeroReferencesNotifieeDel( &second ); // it is not told
    kept = &entity;
  };
  second.then = []( const Vex::Entity & ) { ADD_FAILURE(); };
  tree->nameIs( "ash" );
  tree->zeroReferencesNotifieeIs( &first );
  tree->zeroReferencesNotifieeIs( &first );
  tree->zeroReferencesNotifieeIs( &second );
  Vex::Ptr< Tree > last = tree;
  last.release()->refDec();
  EXPECT_EQ( ends, 0 );
  tree.get()->refDec();
  EXPECT_EQ( ends, 1 );
  EXPECT_EQ( kept->refs(), 1u );
  tree.release();
  first.then = [ & ]( const Vex::Entity & ) { ++ends; };
  kept = nullptr;
  EXPECT_EQ( ends, 2 );
}

struct Counted : Vex::PtrInterface {
  explicit Counted( int & live ) : live( live ) {
    ++live;
    const Vex::Ptr< Counted > self( this );
  }
  ~Counted() override {
    const Vex::Ptr< Counted > self( this );
    --live;
  }
  int & live;
};
struct CountedMore : Counted {
  using Counted::Counted;
};

TEST( VexPtr, CountsItsReferences ) {
  for ( const bool threadSafe : { false, true } ) {
    Vex::threadSafePtrsIs( threadSafe );
    int live = 0;
    {
      auto more = Vex::makePtr< CountedMore >( live );
      EXPECT_EQ( more->refs(), 1u );
      const Vex::Ptr< const Counted > copy = more;
      EXPECT_EQ( copy, more );
      EXPECT_EQ( more->refs(), 2u );
      Vex::Ptr< Counted > moved = std::move( more );
      EXPECT_EQ( more, nullptr );
      EXPECT_EQ( moved->refs(), 2u );
      moved = *&moved;
      EXPECT_EQ( moved->refs(), 2u );
      EXPECT_EQ( Vex::dynamicCast< CountedMore >( moved ), copy );
      moved = Vex::makePtr< Counted >( live );
      EXPECT_EQ( Vex::dynamicCast< CountedMore >( moved ), nullptr );
      EXPECT_EQ( live, 2 );
    }
    EXPECT_EQ( live, 0 );
  }
  Vex::threadSafePtrsIs( false );
}

TEST( VexClock, IsTheMachinesOrMovesWhenTold ) {
  Vex::Clock::steadyIs();
  const double before = Vex::Clock::now();
  EXPECT_GE( Vex::Clock::now(), before );
  EXPECT_DEATH( Vex::Clock::advanceTo( 1 ),
                "Vex/Clock:[0-9]+: assertion failed: isVirtual\\(\\)\n" );
  Vex::Clock::virtualIs( 100 );
  Vex::Clock::advanceTo( 102.5 );
  Vex::Clock::advanceTo( 101 );
  EXPECT_EQ( Vex::Clock::now(), 102.5 );
  Vex::Clock::steadyIs();
  EXPECT_GE( Vex::Clock::now(), before );
}

} // namespace
