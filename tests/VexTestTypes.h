// Values, entities and a machine for the tests of Vex.
#pragma once

#include "Vex/Attributes.h"

#include <functional>
#include <string>
#include <vector>

namespace VexTest {

using Story = std::vector< std::string >;

VEX_ENUM( Colour, "VexTest::Colour", red, green, blue )

struct Point {
  uint32_t x = 0;
  uint16_t y = 0;
  VEX_VALUE( Point, "VexTest::Point", x, y )
};

struct Stroke {
  Point from;
  Point to;
  Colour colour = Colour::red;
  uint64_t width = 0;
  VEX_VALUE( Stroke, "VexTest::Stroke", from, to, colour, width )
};

// 0 to 9, made and parsed.
class TreeNumber {
public:
  TreeNumber( uint32_t value = 0 ) : value_( value ) {
    if ( value > 9 ) {
      throw Vex::RangeError( "TreeNumber > 9 not allowed" );
    }
  }
  uint32_t value() const { return value_; }
  friend void parseText( Vex::TextCursor & in, TreeNumber & number ) {
    uint32_t value = 0;
    Vex::parseText( in, value );
    number = value;
  }

private:
  uint32_t value_;
};

class Leaf : public Vex::Entity {
  VEX_ENTITY( Leaf, "VexTest::Leaf" )
  VEX_KEY( Leaf, number, uint32_t )
  VEX_SET( 1, vein, uint32_t )
  VEX_ATTRIBUTES( vein )
};

class Branch : public Vex::Entity {
  VEX_ENTITY( Branch, "VexTest::Branch" )
  VEX_KEY( Branch, number, uint32_t )
  VEX_SET( 1, bud, uint32_t )
  VEX_ENTITIES( 2, leaf, Leaf )
  VEX_ATTRIBUTES( bud, leaf )
};

class Plant : public Vex::Entity {
  VEX_ENTITY( Plant, "VexTest::Plant" )
  VEX_ATTRIBUTE( 1, height, double, 1.5 )
  VEX_ATTRIBUTE( 2, note, Vex::String )
  VEX_COMPUTED( 3, branchCount, uint32_t )
  VEX_ATTRIBUTES( height, note, branchCount )
};

class Tree : public Plant {
  VEX_ENTITY( Tree, "VexTest::Tree", Plant )
  VEX_ENTITIES( 4, branch, Branch )
  VEX_MAP( 5, stroke, Point, Stroke )
  VEX_COUNTER( 6, visit, uint32_t )
  VEX_SET( 7, guest, Vex::String )
  VEX_ATTRIBUTES( branch, stroke, visit, guest )
  VEX_OPERATIONS( VEX_OPERATION( paint, at, stroke ), VEX_OPERATION( guestDelAll ),
                  VEX_OPERATION( visitOf, key ) )

  void paint( const Point & at, Stroke stroke ) { strokeIs( at, stroke ); }
  uint32_t visitOf( TreeNumber number ) { return visit( number.value() ); }
};

inline uint32_t Plant::branchCount() const {
  const auto * tree = dynamic_cast< const Tree * >( this );
  return tree ? static_cast< uint32_t >( tree->branchs() ) : 0;
}

// Writes "<name> <attribute>[<key>]" for a notification and "<name> zombie" or "<name> here" for
// its entity as a whole, then does `then`. Keys must be 32-bit numbers.
class Watcher : public Vex::Reactor {
public:
  Watcher( Vex::ReactorOwner & owner, Story & story, const std::string & name,
           const Vex::Entity * entity )
      : Reactor( owner ), story_( story ), name_( name ) {
    Reactor::notifierIs( entity );
    watching_ = true;
  }
  using Reactor::notifierIs;

  std::function< void() > then = [] {};

private:
  void onAttribute( Vex::AttrId id, const void * key ) override {
    const auto * attribute = notifierEntity()->fwkType().attribute( id );
    tell( std::string( attribute->name ) +
          ( key ? "[" + std::to_string( *static_cast< const uint32_t * >( key ) ) + "]" : "" ) );
  }
  void handleNotifier() override {
    if ( watching_ ) {
      tell( hasNotificationActive() ? "here" : "zombie" );
    }
  }
  void tell( const std::string & what ) {
    story_.push_back( name_ + " " + what );
    const auto action = then; // this watcher may end now
    action();
  }

  Story & story_;
  const std::string name_;
  bool watching_ = false;
};

struct Watchers : Vex::ReactorOwner {};

// A machine that mirrors a tree's branches and writes what its reactors are told: "<key> present"
// or "<key> gone" for a branch as a whole, "<key> bud <bud>" for a change in one.
class Gardener : public Vex::Entity, public Vex::ReactorOwner {
public:
  class VexBranch : public Vex::MemberReactor< Gardener, Branch > {
  public:
    using MemberReactor::MemberReactor;

  private:
    void onAttribute( Vex::AttrId id, const void * key ) override {
      if ( id == Branch::budAttr ) {
        sm()->tell( fwkKey(), "bud " + std::to_string( Branch::budAttr.key( key ) ) );
      }
    }
    void handleNotifier() override {
      const bool listed = sm()->branch( fwkKey() ) == this;
      sm()->tell( fwkKey(), !listed                               ? "not listed"
                            : sm()->tree()->branchHas( fwkKey() ) ? "present"
                                                                  : "gone" );
    }
  };
  VEX_ENTITY( Gardener, "VexTest::Gardener" )
  VEX_INPUT( 1, tree, Tree )
  VEX_REACTORS( 2, branch, VexBranch )
  VEX_ATTRIBUTE( 3, tools, uint32_t )
  VEX_TUNABLE( 4, pace, Vex::Interval, 2.0 )
  VEX_PART( 5, spare, Plant )
  VEX_ATTRIBUTES( tree, branch, tools, pace, spare )
  static constexpr auto vexAccess = Vex::Access::readOnly;
  using VexTree = Vex::MirrorReactor< Tree::branchEntities, branchReactors >;

  Gardener( const Vex::Ptr< const Tree > & tree, Story & story )
      : tree_( tree ), story_( story ), treeReactor_( *this ) {
    treeReactor_.notifierIs( tree );
  }

  std::function< void( const std::string & ) > then = []( const std::string & ) {};

private:
  void tell( uint32_t number, const std::string & what ) {
    story_.push_back( std::to_string( number ) + " " + what );
    const auto action = then; // this machine may end now
    action( story_.back() );
  }

  Story & story_;
  VexTree treeReactor_;
};

} // namespace VexTest
