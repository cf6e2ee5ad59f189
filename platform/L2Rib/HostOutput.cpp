#include "L2Rib/HostOutput.h"

#include "Vex/ListText.h"

#include <algorithm>

namespace L2Rib {

// --- Sets of objects

ObjectIds::ObjectIds( std::initializer_list< ObjectId > ids ) {
  for ( const auto id : ids ) {
    add( id );
  }
}

void ObjectIds::add( ObjectId id ) {
  const auto at = std::lower_bound( ids_.begin(), ids_.end(), id );
  if ( at == ids_.end() || *at != id ) {
    ids_.insert( at, id );
  }
}

uint32_t ObjectIds::hash( uint32_t seed ) const {
  for ( const auto id : ids_ ) {
    seed = id.hash( seed );
  }
  return seed;
}

void appendText( Vex::TextBuffer & out, const ObjectIds & ids ) {
  Vex::appendList( out, ids, [ & ]( ObjectId id ) { appendText( out, id ); } );
}

void parseText( Vex::TextCursor & in, ObjectIds & ids ) {
  ids = {};
  Vex::parseList( in, [ & ] {
    ObjectId id;
    parseText( in, id );
    ids.add( id );
  } );
}

// --- Chains

namespace {

class Walker {
public:
  Walker( const HostOutput & output, uint32_t maxLength )
      : output_( output ), maxLength_( maxLength ) {}

  // Whether the walk goes on.
  bool walk( ObjectId id, Wire::MplsLabel label ) {
    if ( std::find( way_.begin(), way_.end(), id ) != way_.end() ) {
      return lack( ChainLack::loop, id );
    }
    if ( way_.size() == maxLength_ ) {
      return lack( ChainLack::tooLong, id );
    }
    if ( std::find( chain_.objects.begin(), chain_.objects.end(), id ) == chain_.objects.end() ) {
      chain_.objects.push_back( id );
    }
    const int tables =
        output_.labelHas( id ) + output_.loadBalanceHas( id ) + output_.destHas( id );
    if ( tables != 1 ) {
      return lack( tables == 0 ? ChainLack::object : ChainLack::ambiguous, id );
    }
    way_.push_back( id );
    const bool goesOn = output_.labelHas( id )         ? walkLabel( id, label )
                        : output_.loadBalanceHas( id ) ? walkLoadBalance( id, label )
                                                       : walkDest( id, label );
    way_.pop_back();
    return goesOn;
  }

  Chain take() { return std::move( chain_ ); }

private:
  bool lack( ChainLack lack, ObjectId at ) {
    chain_.lack = lack;
    chain_.lackAt = at;
    chain_.paths.clear();
    return false;
  }
  bool walkLabel( ObjectId id, Wire::MplsLabel label ) {
    const auto object = output_.label( id );
    return label != Wire::MplsLabel() ? lack( ChainLack::secondLabel, id )
                                      : walk( object.next, object.label );
  }
  bool walkLoadBalance( ObjectId id, Wire::MplsLabel label ) {
    const auto members = output_.loadBalance( id );
    chain_.loadBalanced = true;
    return members.empty() ? lack( ChainLack::members, id )
                           : std::all_of( members.begin(), members.end(),
                                          [ & ]( ObjectId each ) { return walk( each, label ); } );
  }
  bool walkDest( ObjectId id, Wire::MplsLabel label ) {
    const auto dest = output_.dest( id );
    const auto own = dest.destType() == destTypeMpls_ ? dest.mpls().label() : Wire::MplsLabel();
    if ( label != Wire::MplsLabel() && own != Wire::MplsLabel() ) {
      return lack( ChainLack::secondLabel, id );
    }
    chain_.paths.push_back( { own != Wire::MplsLabel() ? own : label, dest } );
    return true;
  }

  const HostOutput & output_;
  const uint32_t maxLength_;
  std::vector< ObjectId > way_; // from the first object to where the walk stands
  Chain chain_;
};

} // namespace

Vex::String lackText( const Chain & chain ) {
  const auto object = "object " + Vex::text( chain.lackAt );
  switch ( chain.lack ) {
  case ChainLack::nothing:
    return {};
  case ChainLack::object:
    return object + " is missing";
  case ChainLack::ambiguous:
    return object + " stands in two tables";
  case ChainLack::loop:
    return "it turns back to " + object;
  case ChainLack::tooLong:
    return object + " makes it too long";
  case ChainLack::members:
    return object + " shares out among none";
  case ChainLack::secondLabel:
    return object + " gives a second label";
  }
  VEX_ASSERT( 0 );
}

Chain walkChain( const HostOutput & output, ObjectId first, uint32_t maxLength ) {
  Walker walker( output, maxLength );
  walker.walk( first, {} );
  return walker.take();
}

} // namespace L2Rib
