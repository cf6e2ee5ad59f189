#include "VexTestTypes.h"

#include <gmock/gmock.h>

#include <cmath>

namespace {

using namespace VexTest;
using testing::ElementsAre;
using Vex::Access;

const Vex::AttributeType & attribute( const Vex::Entity & entity, std::string_view name ) {
  const auto * found = entity.fwkType().attribute( name );
  EXPECT_TRUE( found ) << name;
  return *found;
}

TEST( VexReflection, DescribesAttributesOfTheBaseFirst ) {
  const auto describe = []( const Vex::EntityType & type ) {
    Story lines;
    for ( const auto * each : type.attributes() ) {
      lines.push_back( std::to_string( each->id ) + " " + std::string( each->name ) + " " +
                       std::string( text( each->kind ) ) + " " + std::string( each->keyType ) +
                       ":" + std::string( each->valueType ) +
                       ( each->access == Access::readOnly ? " read only" : "" ) );
      EXPECT_EQ( type.attribute( each->id ), each );
    }
    return lines;
  };
  EXPECT_EQ( Tree::vexType().name, "VexTest::Tree" );
  EXPECT_THAT( describe( Vex::makePtr< Tree >()->fwkType() ),
               ElementsAre( "1 height value :number", "2 note value :text",
                            "3 branchCount computed :whole number read only",
                            "4 branch entities whole number:VexTest::Branch",
                            "5 stroke map VexTest::Point:VexTest::Stroke",
                            "6 visit counter whole number:whole number", "7 guest set text:" ) );
  EXPECT_THAT( describe( Gardener::vexType() ),
               ElementsAre( "1 tree reference :VexTest::Tree read only",
                            "2 branch reactors whole number: read only",
                            "3 tools value :whole number read only",
                            "4 pace value :seconds above 0, 0.000001 to 1000000000",
                            "5 spare reference :VexTest::Plant read only" ) );
  EXPECT_EQ( Tree::vexType().attribute( "none" ), nullptr );
}

// "<key>=<value>" for each member; "+" for a member entity.
Story members( const Vex::Entity & entity, std::string_view name ) {
  Story all;
  attribute( entity, name ).forEach( entity, [ & ]( const Vex::ReflectedMember & member ) {
    all.push_back( member.key + "=" + member.value + ( member.entity ? "+" : "" ) );
  } );
  EXPECT_EQ( attribute( entity, name ).size( entity ), all.size() );
  return all;
}

const std::string strokeText = "(1,2),(3,4),green,5";

TEST( VexReflection, ReadsWritesAndDeletesThroughTexts ) {
  const auto tree = Vex::makePtr< Tree >();
  Story story;
  Watchers watchers;
  const auto & height = attribute( *tree, "height" );
  EXPECT_EQ( height.value( *tree ), "1.5" );
  height.valueIs( *tree, "20.25" );
  EXPECT_EQ( tree->height(), 20.25 );
  height.reset( *tree );
  EXPECT_EQ( tree->height(), 1.5 );
  attribute( *tree, "note" ).valueIs( *tree, "bark, with moss" );
  EXPECT_EQ( tree->note(), "bark, with moss" );

  const auto & branch = attribute( *tree, "branch" );
  Watcher watcher( watchers, story, "tree", tree.get() );
  branch.memberIs( *tree, "7", "" );
  branch.memberIs( *tree, "3", "" );
  EXPECT_TRUE( branch.memberDel( *tree, "3" ) );
  EXPECT_FALSE( branch.memberDel( *tree, "3" ) );
  EXPECT_EQ( branch.member( *tree, "7" )->entity, tree->branch( 7 ) );
  EXPECT_EQ( branch.member( *tree, "3" ), std::nullopt );
  EXPECT_THAT( members( *tree, "branch" ), ElementsAre( "7=+" ) );
  EXPECT_EQ( attribute( *tree, "branchCount" ).value( *tree ), "1" );
  EXPECT_EQ( story.size(), 3u );
  watcher.notifierIs( nullptr );

  const auto & stroke = attribute( *tree, "stroke" );
  stroke.memberIs( *tree, "Value('VexTest::Point', ** {'x': 9, 'y': 8})", strokeText );
  EXPECT_EQ( tree->stroke( Point( 9, 8 ) ).colour, Colour::green );
  stroke.memberIs( *tree, "1,1", valueToStrep( Stroke() ) );
  EXPECT_THAT( members( *tree, "stroke" ),
               ElementsAre( "9,8=" + strokeText, "1,1=(0,0),(0,0),red,0" ) );
  EXPECT_EQ( stroke.canonicalKey( "9, 8" ), "9,8" );
  EXPECT_EQ( stroke.canonicalValue( "(1, 2), (3, 4), 1, 5" ), strokeText );

  attribute( *tree, "visit" ).memberIs( *tree, "5", "6" );
  EXPECT_EQ( tree->visit( 5 ), 6u );
  const auto & guest = attribute( *tree, "guest" );
  guest.memberIs( *tree, "owl", "" );
  guest.memberIs( *tree, "jay", "1" );
  guest.memberIs( *tree, "owl", "0" );
  EXPECT_THAT( members( *tree, "guest" ), ElementsAre( "jay=" ) );
  for ( const char * each : { "stroke", "visit", "guest", "branch" } ) {
    attribute( *tree, each ).reset( *tree );
    EXPECT_EQ( attribute( *tree, each ).size( *tree ), 0u ) << each;
  }

  tree->branchIs( 7 );
  const auto gardener = Vex::makePtr< Gardener >( tree, story );
  EXPECT_EQ( attribute( *gardener, "tree" ).target( *gardener ), tree );
  Watcher onGardener( watchers, story, "gardener", gardener.get() );
  story.clear();
  for ( const auto & spare : { tree, tree, Vex::Ptr< Tree >() } ) {
    gardener->spareIs( spare );
    EXPECT_EQ( attribute( *gardener, "spare" ).target( *gardener ), spare );
  }
  EXPECT_THAT( story, ElementsAre( "gardener spare", "gardener spare" ) );
  EXPECT_THAT( members( *gardener, "branch" ), ElementsAre( "7=" ) );
}

TEST( VexReflection, CallsOperationsByTextOrSaysWhichArgumentIsBad ) {
  const auto tree = Vex::makePtr< Tree >();
  const auto & type = Vex::makePtr< Tree >()->fwkType();
  Story offered;
  for ( const auto & each : type.operations() ) {
    offered.emplace_back( each->name );
    for ( const auto & parameter : each->parameters() ) {
      offered.back() += " " + std::string( parameter.name ) + ":" + std::string( parameter.type );
    }
  }
  EXPECT_THAT( offered, ElementsAre( "paint at:VexTest::Point stroke:VexTest::Stroke",
                                     "guestDelAll", "visitOf key:text" ) );
  const auto call = [ & ]( const char * name, std::string_view arguments ) -> std::string {
    Vex::TextCursor in( arguments );
    try {
      return type.operation( name )->call( *tree, in );
    } catch ( const Vex::ParseError & error ) {
      return std::to_string( error.offset() ) + ": " + error.what();
    } catch ( const Vex::RangeError & error ) {
      return error.what();
    }
  };
  tree->visitIs( 7, 3 );
  tree->guestIs( "owl" );
  EXPECT_EQ( call( "visitOf", "7" ), "3" );
  EXPECT_EQ( call( "visitOf", "12" ), "argument 'key': TreeNumber > 9 not allowed" );
  EXPECT_EQ( call( "guestDelAll", "owl" ), "0: expected nothing more, found 'owl'" );
  EXPECT_EQ( call( "guestDelAll", " \t" ), "" );
  EXPECT_EQ( tree->guests(), 0u );
  const std::pair< const char *, const char * > bad[] = {
    { "", "0: argument 'at': expected VexTest::Point, found nothing" },
    { "1,2", "3: argument 'stroke.from': expected '(', found nothing" },
    { "1,2(1,2),(3,4),red,5", "3: argument 'at': expected a blank, found '('" },
    { "1,y (1,2),(3,4),red,5", "2: argument 'at.y': expected a whole number of 16 bits" },
    { "1,2 (1,2),(3,4),pink,5", "16: argument 'stroke.colour': expected one of red green blue" },
    { "1,2 (1,2),(3,4),red,5 6", "22: expected nothing more, found '6'" }
  };
  for ( const auto & [ arguments, what ] : bad ) {
    EXPECT_THAT( call( "paint", arguments ), testing::StartsWith( what ) );
  }
  EXPECT_EQ( tree->strokes(), 0u );
  EXPECT_EQ( call( "paint", "1,2\t (1, 2),(3,4),green,5\t" ), "" );
  EXPECT_EQ( tree->stroke( Point( 1, 2 ) ).colour, Colour::green );
  EXPECT_EQ( Gardener::vexType().operation( "paint" ), nullptr );
}

TEST( VexReflection, AnAttributeOfADomainTakesNoOtherValue ) {
  Story story;
  const auto tree = Vex::makePtr< Tree >();
  const auto gardener = Vex::makePtr< Gardener >( tree, story );
  const auto & pace = attribute( *gardener, "pace" );
  Watchers watchers;
  Watcher watcher( watchers, story, "gardener", gardener.get() );
  const std::string expected = "expected seconds above 0, 0.000001 to 1000000000, found ";
  for ( const double value : { 0.0, -1.0, 1e-9, 1e300, double( NAN ), double( INFINITY ) } ) {
    EXPECT_THAT( [ & ] { gardener->paceIs( value ); },
                 testing::ThrowsMessage< Vex::RangeError >( "VexTest::Gardener::pace: " + expected +
                                                            Vex::text( value ) ) );
  }
  for ( const char * text : { "0", "-1", "1e-9", "1e400", "nan", "inf", "-0", "05", "", "fast" } ) {
    const auto message = expected + ( *text ? "'" + std::string( text ) + "'" : "nothing" );
    EXPECT_THAT( [ & ] { pace.valueIs( *gardener, text ); },
                 testing::ThrowsMessage< Vex::ParseError >( message ) );
    EXPECT_THAT( [ & ] { pace.canonicalValue( text ); },
                 testing::ThrowsMessage< Vex::ParseError >( message ) );
  }
  EXPECT_THROW( pace.valueIs( *gardener, "5s" ), Vex::ParseError );
  EXPECT_EQ( gardener->pace(), 2.0 );
  EXPECT_EQ( story, Story() );
  pace.valueIs( *gardener, "1e-6" );
  gardener->paceIs( 1e9 );
  EXPECT_EQ( pace.value( *gardener ), "1000000000" );
  gardener->paceDel();
  EXPECT_EQ( gardener->pace(), 2.0 );
  EXPECT_EQ( story.size(), 3u );
}

TEST( VexReflection, BadTextAndOperationsOfOtherKindsChangeNothing ) {
  const auto tree = Vex::makePtr< Tree >();
  tree->branchIs( 1 );
  tree->strokeIs( Point( 1, 1 ), Stroke() );
  tree->guestIs( "owl" );
  Story story;
  Watchers watchers;
  Watcher watcher( watchers, story, "tree", tree.get() );
  const auto write = [ & ]( const char * name, const char * key, const char * value ) {
    attribute( *tree, name ).memberIs( *tree, key, value );
  };
  EXPECT_THROW( attribute( *tree, "height" ).valueIs( *tree, "tall" ), Vex::ParseError );
  EXPECT_THROW( write( "stroke", "1,1", "(1,2),(3,4),green," ), Vex::ParseError );
  EXPECT_THROW( write( "stroke", "1,x", strokeText.c_str() ), Vex::ParseError );
  EXPECT_THROW( write( "stroke", "1,1", "" ), Vex::ParseError );
  EXPECT_THROW( write( "branch", "2", "3" ), Vex::ParseError );
  EXPECT_THROW( write( "branch", "one", "" ), Vex::ParseError );
  EXPECT_THROW( write( "guest", "jay", "perhaps" ), Vex::ParseError );
  EXPECT_THROW( attribute( *tree, "branch" ).memberDel( *tree, "1x" ), Vex::ParseError );
  EXPECT_THROW( attribute( *tree, "branch" ).member( *tree, "" ), Vex::ParseError );
  EXPECT_THROW( write( "height", "1", "1" ), Vex::NotSupported );
  EXPECT_THROW( attribute( *tree, "branch" ).valueIs( *tree, "1" ), Vex::NotSupported );
  EXPECT_THROW( attribute( *tree, "branchCount" ).valueIs( *tree, "1" ), Vex::NotSupported );
  EXPECT_THROW( attribute( *tree, "branchCount" ).reset( *tree ), Vex::NotSupported );
  EXPECT_EQ( story, Story() );
}

static_assert( Vex::Detail::onlyTheLastIsText< const int &, const Vex::String & >() &&
               !Vex::Detail::onlyTheLastIsText< Vex::String, int >() );

} // namespace
