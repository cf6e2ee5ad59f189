#include "KezEvpn/frame/PortStatuses.h"

#include <gmock/gmock.h>

#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Kez::EsiIds;
using Kez::EsiPort;
using Kez::IntfVlanKey;
using Wire::IntfId;

class Owner : public Vex::Entity {
  VEX_ENTITY( Owner, "Test::Owner" )
  VEX_SHOWN_ENTITIES( 1, status, Kez::PortStatuses< Kez::EsiStatus > )
  VEX_ATTRIBUTES( status )

public:
  auto & statuses() { return status_; }
};

// Keeps the names of what changes.
class Listener : public Vex::ReactorOwner, public Vex::Reactor {
public:
  explicit Listener( const Vex::Entity & entity )
      : Reactor( *static_cast< ReactorOwner * >( this ) ), entity_( entity ) {
    notifierIs( &entity );
  }
  std::vector< std::string > heard;

private:
  void onAttribute( Vex::AttrId id, const void * key ) override {
    const auto & attribute = *entity_.fwkType().attribute( id );
    heard.push_back( std::string( attribute.name ) + " " + attribute.keyText( key ) );
  }
  void handleNotifier() override {}

  const Vex::Entity & entity_;
};

const EsiIds ids{ { Kez::hwTunnelIdTypeDefault, 7 }, 100 };
const EsiIds otherIds{ { Kez::hwTunnelIdTypeDefault, 8 }, 100 };

// Lists change as vectors do, and what nobody holds is not kept.
TEST( PortListsTest, AreListsInOrder ) {
  using Lists = Kez::PortLists< EsiPort >;
  Lists lists;
  constexpr size_t holders = 5;
  std::vector< Lists::Id > held( holders, Lists::empty );
  std::vector< std::vector< EsiPort > > models( holders );
  std::mt19937 random( 1 );
  for ( int round = 0; round < 3000; ++round ) {
    const size_t i = random() % holders;
    const IntfId port = Wire::PortChannelIntfId::intfId( random() % 6 );
    const auto at = std::ranges::find_if(
        models[ i ], [ & ]( const auto & each ) { return each.intfId == port; } );
    switch ( random() % 8 ) {
    case 0:
      lists.release( std::exchange( held[ i ], Lists::empty ) );
      models[ i ].clear();
      break;
    case 1:
    case 2:
      lists.portDel( held[ i ], port );
      std::erase_if( models[ i ], [ & ]( const auto & each ) { return each.intfId == port; } );
      break;
    default:
      const EsiPort changed{ port, random() % 4 ? ids : otherIds };
      lists.portIs( held[ i ], changed );
      if ( at != models[ i ].end() ) {
        *at = changed;
      } else {
        models[ i ].push_back( changed );
      }
    }
    ASSERT_EQ( lists.ports( held[ i ] ), models[ i ] );
    for ( size_t j = 0; j < holders; ++j ) {
      ASSERT_EQ( lists.size( held[ j ] ), models[ j ].size() );
      // As many at most as there are ports on record, and what a change takes besides.
      ASSERT_LE( held[ j ], ( holders + 1 ) * 6 );
      for ( const auto & port : models[ j ] ) {
        ASSERT_EQ( *lists.find( held[ j ], port.intfId ), port );
      }
    }
  }
  EXPECT_EQ( lists.find( Lists::empty, "Ethernet1" ), nullptr );
}

// An entity follows its record while it is held, in all that a watcher sees.
TEST( PortStatusesTest, EntitiesShowRecords ) {
  const auto owner = Vex::makePtr< Owner >();
  owner->nameIs( "owner" );
  auto & statuses = owner->statuses();
  const IntfVlanKey key{ "Port-Channel1", 10 };
  Listener told( *owner );
  EXPECT_EQ( owner->status( key ), nullptr );
  statuses.programmedIs( key, { "Ethernet2", ids } );
  statuses.programmedIs( key, { "Ethernet1", ids } );
  EXPECT_THAT( told.heard, ElementsAre( "status Port-Channel1,10" ) );
  const auto & attribute = *Owner::vexType().attribute( "status" );
  EXPECT_EQ( attribute.entityType(), &Kez::EsiStatus::vexType() );
  {
    const auto shown = attribute.member( *owner, "Port-Channel1,10" );
    ASSERT_TRUE( shown );
    EXPECT_EQ( shown->entity->fullName(), "owner.status[Port-Channel1,10]" );
    EXPECT_EQ( shown->entity, owner->status( key ) );
  }
  auto status = owner->status( key );
  Listener seen( *status );
  const auto programmed = [ & ] {
    std::vector< IntfId > all;
    for ( const auto port : status->programmed() ) {
      all.push_back( port );
    }
    return all;
  };
  EXPECT_THAT( programmed(), ElementsAre( "Ethernet2", "Ethernet1" ) );
  EXPECT_EQ( status->ids( "Ethernet1" ), ids );
  statuses.programmedIs( key, { "Ethernet2", otherIds } );
  statuses.forceReprogramIs( key, "Ethernet2" );
  statuses.programmedDel( key, "Ethernet1" );
  EXPECT_THAT( programmed(), ElementsAre( "Ethernet2" ) );
  EXPECT_EQ( status->ids( "Ethernet2" ), otherIds );
  EXPECT_THAT( seen.heard, ElementsAre( "ids Ethernet2", "forceReprogram Ethernet2",
                                        "ids Ethernet1", "programmed Ethernet1" ) );
  statuses.del( key );
  EXPECT_TRUE( seen.markedForDeletion() );
  EXPECT_THAT( programmed(), IsEmpty() );
  EXPECT_EQ( status->parent(), nullptr );
  EXPECT_EQ( owner->statuss(), 0u );
  EXPECT_EQ( told.heard.size(), 2u );

  // Another one under the same key.
  statuses.programmedIs( key, { "Ethernet3", ids } );
  EXPECT_THAT( programmed(), IsEmpty() );
  status = owner->status( key );
  EXPECT_THAT( programmed(), ElementsAre( "Ethernet3" ) );
}

// What cannot be told from a list of ports stays though nobody looks.
TEST( PortStatusesTest, MarksAndWaitingPortsStay ) {
  auto owner = Vex::makePtr< Owner >();
  auto & statuses = owner->statuses();
  const IntfVlanKey key{ "Port-Channel1", 10 };
  EXPECT_FALSE( statuses.makeOrHas( key, "Ethernet1" ) );
  statuses.unprogrammedIs( key, "Ethernet1" );
  statuses.programmedIs( key, { "Ethernet2", ids } );
  statuses.forceReprogramIs( key, "Ethernet2" );
  EXPECT_TRUE( owner->status( key )->unprogrammedHas( "Ethernet1" ) );
  EXPECT_TRUE( owner->status( key )->forceReprogramHas( "Ethernet2" ) );
  EXPECT_TRUE( owner->status( key )->programmedHas( "Ethernet2" ) );
  EXPECT_EQ( statuses.unprogrammeds( key ), 1u );
  EXPECT_EQ( statuses.uncommon().size(), 1u );
  statuses.unprogrammedDelAll( key );
  EXPECT_EQ( statuses.uncommon().size(), 1u );
  statuses.forceReprogramDel( key, "Ethernet2" );
  EXPECT_EQ( statuses.uncommon().size(), 0u );
  statuses.forceReprogramIs( key, "Ethernet2" );
  const auto status = owner->status( key );
  owner = nullptr;
  EXPECT_EQ( status->parent(), nullptr );
  EXPECT_TRUE( status->programmedHas( "Ethernet2" ) );
}

} // namespace
